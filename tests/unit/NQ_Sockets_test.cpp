#include <kvr/api/com/NQ_Sockets.h>

#include "CapturedCommands.h"
#include "CapturedOutput.h"
#include "Descriptors.h"
#include "PrivateMounts.h"
#include "ScriptedCalls.h"
#include "TempDir.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::com::NQ_Sockets;
using support::Call;
using support::openDescriptors;
using support::openedSince;
using support::printedBy;
using support::ScriptedCall;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Eq;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

const std::string kDirectory = "/tmp/socketDDS/";
constexpr std::size_t kAddressPath = sizeof sockaddr_un().sun_path; // 108

const char kWaiting[] = "Waiting for a connection...\n";
const char kConnected[] = "Connected.\n";
const char kFailed[] = "Some error on kvr::api::com::NQ_Sockets::loop\n";
const char kClosed[] = "Receiving: 0 bytes\nReceive result:0\n";

/// What the server prints for one message.
std::string received(const std::string& payload) {
    const std::string size = std::to_string(payload.size());
    return "Receiving: " + size + " bytes\nReceive result:" + size + "\nReceived:" + payload + "\n";
}

std::string lengthPrefix(std::uint32_t length) {
    std::string bytes(sizeof length, '\0');
    std::memcpy(&bytes[0], &length, sizeof length);
    return bytes;
}

std::string message(const std::string& payload) {
    return lengthPrefix(static_cast<std::uint32_t>(payload.size())) + payload;
}

/// A length of which only these bytes arrive.
std::uint32_t partialLength(const std::string& bytes) {
    std::uint32_t length = 0;
    std::memcpy(&length, bytes.data(), bytes.size());
    return length;
}

