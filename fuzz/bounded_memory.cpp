#include "bounded_memory.h"

#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t kLimit = std::size_t{1} << 20;
thread_local bool bounded = false;

} // namespace

namespace fuzzing {

BoundedMemory::BoundedMemory() { bounded = true; }

BoundedMemory::~BoundedMemory() { bounded = false; }

} // namespace fuzzing

// Replaces the sanitizer's operator, which would end the run instead of throwing.
void* operator new(std::size_t size) {
    void* const memory = bounded && size > kLimit ? nullptr : std::malloc(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return std::malloc(size); }

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
