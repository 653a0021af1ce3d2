#include <kvr/api/log/NQ_Logger.h>

#include "CapturedSyslog.h"
#include "Descriptors.h"
#include "ForkedChild.h"
#include "TempDir.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <mutex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::log::NQ_Logger;
using support::CapturedSyslog;
using support::ForkedChild;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::has_virtual_destructor<NQ_Logger>::value, "");
static_assert(!std::is_default_constructible<NQ_Logger>::value, "only instance() makes one");
static_assert(!std::is_copy_constructible<NQ_Logger>::value, "there is one");
static_assert(!std::is_copy_assignable<NQ_Logger>::value, "there is one");

// An explicit instantiation may name a private member. No other way leads to the logger's lock.
std::mutex* loggersLock();
template <std::mutex* lock>
struct Reveal {
    friend std::mutex* loggersLock() { return lock; }
};
template struct Reveal<&NQ_Logger::sMutex>;

/// Holds the logger's lock while an object exists. Locking it again on this thread then fails
/// instead of blocking.
class HeldLock {
public:
    HeldLock() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
        pthread_mutex_init(loggersLock()->native_handle(), &attributes);
        pthread_mutexattr_destroy(&attributes);
        loggersLock()->lock();
    }
    ~HeldLock() { loggersLock()->unlock(); }
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;
};

const std::string kFile = "/tmp/log.out";

// Initialized while the program loads, after the library.
const std::vector<std::string> levelsAtLoad = {NQ_Logger::kLogLevelDebug, NQ_Logger::kLogLevelInfo,
                                               NQ_Logger::kLogLevelError};

/// Moves an existing log file aside and restores it. The logger lasts as long as the process, so
/// tests use it in a forked copy.
class NQ_LoggerTest : public testing::Test {
protected:
    void SetUp() override {
        if (support::exists(kFile)) {
            ASSERT_EQ(0, std::rename(kFile.c_str(), aside_.c_str()));
        }
    }
    void TearDown() override {
        std::remove(kFile.c_str());
        if (support::exists(aside_)) {
            ASSERT_EQ(0, std::rename(aside_.c_str(), kFile.c_str()));
        }
    }

    static void inChild(const std::function<void()>& body) {
        const ForkedChild child = support::inForkedChild(body);
        EXPECT_EQ(0, child.status) << child.output;
    }
    static std::string content() { return support::readFile(kFile); }

private:
    std::string aside_ = kFile + ".aside-" + std::to_string(getpid());
};

