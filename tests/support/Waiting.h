#ifndef TAVO_TESTS_WAITING_H
#define TAVO_TESTS_WAITING_H

#include <chrono>
#include <functional>

namespace support {

/// Looks at `condition` every millisecond until it holds or the deadline has passed; tells whether
/// it held. For conditions outside the process, which nothing can signal. The deadline is far above
/// what anything takes, for machines that are busy with other things.
bool eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds deadline = std::chrono::seconds(30));

} // namespace support

#endif
