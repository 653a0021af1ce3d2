#ifndef TAVO_TESTS_PLAYED_KERNEL_H
#define TAVO_TESTS_PLAYED_KERNEL_H

#include <kvr/api/FileSystemWatcher.h>

#include "ScriptedInotify.h"

#include <cerrno>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <sys/inotify.h>

constexpr unsigned int kMask = IN_CREATE | IN_DELETE; // 0x300
constexpr std::size_t kBufferSize = 4600;
constexpr int kFirstDescriptor = 1000; // cannot collide with the process's real ones

/// One record as the kernel writes it; `length` bytes of name follow the header.
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

/// Simulates the kernel. Records every call as a line, numbers the paths in order of first use, and
/// returns the queued reads. With empty queues, poll returns 0 and sets the flag at `stopWhenIdle`.
class PlayedKernel {
public:
    PlayedKernel() {
        calls_.init = [this] {
            const int descriptor = initFails ? -1 : nextDescriptor_++;
            if (initFails)
                errno = EMFILE;
            note("init = " + std::to_string(descriptor));
            return descriptor;
        };
        calls_.addWatch = [this](int descriptor, const std::string& path, std::uint32_t mask) {
            const int watch = descriptor < 0 ? -1 : numberOf(path);
            if (watch == -1)
                errno = descriptor < 0 ? EBADF : addError;
            std::ostringstream line;
            line << "add " << descriptor << ' ' << path << ' ' << std::hex << mask << std::dec
                 << " = " << watch;
            note(line.str());
            return watch;
        };
        calls_.removeWatch = [this](int descriptor, int watch) {
            note("remove " + std::to_string(descriptor) + ' ' + std::to_string(watch));
            return 0;
        };
        calls_.poll = [this](pollfd* polled, nfds_t count, int timeout) {
            std::ostringstream line;
            line << "poll " << polled->fd << " events " << polled->events << " count " << count
                 << " timeout " << timeout;
            note(line.str());
            const int answer = pollAnswers.empty() ? (reads.empty() ? 0 : 1) : pollAnswers.front();
            if (!pollAnswers.empty())
                pollAnswers.pop_front();
            if (answer < 0)
                errno = EINTR;
            if (pollAnswers.empty() && reads.empty() && stopWhenIdle != nullptr)
                *stopWhenIdle = true;
            return answer;
        };
        calls_.read = [this](int descriptor, void* buffer, std::size_t size) -> ssize_t {
            note("read " + std::to_string(descriptor) + ' ' + std::to_string(size));
            if (reads.empty())
                return 0;
            const std::string bytes = reads.front();
            reads.pop_front();
            if (bytes == kReadFails) {
                errno = EIO;
                return -1;
            }
            std::memcpy(buffer, bytes.data(), bytes.size());
            return static_cast<ssize_t>(bytes.size());
        };
        calls_.close = [this](int descriptor) {
            if (descriptor >= 0 && descriptor < kFirstDescriptor)
                return kernelClose(descriptor); // not one of ours
            note("close " + std::to_string(descriptor));
            return 0;
        };
        scripted_ = std::make_unique<ScriptedInotify>(calls_);
    }

    static constexpr const char* kReadFails = "the read fails";

    bool initFails = false;
    int addError = ENOENT;
    std::map<std::string, int> numbers; ///< predefined numbers; -1 makes the watch fail
    bool mayNumberPaths = true;         ///< other paths get the next free number
    std::deque<std::string> reads;
    std::deque<int> pollAnswers; ///< results that precede those from `reads`
    bool* stopWhenIdle = nullptr;

    /// Returns the calls since the last use, in order.
    std::vector<std::string> calls() {
        std::vector<std::string> taken;
        taken.swap(log_);
        return taken;
    }

    /// Runs the loop until it has read everything in the queue.
    void serve(FileSystemWatcher& watcher) {
        bool stop = false;
        stopWhenIdle = &stop;
        watcher.run(stop);
        stopWhenIdle = nullptr;
    }

private:
    void note(const std::string& line) { log_.push_back(line); }

    int numberOf(const std::string& path) {
        const auto known = numbers.find(path);
        if (known != numbers.end())
            return known->second;
        return mayNumberPaths ? numbers[path] = static_cast<int>(numbers.size()) + 1 : -1;
    }

    InotifyCalls calls_;
    std::unique_ptr<ScriptedInotify> scripted_;
    int nextDescriptor_ = kFirstDescriptor;
    std::vector<std::string> log_;
};

/// Records what a callback receives; may run a further action.
struct Recorder {
    std::vector<std::string> seen;
    std::function<void(const std::string& name)> action;

    static void note(const Watcher&, const std::string& name, unsigned int mask, void* context) {
        auto* const self = static_cast<Recorder*>(context);
        std::ostringstream line;
        line << name << ' ' << std::hex << mask;
        self->seen.push_back(line.str());
        if (self->action)
            self->action(name);
    }

    Watcher of(const std::string& path) { return Watcher(path, kMask, note, this); }
};

#endif