/// The number of descriptors of this process that refer to the log file.
int openLogFiles() {
    int count = 0;
    struct stat log = {};
    if (stat(kFile.c_str(), &log) != 0)
        return 0;
    for (int descriptor : support::openDescriptors()) {
        struct stat other = {};
        if (fstat(descriptor, &other) == 0 && other.st_dev == log.st_dev &&
            other.st_ino == log.st_ino)
            ++count;
    }
    return count;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

void expectInitialisationToFail() {
    try {
        NQ_Logger::instance();
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ("Unable to initialize the NQ_Logger!", error.what());
        EXPECT_EQ(typeid(std::runtime_error), typeid(error));
    }
}

TEST_F(NQ_LoggerTest, NamesItsFileAndItsLevels) {
    EXPECT_STREQ("/tmp/log.out", NQ_Logger::kLogFileName);
    EXPECT_EQ("DEBUG", NQ_Logger::kLogLevelDebug);
    EXPECT_EQ("INFO", NQ_Logger::kLogLevelInfo);
    EXPECT_EQ("ERROR", NQ_Logger::kLogLevelError);
    EXPECT_THAT(levelsAtLoad, ElementsAre("DEBUG", "INFO", "ERROR"));
}

TEST_F(NQ_LoggerTest, LoadingTheLibraryOpensNothing) { EXPECT_FALSE(support::exists(kFile)); }

TEST_F(NQ_LoggerTest, InstanceIsAlwaysTheSame) {
    inChild([] {
        NQ_Logger* first = NQ_Logger::instance();
        EXPECT_NE(nullptr, first);
        EXPECT_EQ(first, NQ_Logger::instance());
        EXPECT_EQ(1, openLogFiles());
    });
}

TEST_F(NQ_LoggerTest, ThreadsThatAskFirstTogetherGetOneInstance) {
    inChild([] {
        std::vector<NQ_Logger*> seen(16);
        std::vector<std::thread> threads;
        for (NQ_Logger*& mine : seen)
            threads.emplace_back([&mine] { mine = NQ_Logger::instance(); });
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(1u, std::set<NQ_Logger*>(seen.begin(), seen.end()).size());
        EXPECT_EQ(1, openLogFiles());
    });
}

TEST_F(NQ_LoggerTest, ALineIsTheLevelAColonABlankAndTheMessage) {
    inChild([] {
        NQ_Logger* logger = NQ_Logger::instance();
        logger->log(std::string("Agent started"), NQ_Logger::kLogLevelInfo);
        logger->log(std::string("no broker"), NQ_Logger::kLogLevelError);
        logger->log(std::string("state 3"), NQ_Logger::kLogLevelDebug);
    });
    EXPECT_EQ("INFO: Agent started\nERROR: no broker\nDEBUG: state 3\n", content());
}

TEST_F(NQ_LoggerTest, NothingIsQuotedFilteredOrInterpreted) {
    inChild([] {
        NQ_Logger* logger = NQ_Logger::instance();
        logger->log(std::string("100% %s \"q\" \xff"), "my level");
        logger->log(std::string("two\nlines"), "INFO");
        logger->log(std::string(), "");
        logger->log(std::string("a\0b", 3), "INFO");
    });
    EXPECT_EQ(std::string("my level: 100% %s \"q\" \xff\nINFO: two\nlines\n: \nINFO: a") + '\0' +
                  "b\n",
              content());
}

TEST_F(NQ_LoggerTest, LinesOfAnyLengthAreWrittenWhole) {
    std::vector<std::string> messages;
    std::string expected;
    for (const int length : {0, 1, 500, 504, 505, 506, 507, 508, 511, 512, 513, 9000}) {
        messages.emplace_back(static_cast<std::size_t>(length), 'm');
        expected += "INFO: " + messages.back() + "\n";
    }
    inChild([&messages] { NQ_Logger::instance()->log(messages, "INFO"); });
    EXPECT_EQ(expected, content());
}

TEST_F(NQ_LoggerTest, ALevelOfAnyLengthStandsInFrontOfItsMessage) {
    const std::string level(600, 'l');
    inChild([&level] { NQ_Logger::instance()->log(std::string("text"), level); });
    EXPECT_EQ(level + ": text\n", content());
}

TEST_F(NQ_LoggerTest, AVectorGivesOneLinePerMessage) {
    inChild([] {
        NQ_Logger::instance()->log(std::vector<std::string>{"first", "", "third"}, "ERROR");
    });
    EXPECT_EQ("ERROR: first\nERROR: \nERROR: third\n", content());
}

TEST_F(NQ_LoggerTest, AnEmptyVectorWritesNothing) {
    inChild([] { NQ_Logger::instance()->log(std::vector<std::string>(), "ERROR"); });
    EXPECT_EQ("", content());
}

TEST_F(NQ_LoggerTest, LogHelperWritesOneLineToo) {
    inChild([] { NQ_Logger::instance()->logHelper("by hand", "DEBUG"); });
    EXPECT_EQ("DEBUG: by hand\n", content());
}

TEST_F(NQ_LoggerTest, EveryLineIsFlushed) {
    inChild([] {
        NQ_Logger* logger = NQ_Logger::instance();
        logger->log(std::string("one"), "INFO");
        EXPECT_EQ("INFO: one\n", content());
        logger->log(std::vector<std::string>{"two", "three"}, "INFO");
        EXPECT_EQ("INFO: one\nINFO: two\nINFO: three\n", content());
        logger->logHelper("four", "INFO");
        EXPECT_EQ("INFO: one\nINFO: two\nINFO: three\nINFO: four\n", content());
    });
}

TEST_F(NQ_LoggerTest, ExistingContentIsKept) {
    support::writeFile(kFile, "from before\nunfinished ");
    inChild([] { NQ_Logger::instance()->log(std::string("new"), "INFO"); });
    EXPECT_EQ("from before\nunfinished INFO: new\n", content());
}

TEST_F(NQ_LoggerTest, EveryLineIsAppendedAtTheCurrentEnd) {
    inChild([] {
        NQ_Logger* logger = NQ_Logger::instance();
        logger->log(std::string("one"), "INFO");
        std::ofstream(kFile, std::ios::app) << "from another process\n";
        logger->log(std::string("two"), "INFO");
        EXPECT_EQ("INFO: one\nfrom another process\nINFO: two\n", content());
        EXPECT_EQ(0, truncate(kFile.c_str(), 0));
        logger->log(std::string("three"), "INFO");
        EXPECT_EQ("INFO: three\n", content());
    });
}

TEST_F(NQ_LoggerTest, WithoutItsFileInstanceThrowsEveryTimeAndLeavesNothing) {
    ASSERT_EQ(0, mkdir(kFile.c_str(), 0755));
    inChild([] {
        const std::set<int> before = support::openDescriptors();
        for (int attempt = 0; attempt < 3; ++attempt)
            expectInitialisationToFail();
        EXPECT_THAT(support::openedSince(before), IsEmpty());
    });
}

TEST_F(NQ_LoggerTest, AFileThatCannotBeCreatedFailsTheSameWay) {
    const support::TempDir dir;
    ASSERT_EQ(0, symlink((dir / "missing/log").c_str(), kFile.c_str()));
    inChild([] { expectInitialisationToFail(); });
}

TEST_F(NQ_LoggerTest, ALaterCallTriesAgain) {
    ASSERT_EQ(0, mkdir(kFile.c_str(), 0755));
    inChild([] {
        expectInitialisationToFail();
        expectInitialisationToFail();
        EXPECT_EQ(0, rmdir(kFile.c_str()));
        NQ_Logger::instance()->log(std::string("at last"), "INFO");
    });
    EXPECT_EQ("INFO: at last\n", content());
}

TEST_F(NQ_LoggerTest, LinesOfConcurrentThreadsAreNotInterleaved) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 200;
    inChild([] {
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread)
            threads.emplace_back([thread] {
                const std::string text(60, static_cast<char>('a' + thread));
                for (int round = 0; round < kRounds; ++round)
                    NQ_Logger::instance()->log(text, "INFO");
            });
        for (std::thread& thread : threads)
            thread.join();
    });
    std::vector<int> seen(kThreads);
    for (const std::string& line : linesOf(content())) {
        ASSERT_EQ(66u, line.size()) << line;
        ASSERT_EQ("INFO: " + std::string(60, line[6]), line);
        ++seen.at(static_cast<std::size_t>(line[6] - 'a'));
    }
    EXPECT_EQ(std::vector<int>(kThreads, kRounds), seen);
}

