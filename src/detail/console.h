#ifndef TAVO_DETAIL_CONSOLE_H
#define TAVO_DETAIL_CONSOLE_H

#include <exception>
#include <istream>
#include <ostream>
#include <string>

// Up to release 12 of GNU's library, <iostream> plants a load-time constructor and an exit handler
// in every source that includes it. The library must load fast on a weak board, so there the two
// streams are declared by hand and made ready on first use instead.
#if defined(_GLIBCXX_RELEASE) && _GLIBCXX_RELEASE < 13
namespace std {
extern istream cin;
extern ostream cout;
} // namespace std
#else
#include <iostream>
#endif

namespace kvr::api::detail {

/// std::cout, ready for use also when no other part of the process has included <iostream>.
inline std::ostream& out() {
    static const std::ios_base::Init ready;
    return std::cout;
}

/// std::cin, likewise.
inline std::istream& in() {
    static const std::ios_base::Init ready;
    return std::cin;
}

/// A number as text. Printed as a number, it would follow the flags and the locale that the
/// application gave std::cout.
template <class Number>
std::string decimal(Number number) {
    return std::to_string(number);
}

/// The line that every catch-all handler of the library prints.
inline void reportCaught(const char* operation) {
    out() << "Some error on " << operation << std::endl;
}

/// The same, followed by the exception's own text.
inline void reportCaught(const char* operation, const std::exception& error) {
    reportCaught(operation);
    out() << error.what() << std::endl;
}

} // namespace kvr::api::detail

#endif
