// A separate source file, because the compiler warns about replacements that it can inline.
#include "LargestAllocation.h"

#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t kUsual = std::size_t(1) << 30;
std::size_t largest = kUsual;

} // namespace

void* operator new(std::size_t size) {
    void* const memory = size > largest ? nullptr : std::malloc(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace support {

LargestAllocation::LargestAllocation(std::size_t bytes) { largest = bytes; }

LargestAllocation::~LargestAllocation() { largest = kUsual; }

} // namespace support
