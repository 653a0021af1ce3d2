#include <kvr/api/com/NQ_Sockets.h>

#include "AlteredNumberFormat.h"
#include "CapturedOutput.h"
#include "Descriptors.h"
#include "ScriptedCalls.h"
#include "SocketFixture.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::com::NQ_Sockets;
using support::Call;
using support::lengthPrefix;
using support::message;
using support::MessageRecorder;
using support::openDescriptors;
using support::openedSince;
using support::printedBy;
using support::ScriptedCall;
using support::SocketClient;
using support::SocketFixture;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const char kWaiting[] = "Waiting for a connection...\n";
const char kConnected[] = "Connected.\n";
const char kFailed[] = "Some error on kvr::api::com::NQ_Sockets::loop\n";
const char kClosed[] = "Receiving: 0 bytes\nReceive result:0\n";

/// Returns what the server prints for one message.
std::string received(const std::string& payload) {
    const std::string size = std::to_string(payload.size());
    return "Receiving: " + size + " bytes\nReceive result:" + size + "\nReceived:" + payload + "\n";
}

/// A length field of which only these bytes arrive.
std::uint32_t partialLength(const std::string& bytes) {
    std::uint32_t length = 0;
    std::memcpy(&length, bytes.data(), bytes.size());
    return length;
}

// One connection ------------------------------------------------------------------------------

TEST(NQ_Sockets, PrintsEveryStepOfAConnection) {
    SocketFixture fixture;
    EXPECT_EQ("Waiting for a connection...\n"
              "Connected.\n"
              "Receiving: 5 bytes\n"
              "Receive result:5\n"
              "Received:hello\n"
              "Receiving: 0 bytes\n"
              "Receive result:0\n",
              fixture.serve({fixture.sends(message("hello"))}));
    EXPECT_THAT(fixture.recorder.messages, ElementsAre("hello"));
    EXPECT_EQ("hello", fixture.server.getLastMessage());
}

TEST(NQ_Sockets, WaitsAgainWhileNotStopped) {
    SocketFixture fixture;
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("one") + kClosed + kWaiting +
                  kConnected + received("two") + kClosed,
              fixture.serve({fixture.sends(message("one")), fixture.sends(message("two"))}));
    EXPECT_THAT(fixture.recorder.messages, ElementsAre("one", "two"));
}

TEST(NQ_Sockets, AnnouncesTwoMessagesOfOneConnectionInOrder) {
    SocketFixture fixture;
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("first") + received("second!") +
                  kClosed,
              fixture.serve({fixture.sends(message("first") + message("second!"))}));
    EXPECT_THAT(fixture.recorder.messages, ElementsAre("first", "second!"));
    EXPECT_EQ("second!", fixture.server.getLastMessage());
}

TEST(NQ_Sockets, ReadsTheNextMessageAfterAllObserversHaveReturned) {
    SocketFixture fixture;
    MessageRecorder last;
    fixture.server.attach(&last);
    std::string events;
    fixture.recorder.onUpdate = [&] { events += 'a'; };
    last.onUpdate = [&] { events += 'b'; };
    const ScriptedCall receiving(Call::recv, [&](int) {
        events += 'r';
        return ScriptedCall::kPassOn;
    });
    fixture.serve({fixture.sends(message("one") + message("two"))});
    EXPECT_EQ("rrabrrabrr", events);
}

TEST(NQ_Sockets, TakesAnyBytesAsPayload) {
    std::string payload("\0\n\xff\x80 'quoted' \\", 16);
    payload += '\0';
    SocketFixture fixture;
    EXPECT_EQ(std::string(kWaiting) + kConnected + received(payload) + kClosed,
              fixture.serve({fixture.sends(message(payload))}));
    EXPECT_THAT(fixture.recorder.messages, ElementsAre(payload));
}

