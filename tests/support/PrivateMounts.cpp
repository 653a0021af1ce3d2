#include "PrivateMounts.h"

#include "ForkedChild.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iostream>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace support {
namespace {

enum Outcome { kPassed = 0, kFailed = 1, kNotAllowed = 2 };

bool writeText(const char* path, const std::string& text) {
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    const bool written = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(file);
    return written;
}

/// An ordinary user may mount as root of a user namespace.
bool enterNamespaces() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (user == 0)
        return unshare(CLONE_NEWNS) == 0;
    return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 &&
           writeText("/proc/self/uid_map", "0 " + std::to_string(user) + " 1") &&
           writeText("/proc/self/setgroups", "deny") &&
           writeText("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

/// A tree that stays visible while the directory that it lies in is covered.
struct KeptTree {
    std::string path;
    int descriptor;
};

bool show(const KeptTree& tree) {
    std::error_code error;
    std::filesystem::create_directories(tree.path, error);
    const std::string hidden = "/proc/self/fd/" + std::to_string(tree.descriptor);
    const bool bound = mount(hidden.c_str(), tree.path.c_str(), nullptr, MS_BIND, nullptr) == 0;
    close(tree.descriptor);
    return bound;
}

/// Covers one directory. The programs that a test starts stay reachable in it, as well as the
/// libraries for another machine, which are below the sources.
bool coverDirectory(const std::string& directory) {
    std::vector<KeptTree> kept;
    for (const std::string path : {TAVO_SOURCE_DIR, TAVO_BUILD_DIR})
        if (path.compare(0, directory.size() + 1, directory + "/") == 0)
            kept.push_back({path, open(path.c_str(), O_PATH | O_CLOEXEC)});
    return mount("tavo-test", directory.c_str(), "tmpfs", 0, "mode=0755") == 0 &&
           std::all_of(kept.begin(), kept.end(), show);
}

bool coverDirectories(std::initializer_list<std::string> directories) {
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           std::all_of(directories.begin(), directories.end(), coverDirectory);
}

Outcome runInside(std::initializer_list<std::string> directories,
                  const std::function<void()>& body) {
    if (!enterNamespaces() || !coverDirectories(directories))
        return kNotAllowed;
    try {
        body();
    } catch (const std::exception& error) {
        ADD_FAILURE() << "exception: " << error.what();
    }
    return testing::Test::HasFailure() ? kFailed : kPassed;
}

} // namespace

void inPrivateMounts(std::initializer_list<std::string> directories,
                     const std::function<void()>& body) {
    std::cout.flush();
    std::fflush(nullptr);
    const pid_t parent = getpid();
    const pid_t child = fork();
    ASSERT_NE(-1, child) << std::strerror(errno);
    if (child == 0) {
        endWithParent(parent);
        const Outcome outcome = runInside(directories, body);
        std::cout.flush();
        std::fflush(nullptr);
        _exit(outcome);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0)) << std::strerror(errno);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNotAllowed)
        GTEST_SKIP() << "this machine allows no private mounts";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == kPassed)
        << "raw status " << status << "; the failures are printed above";
}

} // namespace support
