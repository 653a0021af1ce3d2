#include <kvr/api/com/NQ_Sockets.h>

#include "CapturedCommands.h"
#include "CapturedOutput.h"
#include "Descriptors.h"
#include "PrivateMounts.h"
#include "ScriptedCalls.h"
#include "SocketFixture.h"
#include "TempDir.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::com::NQ_Sockets;
using support::Call;
using support::kAddressPath;
using support::kSocketDirectory;
using support::lengthPrefix;
using support::message;
using support::MessageRecorder;
using support::openDescriptors;
using support::openedSince;
using support::printedBy;
using support::ScriptedCall;
using support::SocketClient;
using support::SocketFixture;
using support::SocketName;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Eq;
using testing::ExitedWithCode;
using testing::IsEmpty;
using testing::SizeIs;

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
    EXPECT_EQ(0, SocketClient(socketName.path).error());
}

TEST(NQ_Sockets, AMissingDirectoryIsMade) {
    support::inPrivateMounts({"/tmp"}, [] {
        EXPECT_EQ("", printedBy([] { const NQ_Sockets server("abc"); }));
        EXPECT_TRUE(support::exists("/tmp/socketDDS/abc"));
        EXPECT_EQ(0, SocketClient("/tmp/socketDDS/abc").error());
    });
}

TEST(NQ_Sockets, ADirectoryThatCannotBeCreatedMakesBindFail) {
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
        close(descriptor); // as when its process ends
    ASSERT_EQ(ECONNREFUSED, SocketClient(socketName.path).error());

    const NQ_Sockets server(socketName.name.c_str());
    EXPECT_EQ(0, SocketClient(socketName.path).error());
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
    EXPECT_EQ(0, SocketClient(socketName.path).error());
}

TEST(NQ_Sockets, TheLoopsSocketTakesThePlaceOfTheConstructors) {
    const SocketName socketName;
    const auto atFirst = openDescriptors();
    NQ_Sockets server(socketName.name.c_str());
    MessageRecorder recorder;
    server.attach(&recorder);
    const auto madeByConstructor = openedSince(atFirst);
    ASSERT_THAT(madeByConstructor, SizeIs(1));

    SocketClient early(socketName.path);
    early.send(message("too early"));
    bool stop = false;
    const ScriptedCall accepting(Call::accept, [&](int) {
        stop = true;
        SocketClient(socketName.path).send(message("in time"));
        return ScriptedCall::kPassOn;
    });
    printedBy([&] { server.loop(stop); });

    EXPECT_THAT(recorder.messages, ElementsAre("in time"));
    int listening = 0;
    socklen_t size = sizeof listening;
    ASSERT_EQ(0,
              getsockopt(*madeByConstructor.begin(), SOL_SOCKET, SO_ACCEPTCONN, &listening, &size));
    EXPECT_EQ(1, listening) << "the constructor's socket still listens, for nobody";
}

TEST(NQ_Sockets, NoDescriptorIsEverClosed) {
    const auto before = openDescriptors();
    {
        SocketFixture fixture;
        EXPECT_THAT(openedSince(before), SizeIs(1));
        // Five connections: a complete one, one with an invalid length, one whose observer throws, and
        // two with a failing recv(). The first of those fails for the length, the second for the
        // payload.
        const ScriptedCall receiving(Call::recv, [](int number) {
            return number == 8 || number == 10 ? ECONNRESET : ScriptedCall::kPassOn;
        });
        fixture.recorder.onUpdate = [&] {
            if (fixture.recorder.messages.back() == "bad")
                throw std::runtime_error("bad");
        };
        fixture.serve({fixture.sends(message("one")), fixture.sends(lengthPrefix(UINT32_MAX)),
                       fixture.sends(message("bad")), fixture.sends(message("lost")),
                       fixture.sends(message("lost"))});
        EXPECT_EQ(10, receiving.count());
        EXPECT_THAT(openedSince(before), SizeIs(1 + 1 + 5));
    }
    EXPECT_THAT(openedSince(before), SizeIs(7)) << "the destructor closes nothing";
}