TEST(NQ_Sockets, TakesLengthsOfSeveralBytes) {
    const std::string payload(70001, 'x'); // 0x11171
    SocketFixture fixture;
    EXPECT_EQ(std::string(kWaiting) + kConnected + received(payload) + kClosed,
              fixture.serve({fixture.sends(message(payload))}));
    EXPECT_THAT(fixture.recorder.messages, ElementsAre(payload));
}

TEST(NQ_Sockets, TakesAPayloadOfOneByte) {
    SocketFixture fixture;
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("1") + received("2") + kClosed,
              fixture.serve({fixture.sends(message("1") + message("2"))}));
    EXPECT_THAT(fixture.recorder.messages, ElementsAre("1", "2"));
}

TEST(NQ_Sockets, AnEmptyConnectionIsOver) {
    SocketFixture fixture;
    EXPECT_EQ(std::string(kWaiting) + kConnected + kClosed, fixture.serve({fixture.sends("")}));
    EXPECT_THAT(fixture.recorder.messages, IsEmpty());
    EXPECT_EQ("", fixture.server.getLastMessage());
}

TEST(NQ_Sockets, WakesForAClientThatComesLater) {
    SocketFixture fixture;
    bool stop = false;
    fixture.recorder.onUpdate = [&] { stop = true; };
    std::string printed;
    {
        const support::CapturedOutput output;
        std::thread client([&] {
            if (!output.waitFor(kWaiting))
                return; // the server then never ends, and the time limit fails the test
            SocketClient late(fixture.path());
            if (output.waitFor(kConnected))
                late.send(message("at last"));
        });
        fixture.server.loop(stop);
        client.join();
        printed = output.text();
    }
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("at last") + kClosed, printed);
}

TEST(NQ_Sockets, FlushesEveryLineImmediately) {
    SocketFixture fixture;
    std::vector<std::string> written;
    {
        const support::CapturedOutput output;
        const auto look = [&] { written.push_back(output.written()); };
        const ScriptedCall accepting(Call::accept, [&](int) {
            look();
            fixture.stop = true;
            return fixture.sends(message("hello"))();
        });
        const ScriptedCall receiving(Call::recv, [&](int) {
            look();
            return ScriptedCall::kPassOn;
        });
        fixture.recorder.onUpdate = look;
        fixture.server.loop(fixture.stop);
        look();
    }
    const std::string waiting = kWaiting;
    const std::string connected = waiting + kConnected;
    EXPECT_THAT(written, ElementsAre(waiting, connected, connected + "Receiving: 5 bytes\n",
                                     connected + received("hello"), connected + received("hello"),
                                     connected + received("hello") + "Receiving: 0 bytes\n",
                                     connected + received("hello") + kClosed));
}

TEST(NQ_Sockets, FlushesItsReportOfAFailure) {
    SocketFixture fixture;
    std::string inLoop;
    std::string inConstructor;
    {
        const support::CapturedOutput output;
        const ScriptedCall accepting(Call::accept, [&](int) {
            fixture.stop = true;
            return ECONNABORTED;
        });
        fixture.server.loop(fixture.stop);
        inLoop = output.written();
    }
    {
        const support::CapturedOutput output;
        const NQ_Sockets nameless(nullptr);
        inConstructor = output.written();
    }
    EXPECT_EQ(std::string(kWaiting) + kFailed + "Error accepting socket connection\n\n", inLoop);
    EXPECT_EQ("Some error on kvr::api::com::NQ_Sockets::NQ_Sockets\n", inConstructor);
}

TEST(NQ_Sockets, PrintsDecimalNumbersWhateverTheApplicationAskedOfItsStream) {
    const std::string payload(12345, 'x');
    SocketFixture fixture;
    const support::AlteredNumberFormat altered;
    EXPECT_EQ(std::string(kWaiting) + kConnected + received(payload) +
                  "Receiving: 4294967295 bytes\n" + kFailed + "std::bad_alloc\n",
              fixture.serve({fixture.sends(message(payload) + lengthPrefix(UINT32_MAX))}));
    const ScriptedCall receiving(
        Call::recv, [](int number) { return number == 2 ? ECONNRESET : ScriptedCall::kPassOn; });
    EXPECT_EQ(std::string(kWaiting) + kConnected + "Receiving: 3 bytes\nReceive result:-1\n" +
                  kFailed + "Error receiving socket data buffer\n\n",
              fixture.serve({fixture.sends(message("one"))}));
}

