// Any bytes as a time text, and as a point in time.
#include <kvr/api/datetime/NQ_Time.h>

#include "fuzzing.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include <sys/time.h>

using kvr::api::datetime::NQ_Time;

namespace {

// The years that a text of the usual length can name, 0 to 9999.
constexpr std::int64_t kFirstSecond = -62167219200;
constexpr std::int64_t kLastSecond = 253402300799;

/// The fraction is the text after the first point, or all of it, without the last character.
void readText(const std::string& text) {
    const std::string rest = text.substr(text.find('.') + 1);
    timeval time = {};
    try {
        time = NQ_Time::dateStrToTv(text);
    } catch (const std::out_of_range& error) {
        fuzzing::require(rest.empty(), "only a text that is empty or ends in a point is refused");
        fuzzing::require(std::strcmp(error.what(), "basic_string::erase") == 0, "as documented");
        return;
    }
    fuzzing::require(!rest.empty(), "a text that is empty or ends in a point is refused");
    const long milliseconds = std::strtol(rest.substr(0, rest.size() - 1).c_str(), nullptr, 10);
    fuzzing::require(static_cast<unsigned long>(time.tv_usec) ==
                         static_cast<unsigned long>(milliseconds) * 1000,
                     "the fraction counts milliseconds");
}

void writeText(timeval time) {
    const std::string any = NQ_Time::tvToDateStr(time);
    fuzzing::require(any.empty() || any.back() == 'Z', "a text ends in Z");
    NQ_Time::timevaldiffMilli(time, timeval());
    NQ_Time::timevaldiffMilli(timeval(), time);

    time.tv_sec = kFirstSecond + static_cast<std::int64_t>(
                                     static_cast<std::uint64_t>(time.tv_sec) %
                                     static_cast<std::uint64_t>(kLastSecond - kFirstSecond + 1));
    time.tv_usec = static_cast<long>(static_cast<unsigned long>(time.tv_usec) % 1000000);
    const timeval read = NQ_Time::dateStrToTv(NQ_Time::tvToDateStr(time));
    fuzzing::require(read.tv_sec == time.tv_sec, "a round trip keeps the seconds");
    fuzzing::require(read.tv_usec == time.tv_usec / 1000 * 1000,
                     "a round trip keeps whole milliseconds");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    readText(std::string(reinterpret_cast<const char*>(data), size));
    timeval time = {};
    std::int64_t parts[2] = {};
    std::memcpy(parts, data, std::min(size, sizeof parts));
    time.tv_sec = static_cast<time_t>(parts[0]);
    time.tv_usec = static_cast<suseconds_t>(parts[1]);
    writeText(time);
    return 0;
}
