#ifndef TAVO_TESTS_STANDARD_INPUT_H
#define TAVO_TESTS_STANDARD_INPUT_H

#include "Interposed.h"

#include <functional>
#include <string>
#include <vector>

#include <poll.h>
#include <time.h>

namespace support {

/// Replaces standard input with a pipe while an object exists.
class StandardInput {
public:
    StandardInput();
    ~StandardInput();
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;

    /// Writes as a supervisor would, at most what a pipe can hold.
    void write(const std::string& text);
    /// Returns the number of unread bytes.
    int unread() const;
    /// Closes the writing end, which ends the input.
    void close();
    /// Replaces the pipe with `descriptor`.
    void replace(int descriptor);

private:
    int saved_;
    int writer_;
};

/// One call of poll().
struct Poll {
    int descriptor;
    short events;
    nfds_t entries;
    int milliseconds;
    int result;
};

/// Records every call of poll() and ppoll() while an object exists. Only one object at a time.
class RecordedPolls {
public:
    /// Runs before the C library's poll() and receives the number of the call (1, 2, ...). Its
    /// result replaces that of poll().
    using Script = std::function<int(int)>;
    /// Makes the C library's poll() decide.
    static constexpr int kPassOn = -2;

    explicit RecordedPolls(Script script = [](int) { return kPassOn; });

    const std::vector<Poll>& all() const { return polls_; }
    int count() const { return static_cast<int>(polls_.size()); }

    /// Results of the calls of ppoll(): -1 for a call that did not check standard input, without
    /// waiting.
    const std::vector<int>& ppollResults() const { return ppollResults_; }

private:
    int poll(pollfd* entries, nfds_t count, int milliseconds);
    int ppoll(pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t* mask);

    const Script script_;
    std::vector<Poll> polls_;
    std::vector<int> ppollResults_;
    const Stub<int(pollfd*, nfds_t, int)> poll_;
    const Stub<int(pollfd*, nfds_t, const timespec*, const sigset_t*)> ppoll_;
};

} // namespace support

#endif