TEST_F(NQ_LoggerTest, TheLinesOfOneVectorStayTogether) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 20;
    constexpr std::size_t kLines = 100; // enough for a thread to be preempted
    inChild([] {
        NQ_Logger* logger = NQ_Logger::instance();
        std::atomic<int> waiting{kThreads};
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread)
            threads.emplace_back([&, thread] {
                const std::string name(1, static_cast<char>('a' + thread));
                const std::vector<std::string> lines(kLines, name);
                --waiting;
                while (waiting > 0)
                    std::this_thread::yield();
                for (int round = 0; round < kRounds; ++round) {
                    logger->log(lines, "V");
                    logger->log(name, "S");
                }
            });
        for (std::thread& thread : threads)
            thread.join();
    });
    const std::vector<std::string> lines = linesOf(content());
    ASSERT_EQ(kThreads * kRounds * (kLines + 1), lines.size());
    for (std::size_t at = 0; at < lines.size(); ++at) {
        if (lines[at][0] == 'S')
            continue;
        for (std::size_t number = 1; number < kLines; ++number, ++at)
            ASSERT_EQ(lines[at], lines.at(at + 1)) << "line " << at + 1;
    }
}

TEST_F(NQ_LoggerTest, LogSysLogSendsARecordAndWritesNothingToTheFile) {
    inChild([] {
        NQ_Logger* logger = NQ_Logger::instance();
        const CapturedSyslog log;
        logger->logSysLog(6, "Executing...");
        logger->logSysLog(3, "failed");
        EXPECT_THAT(log.lines(), ElementsAre("<6> Executing...", "<3> failed"));
    });
    EXPECT_EQ("", content());
}

