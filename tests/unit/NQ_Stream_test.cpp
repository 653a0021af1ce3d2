#include <kvr/api/NQ_Stream.h>

#include "CapturedOutput.h"
#include "ForkedChild.h"
#include "StandardInput.h"
#include "TempDir.h"
#include "Waiting.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <locale>
#include <sstream>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::printedBy;
using testing::ElementsAre;
using testing::IsEmpty;
using Clock = std::chrono::steady_clock;

/// Reads a line from standard input with a stop flag that stays false.
std::string lineFromInput() {
    bool stop = false;
    std::string line = NQ_Stream::readOneLineStream(std::cin, stop);
    EXPECT_FALSE(stop);
    return line;
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

// lines -------------------------------------------------------------------------------------------

TEST(NQ_Stream, ALineIsReturnedWithoutItsNewline) {
    StandardInput input;
    input.write("first line\n");
    EXPECT_EQ("first line", lineFromInput());
}

TEST(NQ_Stream, EmptyLinesAreSkipped) {
    StandardInput input;
    input.write("\n\na\n\n\n\nb\n");
    EXPECT_EQ("a", lineFromInput());
    EXPECT_EQ("b", lineFromInput());
}

TEST(NQ_Stream, ACarriageReturnStays) {
    StandardInput input;
    input.write("line\r\n\r\n");
    EXPECT_EQ("line\r", lineFromInput());
    EXPECT_EQ("\r", lineFromInput());
}

TEST(NQ_Stream, BlanksAndZeroBytesStay) {
    StandardInput input;
    input.write(std::string("  a\0b\t \n", 8));
    EXPECT_EQ(std::string("  a\0b\t ", 7), lineFromInput());
}

TEST(NQ_Stream, ALongLineComesWhole) {
    StandardInput input;
    const std::string line(60000, 'x');
    input.write(line + "\n");
    EXPECT_EQ(line, lineFromInput());
}

TEST(NQ_Stream, TheLastLineNeedsNoNewline) {
    StandardInput input;
    input.write("end");
    input.close();
    EXPECT_EQ("end", lineFromInput());
}

TEST(NQ_Stream, TheNewlineIsThatOfTheStreamsLocale) {
    std::istringstream in("a\nb;c;");
    in.imbue(std::locale(in.getloc(), new SemicolonForNewline));
    EXPECT_EQ("a\nb", NQ_Stream::readOneLineStream(in));
    EXPECT_EQ("c", NQ_Stream::readOneLineStream(in));
}

TEST(NQ_Stream, TheOverloadWithoutAFlagReadsTheSame) {
    StandardInput input;
    input.write("\nfrom standard input\n");
    EXPECT_EQ("from standard input", NQ_Stream::readOneLineStream(std::cin));
    std::istringstream in("\n\nfrom a text\n");
    EXPECT_EQ("from a text", NQ_Stream::readOneLineStream(in));
}

// lines that have been read ahead -----------------------------------------------------------------

TEST(NQ_Stream, EveryLineOfABurstIsAnnouncedWithoutAWait) {
    StandardInput input;
    const WatchedPolls polls;
    input.write("a\nb\nc\n");
    EXPECT_EQ("a", lineFromInput());
    EXPECT_EQ(0, input.unread()); // one read(2) took all lines
    EXPECT_EQ("b", lineFromInput());
    EXPECT_EQ("c", lineFromInput());
    EXPECT_EQ(1, polls.count());
    EXPECT_THAT(polls.looks(), ElementsAre(0, 0));
}

TEST(NQ_Stream, EmptyLinesOfABurstAreSkippedWithoutAWait) {
    StandardInput input;
    const WatchedPolls polls;
    input.write("\n\na\n");
    EXPECT_EQ("a", lineFromInput());
    EXPECT_EQ(1, polls.count());
    EXPECT_THAT(polls.looks(), ElementsAre(0, 0));
}

TEST(NQ_Stream, LinesThatTheProgramReadAheadBeforeAreNotLost) {
    StandardInput input;
    const WatchedPolls polls;
    input.write("the program's\nb\nc\n");
    std::string own;
    std::getline(std::cin, own);
    EXPECT_EQ("the program's", own);
    EXPECT_EQ("b", lineFromInput());
    EXPECT_EQ("c", lineFromInput());
    EXPECT_EQ(0, polls.count());
}

TEST(NQ_Stream, LinesThatAreReadAheadStayForTheProgram) {
    StandardInput input;
    input.write("a\nb\n");
    EXPECT_EQ("a", lineFromInput());
    std::string own;
    std::getline(std::cin, own);
    EXPECT_EQ("b", own);
}

TEST(NQ_Stream, WhileMoreInputIsReadableTheWaitIsAsEver) {
    StandardInput input;
    const WatchedPolls polls;
    input.write("a\nb\n");
    EXPECT_EQ("a", lineFromInput());
    input.write("c\n");
    EXPECT_EQ("b", lineFromInput());
    EXPECT_EQ("c", lineFromInput());
    EXPECT_EQ(3, polls.count());
    EXPECT_THAT(polls.looks(), ElementsAre(1));
    for (const Poll& poll : polls.all())
        EXPECT_EQ(1000, poll.milliseconds);
}

TEST(NQ_Stream, APartOfALineThatWasReadAheadDoesNotHideTheStopFlag) {
    StandardInput input;
    bool stop = false;
    input.write("a\nbe");
    EXPECT_EQ("a", NQ_Stream::readOneLineStream(std::cin, stop));
    {
        const WatchedPolls polls([&](int) {
            stop = true;
            return 0;
        });
        EXPECT_EQ("", NQ_Stream::readOneLineStream(std::cin, stop));
        EXPECT_EQ(1, polls.count());
        EXPECT_THAT(polls.looks(), IsEmpty());
    }
    input.write("gun\n");
    EXPECT_EQ("begun", lineFromInput());
}

TEST(NQ_Stream, TheStopFlagTakesPrecedenceOverALineThatWasReadAhead) {
    StandardInput input;
    input.write("a\nkept\n");
    EXPECT_EQ("a", lineFromInput());
    bool stop = true;
    const WatchedPolls polls;
    EXPECT_EQ("", NQ_Stream::readOneLineStream(std::cin, stop));
    EXPECT_EQ(0, polls.count());
    EXPECT_THAT(polls.looks(), ElementsAre(0));
    EXPECT_EQ("kept", lineFromInput());
}

TEST(NQ_Stream, AFailedStreamIsWaitedForThoughALineWasReadAhead) {
    StandardInput input;
    input.write("a\nb\n");
    EXPECT_EQ("a", lineFromInput());
    std::cin.setstate(std::ios::failbit);
    bool stop = false;
    const WatchedPolls polls([&](int) {
        stop = true;
        return 0;
    });
    EXPECT_EQ("", NQ_Stream::readOneLineStream(std::cin, stop));
    EXPECT_EQ(1, polls.count());
    EXPECT_THAT(polls.looks(), IsEmpty());
}

TEST(NQ_Stream, TheEndOfALineThatWasReadAheadIsThatOfTheStreamsLocale) {
    StandardInput input;
    const std::locale before =
        std::cin.imbue(std::locale(std::cin.getloc(), new SemicolonForNewline));
    const WatchedPolls polls;
    input.write("a;b;");
    EXPECT_EQ("a", lineFromInput());
    EXPECT_EQ("b", lineFromInput());
    EXPECT_EQ(1, polls.count());
    std::cin.imbue(before);
}

TEST(NQ_Stream, ABurstIsAnnouncedWithoutAWaitAlsoFromABufferOfTheStreamsOwn) {
    const support::ForkedChild child = support::inForkedChild([] {
        StandardInput input;
        std::ios::sync_with_stdio(false);
        const WatchedPolls polls;
        input.write("a\nb\nc\n");
        EXPECT_EQ("a", lineFromInput());
        EXPECT_EQ(0, input.unread());
        EXPECT_EQ("b", lineFromInput());
        EXPECT_EQ("c", lineFromInput());
        EXPECT_EQ(1, polls.count());
    });
    EXPECT_EQ(0, child.status) << child.output;
}

TEST(NQ_Stream, APartOfALineInABufferOfTheStreamsOwnDoesNotHideTheStopFlag) {
    const support::ForkedChild child = support::inForkedChild([] {
        alarm(60); // ends the test if the call blocks for the rest
        StandardInput input;
        std::ios::sync_with_stdio(false);
        bool stop = false;
        input.write("a\nbe");
        EXPECT_EQ("a", NQ_Stream::readOneLineStream(std::cin, stop));
        EXPECT_EQ(0, input.unread());
        {
            const WatchedPolls polls([&](int) {
                stop = true;
                return 0;
            });
            EXPECT_EQ("", NQ_Stream::readOneLineStream(std::cin, stop));
            EXPECT_EQ(1, polls.count());
            EXPECT_THAT(polls.looks(), IsEmpty());
        }
        input.write("gun\n");
        EXPECT_EQ("begun", lineFromInput());
    });
    EXPECT_EQ(0, child.status) << child.output;
}

#if defined(__GLIBCXX__) // libc++'s std::cin always reads from the C library's buffer
TEST(NQ_Stream, ALineInABufferThatTheStreamDoesNotReadFromDoesNotHideTheStopFlag) {
    const support::ForkedChild child = support::inForkedChild([] {
        alarm(60); // should the call block
        StandardInput input;
        std::ios::sync_with_stdio(false);
        input.write("a\nfor the C library\n");
        EXPECT_EQ('a', std::getchar());
        EXPECT_EQ(0, input.unread());
        bool stop = false;
        const WatchedPolls polls([&](int) {
            stop = true;
            return 0;
        });
        EXPECT_EQ("", NQ_Stream::readOneLineStream(std::cin, stop));
        EXPECT_EQ(1, polls.count());
        EXPECT_THAT(polls.looks(), IsEmpty());
    });
    EXPECT_EQ(0, child.status) << child.output;
}
#endif

TEST(NQ_Stream, AClosedPipeIsWaitedForBeforeEveryLine) {
    StandardInput input;
    const WatchedPolls polls;
    input.write("a\nb\n\nc\n");
    input.close();
    EXPECT_EQ("a", lineFromInput());
    EXPECT_EQ("b", lineFromInput());
    EXPECT_EQ("c", lineFromInput());
    EXPECT_EQ(4, polls.count());
    EXPECT_THAT(polls.looks(), ElementsAre(1, 1, 1));
}

TEST(NQ_Stream, AFileIsWaitedForBeforeEveryLine) {
    const support::TempDir directory;
    support::writeFile(directory / "lines", "a\nb\nc\n");
    const int file = open((directory / "lines").c_str(), O_RDONLY | O_CLOEXEC);
    StandardInput input;
    input.replace(file);
    close(file);
    const WatchedPolls polls;
    EXPECT_EQ("a", lineFromInput());
    EXPECT_EQ("b", lineFromInput());
    EXPECT_EQ("c", lineFromInput());
    EXPECT_EQ(3, polls.count());
}

TEST(NQ_Stream, ATerminalIsWaitedForBeforeEveryLine) {
    const int user = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_TRUE(user >= 0 && grantpt(user) == 0 && unlockpt(user) == 0);
    const int terminal = open(ptsname(user), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(terminal, 0);
    {
        StandardInput input;
        input.replace(terminal);
        const WatchedPolls polls;
        ASSERT_EQ(6, write(user, "a\nb\nc\n", 6));
        EXPECT_EQ("a", lineFromInput());
        EXPECT_EQ("b", lineFromInput());
        EXPECT_EQ("c", lineFromInput());
        EXPECT_EQ(3, polls.count());
        EXPECT_THAT(polls.looks(), IsEmpty()); // a terminal delivers one line per read
    }
    close(terminal);
    close(user);
}

// waiting -----------------------------------------------------------------------------------------

TEST(NQ_Stream, AWaitIsForReadableStandardInputWithinASecond) {
    StandardInput input;
    WatchedPolls polls;
    input.write("a\n");
    lineFromInput();
    ASSERT_EQ(1, polls.count());
    EXPECT_EQ(STDIN_FILENO, polls.all()[0].descriptor);
    EXPECT_EQ(POLLIN, polls.all()[0].events);
    EXPECT_EQ(1u, polls.all()[0].entries);
    EXPECT_EQ(1000, polls.all()[0].milliseconds);
}

TEST(NQ_Stream, APartOfALineEndsTheWaitAndTheCallBlocksUntilTheRestArrives) {
    StandardInput input;
    const WatchedPolls polls;
    input.write("be");
    std::thread supervisor([&] {
        EXPECT_TRUE(support::eventually([&] { return input.unread() == 0; }));
        input.write("gun\n");
    });
    EXPECT_EQ("begun", lineFromInput());
    supervisor.join();
    EXPECT_EQ(1, polls.count());
}

TEST(NQ_Stream, AfterAQuietSecondTheWaitContinues) {
    StandardInput input;
    WatchedPolls polls([&](int number) {
        if (number < 4)
            return 0;
        input.write("late\n");
        return WatchedPolls::kPassOn;
    });
    EXPECT_EQ("late", lineFromInput());
    EXPECT_EQ(4, polls.count());
}

TEST(NQ_Stream, TheStopFlagEndsAQuietWaitWithinASecond) {
    StandardInput input;
    bool stop = false;
    const WatchedPolls polls([&](int) {
        stop = true;
        return WatchedPolls::kPassOn; // now waits until its time limit
    });
    const auto start = Clock::now();
    EXPECT_EQ("", NQ_Stream::readOneLineStream(std::cin, stop));
    const auto taken = Clock::now() - start;
    EXPECT_GE(taken, std::chrono::milliseconds(900));
    EXPECT_LT(taken, std::chrono::seconds(5)); // one second, unless the machine is overloaded
    EXPECT_EQ(1, polls.count());
}

TEST(NQ_Stream, TheStopFlagTakesPrecedenceOverALineThatHasArrived) {
    StandardInput input;
    WatchedPolls polls;
    input.write("kept\n");
    bool stop = true;
    EXPECT_EQ("", NQ_Stream::readOneLineStream(std::cin, stop));
    EXPECT_EQ(1, polls.count());
    EXPECT_EQ(1, polls.all()[0].result);
    EXPECT_EQ("kept", lineFromInput());
}

TEST(NQ_Stream, AFailingPollEndsTheCallWithNothing) {
    StandardInput input;
    input.write("kept\n");
    {
        const WatchedPolls polls([](int) {
            errno = EINTR;
            return -1;
        });
        EXPECT_EQ("", lineFromInput());
        EXPECT_EQ("", NQ_Stream::readOneLineStream(std::cin));
        EXPECT_EQ(2, polls.count());
    }
    EXPECT_EQ("kept", lineFromInput());
}

TEST(NQ_Stream, ASignalEndsTheCallWithNothing) {
    StandardInput input;
    struct sigaction handler = {};
    handler.sa_handler = [](int) {};
    struct sigaction before = {};
    sigaction(SIGALRM, &handler, &before);
    itimerval alarm = {};
    alarm.it_value.tv_usec = alarm.it_interval.tv_usec = 10000;
    setitimer(ITIMER_REAL, &alarm, nullptr);
    EXPECT_EQ("", lineFromInput());
    alarm = {};
    setitimer(ITIMER_REAL, &alarm, nullptr);
    sigaction(SIGALRM, &before, nullptr);
}

TEST(NQ_Stream, AtTheEndOfInputTheCallSpinsWithoutPauseUntilStopped) {
    StandardInput input;
    input.close();
    bool stop = false;
    WatchedPolls polls([&](int number) {
        stop = number == 2000;
        return WatchedPolls::kPassOn;
    });
    const auto start = Clock::now();
    EXPECT_EQ("", NQ_Stream::readOneLineStream(std::cin, stop));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(20)); // with pauses: 2000 s
    EXPECT_EQ(2000, polls.count());
    for (const Poll& poll : polls.all())
        ASSERT_EQ(1, poll.result);
    EXPECT_TRUE(std::cin.fail());
}

// which streams are waited for --------------------------------------------------------------------

TEST(NQ_Stream, StandardInputAtItsEndIsStillWaitedFor) {
    StandardInput input;
    input.write("end");
    input.close();
    EXPECT_EQ("end", lineFromInput());
    EXPECT_EQ(std::ios::eofbit, std::cin.rdstate()); // at the end, but not failed
    bool stop = true;
    const WatchedPolls polls;
    EXPECT_EQ("", NQ_Stream::readOneLineStream(std::cin, stop));
    EXPECT_EQ(1, polls.count());
}

TEST(NQ_Stream, FailedStandardInputIsWaitedFor) {
    for (const auto state : {std::ios::failbit, std::ios::badbit}) {
        StandardInput input;
        input.write("a\n");
        std::cin.setstate(state);
        bool stop = true;
        const WatchedPolls polls;
        EXPECT_EQ("", NQ_Stream::readOneLineStream(std::cin, stop));
        EXPECT_EQ(1, polls.count());
    }
}

TEST(NQ_Stream, AnotherStreamIsNotWaitedFor) {
    StandardInput input;
    const WatchedPolls polls;
    std::istringstream in("a\n\nb\n");
    bool stop = true; // the flag has no effect
    EXPECT_EQ("a", NQ_Stream::readOneLineStream(in, stop));
    EXPECT_EQ("b", NQ_Stream::readOneLineStream(in, stop));
    EXPECT_EQ(0, polls.count());
}

TEST(NQ_Stream, AnotherStreamIsNotWaitedForWhileStandardInputHasFailed) {
    StandardInput input;
    std::cin.setstate(std::ios::failbit);
    const WatchedPolls polls;
    std::istringstream in("a\n");
    bool stop = true;
    EXPECT_EQ("a", NQ_Stream::readOneLineStream(in, stop));
    EXPECT_EQ(0, polls.count());
}

TEST(NQ_Stream, AnotherFailedStreamIsTakenForFailedStandardInput) {
    for (const auto state : {std::ios::failbit, std::ios::badbit}) {
        StandardInput input;
        std::cin.setstate(std::ios::failbit);
        std::istringstream in("a\n");
        in.setstate(state);
        bool stop = false;
        const WatchedPolls polls([&](int number) {
            stop = number == 3;
            return 1;
        });
        EXPECT_EQ("", NQ_Stream::readOneLineStream(in, stop));
        EXPECT_EQ(3, polls.count());
    }
}

TEST(NQ_Stream, AnotherStreamAtItsEndHasNotFailedYet) {
    StandardInput input;
    std::cin.setstate(std::ios::failbit);
    std::istringstream in;
    in.setstate(std::ios::eofbit);
    bool stop = true;
    const WatchedPolls polls;
    EXPECT_EQ("", NQ_Stream::readOneLineStream(in, stop));
    EXPECT_TRUE(in.fail()); // the read came first and failed
    EXPECT_EQ(1, polls.count());
}

TEST(NQ_Stream, AtTheEndOfAnotherStreamTheCallSpinsForEverWithoutWaiting) {
    const support::ForkedChild child = support::inForkedChild([] {
        StandardInput input;
        itimerval limit = {};
        limit.it_value.tv_usec = 50000;
        setitimer(ITIMER_PROF, &limit, nullptr); // of processor time; then SIGPROF ends the process
        const WatchedPolls polls([](int) -> int { _exit(3); });
        std::istringstream in("\n");
        bool stop = true;
        NQ_Stream::readOneLineStream(in, stop);
    });
    EXPECT_TRUE(WIFSIGNALED(child.status) && WTERMSIG(child.status) == SIGPROF)
        << "raw status " << child.status;
}

// forwardAndCopyInput -----------------------------------------------------------------------------

TEST(NQ_Stream, ALineIsEchoedWithANewline) {
    StandardInput input;
    input.write("\nhello\r\n");
    bool stop = false;
    std::string line;
    EXPECT_EQ("hello\r\n",
              printedBy([&] { line = NQ_Stream::forwardAndCopyInput(std::cin, stop); }));
    EXPECT_EQ("hello\r", line);
}

TEST(NQ_Stream, TheShortFormEchoesLikewise) {
    std::istringstream in("\nhello\nworld\n");
    std::string line;
    EXPECT_EQ("hello\n", printedBy([&] { line = NQ_Stream::forwardAndCopyInput(in); }));
    EXPECT_EQ("hello", line);
    EXPECT_EQ("world\n", printedBy([&] { line = NQ_Stream::forwardAndCopyInput(in); }));
    EXPECT_EQ("world", line);
}

TEST(NQ_Stream, AStoppedWaitEchoesAnEmptyLine) {
    StandardInput input;
    bool stop = false;
    const WatchedPolls polls([&](int) {
        stop = true;
        return 0;
    });
    std::string line = "before";
    EXPECT_EQ("\n", printedBy([&] { line = NQ_Stream::forwardAndCopyInput(std::cin, stop); }));
    EXPECT_EQ("", line);
}

TEST(NQ_Stream, AFailedPollEchoesAnEmptyLineInTheShortForm) {
    StandardInput input;
    const WatchedPolls polls([](int) { return -1; });
    EXPECT_EQ("\n", printedBy([&] { NQ_Stream::forwardAndCopyInput(std::cin); }));
}

TEST(NQ_Stream, TheEchoIsFlushedTwice) {
    struct : std::stringbuf {
        int flushed = 0;
        int sync() override {
            ++flushed;
            return 0;
        }
    } buffer;
    std::istringstream in("line\n");
    std::streambuf* const before = std::cout.rdbuf(&buffer);
    NQ_Stream::forwardAndCopyInput(in);
    std::cout.rdbuf(before);
    EXPECT_EQ("line\n", buffer.str());
    EXPECT_EQ(2, buffer.flushed);
}

} // namespace
