#ifndef TAVO_TESTS_FAKE_INOTIFY_H
#define TAVO_TESTS_FAKE_INOTIFY_H

#include <kvr/api/FileSystemWatcher.h>

#include "Interposed.h"

#include <cerrno>
#include <cstring>
#include <deque>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <sys/inotify.h>

namespace support {

/// Returns one record as the kernel writes it; `length` bytes of name follow the header.
inline std::string rawRecord(int watch, unsigned int mask, const std::string& name,
                             std::size_t length) {
    inotify_event header = {};
    header.wd = watch;
    header.mask = mask;
    header.len = static_cast<std::uint32_t>(length);
    std::string bytes(sizeof header + length, '\0');
    std::memcpy(&bytes[0], &header, sizeof header);
    bytes.replace(sizeof header, name.size(), name);
    return bytes;
}

/// The same, with the name padded by at least one NUL to a multiple of the header's size.
inline std::string record(int watch, unsigned int mask, const std::string& name = "") {
    if (name.empty())
        return rawRecord(watch, mask, name, 0);
    const std::size_t unit = sizeof(inotify_event);
    return rawRecord(watch, mask, name, (name.size() / unit + 1) * unit);
}

/// Replaces the kernel's inotify while an object exists, for watch numbers, records and errors that
/// the kernel does not produce on request. A test queues the bytes of the next read() calls in
/// `reads`, lets serve() run the loop until the queue is empty, and compares calls().
class FakeInotify {
public:
    static constexpr const char* kReadFails = "the read fails"; ///< in `reads`: EIO

    bool initFails = false;             ///< inotify_init() fails with EMFILE
    int addError = ENOENT;              ///< of a watch with the number -1
    std::map<std::string, int> numbers; ///< by path; other paths get the next free number
    std::deque<std::string> reads;      ///< results of read()
    std::deque<int> pollResults;        ///< precede the polls that announce `reads`; -1: EINTR

    /// Returns the calls since the last use, one line each.
    std::vector<std::string> calls() {
        std::vector<std::string> taken;
        taken.swap(calls_);
        return taken;
    }

    /// Runs the loop until both queues are empty.
    void serve(FileSystemWatcher& watcher) {
        bool stop = false;
        stopWhenIdle_ = &stop;
        watcher.run(stop);
        stopWhenIdle_ = nullptr;
    }

private:
    static constexpr int kFirstDescriptor = 1000; // above the process's real descriptors

    template <class... Parts>
    void note(const Parts&... parts) {
        std::ostringstream line;
        (line << ... << parts);
        calls_.push_back(line.str());
    }

    int init() {
        const int descriptor = initFails ? -1 : nextDescriptor_++;
        note("init = ", descriptor);
        errno = EMFILE;
        return descriptor;
    }

    int addWatch(int descriptor, const char* path, std::uint32_t mask) {
        int watch = -1;
        if (descriptor >= 0)
            watch = numbers.emplace(path, static_cast<int>(numbers.size()) + 1).first->second;
        note("add ", descriptor, ' ', path, ' ', std::hex, mask, std::dec, " = ", watch);
        errno = descriptor < 0 ? EBADF : addError;
        return watch;
    }

    int poll(const pollfd* polled, nfds_t count, int timeout) {
        note("poll ", polled->fd, " events ", polled->events, " count ", count, " timeout ",
             timeout);
        int result = reads.empty() ? 0 : 1;
        if (!pollResults.empty()) {
            result = pollResults.front();
            pollResults.pop_front();
        }
        if (pollResults.empty() && reads.empty() && stopWhenIdle_ != nullptr)
            *stopWhenIdle_ = true;
        errno = EINTR;
        return result;
    }

    ssize_t read(int descriptor, void* buffer, std::size_t size) {
        note("read ", descriptor, ' ', size);
        if (reads.empty())
            return 0;
        const std::string bytes = reads.front();
        reads.pop_front();
        errno = EIO;
        if (bytes == kReadFails)
            return -1;
        std::memcpy(buffer, bytes.data(), bytes.size());
        return static_cast<ssize_t>(bytes.size());
    }

    int close(int descriptor) {
        if (descriptor >= 0 && descriptor < kFirstDescriptor)
            return interposedClose.real(descriptor);
        note("close ", descriptor);
        return 0;
    }

    int nextDescriptor_ = kFirstDescriptor;
    bool* stopWhenIdle_ = nullptr;
    std::vector<std::string> calls_;

    const Stub<int()> init_{interposedInotifyInit, [this] { return init(); }};
    const Stub<int(int, const char*, std::uint32_t)> addWatch_{
        interposedInotifyAddWatch, [this](int descriptor, const char* path, std::uint32_t mask) {
            return addWatch(descriptor, path, mask);
        }};
    const Stub<int(int, int)> rmWatch_{interposedInotifyRmWatch, [this](int descriptor, int watch) {
                                           note("remove ", descriptor, ' ', watch);
                                           return 0;
                                       }};
    const Stub<int(pollfd*, nfds_t, int)> poll_{
        interposedPoll, [this](const pollfd* polled, nfds_t count, int timeout) {
            return poll(polled, count, timeout);
        }};
    const Stub<ssize_t(int, void*, std::size_t)> read_{
        interposedRead, [this](int descriptor, void* buffer, std::size_t size) {
            return read(descriptor, buffer, size);
        }};
    const Stub<int(int)> close_{interposedClose,
                                [this](int descriptor) { return close(descriptor); }};
};

} // namespace support

#endif