TEST(NQ_Sockets, TheDestructorLeavesTheSocketFile) {
    const SocketName socketName;
    { const NQ_Sockets server(socketName.name.c_str()); }
    EXPECT_TRUE(support::exists(socketName.path));
    EXPECT_EQ(0, SocketClient(socketName.path).error()) << "its descriptor still listens";
}

TEST(NQ_Sockets, ListensOnAPlainStreamSocket) {
    const SocketName socketName;
    const auto before = openDescriptors();
    const NQ_Sockets server(socketName.name.c_str());
    const auto opened = openedSince(before);
    ASSERT_THAT(opened, SizeIs(1));
    const int descriptor = *opened.begin();
    int type = 0;
    socklen_t size = sizeof type;
    ASSERT_EQ(0, getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size));
    EXPECT_EQ(SOCK_STREAM, type);
    EXPECT_EQ(0, fcntl(descriptor, F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(0, fcntl(descriptor, F_GETFL) & O_NONBLOCK);
}

TEST(NQ_Sockets, ListensWithABacklogOfFive) {
    const SocketName socketName;
    const NQ_Sockets server(socketName.name.c_str());
    std::vector<std::unique_ptr<SocketClient>> clients;
    do {
        clients.push_back(std::make_unique<SocketClient>(socketName.path, SOCK_NONBLOCK));
    } while (clients.back()->error() == 0 && clients.size() < 100);
    EXPECT_EQ(EAGAIN, clients.back()->error());
    EXPECT_THAT(clients, SizeIs(5 + 1 + 1)) << "Linux queues one more than the backlog";
}

// Names and set-up failures -----------------------------------------------------------------------

/// Returns a name whose path has `length` bytes.
std::string nameFor(std::size_t length) {
    const std::string name = SocketName().name + "-";
    return name + std::string(length - kSocketDirectory.size() - name.size(), 'n');
}

TEST(NQ_Sockets, APathMayFillTheAddress) {
    for (const std::size_t length : {kAddressPath - 1, kAddressPath}) {
        const std::string name = nameFor(length);
        const std::string path = kSocketDirectory + name;
        ASSERT_EQ(length, path.size());
        NQ_Sockets server(name.c_str());
        EXPECT_TRUE(support::exists(path));
        EXPECT_EQ(0, SocketClient(path).error());
        support::removeSocketFile(path);
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
        ExitedWithCode(1), Eq(std::string("socket: ") + std::strerror(EMFILE) + "\n"));
}

TEST(NQ_Sockets, AProcessThatEndsRunsItsExitHandlers) {
    EXPECT_EXIT(
        {
            std::atexit([] { std::fputs("handler\n", stderr); });
            const ScriptedCall fails(Call::socket, EMFILE);
            const NQ_Sockets server("never");
        },
        ExitedWithCode(1), Eq(std::string("socket: ") + std::strerror(EMFILE) + "\nhandler\n"));
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
        ExitedWithCode(1), Eq(std::string("listen: ") + std::strerror(EOPNOTSUPP) + "\n"));
}

TEST(NQ_Sockets, ALoopThatCannotListenEndsTheProcessToo) {
    SocketFixture fixture;
    fixture.stop = true;
    EXPECT_EXIT(
        {
            const ScriptedCall fails(Call::socket, ENOBUFS);
            fixture.server.loop(fixture.stop);
        },
        ExitedWithCode(1), Eq("socket: No buffer space available\n"));
}

TEST(NQ_Sockets, InitSocketSrvMakesAFreshSocket) {
    SocketFixture fixture;
    const auto before = openDescriptors();
    fixture.server.initSocketSrv();
    EXPECT_THAT(openedSince(before), SizeIs(1));
    EXPECT_EQ(0, SocketClient(fixture.path()).error());
}

} // namespace
