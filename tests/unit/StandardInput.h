#ifndef TAVO_TESTS_STANDARD_INPUT_H
#define TAVO_TESTS_STANDARD_INPUT_H

#include <functional>
#include <string>
#include <vector>

#include <poll.h>
#include <time.h>

/// Replaces standard input by a pipe while an object exists.
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
    /// Replaces the pipe by `descriptor`.
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

/// Records every call of poll() and ppoll() while an object exists. The program that uses this
/// class replaces these functions. Only one object at a time.
class WatchedPolls {
public:
    /// Runs before the C library's poll() and receives the number of the call (1, 2, ...). Its
    /// result replaces that of poll().
    using Script = std::function<int(int)>;
    /// Makes the C library's poll() decide.
    static constexpr int kPassOn = -2;

    explicit WatchedPolls(Script script = [](int) { return kPassOn; });
    ~WatchedPolls();
    WatchedPolls(const WatchedPolls&) = delete;
    WatchedPolls& operator=(const WatchedPolls&) = delete;

    const std::vector<Poll>& all() const { return polls_; }
    int count() const { return static_cast<int>(polls_.size()); }

    /// Results of the calls of ppoll(). Each checked standard input without waiting.
    const std::vector<int>& looks() const { return looks_; }

    /// For ppoll(): records one call.
    void look(const pollfd* entries, nfds_t count, const timespec* timeout, int result);

private:
    int use(pollfd* entries, nfds_t count, int milliseconds);

    Script script_;
    std::function<int(pollfd*, nfds_t, int)> answer_;
    std::vector<Poll> polls_;
    std::vector<int> looks_;
};

#endif
