#ifndef TAVO_TESTS_C_LIBRARY_H
#define TAVO_TESTS_C_LIBRARY_H

// Differences between C libraries: the declarations of functions that tests replace, and the
// messages of getopt_long(). Use strerror() for all other messages.
#include <cstdlib> // defines __GLIBC__ if the C library is glibc
#include <string>

/// For functions that glibc declares noexcept and other C libraries do not. A definition must match
/// its declaration.
#ifdef __GLIBC__
#define C_LIBRARY_NOEXCEPT noexcept
#else
#define C_LIBRARY_NOEXCEPT
#endif

namespace support {

/// The message of getopt_long() about an unknown option; `name` without the hyphens.
inline std::string unknownOption(const std::string& name) {
#ifdef __GLIBC__
    return "unrecognized option '--" + name + "'";
#else
    return "unrecognized option: " + name;
#endif
}

/// The message of getopt_long() about an option without its argument.
inline std::string missingArgument(const std::string& name) {
#ifdef __GLIBC__
    return "option '--" + name + "' requires an argument";
#else
    return "option requires an argument: " + name;
#endif
}

} // namespace support

#endif
