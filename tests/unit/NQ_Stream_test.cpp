#include <kvr/api/NQ_Stream.h>

#include "CapturedOutput.h"
#include "ForkedChild.h"
#include "StandardInput.h"
#include "StreamFixture.h"
#include "Waiting.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <iostream>
#include <locale>
#include <sstream>
#include <string>
#include <thread>

#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

using support::lineFromInput;
using support::Poll;
using support::printedBy;
using support::RecordedPolls;
using support::SemicolonForNewline;
using support::StandardInput;
using Clock = std::chrono::steady_clock;

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

// waiting -----------------------------------------------------------------------------------------

TEST(NQ_Stream, AWaitPollsStandardInputForOneSecond) {
    StandardInput input;
    RecordedPolls polls;
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
    const RecordedPolls polls;
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
    RecordedPolls polls([&](int number) {
        if (number < 4)
            return 0;
        input.write("late\n");
        return RecordedPolls::kPassOn;
    });
    EXPECT_EQ("late", lineFromInput());
    EXPECT_EQ(4, polls.count());
}

TEST(NQ_Stream, TheStopFlagEndsAQuietWaitWithinASecond) {
    StandardInput input;
    bool stop = false;
    const RecordedPolls polls([&](int) {
        stop = true;
        return RecordedPolls::kPassOn; // now waits until its time limit
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
    RecordedPolls polls;
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
        const RecordedPolls polls([](int) {
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
    RecordedPolls polls([&](int number) {
        stop = number == 2000;
        return RecordedPolls::kPassOn;
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
    const RecordedPolls polls;
    EXPECT_EQ("", NQ_Stream::readOneLineStream(std::cin, stop));
    EXPECT_EQ(1, polls.count());
}

TEST(NQ_Stream, FailedStandardInputIsWaitedFor) {
    for (const auto state : {std::ios::failbit, std::ios::badbit}) {
        StandardInput input;
        input.write("a\n");
        std::cin.setstate(state);
        bool stop = true;
        const RecordedPolls polls;
        EXPECT_EQ("", NQ_Stream::readOneLineStream(std::cin, stop));
        EXPECT_EQ(1, polls.count());
    }
}

TEST(NQ_Stream, AnotherStreamIsNotWaitedFor) {
    StandardInput input;
    const RecordedPolls polls;
    std::istringstream in("a\n\nb\n");
    bool stop = true; // the flag has no effect
    EXPECT_EQ("a", NQ_Stream::readOneLineStream(in, stop));
    EXPECT_EQ("b", NQ_Stream::readOneLineStream(in, stop));
    EXPECT_EQ(0, polls.count());
}

TEST(NQ_Stream, AnotherStreamIsNotWaitedForWhileStandardInputHasFailed) {
    StandardInput input;
    std::cin.setstate(std::ios::failbit);
    const RecordedPolls polls;
    std::istringstream in("a\n");
    bool stop = true;
    EXPECT_EQ("a", NQ_Stream::readOneLineStream(in, stop));
    EXPECT_EQ(0, polls.count());
}

TEST(NQ_Stream, AnotherFailedStreamIsTreatedAsFailedStandardInput) {
    for (const auto state : {std::ios::failbit, std::ios::badbit}) {
        StandardInput input;
        std::cin.setstate(std::ios::failbit);
        std::istringstream in("a\n");
        in.setstate(state);
        bool stop = false;
        const RecordedPolls polls([&](int number) {
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
    const RecordedPolls polls;
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
        const RecordedPolls polls([](int) -> int { _exit(3); });
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
    const RecordedPolls polls([&](int) {
        stop = true;
        return 0;
    });
    std::string line = "before";
    EXPECT_EQ("\n", printedBy([&] { line = NQ_Stream::forwardAndCopyInput(std::cin, stop); }));
    EXPECT_EQ("", line);
}

TEST(NQ_Stream, AFailedPollEchoesAnEmptyLineInTheShortForm) {
    StandardInput input;
    const RecordedPolls polls([](int) { return -1; });
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
