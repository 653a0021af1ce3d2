#ifndef TAVO_TESTS_STANDARD_INPUT_H
#define TAVO_TESTS_STANDARD_INPUT_H

#include <functional>
#include <string>
#include <vector>

#include <poll.h>
#include <time.h>

/// Makes a pipe of the test's own the standard input while it lives.
class StandardInput {
public:
    StandardInput();
    ~StandardInput();
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;

    /// What a supervisor writes; at most what a pipe holds.
    void write(const std::string& text);
    /// Bytes that nobody has read yet.
    int unread() const;
    /// Ends the input.
    void close();
    /// Puts `descriptor` in the pipe's place.
    void replace(int descriptor);

private:
    int saved_;
    int writer_;
};

/// One use of poll().
struct Poll {
    int descriptor;
    short events;
    nfds_t entries;
    int milliseconds;
    int result;
};

/// Sees every use of poll() and ppoll() while it lives: the program that uses this class supplies
/// them itself, in front of the C library's. One at a time.
class WatchedPolls {
public:
    /// Runs in place of the C library's poll() and receives the number of the use (1, 2, ...).
    using Script = std::function<int(int)>;
    /// As the result of a script: the C library's poll() decides.
    static constexpr int kPassOn = -2;

    explicit WatchedPolls(Script script = [](int) { return kPassOn; });
    ~WatchedPolls();
    WatchedPolls(const WatchedPolls&) = delete;
    WatchedPolls& operator=(const WatchedPolls&) = delete;

    const std::vector<Poll>& all() const { return polls_; }
    int count() const { return static_cast<int>(polls_.size()); }

    /// Results of the uses of ppoll(), each of which looked at standard input without waiting.
    const std::vector<int>& looks() const { return looks_; }

    /// For ppoll(): notes one use.
    void look(const pollfd* entries, nfds_t count, const timespec* timeout, int result);

private:
    int use(pollfd* entries, nfds_t count, int milliseconds);

    Script script_;
    std::function<int(pollfd*, nfds_t, int)> answer_;
    std::vector<Poll> polls_;
    std::vector<int> looks_;
};

#endif
