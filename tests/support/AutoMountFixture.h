#ifndef TAVO_TESTS_AUTO_MOUNT_FIXTURE_H
#define TAVO_TESTS_AUTO_MOUNT_FIXTURE_H

#include "Interposed.h"
#include "LoopPasses.h"

#include <cstdint>
#include <cstdio>
#include <string>

namespace support {

const std::string kDevice = "tavo-device1";
const std::string kNode = "/dev/" + kDevice;

inline void callNothing() {}

/// The two lines that the library prints for every event.
inline std::string event(const std::string& name, unsigned int mask) {
    // Deliberate: the spelling "HAPPNED" is part of the printed text.
    return "SOMETHING HAPPNED: " + name + "\nWHAT: " + std::to_string(mask) + "\n";
}

inline std::string running(const std::string& command) { return "Running: " + command + "\n"; }

/// Records the watch on /dev while an object exists and watches nothing: for tests that call the
/// operations themselves.
class NoDeviceEvents : public LoopPasses {
public:
    std::string watched; ///< path and mask of the last watch

private:
    const Stub<int(int, const char*, std::uint32_t)> addWatch_{
        interposedInotifyAddWatch, [this](int, const char* path, std::uint32_t mask) {
            char text[16];
            std::snprintf(text, sizeof text, " %x", mask);
            watched = std::string(path) + text;
            return 1;
        }};
};

} // namespace support

#endif
