#ifndef TAVO_TESTS_C_LIBRARY_H
#define TAVO_TESTS_C_LIBRARY_H

// What differs between C libraries: how they declare the functions that tests define in front of
// them, and texts of getopt_long(). Other texts come from strerror().
#include <cstdlib> // defines __GLIBC__ where it is that library
#include <string>

/// On functions that glibc declares as not throwing. Others declare no such thing, and a definition must agree with its
/// declaration.
#ifdef __GLIBC__
#define C_LIBRARY_NOEXCEPT noexcept
#else
#define C_LIBRARY_NOEXCEPT
#endif

namespace support {

/// What getopt_long() says of an option that it does not know; `name` without the hyphens.
inline std::string unknownOption(const std::string& name) {
#ifdef __GLIBC__
    return "unrecognized option '--" + name + "'";
#else
    return "unrecognized option: " + name;
#endif
}

/// What getopt_long() says of an option that lacks its argument.
inline std::string missingArgument(const std::string& name) {
#ifdef __GLIBC__
    return "option '--" + name + "' requires an argument";
#else
    return "option requires an argument: " + name;
#endif
}

} // namespace support

#endif
