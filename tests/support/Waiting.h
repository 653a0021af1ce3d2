#ifndef TAVO_TESTS_WAITING_H
#define TAVO_TESTS_WAITING_H

#include <chrono>
#include <functional>

namespace support {

/// Checks `condition` every millisecond until it holds or the deadline passes. Returns whether it
/// held. For conditions outside the process, which cannot signal a change. The deadline leaves
/// ample time for a busy machine.
bool eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds deadline = std::chrono::seconds(30));

} // namespace support

#endif
