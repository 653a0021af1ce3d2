#include <kvr/api/datetime/NQ_Time.h>

#include "CLibrary.h"
#include "CapturedOutput.h"
#include "Interposed.h"
#include "OtherTimeZone.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <limits>
#include <locale>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

#include <sys/time.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

/// One call of nanosleep().
struct Sleep {
    std::time_t seconds;
    long nanoseconds;
    bool withRemainder;

    bool operator==(const Sleep& other) const {
        return seconds == other.seconds && nanoseconds == other.nanoseconds &&
               withRemainder == other.withRemainder;
    }
};

std::ostream& operator<<(std::ostream& out, const Sleep& sleep) {
    return out << sleep.seconds << " s " << sleep.nanoseconds << " ns"
               << (sleep.withRemainder ? " with a remainder" : "");
}

/// Records the calls of nanosleep() while an object exists. Each returns `result` immediately.
class RecordedSleeps {
public:
    explicit RecordedSleeps(int result = 0, int error = 0)
        : nanosleep_(support::interposedNanosleep,
                     [this, result, error](const timespec* pause, const timespec* rest) {
                         sleeps_.push_back({pause->tv_sec, pause->tv_nsec, rest != nullptr});
                         errno = error;
                         return result;
                     }) {}

    const std::vector<Sleep>& all() const { return sleeps_; }

private:
    std::vector<Sleep> sleeps_;
    const support::Stub<int(const timespec*, timespec*)> nanosleep_;
};

/// Sets the result of time() while an object exists.
class FixedTime {
public:
    explicit FixedTime(std::time_t now) : now_(now) { current = this; }
    ~FixedTime() { current = nullptr; }
    FixedTime(const FixedTime&) = delete;
    FixedTime& operator=(const FixedTime&) = delete;

    std::time_t now() const { return now_; }
    static const FixedTime* current;

private:
    std::time_t now_;
};

const FixedTime* FixedTime::current = nullptr;

} // namespace

// These replace the C library's functions, also for the library under test.
extern "C" {

std::time_t time(std::time_t* result) C_LIBRARY_NOEXCEPT {
    if (FixedTime::current == nullptr)
        return support::next<std::time_t(std::time_t*)>("time")(result);
    if (result != nullptr)
        *result = FixedTime::current->now();
    return FixedTime::current->now();
}
}

