#include <kvr/api/com/NQ_Sockets.h>

#include "AlteredNumbers.h"
#include "CapturedOutput.h"
#include "Descriptors.h"
#include "ScriptedCalls.h"
#include "SocketScene.h"

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
using support::SocketScene;
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
    SocketScene scene;
    EXPECT_EQ("Waiting for a connection...\n"
              "Connected.\n"
              "Receiving: 5 bytes\n"
              "Receive result:5\n"
              "Received:hello\n"
              "Receiving: 0 bytes\n"
              "Receive result:0\n",
              scene.serve({scene.sends(message("hello"))}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre("hello"));
    EXPECT_EQ("hello", scene.server.getLastMessage());
}

TEST(NQ_Sockets, WaitsAgainWhileNotStopped) {
    SocketScene scene;
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("one") + kClosed + kWaiting +
                  kConnected + received("two") + kClosed,
              scene.serve({scene.sends(message("one")), scene.sends(message("two"))}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre("one", "two"));
}

TEST(NQ_Sockets, AnnouncesTwoMessagesOfOneConnectionInOrder) {
    SocketScene scene;
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("first") + received("second!") +
                  kClosed,
              scene.serve({scene.sends(message("first") + message("second!"))}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre("first", "second!"));
    EXPECT_EQ("second!", scene.server.getLastMessage());
}

TEST(NQ_Sockets, ReadsTheNextMessageAfterAllObserversHaveReturned) {
    SocketScene scene;
    MessageRecorder last;
    scene.server.attach(&last);
    std::string events;
    scene.recorder.alsoDo = [&] { events += 'a'; };
    last.alsoDo = [&] { events += 'b'; };
    const ScriptedCall receiving(Call::recv, [&](int) {
        events += 'r';
        return ScriptedCall::kPassOn;
    });
    scene.serve({scene.sends(message("one") + message("two"))});
    EXPECT_EQ("rrabrrabrr", events);
}

