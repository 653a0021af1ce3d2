#ifndef TAVO_AGENT_SIGNALS_H
#define TAVO_AGENT_SIGNALS_H

#include <chrono>
#include <thread>

#include <signal.h>

namespace agent {

/// Signals in this program:
/// - SIGTERM and SIGINT are blocked in every thread; the main thread waits for them.
/// - SIGUSR1 to a thread sets that thread's own StopFlags. The library's loops look at a plain bool,
///   which only their own thread may write without a race.
/// - SIGUSR2 to a thread breaks off a system call in which it waits.

/// Call in main() before any thread starts.
void prepareSignals();

/// Waits for SIGTERM or SIGINT, at most for `limit`; 0 when neither came.
int awaitEndSignal(std::chrono::milliseconds limit);

/// Wakes the main thread from awaitEndSignal() as SIGTERM does. From any thread.
void wakeMainThread();

/// Lets SIGTERM and SIGINT through to the programs that the calling thread starts meanwhile: what is
/// blocked stays blocked in a program, and a restarted service that cannot be ended by SIGTERM would
/// be a nuisance. Should the thread itself receive one, it is passed on to the main thread.
class Unblocked {
public:
    Unblocked();
    ~Unblocked();
    Unblocked(const Unblocked&) = delete;
    Unblocked& operator=(const Unblocked&) = delete;

private:
    sigset_t before_;
};

/// The flags of the library's loops. Each of them is set only on its own thread.
struct StopFlags {
    bool stop = false;      ///< for loops that end when it becomes true
    bool keepTrying = true; ///< for loops that end when it becomes false
};

/// Makes `flags` those of the calling thread while it lives.
class OwnStopFlags {
public:
    explicit OwnStopFlags(StopFlags& flags);
    ~OwnStopFlags();
    OwnStopFlags(const OwnStopFlags&) = delete;
    OwnStopFlags& operator=(const OwnStopFlags&) = delete;
};

/// Sets the flags of `thread`. What the thread is doing goes on undisturbed. They are set before the
/// thread returns from any system call that it waits in now.
void setStopFlags(std::thread& thread);

/// Breaks off the system call in which `thread` waits, and returns when that has happened (or after
/// a tenth of a second, when the thread has ended).
void breakOff(std::thread& thread);

} // namespace agent

#endif
