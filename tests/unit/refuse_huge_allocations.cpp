#include <cstdlib>
#include <new>

// A machine on which 1 GiB is too much to ask for, so that no test has to find out where this one's
// limit is. A source of its own, as the compiler distrusts replacements that it can inline.
void* operator new(std::size_t size) {
    void* const memory = size > (std::size_t(1) << 30) ? nullptr : std::malloc(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
