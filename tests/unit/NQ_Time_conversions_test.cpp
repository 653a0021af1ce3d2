// Differences of times, and conversions between times and texts.

#include <kvr/api/datetime/NQ_Time.h>

#include "OtherTimeZone.h"

#include <cstdint>
#include <ctime>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>

#include <sys/time.h>

#include <gtest/gtest.h>

namespace {

using kvr::api::datetime::NQ_Time;
using support::OtherTimeZone;

constexpr std::time_t kThursday = 1577934245; // 2020-01-02T03:04:05

timeval at(std::time_t seconds, suseconds_t microseconds) {
    timeval result = {};
    result.tv_sec = seconds;
    result.tv_usec = microseconds;
    return result;
}

std::pair<std::time_t, suseconds_t> parsed(const std::string& text) {
    const timeval result = NQ_Time::dateStrToTv(text);
    return {result.tv_sec, result.tv_usec};
}

std::string formatted(std::time_t seconds, suseconds_t microseconds = 0) {
    return NQ_Time::tvToDateStr(at(seconds, microseconds));
}

long milliseconds(const timeval& start, const timeval& end) {
    return NQ_Time::timevaldiffMilli(start, end);
}

/// The difference as a 32-bit machine computes it, wrapped from a wider number.
long wrapped(std::int64_t value) { return static_cast<std::int32_t>(value & 0xffffffff); }

// timevaldiffMilli --------------------------------------------------------------------------------

TEST(NQ_Time, DifferencesAreWholeMilliseconds) {
    EXPECT_EQ(1, milliseconds(at(10, 999000), at(11, 0)));
    EXPECT_EQ(-1, milliseconds(at(11, 0), at(10, 999000)));
    EXPECT_EQ(0, milliseconds(at(5, 5), at(5, 5)));
    EXPECT_EQ(12345, milliseconds(at(100, 655000), at(113, 0)));
    EXPECT_EQ(-60000, milliseconds(at(60, 0), at(0, 0)));
}

TEST(NQ_Time, ThePartBelowAMillisecondIsCutTowardZero) {
    EXPECT_EQ(1, milliseconds(at(0, 0), at(0, 1999)));
    EXPECT_EQ(0, milliseconds(at(0, 999), at(0, 0)));
    EXPECT_EQ(0, milliseconds(at(0, 500), at(0, 0)));
    EXPECT_EQ(-1, milliseconds(at(0, 1999), at(0, 0)));
}

TEST(NQ_Time, MicrosecondsAreCutBeforeSecondsAreAdded) {
    // 0.9995 seconds. Truncating the sum would return 999.
    EXPECT_EQ(1000, milliseconds(at(0, 500), at(1, 0)));
    EXPECT_EQ(-1000, milliseconds(at(1, 0), at(0, 500)));
}

TEST(NQ_Time, DifferencesWrapAfter31Bits) {
    EXPECT_EQ(2147483647, milliseconds(at(0, 0), at(2147483, 647000)));
    EXPECT_EQ(-2147483647L - 1, milliseconds(at(0, 0), at(2147483, 648000)));
    EXPECT_EQ(2147483647, milliseconds(at(2147483, 649000), at(0, 0)));
    EXPECT_EQ(0, milliseconds(at(0, 0), at(4294967296 / 8, 0)));
    EXPECT_EQ(wrapped(1000 * std::int64_t{INT32_MAX}), milliseconds(at(0, 0), at(INT32_MAX, 0)));
    EXPECT_EQ(wrapped(1000 * std::int64_t{INT32_MIN}), milliseconds(at(0, 0), at(INT32_MIN, 0)));
}

TEST(NQ_Time, AnyPairOfTimesHasTheDifferenceOfA32BitMachine) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 100000; ++i) {
        const timeval start = at(static_cast<std::time_t>(random()), static_cast<int>(random()));
        const timeval end = at(static_cast<std::time_t>(random()), static_cast<int>(random()));
        const long fraction =
            wrapped(std::int64_t{end.tv_usec} - std::int64_t{start.tv_usec}) / 1000;
        const long seconds = wrapped(static_cast<std::int32_t>(end.tv_sec) -
                                     std::int64_t{static_cast<std::int32_t>(start.tv_sec)});
        ASSERT_EQ(wrapped(fraction + 1000 * std::int64_t{seconds}), milliseconds(start, end))
            << start.tv_sec << '.' << start.tv_usec << " to " << end.tv_sec << '.' << end.tv_usec;
    }
}

