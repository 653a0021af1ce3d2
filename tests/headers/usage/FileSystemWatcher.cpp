// The header provides the event masks, and registrations have both comparison operators.
#include <kvr/api/FileSystemWatcher.h>

#include <utility>

bool differ(const Watcher& a, const Watcher& b) { return a != b; }

bool differ(const std::pair<int, Watcher>& a, const std::pair<int, Watcher>& b) { return a != b; }

void registerIn(FileSystemWatcher& watcher, Watcher::Callback callback) {
    watcher.attachWatcher(Watcher("/tmp", IN_CREATE | IN_DELETE | IN_ONLYDIR, callback, nullptr));
}
