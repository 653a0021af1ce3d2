// Prints what happens to files and directories, until a signal ends it.

#include <kvr/api/FileSystemWatcher.h>

#include "program.h"

#include <cstdio>
#include <string>
#include <thread>

#include <signal.h>
#include <sys/inotify.h>

namespace {

program::Description self = {
    "file_watch",
    "Usage: file_watch PATH...\n"
    "Prints a line \"EVENT PATH [NAME]\" when an entry of a directory is created, written,\n"
    "moved or deleted, or when a file is written or deleted. SIGTERM or SIGINT ends it.\n"
    "\n"
    "  --help   print this text and exit\n"
    "\n"
    "Exit status: 0 ended by a signal, 1 a path cannot be watched, 2 usage error.\n"};

struct EventName {
    unsigned int bit;
    const char* name;
};
constexpr EventName kEvents[] = {
    {IN_CREATE, "created"},      {IN_CLOSE_WRITE, "written"}, {IN_MOVED_FROM, "moved-away"},
    {IN_MOVED_TO, "moved-here"}, {IN_DELETE, "deleted"},      {IN_DELETE_SELF, "gone"},
};

/// Leaves the paths from `optind` on.
void parseOptions(int argc, char** argv) {
    program::parseHelpOnly(self, argc, argv);
    if (optind == argc)
        program::usageError(self, "at least one PATH is needed");
}

/// The library's callback. `name` is meaningful only for an entry of a directory.
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

} // namespace

int main(int argc, char** argv) {
    parseOptions(argc, argv);
    const sigset_t endSignals = program::blockEndSignals();

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

    // With a separate flag a stop before the loop begins is not lost. With AsyncWatcherRunner it
    // would be.
    bool stop = false;
    std::thread watching([&] { watcher.run(stop); });
    program::waitForEnd(endSignals);
    stop = true;
    watching.join();
    return 0;
}