// dateStrToTv -------------------------------------------------------------------------------------

TEST(NQ_Time, ATextWithMillisecondsIsReadAsUtc) {
    const OtherTimeZone zone;
    EXPECT_EQ(std::make_pair(kThursday, suseconds_t{123000}), parsed("2020-01-02T03:04:05.123Z"));
    EXPECT_EQ(std::make_pair(std::time_t{0}, suseconds_t{0}), parsed("1970-01-01T00:00:00.000Z"));
    EXPECT_EQ(std::make_pair(std::time_t{-1}, suseconds_t{999000}),
              parsed("1969-12-31T23:59:59.999Z"));
    EXPECT_EQ(std::make_pair(std::time_t{1582934400}, suseconds_t{7000}),
              parsed("2020-02-29T00:00:00.007Z"));
}

TEST(NQ_Time, ATextOfSummerIsReadAsUtcToo) {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    EXPECT_EQ(std::make_pair(std::time_t{1593561600}, suseconds_t{0}),
              parsed("2020-07-01T00:00:00.000Z"));
    EXPECT_EQ("2020-07-01T00:00:00.000Z", formatted(1593561600));
    unsetenv("TZ");
    tzset();
}

TEST(NQ_Time, TheFractionCountsMillisecondsWhateverItsDigits) {
    const auto fractionOf = [](const std::string& fraction) {
        return parsed("2020-01-02T03:04:05." + fraction).second;
    };
    EXPECT_EQ(5000, fractionOf("5Z"));
    EXPECT_EQ(50000, fractionOf("50Z"));
    EXPECT_EQ(123456000, fractionOf("123456Z"));
    EXPECT_EQ(0, fractionOf("Z"));
    EXPECT_EQ(12000, fractionOf("123")); // the last character is dropped, whatever it is
    EXPECT_EQ(123000, fractionOf("123+00"));
    EXPECT_EQ(-5000, fractionOf("-5Z"));
    EXPECT_EQ(1000, fractionOf("1.9Z")); // only the first "." counts
}

TEST(NQ_Time, WithoutAFractionTheYearIsReadForIt) {
    EXPECT_EQ(std::make_pair(kThursday, suseconds_t{2020000}), parsed("2020-01-02T03:04:05Z"));
    EXPECT_EQ(std::make_pair(kThursday, suseconds_t{2020000}), parsed("2020-01-02T03:04:05"));
}

TEST(NQ_Time, AnEmptyFractionIsOutOfRange) {
    for (const char* text : {"2020-01-02T03:04:05.", ".", ""}) {
        try {
            NQ_Time::dateStrToTv(text);
            ADD_FAILURE() << "no exception for '" << text << "'";
        } catch (const std::out_of_range& error) {
            EXPECT_STREQ("basic_string::erase", error.what());
        }
    }
}

TEST(NQ_Time, ATextInAnotherLayoutDoesNoHarm) {
    for (const char* text : {"x", "yesterday", "02.01.2020", "2020-13-45T99:99:99.5Z", "\xff\xfe"})
        EXPECT_NO_THROW(NQ_Time::dateStrToTv(text)) << text;
    EXPECT_NO_THROW(NQ_Time::dateStrToTv(std::string("2020\0.5Z", 8)));
}

TEST(NQ_Time, AHugeFractionDoesNoHarm) {
    EXPECT_NO_THROW(NQ_Time::dateStrToTv("2020-01-02T03:04:05.99999999999999999999999Z"));
    EXPECT_NO_THROW(NQ_Time::dateStrToTv("2020-01-02T03:04:05.-99999999999999999999999Z"));
}

// tvToDateStr -------------------------------------------------------------------------------------

TEST(NQ_Time, ATimeIsWrittenInUtcWithThreeDigits) {
    const OtherTimeZone zone;
    EXPECT_EQ("2020-01-02T03:04:05.123Z", formatted(kThursday, 123000));
    EXPECT_EQ("1970-01-01T00:00:00.000Z", formatted(0));
    EXPECT_EQ("1970-01-01T00:00:00.007Z", formatted(0, 7000));
    EXPECT_EQ("1969-12-31T23:59:59.010Z", formatted(-1, 10000));
    EXPECT_EQ("2038-01-19T03:14:07.000Z", formatted(2147483647));
}

