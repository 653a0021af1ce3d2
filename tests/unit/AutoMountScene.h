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

/// The two lines for every event.
inline std::string event(const std::string& name, unsigned int mask) {
    return "SOMETHING HAPPNED: " + name + "\nWHAT: " + std::to_string(mask) + "\n";
}

inline std::string running(const std::string& command) { return "Running: " + command + "\n"; }

/// Sees the loop of the object's thread begin, and keeps its passes short. Destroying an object
/// whose loop has not begun may hang, and without short passes takes half a second.
class LoopSeen {
public:
    LoopSeen() {
        calls_.poll = [this](pollfd* polled, nfds_t count, int) {
            ++passes_;
            return kernelPoll(polled, count, 5);
        };
    }

    /// Waits for `more` passes from now on.
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

/// The watch on /dev never sees anything: for objects of which only the operations are used.
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
