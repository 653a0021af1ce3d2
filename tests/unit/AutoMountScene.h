#ifndef TAVO_TESTS_AUTO_MOUNT_SCENE_H
#define TAVO_TESTS_AUTO_MOUNT_SCENE_H

#include "ScriptedInotify.h"
#include "Waiting.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>

const std::string kDevice = "tavo-stick1";
const std::string kNode = "/dev/" + kDevice;

inline void callNothing() {}

/// The two lines that the library prints for every event.
inline std::string event(const std::string& name, unsigned int mask) {
    return "SOMETHING HAPPNED: " + name + "\nWHAT: " + std::to_string(mask) + "\n";
}

inline std::string running(const std::string& command) { return "Running: " + command + "\n"; }

/// Detects the start of the object's loop and shortens the loop's waits. Destruction before the
/// loop has started may hang; with the full wait it takes half a second.
class LoopSeen {
public:
    LoopSeen() {
        calls_.poll = [this](pollfd* polled, nfds_t count, int) {
            ++passes_;
            return kernelPoll(polled, count, 5);
        };
    }

    /// Waits for `more` further iterations of the loop.
    bool wait(int more = 1) {
        const int target = passes_ + more;
        return support::eventually([&] { return passes_ >= target; });
    }

protected:
    InotifyCalls calls_;

private:
    std::atomic<int> passes_{0};
    ScriptedInotify scripted_{calls_};
};

/// Replaces the watch on /dev by one that never reports an event: for tests that only call
/// operations.
class DeafLoop : public LoopSeen {
public:
    DeafLoop() {
        calls_.addWatch = [this](int, const std::string& path, std::uint32_t mask) {
            char text[16];
            std::snprintf(text, sizeof text, " %x", mask);
            watched = path + text;
            return 1;
        };
        calls_.removeWatch = [](int, int) { return 0; };
    }

    std::string watched; ///< path and mask of the last watch
};

#endif
