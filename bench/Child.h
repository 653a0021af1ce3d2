#ifndef TAVO_BENCH_CHILD_H
#define TAVO_BENCH_CHILD_H

#include <csignal>
#include <cstdlib>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

/// A copy of this process that runs a function and ends. If it still runs, it is killed when the
/// object is destroyed.
class Child {
public:
    template <class Function>
    explicit Child(const Function& function) : pid_(fork()) {
        if (pid_ == -1)
            std::abort();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            function();
            _exit(0);
        }
    }
    ~Child() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /// Returns whether the function has returned, or the program that it executed has ended.
    bool hasEnded() const {
        siginfo_t ended = {}; // stays zero while the child runs
        return waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               ended.si_pid != 0;
    }

private:
    pid_t pid_;
};

} // namespace bench

#endif