TEST(NQ_Sockets, TakesAnyBytesAsPayload) {
    std::string payload("\0\n\xff\x80 'quoted' \\", 16);
    payload += '\0';
    SocketScene scene;
    EXPECT_EQ(std::string(kWaiting) + kConnected + received(payload) + kClosed,
              scene.serve({scene.sends(message(payload))}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre(payload));
}

TEST(NQ_Sockets, TakesLengthsOfSeveralBytes) {
    const std::string payload(70001, 'x'); // 0x11171
    SocketScene scene;
    EXPECT_EQ(std::string(kWaiting) + kConnected + received(payload) + kClosed,
              scene.serve({scene.sends(message(payload))}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre(payload));
}

TEST(NQ_Sockets, TakesAPayloadOfOneByte) {
    SocketScene scene;
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("1") + received("2") + kClosed,
              scene.serve({scene.sends(message("1") + message("2"))}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre("1", "2"));
}

TEST(NQ_Sockets, AnEmptyConnectionIsOver) {
    SocketScene scene;
    EXPECT_EQ(std::string(kWaiting) + kConnected + kClosed, scene.serve({scene.sends("")}));
    EXPECT_THAT(scene.recorder.heard, IsEmpty());
    EXPECT_EQ("", scene.server.getLastMessage());
}

TEST(NQ_Sockets, WakesForAClientThatComesLater) {
    SocketScene scene;
    bool stop = false;
    scene.recorder.alsoDo = [&] { stop = true; };
    std::string printed;
    {
        const support::CapturedOutput output;
        std::thread client([&] {
            if (!output.waitFor(kWaiting))
                return; // the server then never ends, and the time limit fails the test
            SocketClient late(scene.path());
            if (output.waitFor(kConnected))
                late.send(message("at last"));
        });
        scene.server.loop(stop);
        client.join();
        printed = output.text();
    }
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("at last") + kClosed, printed);
}

TEST(NQ_Sockets, FlushesEveryLineImmediately) {
    SocketScene scene;
    std::vector<std::string> written;
    {
        const support::CapturedOutput output;
        const auto look = [&] { written.push_back(output.written()); };
        const ScriptedCall accepting(Call::accept, [&](int) {
            look();
            scene.stop = true;
            return scene.sends(message("hello"))();
        });
        const ScriptedCall receiving(Call::recv, [&](int) {
            look();
            return ScriptedCall::kPassOn;
        });
        scene.recorder.alsoDo = look;
        scene.server.loop(scene.stop);
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
    SocketScene scene;
    std::string inLoop;
    std::string inConstructor;
    {
        const support::CapturedOutput output;
        const ScriptedCall accepting(Call::accept, [&](int) {
            scene.stop = true;
            return ECONNABORTED;
        });
        scene.server.loop(scene.stop);
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
    SocketScene scene;
    const support::AlteredNumbers altered;
    EXPECT_EQ(std::string(kWaiting) + kConnected + received(payload) +
                  "Receiving: 4294967295 bytes\n" + kFailed + "std::bad_alloc\n",
              scene.serve({scene.sends(message(payload) + lengthPrefix(UINT32_MAX))}));
    const ScriptedCall receiving(
        Call::recv, [](int number) { return number == 2 ? ECONNRESET : ScriptedCall::kPassOn; });
    EXPECT_EQ(std::string(kWaiting) + kConnected + "Receiving: 3 bytes\nReceive result:-1\n" +
                  kFailed + "Error receiving socket data buffer\n\n",
              scene.serve({scene.sends(message("one"))}));
}

// The end of a connection ----------------------------------------------------------------------

TEST(NQ_Sockets, ReceivesThePayloadOfAPeerThatIsGoneToo) {
    SocketScene scene;
    const ScriptedCall receiving(Call::recv, ScriptedCall::kPassOn);
    EXPECT_EQ(std::string(kWaiting) + kConnected + kClosed, scene.serve({scene.sends("")}));
    EXPECT_EQ(2, receiving.count());
}

TEST(NQ_Sockets, PrintsAFailureOfThatReceive) {
    SocketScene scene;
    const ScriptedCall receiving(
        Call::recv, [](int number) { return number == 2 ? ECONNRESET : ScriptedCall::kPassOn; });
    EXPECT_EQ(std::string(kWaiting) + kConnected + "Receiving: 0 bytes\nReceive result:-1\n" +
                  kFailed + "Error receiving socket data buffer\n\n",
              scene.serve({scene.sends("")}));
}

TEST(NQ_Sockets, ReceivesThePayloadAfterAPartOfALengthThatIsZero) {
    SocketScene scene;
    std::unique_ptr<SocketClient> client;
    const ScriptedCall receiving(Call::recv, [&](int number) {
        if (number == 2)
            client->close(); // otherwise the call waits for the rest of the length
        return ScriptedCall::kPassOn;
    });
    EXPECT_EQ(std::string(kWaiting) + kConnected + kClosed, scene.serve({[&] {
        client = std::make_unique<SocketClient>(scene.path());
        client->send(std::string(3, '\0'));
        return ScriptedCall::kPassOn;
    }}));
    EXPECT_EQ(2, receiving.count());
}

TEST(NQ_Sockets, ReceivesNoPayloadAfterAWholeLengthOfZero) {
    SocketScene scene;
    const ScriptedCall receiving(Call::recv, ScriptedCall::kPassOn);
    EXPECT_EQ(std::string(kWaiting) + kConnected + kClosed,
              scene.serve({scene.sends(lengthPrefix(0) + message("behind"))}));
    EXPECT_EQ(1, receiving.count());
}

// Lengths and payloads that do not fit ---------------------------------------------------------

TEST(NQ_Sockets, APayloadInTwoSegmentsIsDeliveredAfterTheFirst) {
    SocketScene scene;
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
              scene.serve({[&] {
                  client = std::make_unique<SocketClient>(scene.path());
                  client->send(lengthPrefix(10) + "abc");
                  return ScriptedCall::kPassOn;
              }}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre(delivered, "xy"));
}

TEST(NQ_Sockets, AShortLengthIsFilledWithZeroBytes) {
    for (const std::string& bytes :
         {std::string("\x05"), std::string("\x01\x02"), std::string("\x01\x02\x03")}) {
        SocketScene scene;
        EXPECT_EQ(std::string(kWaiting) + kConnected + "Receiving: " +
                      std::to_string(partialLength(bytes)) + " bytes\nReceive result:0\n",
                  scene.serve({scene.sends(bytes)}));
        EXPECT_THAT(scene.recorder.heard, IsEmpty());
    }
}

TEST(NQ_Sockets, APayloadMayFollowAShortLength) {
    SocketScene scene;
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
    scene.serve({[&] {
        client = std::make_unique<SocketClient>(scene.path());
        client->send(shortLength);
        return ScriptedCall::kPassOn;
    }});
    ASSERT_THAT(scene.recorder.heard, SizeIs(1));
    EXPECT_EQ(partialLength(shortLength), scene.recorder.heard[0].size());
    EXPECT_EQ(payload, scene.recorder.heard[0].substr(0, payload.size()));
}

TEST(NQ_Sockets, AZeroLengthEndsTheConnectionAndWhatFollowsIsNeverRead) {
    SocketScene scene;
    std::unique_ptr<SocketClient> client; // stays open: the server must not wait for its end
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("before") + kClosed, scene.serve({[&] {
        client = std::make_unique<SocketClient>(scene.path());
        client->send(message("before") + lengthPrefix(0) + message("behind"));
        return ScriptedCall::kPassOn;
    }}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre("before"));
}

TEST(NQ_Sockets, AZeroLengthEndsTheConnectionOfAClientThatSendsNothingMore) {
    SocketScene scene;
    std::unique_ptr<SocketClient> client;
    EXPECT_EQ(std::string(kWaiting) + kConnected + kClosed, scene.serve({[&] {
        client = std::make_unique<SocketClient>(scene.path());
        client->send(lengthPrefix(0));
        return ScriptedCall::kPassOn;
    }}));
    EXPECT_TRUE(client->isOpen());
}

TEST(NQ_Sockets, ALengthThatCannotBeAllocatedAbandonsTheConnection) {
    SocketScene scene;
    const std::string printed =
        scene.serve({scene.sends(message("kept") + lengthPrefix(UINT32_MAX) + "x"),
                     scene.sends(message("next"))});
    const std::string before =
        std::string(kWaiting) + kConnected + received("kept") + "Receiving: 4294967295 bytes\n";
    const std::string after = std::string(kWaiting) + kConnected + received("next") + kClosed;
    EXPECT_EQ(before + kFailed + "std::bad_alloc\n" + after, printed);
    EXPECT_THAT(scene.recorder.heard, ElementsAre("kept", "next"));
}

// Failing calls and observers ------------------------------------------------------------------

TEST(NQ_Sockets, AFailingAcceptIsPrintedAndTriedAgain) {
    SocketScene scene;
    const std::string failure =
        std::string(kWaiting) + kFailed + "Error accepting socket connection\n\n";
    EXPECT_EQ(failure + failure + kWaiting + kConnected + received("hello") + kClosed,
              scene.serve({SocketScene::failsWith(EMFILE), SocketScene::failsWith(EINTR),
                           scene.sends(message("hello"))}));
}

TEST(NQ_Sockets, AFailingReceiveOfTheLengthAbandonsTheConnection) {
    SocketScene scene;
    const ScriptedCall receiving(
        Call::recv, [](int number) { return number == 1 ? EINTR : ScriptedCall::kPassOn; });
    EXPECT_EQ(std::string(kWaiting) + kConnected + kFailed +
                  "Error receiving socket data length\n\n" + kWaiting + kConnected +
                  received("two") + kClosed,
              scene.serve({scene.sends(message("one")), scene.sends(message("two"))}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre("two"));
}

TEST(NQ_Sockets, AFailingReceiveOfThePayloadAbandonsTheConnection) {
    SocketScene scene;
    const ScriptedCall receiving(
        Call::recv, [](int number) { return number == 4 ? ECONNRESET : ScriptedCall::kPassOn; });
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("one") +
                  "Receiving: 3 bytes\n"
                  "Receive result:-1\n" +
                  kFailed + "Error receiving socket data buffer\n\n" + kWaiting + kConnected +
                  received("3rd") + kClosed,
              scene.serve({scene.sends(message("one") + message("two") + message("2nd")),
                           scene.sends(message("3rd"))}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre("one", "3rd"));
}

TEST(NQ_Sockets, AnObserversStandardExceptionAbandonsTheConnection) {
    SocketScene scene;
    MessageRecorder unreached;
    scene.server.attach(&unreached);
    scene.recorder.alsoDo = [&] {
        if (scene.recorder.heard.back() == "bad")
            throw std::range_error("no use for it");
    };
    EXPECT_EQ(
        std::string(kWaiting) + kConnected +
            "Receiving: 3 bytes\n"
            "Receive result:3\n"
            "Received:bad\n" +
            kFailed + "no use for it\n" + kWaiting + kConnected + received("good") + kClosed,
        scene.serve({scene.sends(message("bad") + message("lost")), scene.sends(message("good"))}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre("bad", "good"));
    EXPECT_THAT(unreached.heard, ElementsAre("good"));
}

TEST(NQ_Sockets, AnyOtherExceptionOfAnObserverPassesThrough) {
    SocketScene scene;
    scene.recorder.alsoDo = [] { throw 42; };
    bool thrown = false;
    const std::string printed = printedBy([&] {
        const ScriptedCall accepting(Call::accept,
                                     [&](int) { return scene.sends(message("bad"))(); });
        try {
            scene.server.loop(scene.stop);
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
    SocketScene scene;
    const auto before = openDescriptors();
    EXPECT_EQ("", scene.serve({}));
    EXPECT_THAT(openedSince(before), SizeIs(1));
    EXPECT_EQ(0, SocketClient(scene.path()).error());
}

TEST(NQ_Sockets, AStopInterruptsNoConnectionInProgress) {
    SocketScene scene;
    bool stop = false;
    scene.recorder.alsoDo = [&] { stop = true; };
    const std::string printed = printedBy([&] {
        const ScriptedCall accepting(
            Call::accept, [&](int) { return scene.sends(message("one") + message("two"))(); });
        scene.server.loop(stop);
    });
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("one") + received("two") + kClosed,
              printed);
}

TEST(NQ_Sockets, AStopSetDuringAFailedConnectionEndsTheLoop) {
    SocketScene scene;
    EXPECT_EQ(std::string(kWaiting) + kFailed + "Error accepting socket connection\n\n",
              scene.serve({SocketScene::failsWith(ECONNABORTED)}));
}

} // namespace
