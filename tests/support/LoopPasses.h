#ifndef TAVO_TESTS_LOOP_PASSES_H
#define TAVO_TESTS_LOOP_PASSES_H

#include "Interposed.h"
#include "Waiting.h"

#include <atomic>

namespace support {

/// Counts the passes of a FileSystemWatcher's loop while an object exists, and shortens its waits
/// from 500 to 5 ms. A stop is lost when it precedes the first pass, so wait for that before
/// stopping or destroying the loop's owner.
class LoopPasses {
public:
    int count() const { return count_; }

    /// Waits until the loop begins `more` further passes. Returns false after half a minute.
    bool wait(int more = 1) {
        const int target = count_ + more;
        return eventually([&] { return count_ >= target; });
    }

private:
    std::atomic<int> count_{0};
    const Stub<int(pollfd*, nfds_t, int)> poll_{interposedPoll,
                                                [this](pollfd* polled, nfds_t entries, int) {
                                                    ++count_;
                                                    return interposedPoll.real(polled, entries, 5);
                                                }};
};

} // namespace support

#endif
