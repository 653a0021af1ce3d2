#ifndef TAVO_EXAMPLES_PROGRAM_H
#define TAVO_EXAMPLES_PROGRAM_H

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <getopt.h>
#include <pthread.h>
#include <signal.h>

/// What the larger examples share: messages, options and an orderly end after a signal. None of it
/// uses the library.
namespace program {

/// The program's name, with which messages begin, and its help text.
struct Description {
    std::string name;
    const char* help;
};

/// Exit status 2. `problem` may be empty when it has been printed already.
[[noreturn]] inline void usageError(const Description& program, const std::string& problem) {
    if (!problem.empty())
        std::fprintf(stderr, "%s: %s\n", program.name.c_str(), problem.c_str());
    std::fprintf(stderr, "Try '%s --help' for more information.\n", program.name.c_str());
    std::exit(2);
}

/// Exit status 1.
[[noreturn]] inline void fail(const Description& program, const std::string& problem) {
    std::fprintf(stderr, "%s: %s\n", program.name.c_str(), problem.c_str());
    std::exit(1);
}

/// The same with the text of errno.
[[noreturn]] inline void failWithReason(const Description& program, const std::string& problem) {
    fail(program, problem + ": " + std::strerror(errno));
}

/// Returns the next option as getopt_long() does, -1 after the last. Handles 'h', the value of
/// --help, and ends the program for an option that is not in `known`.
inline int nextOption(Description& program, int argc, char** argv, const option* known) {
    argv[0] = &program.name[0]; // begins the messages of getopt_long()
    const int found = getopt_long(argc, argv, "", known, nullptr);
    if (found == 'h') {
        std::fputs(program.help, stdout);
        std::exit(0);
    }
    if (found == '?')
        usageError(program, ""); // getopt_long() has printed the reason
    return found;
}

/// Parses the options of a program that has only --help. Leaves the arguments from `optind` on.
inline void parseHelpOnly(Description& program, int argc, char** argv) {
    static constexpr option kOptions[] = {{"help", no_argument, nullptr, 'h'},
                                          {nullptr, 0, nullptr, 0}};
    while (nextOption(program, argc, argv, kOptions) != -1) {
    }
}

/// Prints a line and flushes it, so that the reader of a pipe gets it immediately.
inline void say(const std::string& line) {
    std::puts(line.c_str());
    std::fflush(stdout);
}

/// Blocks SIGTERM and SIGINT for this thread and those that it starts from now on, and returns
/// them. Call it before the first thread is started, also by the library. Programs that it starts
/// inherit the mask.
inline sigset_t blockEndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

/// Blocks until one of the signals arrives.
inline void waitForEnd(const sigset_t& signals) {
    int signal = 0;
    sigwait(&signals, &signal);
}

} // namespace program

#endif
