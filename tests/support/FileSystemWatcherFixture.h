#ifndef TAVO_TESTS_FILE_SYSTEM_WATCHER_FIXTURE_H
#define TAVO_TESTS_FILE_SYSTEM_WATCHER_FIXTURE_H

#include <kvr/api/FileSystemWatcher.h>

#include "Interposed.h"
#include "TempDir.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace support {

/// What callbacks received, as "name mask" with the mask in hexadecimal.
struct RecordedEvents {
    std::vector<std::string> seen;
    std::function<void(const std::string& name)> action; ///< runs after the event is recorded

    static void recordEvent(const Watcher&, const std::string& name, unsigned int mask,
                            void* context) {
        auto* const self = static_cast<RecordedEvents*>(context);
        std::ostringstream line;
        line << name << ' ' << std::hex << mask;
        self->seen.push_back(line.str());
        if (self->action)
            self->action(name);
    }

    /// For watches on a file itself: their events have no name.
    static void recordMask(const Watcher&, const std::string&, unsigned int mask, void* context) {
        std::ostringstream line;
        line << std::hex << mask;
        static_cast<RecordedEvents*>(context)->seen.push_back(line.str());
    }

    Watcher watcherOn(const std::string& path, unsigned int mask = IN_CREATE | IN_DELETE) {
        return Watcher(path, mask, recordEvent, this);
    }
    Watcher watcherOnFile(const std::string& path, unsigned int mask) {
        return Watcher(path, mask, recordMask, this);
    }

    std::vector<std::string> take() {
        std::vector<std::string> result;
        result.swap(seen);
        return result;
    }
};

/// Runs the loop until the kernel has no more events. Earlier events are queued already, so the
/// loop need not wait.
inline void drain(FileSystemWatcher& watcher) {
    bool stop = false;
    const Stub polling(interposedPoll, [&](pollfd* polled, nfds_t count, int) {
        const int ready = interposedPoll.real(polled, count, 0);
        stop = stop || ready <= 0;
        return ready;
    });
    watcher.run(stop);
}

inline void makeDirectory(const std::string& path) {
    ASSERT_EQ(0, mkdir(path.c_str(), 0755)) << path << ": " << std::strerror(errno);
}

inline void moveTo(const std::string& from, const std::string& to) {
    ASSERT_EQ(0, std::rename(from.c_str(), to.c_str())) << from << ": " << std::strerror(errno);
}

inline void removePath(const std::string& path) {
    ASSERT_EQ(0, std::remove(path.c_str())) << path << ": " << std::strerror(errno);
}

/// Creates and removes a file, which causes two events.
inline void touchAndRemove(const std::string& path) {
    const int file = open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    ASSERT_NE(-1, file) << path;
    close(file);
    ASSERT_EQ(0, unlink(path.c_str()));
}

inline int maxQueuedEvents() {
    int limit = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
    return limit;
}

/// A watcher on the real kernel, and a new directory for it.
class FileSystemWatcherFixture : public testing::Test {
protected:
    TempDir directory;
    FileSystemWatcher watcher;
    RecordedEvents events;
};

} // namespace support

#endif
