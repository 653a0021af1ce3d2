#ifndef TAVO_TESTS_VIRTUAL_SLOTS_H
#define TAVO_TESTS_VIRTUAL_SLOTS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace support {

/// Number of the virtual table slot behind a pointer to a virtual operation, from 0. A virtual
/// destructor takes two slots. Reads the pointer as the Itanium C++ ABI and its ARM variant lay it
/// out.
template <class Operation>
std::size_t virtualSlot(Operation operation) {
    struct {
        std::uintptr_t pointer;
        std::ptrdiff_t adjustment;
    } raw;
    static_assert(sizeof raw == sizeof operation, "not a pointer to a member function");
    std::memcpy(&raw, &operation, sizeof raw);
#if defined(__arm__) || defined(__aarch64__)
    return raw.pointer / sizeof(void*);
#else
    return (raw.pointer - 1) / sizeof(void*);
#endif
}

} // namespace support

#endif
