#ifndef TAVO_TESTS_SCRIPTED_INOTIFY_H
#define TAVO_TESTS_SCRIPTED_INOTIFY_H

#include <cstdint>
#include <functional>
#include <string>

#include <poll.h>
#include <sys/types.h>

/// The system calls by which a FileSystemWatcher talks to the kernel, as a test may answer them
/// itself. One that is not set reaches the kernel.
struct InotifyCalls {
    std::function<int()> init;
    std::function<int(int descriptor, const std::string& path, std::uint32_t mask)> addWatch;
    std::function<int(int descriptor, int watch)> removeWatch;
    std::function<int(pollfd* polled, nfds_t count, int timeout)> poll;
    std::function<ssize_t(int descriptor, void* buffer, std::size_t size)> read;
    std::function<int(int descriptor)> close;
};

/// Puts `calls` in front of the kernel while it lives. A program that has this class supplies these
/// calls itself, before the C library. One at a time; the answers are given on the thread that
/// makes the call, without a lock.
class ScriptedInotify {
public:
    explicit ScriptedInotify(const InotifyCalls& calls);
    ~ScriptedInotify();
    ScriptedInotify(const ScriptedInotify&) = delete;
    ScriptedInotify& operator=(const ScriptedInotify&) = delete;
};

/// The kernel's own, for scripts that only look on.
int kernelAddWatch(int descriptor, const std::string& path, std::uint32_t mask);
int kernelPoll(pollfd* polled, nfds_t count, int timeout);
int kernelClose(int descriptor);

#endif
