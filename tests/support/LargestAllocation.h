#ifndef TAVO_TESTS_LARGEST_ALLOCATION_H
#define TAVO_TESTS_LARGEST_ALLOCATION_H

#include <cstddef>

namespace support {

/// Limits the size of one allocation to `bytes` while an object exists. A test program that uses
/// this class replaces operator new. Without an object the limit is 1 GiB, so that no test depends
/// on this machine's memory. Only one object at a time.
class LargestAllocation {
public:
    explicit LargestAllocation(std::size_t bytes);
    ~LargestAllocation();
    LargestAllocation(const LargestAllocation&) = delete;
    LargestAllocation& operator=(const LargestAllocation&) = delete;
};

} // namespace support

#endif
