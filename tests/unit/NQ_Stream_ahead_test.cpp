// Lines that an earlier read of standard input has already buffered.

#include <kvr/api/NQ_Stream.h>

#include "ForkedChild.h"
#include "StandardInput.h"
#include "StreamFixture.h"
#include "TempDir.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <locale>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::expectLines;
using support::expectStoppedWait;
using support::lineFromInput;
using support::Poll;
using support::RecordedPolls;
using support::SemicolonForNewline;
using support::StandardInput;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(NQ_Stream, EveryLineOfABurstIsAnnouncedWithoutAWait) {
    StandardInput input;
    const RecordedPolls polls;
    input.write("a\nb\nc\n");
    EXPECT_EQ("a", lineFromInput());
    EXPECT_EQ(0, input.unread()); // one read(2) took all lines
    EXPECT_EQ("b", lineFromInput());
    EXPECT_EQ("c", lineFromInput());
    EXPECT_EQ(1, polls.count());
    EXPECT_THAT(polls.ppollResults(), ElementsAre(0, 0));
}

TEST(NQ_Stream, EmptyLinesOfABurstAreSkippedWithoutAWait) {
    StandardInput input;
    const RecordedPolls polls;
    input.write("\n\na\n");
    EXPECT_EQ("a", lineFromInput());
    EXPECT_EQ(1, polls.count());
    EXPECT_THAT(polls.ppollResults(), ElementsAre(0, 0));
}

TEST(NQ_Stream, LinesThatTheProgramReadAheadBeforeAreNotLost) {
    StandardInput input;
    const RecordedPolls polls;
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

TEST(NQ_Stream, WhileMoreInputIsReadablePollWaitsAsUsual) {
    StandardInput input;
    const RecordedPolls polls;
    input.write("a\nb\n");
    EXPECT_EQ("a", lineFromInput());
    input.write("c\n");
    EXPECT_EQ("b", lineFromInput());
    EXPECT_EQ("c", lineFromInput());
    EXPECT_EQ(3, polls.count());
    EXPECT_THAT(polls.ppollResults(), ElementsAre(1));
    for (const Poll& poll : polls.all())
        EXPECT_EQ(1000, poll.milliseconds);
}

TEST(NQ_Stream, APartOfALineThatWasReadAheadDoesNotHideTheStopFlag) {
    StandardInput input;
    input.write("a\nbe");
    EXPECT_EQ("a", lineFromInput());
    expectStoppedWait();
    input.write("gun\n");
    EXPECT_EQ("begun", lineFromInput());
}

TEST(NQ_Stream, TheStopFlagTakesPrecedenceOverALineThatWasReadAhead) {
    StandardInput input;
    input.write("a\nkept\n");
    EXPECT_EQ("a", lineFromInput());
    bool stop = true;
    const RecordedPolls polls;
    EXPECT_EQ("", NQ_Stream::readOneLineStream(std::cin, stop));
    EXPECT_EQ(0, polls.count());
    EXPECT_THAT(polls.ppollResults(), ElementsAre(0));
    EXPECT_EQ("kept", lineFromInput());
}

TEST(NQ_Stream, AFailedStreamIsWaitedForThoughALineWasReadAhead) {
    StandardInput input;
    input.write("a\nb\n");
    EXPECT_EQ("a", lineFromInput());
    std::cin.setstate(std::ios::failbit);
    expectStoppedWait();
}

TEST(NQ_Stream, TheEndOfALineThatWasReadAheadIsThatOfTheStreamsLocale) {
    StandardInput input;
    const std::locale before =
        std::cin.imbue(std::locale(std::cin.getloc(), new SemicolonForNewline));
    const RecordedPolls polls;
    input.write("a;b;");
    EXPECT_EQ("a", lineFromInput());
    EXPECT_EQ("b", lineFromInput());
    EXPECT_EQ(1, polls.count());
    std::cin.imbue(before);
}

TEST(NQ_Stream, ABurstInTheStreamsOwnBufferIsAnnouncedWithoutAWait) {
    const support::ForkedChild child = support::inForkedChild([] {
        StandardInput input;
        std::ios::sync_with_stdio(false);
        const RecordedPolls polls;
        input.write("a\nb\nc\n");
        EXPECT_EQ("a", lineFromInput());
        EXPECT_EQ(0, input.unread());
        EXPECT_EQ("b", lineFromInput());
        EXPECT_EQ("c", lineFromInput());
        EXPECT_EQ(1, polls.count());
    });
    EXPECT_EQ(0, child.status) << child.output;
}

TEST(NQ_Stream, APartOfALineInTheStreamsOwnBufferDoesNotHideTheStopFlag) {
    const support::ForkedChild child = support::inForkedChild([] {
        alarm(60); // ends the test if the call blocks for the rest
        StandardInput input;
        std::ios::sync_with_stdio(false);
        input.write("a\nbe");
        EXPECT_EQ("a", lineFromInput());
        EXPECT_EQ(0, input.unread());
        expectStoppedWait();
        input.write("gun\n");
        EXPECT_EQ("begun", lineFromInput());
    });
    EXPECT_EQ(0, child.status) << child.output;
}

#if defined(__GLIBCXX__) // libc++'s std::cin always reads from the C library's buffer
TEST(NQ_Stream, ALineInABufferThatTheStreamDoesNotReadFromDoesNotHideTheStopFlag) {
    const support::ForkedChild child = support::inForkedChild([] {
        alarm(60); // ends the test if the call blocks
        StandardInput input;
        std::ios::sync_with_stdio(false);
        input.write("a\nfor the C library\n");
        EXPECT_EQ('a', std::getchar());
        EXPECT_EQ(0, input.unread());
        expectStoppedWait();
    });
    EXPECT_EQ(0, child.status) << child.output;
}
#endif

TEST(NQ_Stream, AClosedPipeIsWaitedForBeforeEveryLine) {
    StandardInput input;
    const RecordedPolls polls;
    input.write("a\nb\n\nc\n");
    input.close();
    expectLines({"a", "b", "c"});
    EXPECT_EQ(4, polls.count());
    EXPECT_THAT(polls.ppollResults(), ElementsAre(1, 1, 1));
}

TEST(NQ_Stream, AFileIsWaitedForBeforeEveryLine) {
    const support::TempDir directory;
    support::writeFile(directory / "lines", "a\nb\nc\n");
    const int file = open((directory / "lines").c_str(), O_RDONLY | O_CLOEXEC);
    StandardInput input;
    input.replace(file);
    close(file);
    const RecordedPolls polls;
    expectLines({"a", "b", "c"});
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
        const RecordedPolls polls;
        ASSERT_EQ(6, write(user, "a\nb\nc\n", 6));
        expectLines({"a", "b", "c"});
        EXPECT_EQ(3, polls.count());
        EXPECT_THAT(polls.ppollResults(), IsEmpty()); // a terminal delivers one line per read
    }
    close(terminal);
    close(user);
}

} // namespace
