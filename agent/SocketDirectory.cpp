#include "SocketDirectory.h"

#include "Trust.h"

#include <sys/stat.h>

namespace agent {
namespace {

constexpr char kDirectory[] = "/tmp/socketDDS";

} // namespace

std::string socketPath(const std::string& name) { return kDirectory + ("/" + name); }

void makeSocketDirectory() {
    (void)mkdir(kDirectory, S_IRWXU); // the caller checks the directory
}

std::string socketDirectoryProblem() {
    struct stat status = {};
    if (lstat(kDirectory, &status) != 0)
        return "";
    const std::string directory = kDirectory;
    if (!S_ISDIR(status.st_mode))
        return directory + " is not a directory";
    if (!isTrusted(status.st_uid))
        return directory + " belongs to another user";
    // With the sticky bit, users can only replace their own files.
    const bool writableByOthers = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (writableByOthers && (status.st_mode & S_ISVTX) == 0)
        return directory + " can be written to by others and has no sticky bit";
    return "";
}

} // namespace agent
