#include <kvr/api/StdInReader.h>

#include "CapturedOutput.h"
#include "StandardInput.h"

#include <chrono>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::iot::Observer;
using kvr::api::iot::Subject;
using support::Poll;
using support::printedBy;
using support::RecordedPolls;
using support::StandardInput;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::is_base_of<Subject<StdInReader>, StdInReader>::value, "observable");
static_assert(sizeof(StdInReader) == sizeof(Subject<StdInReader>) + sizeof(std::string),
              "the line behind the base");

/// Passes every line to the test's function.
class Listener : public Observer<StdInReader> {
public:
    explicit Listener(std::function<void(StdInReader&)> action) : action_(std::move(action)) {}
    void update(StdInReader* reader) override { action_(*reader); }

private:
    std::function<void(StdInReader&)> action_;
};

/// Reads a line without the reader.
std::string nextLine() {
    std::string line;
    std::getline(std::cin, line);
    return line;
}

/// A reader, its announcements, and a stop flag that is set after `expected` lines.
class Channel {
public:
    explicit Channel(std::size_t expected) : expected_(expected) { reader.attach(&listener_); }

    /// Returns what the loop echoed.
    std::string run() {
        return printedBy([this] { reader.loop(stop); });
    }

    StdInReader reader;
    StandardInput input;
    bool stop = false;
    std::vector<std::string> lines;

private:
    std::size_t expected_;
    Listener listener_{[this](StdInReader& from) {
        EXPECT_EQ(&reader, &from);
        lines.push_back(from.lastLine);
        EXPECT_EQ(&from.lastLine, &from.getLastLine());
        stop = lines.size() == expected_;
    }};
};

TEST(StdInReader, EveryLineIsAnnouncedAndEchoedButNoEmptyOne) {
    Channel channel(2);
    channel.input.write("a\n\nb\n");
    EXPECT_EQ("a\nb\n", channel.run());
    EXPECT_THAT(channel.lines, ElementsAre("a", "b"));
    EXPECT_EQ("b", channel.reader.getLastLine());
}

TEST(StdInReader, ABurstIsAnnouncedWithoutAQuietWait) {
    Channel channel(100);
    std::string text;
    std::vector<std::string> expected;
    for (int i = 0; i < 100; ++i) {
        expected.push_back("line " + std::to_string(i));
        text += expected.back() + "\n";
    }
    channel.input.write(text);
    const RecordedPolls polls;
    EXPECT_EQ(text, channel.run());
    EXPECT_EQ(expected, channel.lines);
    for (const Poll& poll : polls.all())
        EXPECT_EQ(1, poll.result);
}

TEST(StdInReader, ACarriageReturnIsAnnouncedAndEchoed) {
    Channel channel(1);
    channel.input.write("a\r\n");
    EXPECT_EQ("a\r\n", channel.run());
    EXPECT_THAT(channel.lines, ElementsAre("a\r"));
}

TEST(StdInReader, TheNextLineIsNotTakenBeforeTheObserversHaveReturned) {
    StdInReader reader;
    StandardInput input;
    bool stop = false;
    std::vector<std::string> lines;
    Listener listener([&](StdInReader& from) {
        lines.push_back(from.lastLine);
        lines.push_back(nextLine());
        stop = lines.size() == 4;
    });
    reader.attach(&listener);
    input.write("a\nb\nc\nd\n");
    EXPECT_EQ("a\nc\n", printedBy([&] { reader.loop(stop); }));
    EXPECT_THAT(lines, ElementsAre("a", "b", "c", "d"));
}

TEST(StdInReader, ObserversAreCalledInTheOrderOfAttachmentOnTheLoopsThread) {
    StdInReader reader;
    StandardInput input;
    bool stop = false;
    std::vector<std::string> calls;
    std::thread::id where;
    Listener first([&](StdInReader& from) { calls.push_back("first " + from.getLastLine()); });
    Listener second([&](StdInReader& from) {
        calls.push_back("second " + from.getLastLine());
        where = std::this_thread::get_id();
        stop = from.getLastLine() == "b";
    });
    reader.attach(&first);
    reader.attach(&second);
    input.write("a\nb\n");
    printedBy([&] { reader.loop(stop); });
    EXPECT_THAT(calls, ElementsAre("first a", "second a", "first b", "second b"));
    EXPECT_EQ(std::this_thread::get_id(), where);
}

