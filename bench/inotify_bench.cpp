#include <kvr/api/FileSystemWatcher.h>

#include "TempDir.h"
#include "floor/Watch.h"
#include "measure.h"

#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace bench {
namespace {

constexpr int kEvents = 10000; // below the kernel's own limit for one queue, 16,384

/// Causes events whose names alternate, since the kernel merges two equal ones.
void causeEvents(const TempDir& directory) {
    const std::string files[] = {directory.file("sensor-a"), directory.file("sensor-b")};
    for (const std::string& file : files)
        if (access(file.c_str(), F_OK) != 0)
            std::ofstream stream(file);
    for (int i = 0; i < kEvents; ++i)
        if (utimensat(AT_FDCWD, files[i % 2].c_str(), nullptr, 0) != 0)
            std::abort();
}

/// The number of events that a callback counts, and the flag that it sets at the last.
struct Count {
    void event(const std::string& name) {
        benchmark::DoNotOptimize(name.data());
        stop = ++events % kEvents == 0;
    }
    int events = 0;
    bool stop = false;
};

void libraryCallback(const Watcher&, const std::string& name, unsigned int, void* context) {
    static_cast<Count*>(context)->event(name);
}

void floorCallback(const floor::Watch::Registration&, const std::string& name, unsigned int,
                   void* context) {
    static_cast<Count*>(context)->event(name);
}

/// Reads large blocks, and makes no text of a name.
void drain(int descriptor) {
    static char buffer[65536] __attribute__((aligned(alignof(inotify_event))));
    for (int events = 0; events < kEvents;) {
        pollfd ready = {descriptor, POLLIN, 0};
        poll(&ready, 1, 500);
        const ssize_t length = read(descriptor, buffer, sizeof buffer);
        for (const char *at = buffer, *end = buffer + length; at < end; ++events) {
            const auto* event = static_cast<const inotify_event*>(static_cast<const void*>(at));
            benchmark::DoNotOptimize(static_cast<const char*>(event->name));
            at += sizeof *event + event->len;
        }
    }
}

} // namespace

void addInotify() {
    const std::string operation = "10,000 inotify events";
    const Repeat repeat = {1, 3};
    addPrepared(
        operation, kLibrary,
        [] {
            SharedDir directory = makeDir();
            auto count = std::make_shared<Count>();
            auto watcher = std::make_shared<FileSystemWatcher>();
            watcher->attachWatcher(
                Watcher(directory->path(), IN_ATTRIB, &libraryCallback, count.get()));
            return Steps{[directory, count] {
                             causeEvents(*directory);
                             count->stop = false;
                         },
                         [watcher, count] { watcher->run(count->stop); }};
        },
        repeat);
    addPrepared(
        operation, kFloor,
        [] {
            SharedDir directory = makeDir();
            auto count = std::make_shared<Count>();
            auto watch = std::make_shared<floor::Watch>();
            watch->attach({directory->path(), IN_ATTRIB, &floorCallback, count.get()});
            return Steps{[directory, count] {
                             causeEvents(*directory);
                             count->stop = false;
                         },
                         [watch, count] { watch->run(count->stop); }};
        },
        repeat);
    addPrepared(
        operation, "raw inotify",
        [] {
            SharedDir directory = makeDir();
            const std::shared_ptr<int> descriptor(new int(inotify_init()), [](int* held) {
                close(*held);
                delete held;
            });
            inotify_add_watch(*descriptor, directory->path().c_str(), IN_ATTRIB);
            return Steps{[directory] { causeEvents(*directory); },
                         [descriptor] { drain(*descriptor); }};
        },
        repeat);
}

} // namespace bench
