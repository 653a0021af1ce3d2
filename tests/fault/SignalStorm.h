#ifndef TAVO_TESTS_SIGNAL_STORM_H
#define TAVO_TESTS_SIGNAL_STORM_H

#include <atomic>
#include <thread>

#include <pthread.h>

namespace fault {

/// Makes SIGUSR1 interrupt system calls: the handler does nothing, and no call is restarted.
void letSignalsInterrupt();

/// Interrupts one thread about a thousand times a second while an object exists.
class SignalStorm {
public:
    /// By default interrupts the thread that creates the object.
    explicit SignalStorm(pthread_t target = pthread_self());
    ~SignalStorm();
    SignalStorm(const SignalStorm&) = delete;
    SignalStorm& operator=(const SignalStorm&) = delete;

    /// Signals sent so far.
    long count() const { return count_; }

private:
    std::atomic<bool> over_{false};
    std::atomic<long> count_{0};
    std::thread thread_;
};

} // namespace fault

#endif
