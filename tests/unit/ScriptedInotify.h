#ifndef TAVO_TESTS_SCRIPTED_INOTIFY_H
#define TAVO_TESTS_SCRIPTED_INOTIFY_H

#include <cstdint>
#include <functional>
#include <string>

#include <poll.h>
#include <sys/types.h>

/// The system calls of a FileSystemWatcher, as far as a test replaces them. A call that is not set
/// reaches the kernel.
struct InotifyCalls {
    std::function<int()> init;
    std::function<int(int descriptor, const std::string& path, std::uint32_t mask)> addWatch;
    std::function<int(int descriptor, int watch)> removeWatch;
    std::function<int(pollfd* polled, nfds_t count, int timeout)> poll;
    std::function<ssize_t(int descriptor, void* buffer, std::size_t size)> read;
    std::function<int(int descriptor)> close;
};

/// Replaces the kernel by `calls` while an object exists. A program with this class replaces these
/// functions of the C library. Only one object at a time. The answers run on the calling thread,
/// without a lock.
class ScriptedInotify {
public:
    explicit ScriptedInotify(const InotifyCalls& calls);
    ~ScriptedInotify();
    ScriptedInotify(const ScriptedInotify&) = delete;
    ScriptedInotify& operator=(const ScriptedInotify&) = delete;
};

/// The kernel's own calls, for scripts that only observe.
int kernelAddWatch(int descriptor, const std::string& path, std::uint32_t mask);
int kernelPoll(pollfd* polled, nfds_t count, int timeout);
int kernelClose(int descriptor);

#endif
