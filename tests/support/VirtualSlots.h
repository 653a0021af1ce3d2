#ifndef TAVO_TESTS_VIRTUAL_SLOTS_H
#define TAVO_TESTS_VIRTUAL_SLOTS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace support {

/// Returns the number (from 0) of the virtual table slot that a pointer to a virtual function
/// refers to. A virtual destructor takes two slots. The function decodes the pointer as the Itanium
/// C++ ABI and its ARM variant define it.
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
