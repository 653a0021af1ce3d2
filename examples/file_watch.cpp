// Prints what happens to files and directories, until it is told to end.

#include <kvr/api/FileSystemWatcher.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include <getopt.h>
#include <pthread.h>
#include <signal.h>
#include <sys/inotify.h>

namespace {

const char kHelp[] =
    "Usage: file_watch PATH...\n"
    "Prints a line \"EVENT PATH [NAME]\" for everything that is created, changed, moved or\n"
    "deleted in the directories, or happens to the files, until SIGTERM or SIGINT.\n"
    "\n"
    "  --help   print this text and exit\n"
    "\n"
    "Exit status: 0 ended by a signal, 1 a path cannot be watched, 2 usage error.\n";

struct EventName {
    unsigned int bit;
    const char* name;
};
const EventName kEvents[] = {
    {IN_CREATE, "created"},      {IN_CLOSE_WRITE, "written"}, {IN_MOVED_FROM, "moved-away"},
    {IN_MOVED_TO, "moved-here"}, {IN_DELETE, "deleted"},      {IN_DELETE_SELF, "gone"},
};

[[noreturn]] void usageError(const std::string& problem) {
    if (!problem.empty())
        std::fprintf(stderr, "file_watch: %s\n", problem.c_str());
    std::fputs("Try 'file_watch --help' for more information.\n", stderr);
    std::exit(2);
}

/// Leaves the paths from `optind` on.
void parseOptions(int argc, char** argv) {
    static const option known[] = {
        {"help", no_argument, nullptr, 'h'},
        {nullptr, 0, nullptr, 0},
    };
    char programName[] = "file_watch";
    argv[0] = programName; // what getopt_long() begins its messages with
    int found;
    while ((found = getopt_long(argc, argv, "", known, nullptr)) != -1) {
        if (found != 'h')
            usageError(""); // getopt_long() has said what is wrong
        std::fputs(kHelp, stdout);
        std::exit(0);
    }
    if (optind == argc)
        usageError("which PATH is to be watched?");
}

/// The library's callback. Without a directory entry in play, `name` means nothing.
void printEvent(const Watcher& watcher, const std::string& name, unsigned int mask, void*) {
    for (const EventName& event : kEvents) {
        if ((mask & event.bit) == 0)
            continue;
        const bool named = event.bit != IN_DELETE_SELF && !name.empty();
        std::printf("%s %s%s%s\n", event.name, watcher.path.c_str(), named ? " " : "",
                    named ? name.c_str() : "");
    }
    std::fflush(stdout);
}

/// Keeps the signals that end the program for sigwait(), in the watching thread, too.
sigset_t blockEndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

} // namespace

int main(int argc, char** argv) {
    parseOptions(argc, argv);
    const sigset_t endSignals = blockEndSignals();

    unsigned int mask = 0;
    for (const EventName& event : kEvents)
        mask |= event.bit;
    FileSystemWatcher watcher;
    for (int i = optind; i < argc; ++i) {
        watcher.attachWatcher(Watcher(argv[i], mask, printEvent, nullptr));
        if (!watcher.watcherExists(argv[i])) // the library has printed why
            return 1;
    }
    std::puts("watching");
    std::fflush(stdout);

    // With a flag of its own, unlike AsyncWatcherRunner, a stop before the loop begins is not lost.
    bool stop = false;
    std::thread watching([&] { watcher.run(stop); });
    int signal = 0;
    sigwait(&endSignals, &signal);
    stop = true;
    watching.join();
    return 0;
}
