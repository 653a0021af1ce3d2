#include "LogFile.h"

#include "OwnedDescriptor.h"
#include "Trust.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace agent {
namespace {

bool writeAll(int descriptor, const char* bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t written = write(descriptor, bytes, count);
        if (written < 0 && errno != EINTR)
            return false;
        if (written > 0) {
            bytes += written;
            count -= static_cast<std::size_t>(written);
        }
    }
    return true;
}

/// Copies from the first line that begins at or after `offset`, which is not 0, to the end.
bool copyLines(int from, off_t offset, int to) {
    if (lseek(from, offset - 1, SEEK_SET) < 0)
        return false;
    bool inLines = false;
    char piece[4096];
    for (;;) {
        const ssize_t count = read(from, piece, sizeof piece);
        if (count < 0)
            return false;
        if (count == 0)
            return true;
        const char* begin = piece;
        const char* const end = piece + count;
        if (!inLines) {
            begin =
                static_cast<const char*>(std::memchr(piece, '\n', static_cast<std::size_t>(count)));
            inLines = begin != nullptr;
            begin = inLines ? begin + 1 : end;
        }
        if (!writeAll(to, begin, static_cast<std::size_t>(end - begin)))
            return false;
    }
}

/// Returns why `path` cannot be used, or an empty text. Stores the state of the file that it leads
/// to in `status`, all zero when there is none. A path that is not a link is examined once only,
/// because its owner could replace it between two calls.
std::string problemOf(const std::string& path, struct stat& status) {
    status = {};
    if (lstat(path.c_str(), &status) != 0)
        return "";
    if (S_ISLNK(status.st_mode)) {
        if (!isTrusted(status.st_uid))
            return path + " is another user's symbolic link";
        status = {};
        if (stat(path.c_str(), &status) != 0)
            return "";
    }
    if (S_ISCHR(status.st_mode)) // such as /dev/null
        return "";
    if (!S_ISREG(status.st_mode))
        return path + " is not a regular file";
    if (status.st_nlink > 1) // nothing records who made the other name
        return path + " is a hard link";
    return "";
}

bool isLonger(const struct stat& status, std::size_t limit) {
    return S_ISREG(status.st_mode) && status.st_size > static_cast<off_t>(limit);
}

/// Copies the last whole lines of `log`, at most `most` of its `status.st_size` bytes. Returns
/// false with errno set when that fails.
bool keepLines(const OwnedDescriptor& log, const struct stat& status, std::size_t most,
               const std::string& copy) {
    unlink(copy.c_str());
    const OwnedDescriptor kept(open(
        copy.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    return kept.isOpen() && fchmod(kept.get(), status.st_mode & 0666) == 0 &&
           copyLines(log.get(), status.st_size - static_cast<off_t>(most), kept.get());
}

} // namespace

std::string logFileProblem(const std::string& path) {
    struct stat status = {};
    return problemOf(path, status);
}

LogCut cutLogFile(const std::string& path, const std::string& copy, std::size_t limit) {
    LogCut result;
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 || !isLonger(status, limit))
        return result;
    const OwnedDescriptor log(open(path.c_str(), O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    // Another agent may be doing the same.
    if (!log.isOpen() || flock(log.get(), LOCK_EX | LOCK_NB) != 0 ||
        fstat(log.get(), &status) != 0 || !isLonger(status, limit))
        return result;
    struct stat named = {};
    if (!problemOf(path, named).empty() || named.st_dev != status.st_dev ||
        named.st_ino != status.st_ino)
        return result; // not the file that was opened

    if (!keepLines(log, status, limit / 2, copy))
        result.problem = std::strerror(errno);
    // The log is emptied even when the copy failed: /tmp is in memory on a gateway, and a growing
    // log would fill it.
    result.cut = ftruncate(log.get(), 0) == 0;
    return result;
}

} // namespace agent