// The end of a connection ----------------------------------------------------------------------

TEST(NQ_Sockets, ReceivesThePayloadOfAPeerThatIsGoneToo) {
    SocketFixture fixture;
    const ScriptedCall receiving(Call::recv, ScriptedCall::kPassOn);
    EXPECT_EQ(std::string(kWaiting) + kConnected + kClosed, fixture.serve({fixture.sends("")}));
    EXPECT_EQ(2, receiving.count());
}

TEST(NQ_Sockets, PrintsAFailureOfThatReceive) {
    SocketFixture fixture;
    const ScriptedCall receiving(
        Call::recv, [](int number) { return number == 2 ? ECONNRESET : ScriptedCall::kPassOn; });
    EXPECT_EQ(std::string(kWaiting) + kConnected + "Receiving: 0 bytes\nReceive result:-1\n" +
                  kFailed + "Error receiving socket data buffer\n\n",
              fixture.serve({fixture.sends("")}));
}

TEST(NQ_Sockets, ReceivesThePayloadAfterAPartOfALengthThatIsZero) {
    SocketFixture fixture;
    std::unique_ptr<SocketClient> client;
    const ScriptedCall receiving(Call::recv, [&](int number) {
        if (number == 2)
            client->close(); // otherwise the call waits for the rest of the length
        return ScriptedCall::kPassOn;
    });
    EXPECT_EQ(std::string(kWaiting) + kConnected + kClosed, fixture.serve({[&] {
        client = std::make_unique<SocketClient>(fixture.path());
        client->send(std::string(3, '\0'));
        return ScriptedCall::kPassOn;
    }}));
    EXPECT_EQ(2, receiving.count());
}

TEST(NQ_Sockets, ReceivesNoPayloadAfterAWholeLengthOfZero) {
    SocketFixture fixture;
    const ScriptedCall receiving(Call::recv, ScriptedCall::kPassOn);
    EXPECT_EQ(std::string(kWaiting) + kConnected + kClosed,
              fixture.serve({fixture.sends(lengthPrefix(0) + message("behind"))}));
    EXPECT_EQ(1, receiving.count());
}

// Lengths and payloads that do not fit ---------------------------------------------------------

TEST(NQ_Sockets, APayloadInTwoSegmentsIsDeliveredAfterTheFirst) {
    SocketFixture fixture;
    std::unique_ptr<SocketClient> client;
    // The server then reads the rest of the payload as a message: length 2, "xy", and the first
    // byte of another length.
    const std::string rest = lengthPrefix(2) + "xyz";
    const ScriptedCall receiving(Call::recv, [&](int number) {
        if (number == 3) {
            client->send(rest);
            client->close();
        }
        return ScriptedCall::kPassOn;
    });
    const std::string delivered("abc\0\0\0\0\0\0\0", 10);
    EXPECT_EQ(std::string(kWaiting) + kConnected +
                  "Receiving: 10 bytes\n"
                  "Receive result:3\n"
                  "Received:" +
                  delivered + "\n" + received("xy") +
                  "Receiving: " + std::to_string(partialLength("z")) + " bytes\nReceive result:0\n",
              fixture.serve({[&] {
                  client = std::make_unique<SocketClient>(fixture.path());
                  client->send(lengthPrefix(10) + "abc");
                  return ScriptedCall::kPassOn;
              }}));
    EXPECT_THAT(fixture.recorder.messages, ElementsAre(delivered, "xy"));
}