TEST(StdInReader, ADetachedObserverIsNotCalledAgain) {
    Channel channel(2);
    std::vector<std::string> announced;
    Listener leaving([&](StdInReader& from) {
        announced.push_back(from.getLastLine());
        from.detach(&leaving);
    });
    channel.reader.attach(&leaving);
    channel.input.write("a\nb\n");
    channel.run();
    EXPECT_THAT(announced, ElementsAre("a"));
    EXPECT_THAT(channel.lines, ElementsAre("a", "b"));
}

TEST(StdInReader, AFlagSetBeforehandEndsTheLoopBeforeAnyWait) {
    Channel channel(1);
    channel.input.write("a\n");
    channel.stop = true;
    const RecordedPolls polls;
    EXPECT_EQ("", channel.run());
    EXPECT_EQ(0, polls.count());
    EXPECT_EQ(2, channel.input.unread());
    EXPECT_EQ("", channel.reader.getLastLine());
}

TEST(StdInReader, AFlagSetByAnObserverLeavesTheNextLineUnread) {
    Channel channel(1);
    channel.input.write("a\nb\n");
    EXPECT_EQ("a\n", channel.run());
    EXPECT_EQ("b", nextLine());
}

TEST(StdInReader, ALineThatWasReadIsAnnouncedThoughTheFlagIsSetDuringItsEcho) {
    Channel channel(1);
    channel.input.write("a\nb\n");
    struct StopsAtTheEcho : std::stringbuf {
        explicit StopsAtTheEcho(bool& flag) : stop(flag) {}
        int sync() override {
            stop = true;
            return 0;
        }
        bool& stop;
    } echo(channel.stop);
    std::streambuf* const before = std::cout.rdbuf(&echo);
    channel.reader.loop(channel.stop);
    std::cout.rdbuf(before);
    EXPECT_EQ("a\n", echo.str());
    EXPECT_THAT(channel.lines, ElementsAre("a"));
    EXPECT_EQ("b", nextLine());
}

TEST(StdInReader, AFlagSetWhileNoLineComesEndsTheLoopWithinASecondAndEchoesAnEmptyLine) {
    Channel channel(5);
    const RecordedPolls polls([&](int) {
        channel.stop = true;
        return RecordedPolls::kPassOn;
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ("\n", channel.run());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_THAT(channel.lines, IsEmpty());
}

TEST(StdInReader, AStoppedWaitReplacesTheLastLineAndAnnouncesNothing) {
    Channel channel(5);
    channel.input.write("a\n");
    const RecordedPolls polls([&](int number) {
        channel.stop = number == 2;
        return number == 2 ? 0 : RecordedPolls::kPassOn;
    });
    EXPECT_EQ("a\n\n", channel.run());
    EXPECT_THAT(channel.lines, ElementsAre("a"));
    EXPECT_EQ("", channel.reader.getLastLine());
}

TEST(StdInReader, AFailedWaitEchoesAnEmptyLineAndTheLoopContinues) {
    Channel channel(1);
    channel.input.write("a\n");
    const RecordedPolls polls([](int number) { return number < 3 ? -1 : RecordedPolls::kPassOn; });
    EXPECT_EQ("\n\na\n", channel.run());
    EXPECT_THAT(channel.lines, ElementsAre("a"));
}

TEST(StdInReader, AtTheEndOfInputTheLoopSpinsUntilStopped) {
    Channel channel(5);
    channel.input.write("last");
    channel.input.close();
    RecordedPolls polls([&](int number) {
        channel.stop = number == 500;
        return RecordedPolls::kPassOn;
    });
    EXPECT_EQ("last\n\n", channel.run());
    EXPECT_THAT(channel.lines, ElementsAre("last"));
    EXPECT_EQ(500, polls.count());
}

TEST(StdInReader, ALoopCanBeRunAgain) {
    Channel channel(1);
    channel.input.write("a\nb\n");
    channel.run();
    channel.stop = false;
    channel.lines.clear();
    EXPECT_EQ("b\n", channel.run());
    EXPECT_THAT(channel.lines, ElementsAre("b"));
}

} // namespace
