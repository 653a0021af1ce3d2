#include "kvr/api/FileSystemWatcher.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

constexpr int kPassMilliseconds = 500;
constexpr std::size_t kBufferSize = 4600;

} // namespace

Watcher::Watcher(const std::string& watchedPath, unsigned int eventMask, Callback function,
                 void* callersContext)
    : path(watchedPath), mask(eventMask), callback(function), context(callersContext) {}

bool operator==(const Watcher& a, const Watcher& b) { return a.path == b.path; }

FileSystemWatcher::FileSystemWatcher() : inotifyFd(inotify_init()), stopRequested(false) {
    if (inotifyFd < 0)
        std::perror("Couldn't initialize inotify");
}

FileSystemWatcher::~FileSystemWatcher() {
    for (const auto& entry : watchers)
        (void)inotify_rm_watch(inotifyFd, entry.first);
    (void)close(inotifyFd);
}

void FileSystemWatcher::attachWatcher(const Watcher& w) {
    const int descriptor = inotify_add_watch(inotifyFd, w.path.c_str(), w.mask);
    if (descriptor == -1) {
        std::printf("Couldn't add watch to %s ERROR: %s\n", w.path.c_str(), std::strerror(errno));
        std::fflush(stdout);
        return;
    }
    watchers.emplace_back(descriptor, w);
}

void FileSystemWatcher::detachWatcher(const std::string& path) {
    const auto found = std::find_if(watchers.begin(), watchers.end(),
                                    [&](const auto& entry) { return entry.second.path == path; });
    if (found == watchers.end())
        return;
    (void)inotify_rm_watch(inotifyFd, found->first);
    // Deliberate: std::remove() compares with a reference to the entry in the list, not with a
    // copy. It overwrites that entry while it compares.
    watchers.erase(std::remove(watchers.begin(), watchers.end(), *found), watchers.end());
}

void FileSystemWatcher::detachWatcher(const Watcher& w) { detachWatcher(w.path); }

bool FileSystemWatcher::watcherExists(const std::string& path) const {
    return std::any_of(watchers.begin(), watchers.end(),
                       [&](const auto& entry) { return entry.second.path == path; });
}

void FileSystemWatcher::resetState() {
    for (const auto& entry : watchers)
        (void)inotify_rm_watch(inotifyFd, entry.first);
    (void)close(inotifyFd);
    inotifyFd = inotify_init();
    for (auto& entry : watchers)
        entry.first = inotify_add_watch(inotifyFd, entry.second.path.c_str(), entry.second.mask);
}

void FileSystemWatcher::run(bool& stop) {
    while (!stop) {
        pollfd events = {inotifyFd, POLLIN, 0}; // a reset may have replaced inotifyFd
        if (poll(&events, 1, kPassMilliseconds) > 0)
            readEvents();
    }
}

void FileSystemWatcher::run() {
    stopRequested = false;
    run(stopRequested);
}

void FileSystemWatcher::stop() { stopRequested = true; }

void FileSystemWatcher::readEvents() {
    alignas(inotify_event) char buffer[kBufferSize + 1];
    const ssize_t length = read(inotifyFd, buffer, kBufferSize);
    if (length < 0) {
        std::printf("read: %d\n", static_cast<int>(length));
        std::fflush(stdout);
        return;
    }
    buffer[length] = '\0'; // the empty name of a last record without one

    for (ssize_t offset = 0; offset < length;) {
        // The cast through void is safe: the kernel pads names, so every record is aligned.
        const void* const record = buffer + offset;
        const auto* event = static_cast<const inotify_event*>(record);
        offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        // By index, and with the current size in every step: callbacks and resets change the list.
        for (std::size_t i = 0; i < watchers.size(); ++i) {
            if (watchers[i].first != event->wd)
                continue;
            if ((event->mask & IN_IGNORED) != 0) {
                resetState();
                continue;
            }
            const Watcher& watcher = watchers[i].second;
            watcher.callback(watcher, event->name, event->mask, watcher.context);
        }
    }
}
