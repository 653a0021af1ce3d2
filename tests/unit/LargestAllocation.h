#ifndef TAVO_TESTS_LARGEST_ALLOCATION_H
#define TAVO_TESTS_LARGEST_ALLOCATION_H

#include <cstddef>

namespace support {

/// Refuses memory in larger pieces than `bytes` while it lives: a test program that uses this class
/// supplies operator new itself. Otherwise the limit is 1 GiB, so that no test has to find out
/// where this machine's limit is. One at a time.
class LargestAllocation {
public:
    explicit LargestAllocation(std::size_t bytes);
    ~LargestAllocation();
    LargestAllocation(const LargestAllocation&) = delete;
    LargestAllocation& operator=(const LargestAllocation&) = delete;
};

} // namespace support

#endif
