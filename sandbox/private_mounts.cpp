/**
 * Runs a program in a separate mount namespace, as `unshare --mount` does.
 *
 *     private_mounts PROGRAM [ARGUMENT...]
 *
 * Unlike unshare, it also works for root in a chroot (schroot, pbuilder). There / is not a mount
 * point, so unshare cannot keep the new mounts from the host: the kernel makes mounts private only
 * at a mount point, and the one that holds / lies outside of the chroot.
 */

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kNoSandbox = 125;
constexpr int kNotRun = 127;

bool makePrivate() { return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0; }

bool isSame(const char* one, const char* other) {
    struct stat a {};
    struct stat b {};
    return stat(one, &a) == 0 && stat(other, &b) == 0 && a.st_dev == b.st_dev &&
           a.st_ino == b.st_ino;
}

/// Sets this process's root and working directory to the namespace's root. Once the root is below
/// the working directory, ".." can leave it.
bool leaveRoot() {
    if (chdir("/") != 0 || chroot("usr") != 0)
        return false;
    while (!isSame(".", ".."))
        if (chdir("..") != 0)
            return false;
    return chroot(".") == 0;
}

/// Makes the mounts private at the root of the namespace, and returns to the process's root.
bool makePrivateFromOutside() {
    const int root = open("/", O_PATH | O_DIRECTORY | O_CLOEXEC);
    const int here = open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (root < 0 || here < 0 || !leaveRoot())
        return false;
    const bool done = makePrivate();
    const int error = errno;
    const bool back = fchdir(root) == 0 && chroot(".") == 0 && fchdir(here) == 0;
    if (back)
        errno = error;
    return done && back;
}

int fail(const char* what, int status) {
    std::fprintf(stderr, "sandbox: %s: %s\n", what, std::strerror(errno));
    return status;
}

} // namespace

int main(int argc, char* argv[]) {
    if (argc < 2) {
        std::fprintf(stderr, "Usage: private_mounts PROGRAM [ARGUMENT...]\n");
        return kNoSandbox;
    }
    if (unshare(CLONE_NEWNS) != 0)
        return fail("no mount namespace", kNoSandbox);
    if (!makePrivate() && !makePrivateFromOutside())
        return fail("no private mounts", kNoSandbox);
    execvp(argv[1], argv + 1);
    return fail(argv[1], kNotRun);
}
