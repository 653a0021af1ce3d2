#include "Signals.h"

#include <pthread.h>

namespace agent {
namespace {

constexpr int kStopTrying = SIGUSR1;

pthread_t mainThread;
thread_local bool* ownFlag = nullptr;

// The two handlers. They only do what is allowed in a signal handler.

void forwardToMainThread(int signal) { pthread_kill(mainThread, signal); }

void clearOwnFlag(int) {
    if (ownFlag != nullptr)
        *ownFlag = false;
}

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
    handle(SIGTERM, forwardToMainThread, SA_RESTART);
    handle(SIGINT, forwardToMainThread, SA_RESTART);
    handle(kStopTrying, clearOwnFlag, SA_RESTART);
    // The process may have inherited an ignored SIGCHLD, with which it would lose the statuses of
    // programs.
    handle(SIGCHLD, SIG_DFL, 0);
    const sigset_t set = endSignals();
    pthread_sigmask(SIG_SETMASK, &set, nullptr);
}

int awaitEndSignal() {
    const sigset_t set = endSignals();
    int signal = 0;
    while (sigwait(&set, &signal) != 0) {
    }
    return signal;
}

UnblockedSignals::UnblockedSignals() {
    const sigset_t set = endSignals();
    pthread_sigmask(SIG_UNBLOCK, &set, &before_);
}

UnblockedSignals::~UnblockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

KeepTrying::KeepTrying() { ownFlag = &flag_; }

KeepTrying::~KeepTrying() { ownFlag = nullptr; }

void stopTrying(std::thread& thread) { pthread_kill(thread.native_handle(), kStopTrying); }

} // namespace agent
