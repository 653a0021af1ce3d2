#ifndef TAVO_BENCH_FLOOR_PRINT_H
#define TAVO_BENCH_FLOOR_PRINT_H

#include <cstddef>
#include <initializer_list>
#include <iostream>
#include <string_view>

namespace bench::floor {

/// Writes one line to a stream, by one call when it is short, and flushes it.
inline void writeLine(std::ostream& stream, std::initializer_list<std::string_view> parts) {
    char line[512];
    std::size_t length = 0;
    for (const std::string_view& part : parts) {
        if (part.size() >= sizeof line - length) {
            stream.write(line, static_cast<std::streamsize>(length));
            stream.write(part.data(), static_cast<std::streamsize>(part.size()));
            length = 0;
            continue;
        }
        length += part.copy(line + length, part.size());
    }
    line[length++] = '\n';
    stream.write(line, static_cast<std::streamsize>(length)).flush();
}

inline void printLine(std::initializer_list<std::string_view> parts) {
    writeLine(std::cout, parts);
}

} // namespace bench::floor

#endif