namespace {

using kvr::api::datetime::NQ_Time;
using support::OtherTimeZone;
using support::printedBy;
using testing::ElementsAre;

constexpr std::time_t kThursday = 1577934245; // 2020-01-02T03:04:05
const char* const kThursdayText = "UTC timestamp:Thu Jan  2 03:04:05 2020\n\n";

/// Restores std::cout at the end: state, exception mask, locale and buffer.
class RestoredCout {
public:
    RestoredCout() : buffer_(std::cout.rdbuf()), locale_(std::cout.getloc()) {}
    ~RestoredCout() {
        std::cout.exceptions(std::ios::goodbit);
        std::cout.rdbuf(buffer_);
        std::cout.imbue(locale_);
        std::cout.clear();
    }
    RestoredCout(const RestoredCout&) = delete;
    RestoredCout& operator=(const RestoredCout&) = delete;

private:
    std::streambuf* buffer_;
    std::locale locale_;
};

/// Throws `Error{}` the first `times` times that std::endl widens the newline.
template <class Error>
class ThrowsForNewline : public std::ctype<char> {
public:
    explicit ThrowsForNewline(int times = 1) : left_(times) {}

protected:
    char do_widen(char c) const override { return c == '\n' && due() ? throw Error{} : c; }
    // libstdc++ widens all characters together and caches them.
    const char* do_widen(const char* from, const char* end, char* to) const override {
        if (std::find(from, end, '\n') != end && due())
            throw Error{};
        return std::ctype<char>::do_widen(from, end, to);
    }

private:
    bool due() const { return left_-- > 0; }
    mutable int left_;
};

struct StreamFault : std::exception {
    const char* what() const noexcept override { return "the newline is out of order"; }
};

// delay -------------------------------------------------------------------------------------------

TEST(NQ_Time, DelaySplitsMillisecondsIntoSecondsAndNanoseconds) {
    RecordedSleeps sleeps;
    for (const int ms : {1500, 0, 1, 999, 1000, 2001, INT_MAX})
        NQ_Time::delay(ms);
    EXPECT_THAT(sleeps.all(), ElementsAre(Sleep{1, 500000000, false}, Sleep{0, 0, false},
                                          Sleep{0, 1000000, false}, Sleep{0, 999000000, false},
                                          Sleep{1, 0, false}, Sleep{2, 1000000, false},
                                          Sleep{2147483, 647000000, false}));
}

TEST(NQ_Time, ANegativeDelayIsPassedOnAndRefusedByTheKernel) {
    {
        RecordedSleeps sleeps;
        NQ_Time::delay(-1500);
        EXPECT_THAT(sleeps.all(), ElementsAre(Sleep{-1, -500000000, false}));
    }
    EXPECT_EQ("", printedBy([] { NQ_Time::delay(-1500); }));
}

TEST(NQ_Time, ADelayCutShortIsNotResumed) {
    RecordedSleeps sleeps(-1, EINTR);
    EXPECT_EQ("", printedBy([] { NQ_Time::delay(20); }));
    EXPECT_EQ(1u, sleeps.all().size());
}

TEST(NQ_Time, ASignalEndsADelay) {
    struct sigaction handler = {};
    handler.sa_handler = [](int) {};
    struct sigaction before = {};
    sigaction(SIGALRM, &handler, &before);
    itimerval alarm = {};
    alarm.it_value.tv_usec = alarm.it_interval.tv_usec = 20000;
    const auto start = std::chrono::steady_clock::now();
    setitimer(ITIMER_REAL, &alarm, nullptr);
    NQ_Time::delay(30000);
    alarm = {};
    setitimer(ITIMER_REAL, &alarm, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(NQ_Time, ADelayLastsAtLeastItsTime) {
    const auto start = std::chrono::steady_clock::now();
    NQ_Time::delay(30);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}

// sNow --------------------------------------------------------------------------------------------

TEST(NQ_Time, NowIsPrintedInUtcFollowedByAnEmptyLine) {
    const OtherTimeZone zone;
    const FixedTime time(kThursday);
    EXPECT_EQ(kThursdayText, printedBy(NQ_Time::sNow));
}

TEST(NQ_Time, NowIsTheTimeOfTheSystemClock) {
    const std::time_t before = std::time(nullptr);
    const std::string text = printedBy(NQ_Time::sNow);
    const std::time_t after = std::time(nullptr);
    tm parts = {};
    ASSERT_NE(nullptr, strptime(text.c_str(), "UTC timestamp:%a %b %d %H:%M:%S %Y%n", &parts))
        << text;
    EXPECT_LE(before, timegm(&parts));
    EXPECT_GE(after, timegm(&parts));
}

TEST(NQ_Time, NowIsFlushed) {
    const FixedTime time(kThursday);
    const RestoredCout restored;
    struct : std::stringbuf {
        int flushed = 0;
        std::string textWhenFlushed;
        int sync() override {
            ++flushed;
            textWhenFlushed = str();
            return 0;
        }
    } buffer;
    std::cout.rdbuf(&buffer);
    NQ_Time::sNow();
    EXPECT_LE(1, buffer.flushed);
    EXPECT_EQ(kThursdayText, buffer.textWhenFlushed);
}

TEST(NQ_Time, NowSetsUpTheTimeZone) {
    tzset();
    setenv("TZ", "XYZ-3:30", 1);
    printedBy(NQ_Time::sNow);
    EXPECT_STREQ("XYZ", tzname[0]);
    unsetenv("TZ");
    tzset();
}

#if TAVO_TIME_T_SIZE > 4 // a time of 32 bits ends in 2038 and can always be formatted

TEST(NQ_Time, NowSetsBadbitWhenTheTimeCannotBeConverted) {
    const RestoredCout restored;
    const FixedTime time(std::numeric_limits<std::time_t>::max()); // its year exceeds an int
    std::ios::iostate state = std::ios::goodbit;
    const std::string text = printedBy([&] {
        NQ_Time::sNow();
        state = std::cout.rdstate();
        std::cout.clear();
    });
    EXPECT_EQ("UTC timestamp:", text);
    EXPECT_TRUE(state & std::ios::badbit);
}

#endif

TEST(NQ_Time, AStandardExceptionWhilePrintingIsReportedAndSwallowed) {
    const RestoredCout restored;
    const FixedTime time(kThursday);
    const std::string text = printedBy([] {
        std::cout.imbue(std::locale(std::cout.getloc(), new ThrowsForNewline<StreamFault>));
        EXPECT_NO_THROW(NQ_Time::sNow());
    });
    EXPECT_EQ("UTC timestamp:Thu Jan  2 03:04:05 2020\n"
              "Some error on kvr::api::datetime::NQ_Time::sNow\n"
              "the newline is out of order\n",
              text);
}

TEST(NQ_Time, AnotherExceptionWhilePrintingReachesTheCaller) {
    struct Foreign {};
    const RestoredCout restored;
    const FixedTime time(kThursday);
    const std::string text = printedBy([] {
        std::cout.imbue(std::locale(std::cout.getloc(), new ThrowsForNewline<Foreign>));
        EXPECT_THROW(NQ_Time::sNow(), Foreign);
    });
    EXPECT_EQ("UTC timestamp:Thu Jan  2 03:04:05 2020\n", text);
}

TEST(NQ_Time, AStreamThatThrowsForItsReportTooThrowsToTheCaller) {
    const RestoredCout restored;
    const FixedTime time(kThursday);
    const std::string text = printedBy([] {
        std::cout.imbue(std::locale(std::cout.getloc(), new ThrowsForNewline<StreamFault>(2)));
        EXPECT_THROW(NQ_Time::sNow(), StreamFault);
    });
    EXPECT_EQ("UTC timestamp:Thu Jan  2 03:04:05 2020\n"
              "Some error on kvr::api::datetime::NQ_Time::sNow",
              text);
}

} // namespace
