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
    /// Sleeps `ms` milliseconds by one nanosleep(2). A signal cuts the pause short, and nothing
    /// tells of it.
    static void delay(int ms);

    /// Prints "UTC timestamp:" and the current UTC time as asctime(3) writes it, then an empty
    /// line, on standard output. An exception of the stream derived from std::exception is printed
    /// and swallowed.
    static void sNow();

    /// Milliseconds from `start` to `end`, negative when `end` is the earlier. The microseconds'
    /// difference is cut toward zero on its own, so 1.9999 ms count 1, and -0.5 ms count 0.
    /// Deliberate: 32-bit arithmetic everywhere, which wraps after about 24 days.
    static long timevaldiffMilli(const timeval& start, const timeval& end);

    /// Reads an ISO text with milliseconds.
    ///
    /// Deliberate: what stands between the first "." and the last character is a count of
    /// milliseconds, whatever its number of digits (".5Z" gives 5000 microseconds), and without a
    /// "." the year is taken for it ("2020-01-02T03:04:05Z" gives 2020000). Throws
    /// std::out_of_range "basic_string::erase" when nothing follows the "." or the text is empty.
    /// The date of a text in another layout is unspecified.
    static timeval dateStrToTv(const std::string& date);

    /// Writes `tv` as ISO text; the microseconds, 0 to 999999, are cut to milliseconds (more of
    /// them print more digits, negative ones a minus sign). Empty when gmtime(3) cannot express the
    /// time or its year has more than ten characters.
    static std::string tvToDateStr(const timeval& tv);
};

} // namespace datetime
} // namespace api
} // namespace kvr

#endif