/// A client's end of a connection.
class Client {
public:
    explicit Client(const std::string& path, int flags = 0)
        : descriptor_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::copy_n(path.data(), std::min(path.size(), kAddressPath), address.sun_path);
        const auto length = static_cast<socklen_t>(sizeof address.sun_family + path.size());
        error_ =
            connect(descriptor_, reinterpret_cast<sockaddr*>(&address), length) == 0 ? 0 : errno;
    }
    ~Client() { close(); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    int error() const { return error_; }

    void send(const std::string& bytes) {
        ASSERT_EQ(0, error_) << std::strerror(error_);
        ASSERT_EQ(static_cast<ssize_t>(bytes.size()),
                  ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }

    void close() {
        if (descriptor_ != -1)
            ::close(descriptor_);
        descriptor_ = -1;
    }

    bool isOpen() const { return descriptor_ != -1; }

private:
    int descriptor_;
    int error_;
};

class Recorder : public kvr::api::iot::Observer<NQ_Sockets> {
public:
    void update(NQ_Sockets* subject) override {
        heard.push_back(subject->getLastMessage());
        if (alsoDo)
            alsoDo();
    }
    std::vector<std::string> heard;
    std::function<void()> alsoDo;
};

/// The path of a socket file that no other test uses, removed at the end.
class SocketName {
public:
    SocketName() {
        static int number = 0;
        name = "tavo-test-" + std::to_string(getpid()) + "-" + std::to_string(++number);
        path = kDirectory + name;
    }
    ~SocketName() { unlink(path.c_str()); }
    SocketName(const SocketName&) = delete;
    SocketName& operator=(const SocketName&) = delete;
    std::string name;
    std::string path;
};

/// A server with one observer, and the visits that it gets: each is paid on the server's own
/// thread, just before it accepts, and returns ScriptedCall::kPassOn or the error that accept()
/// shall meet. The stop flag is set with the last one.
class Scene {
public:
    using Visit = std::function<int()>;

    Scene() : server(socketName.name.c_str()) { server.attach(&recorder); }

    /// Runs the server's loop and returns what it printed.
    std::string serve(const std::vector<Visit>& visits) {
        stop = visits.empty();
        const ScriptedCall accepting(Call::accept, [&](int number) {
            const auto index = static_cast<std::size_t>(number) - 1;
            stop = number >= static_cast<int>(visits.size());
            return index < visits.size() ? visits[index]() : ECANCELED;
        });
        return printedBy([&] { server.loop(stop); });
    }

    /// A client that sends these bytes in one call and closes.
    Visit sends(const std::string& bytes) {
        return [this, bytes] {
            Client(path()).send(bytes);
            return ScriptedCall::kPassOn;
        };
    }

    static Visit failsWith(int error) {
        return [error] { return error; };
    }

    const std::string& path() const { return socketName.path; }
    const char* name() const { return socketName.name.c_str(); }

    SocketName socketName;
    bool stop = false;
    Recorder recorder;
    NQ_Sockets server;
};

// One connection ------------------------------------------------------------------------------

TEST(NQ_Sockets, PrintsEveryStepOfAConnection) {
    Scene scene;
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
    Scene scene;
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("one") + kClosed + kWaiting +
                  kConnected + received("two") + kClosed,
              scene.serve({scene.sends(message("one")), scene.sends(message("two"))}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre("one", "two"));
}

TEST(NQ_Sockets, AnnouncesTwoMessagesOfOneConnectionInOrder) {
    Scene scene;
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("first") + received("second!") +
                  kClosed,
              scene.serve({scene.sends(message("first") + message("second!"))}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre("first", "second!"));
    EXPECT_EQ("second!", scene.server.getLastMessage());
}

TEST(NQ_Sockets, ReadsTheNextMessageAfterAllObserversHaveReturned) {
    Scene scene;
    Recorder last;
    scene.server.attach(&last);
    std::string events;
    scene.recorder.alsoDo = [&] { events += 'a'; };
    last.alsoDo = [&] { events += 'b'; };
    const ScriptedCall receiving(Call::recv, [&](int) {
        events += 'r';
        return ScriptedCall::kPassOn;
    });
    scene.serve({scene.sends(message("one") + message("two"))});
    EXPECT_EQ("rrabrrabr", events);
}

TEST(NQ_Sockets, TakesAnyBytesAsPayload) {
    std::string payload("\0\n\xff\x80 'quoted' \\", 16);
    payload += '\0';
    Scene scene;
    EXPECT_EQ(std::string(kWaiting) + kConnected + received(payload) + kClosed,
              scene.serve({scene.sends(message(payload))}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre(payload));
}

TEST(NQ_Sockets, TakesLengthsOfSeveralBytes) {
    const std::string payload(70001, 'x'); // 0x11171
    Scene scene;
    EXPECT_EQ(std::string(kWaiting) + kConnected + received(payload) + kClosed,
              scene.serve({scene.sends(message(payload))}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre(payload));
}

TEST(NQ_Sockets, AnEmptyConnectionIsOver) {
    Scene scene;
    EXPECT_EQ(std::string(kWaiting) + kConnected + kClosed, scene.serve({scene.sends("")}));
    EXPECT_THAT(scene.recorder.heard, IsEmpty());
    EXPECT_EQ("", scene.server.getLastMessage());
}

TEST(NQ_Sockets, WakesForAClientThatComesLater) {
    Scene scene;
    bool stop = false;
    scene.recorder.alsoDo = [&] { stop = true; };
    std::string printed;
    {
        const support::CapturedOutput output;
        std::thread client([&] {
            if (!output.waitFor(kWaiting))
                return; // the server never ends then, and the time limit tells
            Client late(scene.path());
            if (output.waitFor(kConnected))
                late.send(message("at last"));
        });
        scene.server.loop(stop);
        client.join();
        printed = output.text();
    }
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("at last") + kClosed, printed);
}

// Lengths and payloads that do not fit ---------------------------------------------------------

TEST(NQ_Sockets, APayloadInTwoSegmentsIsDeliveredAfterTheFirst) {
    Scene scene;
    std::unique_ptr<Client> client;
    // The rest of the payload is then taken for a message: length 2, "xy", and a length of which
    // one byte came.
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
                  client = std::make_unique<Client>(scene.path());
                  client->send(lengthPrefix(10) + "abc");
                  return ScriptedCall::kPassOn;
              }}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre(delivered, "xy"));
}

TEST(NQ_Sockets, AShortLengthIsFilledWithZeroBytes) {
    for (const std::string& bytes :
         {std::string("\x05"), std::string("\x01\x02"), std::string("\x01\x02\x03")}) {
        Scene scene;
        EXPECT_EQ(std::string(kWaiting) + kConnected + "Receiving: " +
                      std::to_string(partialLength(bytes)) + " bytes\nReceive result:0\n",
                  scene.serve({scene.sends(bytes)}));
        EXPECT_THAT(scene.recorder.heard, IsEmpty());
    }
}