TEST(NQ_Time, MillisecondsAreCutNotRounded) {
    EXPECT_EQ("1970-01-01T00:00:00.999Z", formatted(0, 999999));
    EXPECT_EQ("1970-01-01T00:00:00.000Z", formatted(0, 999));
}

TEST(NQ_Time, MicrosecondsOutOfTheirRangeShowInTheText) {
    EXPECT_EQ("1970-01-01T00:00:00.1000Z", formatted(0, 1000000));
    EXPECT_EQ("1970-01-01T00:00:00.-05Z", formatted(0, -5000));
    EXPECT_EQ("1970-01-01T00:00:00.000Z", formatted(0, -999));
    EXPECT_EQ("1970-01-01T00:00:00.100000Z", formatted(0, 100000000));
    const suseconds_t most = std::numeric_limits<suseconds_t>::max();
    const suseconds_t least = std::numeric_limits<suseconds_t>::min();
    EXPECT_EQ("1970-01-01T00:00:00." + std::to_string(most / 1000) + "Z", formatted(0, most));
    EXPECT_EQ("1970-01-01T00:00:00." + std::to_string(least / 1000) + "Z", formatted(0, least));
}

#if TAVO_TIME_T_SIZE > 4

TEST(NQ_Time, YearsAreWrittenWithoutPaddingOrPlusSign) {
    EXPECT_EQ("1000-01-01T00:00:00.000Z", formatted(static_cast<std::time_t>(-30610224000)));
    EXPECT_EQ("100-01-01T00:00:00.000Z", formatted(static_cast<std::time_t>(-59011459200)));
    EXPECT_EQ("0-12-31T23:59:59.000Z", formatted(static_cast<std::time_t>(-62135596801)));
    EXPECT_EQ("-1-12-31T23:59:59.000Z", formatted(static_cast<std::time_t>(-62167219201)));
    EXPECT_EQ("-9999-01-01T00:00:00.000Z", formatted(static_cast<std::time_t>(-377705116800)));
}

TEST(NQ_Time, FarYearsAreWrittenAsLongAsTheyFit) {
    EXPECT_EQ("9999-12-31T23:59:59.000Z", formatted(static_cast<std::time_t>(253402300799)));
    EXPECT_EQ("10000-01-01T00:00:00.000Z", formatted(static_cast<std::time_t>(253402300800)));
    EXPECT_EQ("2147483647-12-31T23:59:59.000Z",
              formatted(static_cast<std::time_t>(67767976233532799)));
}

TEST(NQ_Time, ATimeThatCannotBeConvertedIsWrittenAsAnEmptyText) {
    EXPECT_EQ("", formatted(std::numeric_limits<std::time_t>::max(), 123000));
    EXPECT_EQ("", formatted(std::numeric_limits<std::time_t>::min(), 123000));
    // Years that do not fit an int.
    EXPECT_EQ("", formatted(static_cast<std::time_t>(67767976233532800), 123000));
    EXPECT_EQ("", formatted(static_cast<std::time_t>(67768036191676799), 123000));
    // A year of eleven characters: valid in the calendar, too long for the text.
    EXPECT_EQ("", formatted(static_cast<std::time_t>(-67768040609740800), 123000));
}

#else

TEST(NQ_Time, TheFirstAndTheLastTimeOf32BitsAreWritten) {
    EXPECT_EQ("1901-12-13T20:45:52.123Z",
              formatted(std::numeric_limits<std::time_t>::min(), 123000));
    EXPECT_EQ("2038-01-19T03:14:07.123Z",
              formatted(std::numeric_limits<std::time_t>::max(), 123000));
}

#endif

TEST(NQ_Time, TextAndTimeConvertToEachOther) {
    std::mt19937 random(2);
    for (int i = 0; i < 10000; ++i) {
        const timeval tv = at(static_cast<int>(random()), static_cast<int>(random() % 1000000));
        const std::string text = NQ_Time::tvToDateStr(tv);
        ASSERT_EQ(24u, text.size()) << text;
        ASSERT_EQ(std::make_pair(tv.tv_sec, tv.tv_usec / 1000 * 1000), parsed(text)) << text;
        ASSERT_EQ(text, NQ_Time::tvToDateStr(NQ_Time::dateStrToTv(text)));
    }
}

} // namespace
