#ifndef KVR_API_DATETIME_NQ_TIME_H
#define KVR_API_DATETIME_NQ_TIME_H

#include <kvr/api/export.h>

#include <string>

#include <sys/time.h>

namespace kvr {
namespace api {
namespace datetime {

/// Pauses, intervals, and times as ISO 8601 text in UTC with milliseconds, such as
/// 2020-01-02T03:04:05.123Z.
/// Threads: any thread, but sNow() uses the C library's one static time buffer.
class TAVO_API NQ_Time {
public:
    /// Sleeps `ms` milliseconds with one nanosleep(2). A signal ends the pause early, which is not
    /// reported.
    static void delay(int ms);

    /// Prints "UTC timestamp:" and the current UTC time as asctime(3) writes it, then an empty
    /// line, on standard output. An exception of the stream derived from std::exception is printed
    /// and swallowed.
    static void sNow();

    /// Milliseconds from `start` to `end`, negative when `end` is earlier. The difference of the
    /// microseconds is cut toward zero by itself: 1.9999 ms count as 1, and -0.5 ms as 0.
    /// Deliberate: 32-bit arithmetic everywhere, which wraps after about 24 days.
    static long timevaldiffMilli(const timeval& start, const timeval& end);

    /// Reads an ISO text with milliseconds.
    ///
    /// Deliberate: the digits between the first "." and the last character count milliseconds,
    /// however many there are: ".5Z" is read as 5000 microseconds. Without a ".", the year is read
    /// instead: "2020-01-02T03:04:05Z" is read as 2020000 microseconds. Throws std::out_of_range
    /// "basic_string::erase" when nothing follows the "." or the text is empty. The date of a text
    /// in another layout is unspecified.
    static timeval dateStrToTv(const std::string& date);

    /// Writes `tv` as ISO text; the microseconds, 0 to 999999, are cut to milliseconds. Larger
    /// values print more digits, negative ones a minus sign. Empty when gmtime(3) cannot express
    /// the time, or when its year has more than ten characters or exceeds 2147483647.
    static std::string tvToDateStr(const timeval& tv);
};

} // namespace datetime
} // namespace api
} // namespace kvr

#endif
