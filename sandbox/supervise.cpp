/**
 * Runs a program as a child, then a second one that cleans up. Ends with the status of the first.
 *
 *     supervise CLEANUP [ARGUMENT...] -- PROGRAM [ARGUMENT...]
 *
 * Passes signals on to the program. A shell cannot do this: bash loses the status of a child that
 * ends at the moment when a trapped signal arrives.
 */

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kNoSandbox = 125;
constexpr int kPassedOn[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2};

int asShellStatus(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

pid_t start(char** arguments, const sigset_t& mask) {
    const pid_t child = fork();
    if (child != 0)
        return child;
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    execvp(arguments[0], arguments);
    std::fprintf(stderr, "sandbox: %s: %s\n", arguments[0], std::strerror(errno));
    _exit(kNoSandbox);
}

/// A terminal sends these to every process of its foreground group, so the program has received it
/// too.
bool sentByTerminal(const siginfo_t& signal) {
    return (signal.si_signo == SIGINT || signal.si_signo == SIGQUIT) && signal.si_code == SI_KERNEL;
}

int waitPassingSignalsOn(pid_t child, const sigset_t& awaited) {
    for (;;) {
        siginfo_t signal{};
        if (sigwaitinfo(&awaited, &signal) < 0)
            continue;
        int status = 0;
        if (signal.si_signo == SIGCHLD) {
            if (waitpid(child, &status, WNOHANG) == child)
                return asShellStatus(status);
        } else if (!sentByTerminal(signal)) {
            kill(child, signal.si_signo);
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    int separator = 1;
    while (separator < argc && std::strcmp(argv[separator], "--") != 0)
        ++separator;
    if (separator < 2 || separator + 1 >= argc) {
        std::fputs("Usage: supervise CLEANUP [ARGUMENT...] -- PROGRAM [ARGUMENT...]\n", stderr);
        return kNoSandbox;
    }
    argv[separator] = nullptr;

    std::signal(SIGCHLD, SIG_DFL); // if it were ignored, the status would be lost
    sigset_t awaited;
    sigset_t before;
    sigemptyset(&awaited);
    sigaddset(&awaited, SIGCHLD);
    for (const int signal : kPassedOn)
        sigaddset(&awaited, signal);
    sigprocmask(SIG_BLOCK, &awaited, &before);

    const pid_t program = start(argv + separator + 1, before);
    if (program < 0) {
        std::perror("sandbox: fork");
        return kNoSandbox;
    }
    const int status = waitPassingSignalsOn(program, awaited);
    // The signals stay blocked: nothing may interrupt the cleaning up.
    const pid_t cleanup = start(argv + 1, awaited);
    int cleaned = 0;
    if (cleanup < 0 || waitpid(cleanup, &cleaned, 0) != cleanup || asShellStatus(cleaned) != 0)
        return kNoSandbox;
    return status;
}
