#include "Signals.h"

#include <cerrno>
#include <ctime>

#include <pthread.h>
#include <semaphore.h>

namespace agent {
namespace {

constexpr int kSetFlags = SIGUSR1;
constexpr int kBreakOff = SIGUSR2;

pthread_t mainThread;
sem_t brokenOff;
thread_local StopFlags* ownFlags = nullptr;

// Handlers: nothing but what may be done in one.

void passOn(int signal) { pthread_kill(mainThread, signal); }

void setOwnFlags(int) {
    if (ownFlags != nullptr) {
        ownFlags->stop = true;
        ownFlags->keepTrying = false;
    }
}

void acknowledge(int) { sem_post(&brokenOff); }

void handle(int signal, void (*handler)(int), int flags) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigaction(signal, &action, nullptr);
}

sigset_t endSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    return set;
}

} // namespace

void prepareSignals() {
    mainThread = pthread_self();
    sem_init(&brokenOff, 0, 0);
    handle(SIGTERM, passOn, SA_RESTART);
    handle(SIGINT, passOn, SA_RESTART);
    handle(kSetFlags, setOwnFlags, SA_RESTART);
    handle(kBreakOff, acknowledge, 0);
    // Whatever this process was started with: ignored, it would lose the statuses of programs.
    handle(SIGCHLD, SIG_DFL, 0);
    const sigset_t set = endSignals();
    pthread_sigmask(SIG_SETMASK, &set, nullptr);
}

int awaitEndSignal(std::chrono::milliseconds limit) {
    const sigset_t set = endSignals();
    timespec timeout = {};
    timeout.tv_sec = static_cast<time_t>(limit.count() / 1000);
    timeout.tv_nsec = static_cast<long>(limit.count() % 1000) * 1000000;
    const int signal = sigtimedwait(&set, nullptr, &timeout);
    return signal > 0 ? signal : 0;
}

void wakeMainThread() { pthread_kill(mainThread, SIGTERM); }

Unblocked::Unblocked() {
    const sigset_t set = endSignals();
    pthread_sigmask(SIG_UNBLOCK, &set, &before_);
}

Unblocked::~Unblocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

OwnStopFlags::OwnStopFlags(StopFlags& flags) { ownFlags = &flags; }

OwnStopFlags::~OwnStopFlags() { ownFlags = nullptr; }

void setStopFlags(std::thread& thread) { pthread_kill(thread.native_handle(), kSetFlags); }

void breakOff(std::thread& thread) {
    pthread_kill(thread.native_handle(), kBreakOff);
    timespec deadline = {};
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_nsec += 100000000;
    if (deadline.tv_nsec >= 1000000000) {
        deadline.tv_nsec -= 1000000000;
        ++deadline.tv_sec;
    }
    while (sem_timedwait(&brokenOff, &deadline) == -1 && errno == EINTR) {
    }
}

} // namespace agent