TEST(NQ_Sockets, AShortLengthIsFilledWithZeroBytes) {
    for (const std::string& bytes :
         {std::string("\x05"), std::string("\x01\x02"), std::string("\x01\x02\x03")}) {
        SocketFixture fixture;
        EXPECT_EQ(std::string(kWaiting) + kConnected + "Receiving: " +
                      std::to_string(partialLength(bytes)) + " bytes\nReceive result:0\n",
                  fixture.serve({fixture.sends(bytes)}));
        EXPECT_THAT(fixture.recorder.messages, IsEmpty());
    }
}

TEST(NQ_Sockets, APayloadMayFollowAShortLength) {
    SocketFixture fixture;
    std::unique_ptr<SocketClient> client;
    const std::string shortLength = "\x03";
    const std::string payload = "abc";
    const ScriptedCall receiving(Call::recv, [&](int number) {
        if (number == 2)
            client->send(payload);
        if (number == 3)
            client->close();
        return ScriptedCall::kPassOn;
    });
    fixture.serve({[&] {
        client = std::make_unique<SocketClient>(fixture.path());
        client->send(shortLength);
        return ScriptedCall::kPassOn;
    }});
    ASSERT_THAT(fixture.recorder.messages, SizeIs(1));
    EXPECT_EQ(partialLength(shortLength), fixture.recorder.messages[0].size());
    EXPECT_EQ(payload, fixture.recorder.messages[0].substr(0, payload.size()));
}

TEST(NQ_Sockets, AZeroLengthEndsTheConnectionAndWhatFollowsIsNeverRead) {
    SocketFixture fixture;
    std::unique_ptr<SocketClient> client; // stays open: the server must not wait for its end
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("before") + kClosed,
              fixture.serve({[&] {
                  client = std::make_unique<SocketClient>(fixture.path());
                  client->send(message("before") + lengthPrefix(0) + message("behind"));
                  return ScriptedCall::kPassOn;
              }}));
    EXPECT_THAT(fixture.recorder.messages, ElementsAre("before"));
}

TEST(NQ_Sockets, AZeroLengthEndsTheConnectionOfAClientThatSendsNothingMore) {
    SocketFixture fixture;
    std::unique_ptr<SocketClient> client;
    EXPECT_EQ(std::string(kWaiting) + kConnected + kClosed, fixture.serve({[&] {
        client = std::make_unique<SocketClient>(fixture.path());
        client->send(lengthPrefix(0));
        return ScriptedCall::kPassOn;
    }}));
    EXPECT_TRUE(client->isOpen());
}

TEST(NQ_Sockets, ALengthThatCannotBeAllocatedAbandonsTheConnection) {
    SocketFixture fixture;
    const std::string printed =
        fixture.serve({fixture.sends(message("kept") + lengthPrefix(UINT32_MAX) + "x"),
                       fixture.sends(message("next"))});
    const std::string before =
        std::string(kWaiting) + kConnected + received("kept") + "Receiving: 4294967295 bytes\n";
    const std::string after = std::string(kWaiting) + kConnected + received("next") + kClosed;
    EXPECT_EQ(before + kFailed + "std::bad_alloc\n" + after, printed);
    EXPECT_THAT(fixture.recorder.messages, ElementsAre("kept", "next"));
}

// Failing calls and observers ------------------------------------------------------------------

TEST(NQ_Sockets, AFailingAcceptIsPrintedAndTriedAgain) {
    SocketFixture fixture;
    const std::string failure =
        std::string(kWaiting) + kFailed + "Error accepting socket connection\n\n";
    EXPECT_EQ(failure + failure + kWaiting + kConnected + received("hello") + kClosed,
              fixture.serve({SocketFixture::failsWith(EMFILE), SocketFixture::failsWith(EINTR),
                             fixture.sends(message("hello"))}));
}

TEST(NQ_Sockets, AFailingReceiveOfTheLengthAbandonsTheConnection) {
    SocketFixture fixture;
    const ScriptedCall receiving(
        Call::recv, [](int number) { return number == 1 ? EINTR : ScriptedCall::kPassOn; });
    EXPECT_EQ(std::string(kWaiting) + kConnected + kFailed +
                  "Error receiving socket data length\n\n" + kWaiting + kConnected +
                  received("two") + kClosed,
              fixture.serve({fixture.sends(message("one")), fixture.sends(message("two"))}));
    EXPECT_THAT(fixture.recorder.messages, ElementsAre("two"));
}