TEST(NQ_Sockets, APayloadMayFollowAShortLength) {
    Scene scene;
    std::unique_ptr<Client> client;
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
        client = std::make_unique<Client>(scene.path());
        client->send(shortLength);
        return ScriptedCall::kPassOn;
    }});
    ASSERT_THAT(scene.recorder.heard, SizeIs(1));
    EXPECT_EQ(partialLength(shortLength), scene.recorder.heard[0].size());
    EXPECT_EQ(payload, scene.recorder.heard[0].substr(0, payload.size()));
}

TEST(NQ_Sockets, AZeroLengthEndsTheConnectionAndWhatFollowsIsNeverRead) {
    Scene scene;
    std::unique_ptr<Client> client; // stays open: the server must not wait for it
    EXPECT_EQ(std::string(kWaiting) + kConnected + received("before") + kClosed, scene.serve({[&] {
        client = std::make_unique<Client>(scene.path());
        client->send(message("before") + lengthPrefix(0) + message("behind"));
        return ScriptedCall::kPassOn;
    }}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre("before"));
}

TEST(NQ_Sockets, AZeroLengthEndsTheConnectionOfAClientThatSendsNothingMore) {
    Scene scene;
    std::unique_ptr<Client> client;
    EXPECT_EQ(std::string(kWaiting) + kConnected + kClosed, scene.serve({[&] {
        client = std::make_unique<Client>(scene.path());
        client->send(lengthPrefix(0));
        return ScriptedCall::kPassOn;
    }}));
    EXPECT_TRUE(client->isOpen());
}

TEST(NQ_Sockets, ALengthThatCannotBeAllocatedAbandonsTheConnection) {
    Scene scene;
    const std::string printed =
        scene.serve({scene.sends(message("kept") + lengthPrefix(UINT32_MAX) + "x"),
                     scene.sends(message("next"))});
    const std::string before =
        std::string(kWaiting) + kConnected + received("kept") + "Receiving: 4294967295 bytes\n";
    const std::string after = std::string(kWaiting) + kConnected + received("next") + kClosed;
    if (sizeof(std::size_t) > 4)
        EXPECT_EQ(before + kFailed + "std::bad_alloc\n" + after, printed);
    else // the standard library refuses before it asks for memory, in words of its own
        EXPECT_THAT(printed, MatchesRegex(before + kFailed + "[^\n]+\n" + after));
    EXPECT_THAT(scene.recorder.heard, ElementsAre("kept", "next"));
}

// Failing calls and observers ------------------------------------------------------------------

TEST(NQ_Sockets, AFailingAcceptIsPrintedAndTriedAgain) {
    Scene scene;
    const std::string failure =
        std::string(kWaiting) + kFailed + "Error accepting socket connection\n\n";
    EXPECT_EQ(failure + failure + kWaiting + kConnected + received("hello") + kClosed,
              scene.serve({Scene::failsWith(EMFILE), Scene::failsWith(EINTR),
                           scene.sends(message("hello"))}));
}

TEST(NQ_Sockets, AFailingReceiveOfTheLengthAbandonsTheConnection) {
    Scene scene;
    const ScriptedCall receiving(
        Call::recv, [](int number) { return number == 1 ? EINTR : ScriptedCall::kPassOn; });
    EXPECT_EQ(std::string(kWaiting) + kConnected + kFailed +
                  "Error receiving socket data length\n\n" + kWaiting + kConnected +
                  received("two") + kClosed,
              scene.serve({scene.sends(message("one")), scene.sends(message("two"))}));
    EXPECT_THAT(scene.recorder.heard, ElementsAre("two"));
}

TEST(NQ_Sockets, AFailingReceiveOfThePayloadAbandonsTheConnection) {
    Scene scene;
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
    Scene scene;
    Recorder unreached;
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
    Scene scene;
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
    Scene scene;
    const auto before = openDescriptors();
    EXPECT_EQ("", scene.serve({}));
    EXPECT_THAT(openedSince(before), SizeIs(1));
    EXPECT_EQ(0, Client(scene.path()).error());
}

TEST(NQ_Sockets, AStopInterruptsNoConnectionInProgress) {
    Scene scene;
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
    Scene scene;
    EXPECT_EQ(std::string(kWaiting) + kFailed + "Error accepting socket connection\n\n",
              scene.serve({Scene::failsWith(ECONNABORTED)}));
}

// The listening socket and what stays open ------------------------------------------------------

TEST(NQ_Sockets, TheDirectoryCommandIsGivenToTheShell) {
    const support::CapturedCommands commands(support::CapturedCommands::runAll);
    const SocketName socketName;
    const NQ_Sockets server(socketName.name.c_str());
    EXPECT_THAT(commands.lines(), ElementsAre("[ -d /tmp/socketDDS ] || mkdir -p /tmp/socketDDS"));
}

TEST(NQ_Sockets, TheDirectoryCommandsResultIsIgnored) {
    const SocketName socketName;
    { const NQ_Sockets makesTheDirectory(socketName.name.c_str()); }
    const support::CapturedCommands commands(support::CapturedCommands::runNothing, -1);
    EXPECT_EQ("", printedBy([&] { const NQ_Sockets server(socketName.name.c_str()); }));
    EXPECT_EQ(0, Client(socketName.path).error());
}

TEST(NQ_Sockets, AMissingDirectoryIsMade) {
    support::inPrivateMounts({"/tmp"}, [] {
        EXPECT_EQ("", printedBy([] { const NQ_Sockets server("abc"); }));
        EXPECT_TRUE(support::exists("/tmp/socketDDS/abc"));
        EXPECT_EQ(0, Client("/tmp/socketDDS/abc").error());
    });
}

TEST(NQ_Sockets, ADirectoryThatCannotBeMadeShowsInBind) {
    support::inPrivateMounts({"/tmp"}, [] {
        support::writeFile("/tmp/socketDDS", "in the way");
        EXPECT_EXIT(NQ_Sockets("abc"), ExitedWithCode(1), EndsWith("bind: Not a directory\n"));
    });
}

TEST(NQ_Sockets, AStaleSocketFileIsReplaced) {
    const SocketName socketName;
    const auto before = openDescriptors();
    { const NQ_Sockets earlier(socketName.name.c_str()); }
    for (const int descriptor : openedSince(before))
        close(descriptor); // as the end of its process does
    ASSERT_EQ(ECONNREFUSED, Client(socketName.path).error());

    const NQ_Sockets server(socketName.name.c_str());
    EXPECT_EQ(0, Client(socketName.path).error());
}

TEST(NQ_Sockets, AnOrdinaryFileInTheWayIsReplaced) {
    const SocketName socketName;
    { const NQ_Sockets makesTheDirectory(socketName.name.c_str()); }
    unlink(socketName.path.c_str());
    support::writeFile(socketName.path, "not a socket");
    const NQ_Sockets server(socketName.name.c_str());
    struct stat status = {};
    ASSERT_EQ(0, lstat(socketName.path.c_str(), &status));
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(0, Client(socketName.path).error());
}

TEST(NQ_Sockets, TheLoopsSocketTakesThePlaceOfTheConstructors) {
    const SocketName socketName;
    const auto atFirst = openDescriptors();
    NQ_Sockets server(socketName.name.c_str());
    Recorder recorder;
    server.attach(&recorder);
    const auto madeByConstructor = openedSince(atFirst);
    ASSERT_THAT(madeByConstructor, SizeIs(1));

    Client early(socketName.path);
    early.send(message("too early"));
    bool stop = false;
    const ScriptedCall accepting(Call::accept, [&](int) {
        stop = true;
        Client(socketName.path).send(message("in time"));
        return ScriptedCall::kPassOn;
    });
    printedBy([&] { server.loop(stop); });

    EXPECT_THAT(recorder.heard, ElementsAre("in time"));
    int listening = 0;
    socklen_t size = sizeof listening;
    ASSERT_EQ(0,
              getsockopt(*madeByConstructor.begin(), SOL_SOCKET, SO_ACCEPTCONN, &listening, &size));
    EXPECT_EQ(1, listening) << "the constructor's socket still listens, for nobody";
}

TEST(NQ_Sockets, NoDescriptorIsEverClosed) {
    const auto before = openDescriptors();
    {
        Scene scene;
        EXPECT_THAT(openedSince(before), SizeIs(1));
        // A complete visit, one that a bad length ends, and one that an observer's exception ends.
        scene.recorder.alsoDo = [&] {
            if (scene.recorder.heard.back() == "bad")
                throw std::runtime_error("bad");
        };
        scene.serve({scene.sends(message("one")), scene.sends(lengthPrefix(UINT32_MAX)),
                     scene.sends(message("bad"))});
        EXPECT_THAT(openedSince(before), SizeIs(1 + 1 + 3));
    }
    EXPECT_THAT(openedSince(before), SizeIs(5)) << "the destructor closes nothing";
}

TEST(NQ_Sockets, TheDestructorLeavesTheSocketFile) {
    const SocketName socketName;
    { const NQ_Sockets server(socketName.name.c_str()); }
    EXPECT_TRUE(support::exists(socketName.path));
    EXPECT_EQ(0, Client(socketName.path).error()) << "its descriptor still listens";
}

TEST(NQ_Sockets, ListensWithABacklogOfFive) {
    const SocketName socketName;
    const NQ_Sockets server(socketName.name.c_str());
    std::vector<std::unique_ptr<Client>> clients;
    do {
        clients.push_back(std::make_unique<Client>(socketName.path, SOCK_NONBLOCK));
    } while (clients.back()->error() == 0 && clients.size() < 100);
    EXPECT_EQ(EAGAIN, clients.back()->error());
    EXPECT_THAT(clients, SizeIs(5 + 1 + 1)) << "Linux queues one more than the backlog";
}

// Names and set-up failures -----------------------------------------------------------------------

/// A name whose path has `length` bytes.
std::string nameFor(std::size_t length) {
    const std::string name = SocketName().name + "-";
    return name + std::string(length - kDirectory.size() - name.size(), 'n');
}

TEST(NQ_Sockets, APathMayFillTheAddress) {
    for (const std::size_t length : {kAddressPath - 1, kAddressPath}) {
        const std::string name = nameFor(length);
        const std::string path = kDirectory + name;
        ASSERT_EQ(length, path.size());
        NQ_Sockets server(name.c_str());
        EXPECT_TRUE(support::exists(path));
        EXPECT_EQ(0, Client(path).error());
        unlink(path.c_str());
    }
}

TEST(NQ_Sockets, ALongerPathEndsTheProcessInBind) {
    for (const std::size_t length : {kAddressPath + 1, kAddressPath + 12, std::size_t(1000)}) {
        EXPECT_EXIT(NQ_Sockets(nameFor(length).c_str()), ExitedWithCode(1),
                    Eq("bind: Invalid argument\n"));
    }
}

TEST(NQ_Sockets, ANullNameIsPrintedAndTheObjectStays) {
    const auto before = openDescriptors();
    EXPECT_EQ("Some error on kvr::api::com::NQ_Sockets::NQ_Sockets\n", printedBy([] {
                  NQ_Sockets server(nullptr);
                  EXPECT_EQ("", server.getLastMessage());
              }));
    EXPECT_THAT(openedSince(before), IsEmpty());
}

TEST(NQ_Sockets, AFailingSocketEndsTheProcess) {
    EXPECT_EXIT(
        {
            const ScriptedCall fails(Call::socket, EMFILE);
            const NQ_Sockets server("never");
        },
        ExitedWithCode(1), Eq("socket: Too many open files\n"));
}

TEST(NQ_Sockets, AFailingBindEndsTheProcess) {
    EXPECT_EXIT(
        {
            const ScriptedCall fails(Call::bind, EACCES);
            const NQ_Sockets server("never");
        },
        ExitedWithCode(1), Eq("bind: Permission denied\n"));
}

TEST(NQ_Sockets, AFailingListenEndsTheProcess) {
    const SocketName socketName;
    EXPECT_EXIT(
        {
            const ScriptedCall fails(Call::listen, EOPNOTSUPP);
            const NQ_Sockets server(socketName.name.c_str());
        },
        ExitedWithCode(1), Eq("listen: Operation not supported\n"));
}

TEST(NQ_Sockets, ALoopThatCannotListenEndsTheProcessToo) {
    Scene scene;
    scene.stop = true;
    EXPECT_EXIT(
        {
            const ScriptedCall fails(Call::socket, ENOBUFS);
            scene.server.loop(scene.stop);
        },
        ExitedWithCode(1), Eq("socket: No buffer space available\n"));
}

TEST(NQ_Sockets, InitSocketSrvMakesAFreshSocket) {
    Scene scene;
    const auto before = openDescriptors();
    scene.server.initSocketSrv();
    EXPECT_THAT(openedSince(before), SizeIs(1));
    EXPECT_EQ(0, Client(scene.path()).error());
}

} // namespace
