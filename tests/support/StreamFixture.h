#ifndef TAVO_TESTS_STREAM_FIXTURE_H
#define TAVO_TESTS_STREAM_FIXTURE_H

#include <kvr/api/NQ_Stream.h>

#include "StandardInput.h"

#include <iostream>
#include <locale>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace support {

/// Reads a line from standard input with a stop flag that stays false.
inline std::string lineFromInput() {
    bool stop = false;
    std::string line = NQ_Stream::readOneLineStream(std::cin, stop);
    EXPECT_FALSE(stop);
    return line;
}

/// Expects these lines from standard input.
inline void expectLines(const std::vector<std::string>& lines) {
    for (const std::string& line : lines)
        EXPECT_EQ(line, lineFromInput());
}

/// Expects a call to wait with poll() first, and to return nothing because the flag is set during
/// the wait.
inline void expectStoppedWait() {
    bool stop = false;
    const RecordedPolls polls([&](int) {
        stop = true;
        return 0;
    });
    EXPECT_EQ("", NQ_Stream::readOneLineStream(std::cin, stop));
    EXPECT_EQ(1, polls.count());
    EXPECT_TRUE(polls.ppollResults().empty());
}

/// Makes widen() return a semicolon for a newline.
class SemicolonForNewline : public std::ctype<char> {
protected:
    char do_widen(char c) const override { return c == '\n' ? ';' : c; }
    const char* do_widen(const char* from, const char* end, char* to) const override {
        while (from != end)
            *to++ = do_widen(*from++);
        return end;
    }
};

} // namespace support

#endif