TEST_F(NQ_LoggerTest, LogSysLogTakesThePriorityAsItStands) {
    inChild([] {
        const CapturedSyslog log;
        NQ_Logger::instance()->logSysLog(0, "a");
        NQ_Logger::instance()->logSysLog(127, "b");
        EXPECT_THAT(log.lines(), ElementsAre("<0> a", "<127> b"));
    });
}

TEST_F(NQ_LoggerTest, LogSysLogPassesItsTextAsTheFormat) {
    inChild([] {
        const CapturedSyslog log;
        NQ_Logger::instance()->logSysLog(6, "100%% done");
        EXPECT_THAT(log.lines(), ElementsAre("<6> 100% done"));
        EXPECT_EQ("100%% done", log.records().at(0).format);
    });
}

TEST_F(NQ_LoggerTest, LogHelperAndLogSysLogTakeNoLock) {
    inChild([] {
        NQ_Logger* logger = NQ_Logger::instance();
        const CapturedSyslog log;
        const HeldLock held;
        logger->logSysLog(6, "unlocked");
        logger->logHelper("unlocked", "INFO");
        EXPECT_THAT(log.lines(), ElementsAre("<6> unlocked"));
    });
    EXPECT_EQ("INFO: unlocked\n", content());
}

TEST_F(NQ_LoggerTest, AFailureToLockIsASystemError) {
    inChild([] {
        NQ_Logger* logger = NQ_Logger::instance();
        const HeldLock held;
        EXPECT_THROW(NQ_Logger::instance(), std::system_error);
        EXPECT_THROW(logger->log(std::string("lost"), "INFO"), std::system_error);
        EXPECT_THROW(logger->log(std::vector<std::string>{"lost"}, "INFO"), std::system_error);
        EXPECT_THROW(logger->log(std::vector<std::string>(), "INFO"), std::system_error);
    });
    EXPECT_EQ("", content());
}

TEST_F(NQ_LoggerTest, TheLockIsReleasedAfterAFailedStart) {
    ASSERT_EQ(0, mkdir(kFile.c_str(), 0755));
    inChild([] {
        expectInitialisationToFail();
        EXPECT_TRUE(loggersLock()->try_lock());
        loggersLock()->unlock();
    });
}

TEST_F(NQ_LoggerTest, WriteErrorsAreNeitherDetectedNorReported) {
    ASSERT_EQ(0, symlink("/dev/full", kFile.c_str()));
    inChild([] {
        NQ_Logger* logger = NQ_Logger::instance();
        logger->log(std::string("lost"), "INFO");
        logger->log(std::vector<std::string>{"lost", "too"}, "INFO");
        EXPECT_EQ(logger, NQ_Logger::instance());
    });
}

TEST_F(NQ_LoggerTest, TheFileIsClosedWhenTheProcessExits) {
    inChild([] {
        // Exit handlers run in reverse order of registration. The first instance() registers the
        // library's handler.
        std::atexit([] {
            if (openLogFiles() != 0)
                _exit(3); // still open after the library's handler
        });
        NQ_Logger::instance()->log(std::string("last words"), "INFO");
        std::atexit([] {
            if (openLogFiles() != 1)
                _exit(4); // closed too early
        });
    });
    EXPECT_EQ("INFO: last words\n", content());
}

TEST_F(NQ_LoggerTest, AfterTheCleanUpInstanceMakesAFreshLogger) {
    inChild([] {
        std::atexit([] { NQ_Logger::instance()->log(std::string("late"), "ERROR"); });
        NQ_Logger::instance()->log(std::string("in time"), "INFO");
        std::remove(kFile.c_str()); // only a logger that reopens the file creates it again
    });
    EXPECT_EQ("ERROR: late\n", content());
}

TEST_F(NQ_LoggerTest, AProcessThatNeverLoggedExitsWithoutTheFile) {
    inChild([] {});
    EXPECT_FALSE(support::exists(kFile));
}

} // namespace
