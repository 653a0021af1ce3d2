#ifndef TAVO_TESTS_THROWN_BY_H
#define TAVO_TESTS_THROWN_BY_H

#include <functional>
#include <string>

namespace support {

/// Returns the message of the `Exception` that `action` throws, or "no exception".
template <class Exception>
std::string thrownBy(const std::function<void()>& action) {
    try {
        action();
    } catch (const Exception& error) {
        return error.what();
    }
    return "no exception";
}

} // namespace support

#endif