TEST(NQ_Sockets, AFailingReceiveOfThePayloadAbandonsTheConnection) {
    SocketFixture fixture;
    const ScriptedCall receiving(
        Call::recv, [](int number) { return number == 4 ? ECONNRESET : ScriptedCall::kPassOn; });
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("one") +
                  "Receiving: 3 bytes\n"
                  "Receive result:-1\n" +
                  kFailed + "Error receiving socket data buffer\n\n" + kWaiting + kConnected +
                  received("3rd") + kClosed,
              fixture.serve({fixture.sends(message("one") + message("two") + message("2nd")),
                             fixture.sends(message("3rd"))}));
    EXPECT_THAT(fixture.recorder.messages, ElementsAre("one", "3rd"));
}

TEST(NQ_Sockets, AnObserversStandardExceptionAbandonsTheConnection) {
    SocketFixture fixture;
    MessageRecorder unreached;
    fixture.server.attach(&unreached);
    fixture.recorder.onUpdate = [&] {
        if (fixture.recorder.messages.back() == "bad")
            throw std::range_error("no use for it");
    };
    EXPECT_EQ(std::string(kWaiting) + kConnected +
                  "Receiving: 3 bytes\n"
                  "Receive result:3\n"
                  "Received:bad\n" +
                  kFailed + "no use for it\n" + kWaiting + kConnected + received("good") + kClosed,
              fixture.serve({fixture.sends(message("bad") + message("lost")),
                             fixture.sends(message("good"))}));
    EXPECT_THAT(fixture.recorder.messages, ElementsAre("bad", "good"));
    EXPECT_THAT(unreached.messages, ElementsAre("good"));
}

TEST(NQ_Sockets, AnyOtherExceptionOfAnObserverPassesThrough) {
    SocketFixture fixture;
    fixture.recorder.onUpdate = [] { throw 42; };
    bool thrown = false;
    const std::string printed = printedBy([&] {
        const ScriptedCall accepting(Call::accept,
                                     [&](int) { return fixture.sends(message("bad"))(); });
        try {
            fixture.server.loop(fixture.stop);
        } catch (int number) {
            thrown = number == 42;
        }
    });
    EXPECT_TRUE(thrown);
    EXPECT_EQ(std::string(kWaiting) + kConnected +
                  "Receiving: 3 bytes\n"
                  "Receive result:3\n"
                  "Received:bad\n",
              printed);
}

// Stopping ---------------------------------------------------------------------------------------

TEST(NQ_Sockets, AStoppedLoopRemakesTheSocketAndAcceptsNobody) {
    SocketFixture fixture;
    const auto before = openDescriptors();
    EXPECT_EQ("", fixture.serve({}));
    EXPECT_THAT(openedSince(before), SizeIs(1));
    EXPECT_EQ(0, SocketClient(fixture.path()).error());
}

TEST(NQ_Sockets, AStopInterruptsNoConnectionInProgress) {
    SocketFixture fixture;
    bool stop = false;
    fixture.recorder.onUpdate = [&] { stop = true; };
    const std::string printed = printedBy([&] {
        const ScriptedCall accepting(
            Call::accept, [&](int) { return fixture.sends(message("one") + message("two"))(); });
        fixture.server.loop(stop);
    });
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("one") + received("two") + kClosed,
              printed);
}

TEST(NQ_Sockets, AStopSetDuringAFailedConnectionEndsTheLoop) {
    SocketFixture fixture;
    EXPECT_EQ(std::string(kWaiting) + kFailed + "Error accepting socket connection\n\n",
              fixture.serve({SocketFixture::failsWith(ECONNABORTED)}));
}

} // namespace
