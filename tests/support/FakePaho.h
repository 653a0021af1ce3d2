#ifndef TAVO_TESTS_FAKE_PAHO_H
#define TAVO_TESTS_FAKE_PAHO_H

#include "Interposed.h"

#include <string>
#include <vector>

namespace support {

/// Replaces the MQTT client library. A test program that uses this class supplies the library's
/// functions, and nanosleep(2), so that a hundred attempts take no time. Every call is recorded.
/// Only one object at a time.
class FakePaho {
public:
    FakePaho();
    ~FakePaho();
    FakePaho(const FakePaho&) = delete;
    FakePaho& operator=(const FakePaho&) = delete;

    /// Results of the next connects, in order; the last one repeats.
    std::vector<int> connectResults = {0};
    int publishResult = 0;
    int publishToken = 7;
    int waitResult = 0;
    int subscribeResult = 0;
    /// The number of pauses after which `flag` is cleared.
    int pausesUntilStop = -1;
    bool* flag = nullptr;

    /// The calls and pauses, one line each.
    std::vector<std::string> calls;
    /// The number of calls that begin with `name`.
    int count(const std::string& name) const;

private:
    const Stub<int(const timespec*, timespec*)> nanosleep_;
};

} // namespace support

#endif
