#ifndef TAVO_DETAIL_CONSOLE_H
#define TAVO_DETAIL_CONSOLE_H

#include <charconv>
#include <cstddef>
#include <exception>
#include <initializer_list>
#include <istream>
#include <ostream>
#include <string_view>

// Up to release 12 of GNU's library, <iostream> adds a load-time constructor and an exit handler to
// every source that includes it. The library must load fast on a weak board. So there the two
// streams are declared here and initialised on first use.
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

/// std::cin, ready for use in the same way.
inline std::istream& in() {
    static const std::ios_base::Init ready;
    return std::cin;
}

/// The decimal digits of a number. A number that is printed directly follows the flags and the
/// locale that the application has set for std::cout.
class Decimal {
public:
    explicit Decimal(long long number)
        : end(std::to_chars(digits, digits + sizeof digits, number).ptr) {}
    operator std::string_view() const {
        return std::string_view(digits, static_cast<std::size_t>(end - digits));
    }

private:
    char digits[20];
    char* end;
};

/// Writes `parts` as one line to `stream`, and flushes it. The stream's width and number format do
/// not apply.
inline void writeLine(std::ostream& stream, std::initializer_list<std::string_view> parts) {
    // A call of the stream costs more than the copy of a short line.
    char line[512];
    std::size_t length = 0;
    for (const std::string_view& part : parts) {
        if (part.size() < sizeof line - length) {
            length += part.copy(line + length, part.size());
        } else {
            stream.write(line, static_cast<std::streamsize>(length));
            stream.write(part.data(), static_cast<std::streamsize>(part.size()));
            length = 0;
        }
    }
    line[length++] = '\n';
    stream.write(line, static_cast<std::streamsize>(length)).flush();
}

/// The same on standard output.
inline void printLine(std::initializer_list<std::string_view> parts) { writeLine(out(), parts); }

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
