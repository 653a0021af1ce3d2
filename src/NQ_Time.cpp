#include "kvr/api/datetime/NQ_Time.h"

#include "detail/console.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <stdexcept>

namespace kvr::api::datetime {
namespace {

// Wraps as 32-bit registers do, on 64-bit hosts as well and without undefined behaviour.
template <class Time>
std::int32_t difference32(Time from, Time to) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(to) -
                                     static_cast<std::uint32_t>(from));
}

} // namespace

void NQ_Time::delay(int ms) {
    const timespec pause = {ms / 1000, (ms % 1000) * 1000000L};
    (void)nanosleep(&pause, nullptr); // a pause cut short by a signal is not resumed
}

void NQ_Time::sNow() {
    const std::time_t now = std::time(nullptr);
    (void)std::ctime(&now); // only sets up the time zone
    try {
        std::ostream& out = detail::out();
        out << "UTC timestamp:";
        // Not every C library's asctime() takes the null of a time without a calendar date.
        const tm* parts = std::gmtime(&now);
        if (const char* text = parts != nullptr ? std::asctime(parts) : nullptr)
            out << text;
        else
            out.setstate(std::ios::badbit);
        out << std::endl;
    } catch (const std::exception& error) {
        detail::reportCaught("kvr::api::datetime::NQ_Time::sNow", error);
    }
}

long NQ_Time::timevaldiffMilli(const timeval& start, const timeval& end) {
    const std::int32_t fraction = difference32(start.tv_usec, end.tv_usec) / 1000;
    const std::int32_t seconds = difference32(start.tv_sec, end.tv_sec);
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(fraction) +
                                     1000u * static_cast<std::uint32_t>(seconds));
}

timeval NQ_Time::dateStrToTv(const std::string& date) {
    tm parts = {};
    (void)strptime(date.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    timeval result = {};
    result.tv_sec = timegm(&parts);

    // Deliberate: without a "." this adds up to position 0, and the year is read.
    std::string fraction = date.substr(date.find('.') + 1);
    if (fraction.empty())
        throw std::out_of_range("basic_string::erase");
    fraction.pop_back(); // the "Z"
    const auto milliseconds =
        static_cast<unsigned long>(std::strtol(fraction.c_str(), nullptr, 10));
    // The cast to long keeps the sign where suseconds_t is wider (32-bit musl).
    result.tv_usec = static_cast<long>(milliseconds * 1000);
    return result;
}

std::string NQ_Time::tvToDateStr(const timeval& tv) {
    const std::time_t seconds = tv.tv_sec;
    tm parts;
    if (gmtime_r(&seconds, &parts) == nullptr)
        return std::string();
    constexpr std::size_t kDate = 26;
    constexpr std::size_t kFraction = 24; // any number, not only the three digits of a valid time
    char text[kDate + kFraction];
    const long long year = 1900LL + parts.tm_year;
    // Other years are written here, since C libraries differ in years that do not have four digits.
    const int length =
        year >= 1000 && year <= 9999
            ? static_cast<int>(std::strftime(text, kDate, "%Y-%m-%dT%H:%M:%S", &parts))
            : std::snprintf(text, kDate, "%lld-%02d-%02dT%02d:%02d:%02d", year, parts.tm_mon + 1,
                            parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    // Deliberate: for a year that has more than ten characters or exceeds an int, the text is
    // empty.
    if (length >= static_cast<int>(kDate) || year > std::numeric_limits<int>::max())
        return std::string();
    const int fraction = std::snprintf(text + length, kFraction, ".%03lldZ",
                                       static_cast<long long>(tv.tv_usec / 1000));
    return std::string(text, static_cast<std::size_t>(length + fraction));
}

} // namespace kvr::api::datetime
