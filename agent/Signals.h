#ifndef TAVO_AGENT_SIGNALS_H
#define TAVO_AGENT_SIGNALS_H

#include <thread>

#include <signal.h>

namespace agent {

/// Signals in this program:
/// - SIGTERM and SIGINT are blocked in every thread; the main thread waits for them.
/// - SIGUSR1 to a thread clears that thread's own KeepTrying. The library's MQTT client reads a
///   plain bool, which only its own thread may write without a race.

/// Call in main() before any thread starts.
void prepareSignals();

/// Waits for SIGTERM or SIGINT, and returns the one that arrived.
int awaitEndSignal();

/// While it exists, SIGTERM and SIGINT are unblocked for the programs that the calling thread
/// starts. Programs inherit blocked signals, so SIGTERM could otherwise not end a restarted
/// service. A signal that the thread itself receives is passed on to the main thread.
class UnblockedSignals {
public:
    UnblockedSignals();
    ~UnblockedSignals();
    UnblockedSignals(const UnblockedSignals&) = delete;
    UnblockedSignals& operator=(const UnblockedSignals&) = delete;

private:
    sigset_t before_;
};

/// A flag for NQ_Mqtt::connect(), which repeats its attempts until the flag is false. It belongs to
/// the thread that constructs it. Only that thread may read or write it, and it may have only one.
class KeepTrying {
public:
    KeepTrying();
    ~KeepTrying();
    KeepTrying(const KeepTrying&) = delete;
    KeepTrying& operator=(const KeepTrying&) = delete;

    bool& flag() { return flag_; }

private:
    bool flag_ = true;
};

/// Clears the flag of `thread`, before that thread returns from any system call in which it waits
/// now. The call itself is not interrupted.
void stopTrying(std::thread& thread);

} // namespace agent

#endif
