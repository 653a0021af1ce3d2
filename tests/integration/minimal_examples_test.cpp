// The programs of examples/minimal, run as a reader tries them.

#include "Broker.h"
#include "Certificates.h"
#include "FakePrograms.h"
#include "Port.h"
#include "PrivateMounts.h"
#include "RunProgram.h"
#include "TempDir.h"
#include "Waiting.h"

#include <csignal>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::Broker;
using support::eventually;
using support::ProgramResult;
using support::readFile;
using support::RunningProgram;
using support::runProgram;
using support::TempDir;
using testing::ElementsAre;
using testing::HasSubstr;

std::string program(const std::string& name) { return std::string(TAVO_MINIMAL) + "/" + name; }

/// Returns the standard output of a program that must succeed and print no errors.
std::string outputOf(const std::vector<std::string>& command, const std::string& input = "") {
    const ProgramResult ran = runProgram(command, {}, input);
    EXPECT_EQ(0, ran.status) << ran.err;
    EXPECT_EQ("", ran.err);
    return ran.out;
}

/// Runs programs on a simulated gateway and keeps its files for inspection.
class MinimalOnAGateway : public testing::Test {
protected:
    ProgramResult run(const std::string& name) const {
        return runProgram({TAVO_SANDBOX_RUN, "--root", directory_ / "root", program(name)},
                          {std::string("TAVO_BUILD_DIR=") + TAVO_BUILD_DIR});
    }
    std::string file(const std::string& path) const {
        return readFile(directory_ / ("root" + path));
    }

private:
    TempDir directory_;
};

/// The socket file alone is too early: the server's loop creates it again, and the first one loses
/// its clients.
void waitForLoop(const RunningProgram& server) {
    ASSERT_TRUE(eventually([&] {
        return server.outSoFar().find("Waiting for a connection...\n") != std::string::npos;
    }));
}

TEST(MinimalJson, BuildsAndWalksADocument) {
    EXPECT_EQ(R"({ "name": "gateway-7", "uptime": 3600, "load": 0.25, )"
              R"("ports": [ "eth0", "wwan0" ], "modem": { "operator": "Example" } })"
              "\n60 minutes, load 0.25, Example\nport eth0\nport wwan0\nload is a number\n",
              outputOf({program("json")}));
}

TEST(MinimalLog, AppendsItsLinesToTheLog) {
    support::inPrivateMounts({"/tmp"}, [] {
        EXPECT_EQ("", outputOf({program("log")}));
        EXPECT_EQ("INFO: started\nDEBUG: answer took 12 ms\nERROR: no answer\n"
                  "DEBUG: state: idle\nDEBUG: clients: 0\n",
                  readFile("/tmp/log.out"));
    });
}

TEST(MinimalTextAndTime, SplitsAndConverts) {
    EXPECT_EQ("4 fields, the last is \" 1000 Mbit/s\"\n1577934245 s and 123000 us\n"
              "a day later: 2020-01-03T03:04:05.123Z\nwaited\n",
              outputOf({program("text_and_time")}));
}

TEST(MinimalRpc, AnswersOneRequestAndRefusesTheOther) {
    EXPECT_EQ("{ \"id\": \"1\", \"result\": \"Hello, Ada\" }\nthere is no such method\n",
              outputOf({program("rpc")}));
}

TEST(MinimalSocket, ServerReceivesWhatTheSenderSends) {
    support::inPrivateMounts({"/tmp"}, [] {
        RunningProgram server({program("socket_server")});
        waitForLoop(server);
        EXPECT_EQ("", outputOf({program("socket_sender"), "hello"}));
        EXPECT_EQ("", outputOf({program("socket_sender")}));
        const ProgramResult ran = server.wait();
        EXPECT_EQ(0, ran.status);
        EXPECT_THAT(ran.out, HasSubstr("got \"hello\"\n"));
        EXPECT_THAT(ran.out, HasSubstr("got \"stop\"\n"));
    });
}

TEST(MinimalSocket, SenderReportsAMissingServer) {
    support::inPrivateMounts({"/tmp"}, [] {
        const ProgramResult ran = runProgram({program("socket_sender"), "hello"});
        EXPECT_EQ(1, ran.status);
        EXPECT_EQ("socket_sender: No such file or directory\n", ran.err);
    });
}

TEST(MinimalAnswer, AnswersOverMqttUnderTheRequestsIdentifier) {
    const Broker broker;
    broker.createSession("caller", "minimal/answers");
    support::inPrivateMounts({"/tmp"}, [&] {
        RunningProgram answerer({program("answer"), std::to_string(broker.port())});
        waitForLoop(answerer);
        // socket_sender uses the same wire format, so it can send this request.
        EXPECT_EQ("", outputOf({program("socket_sender"), R"({"id":"7","method":"stop"})"}));
        EXPECT_EQ(0, answerer.wait().status);
    });
    EXPECT_THAT(broker.receiveQueued("caller", "minimal/answers", 1),
                ElementsAre(R"(minimal/answers 1 0 { "id": "7", "result": "done" })"));
}

TEST_F(MinimalOnAGateway, UciChangesASectionAndReadsItBack) {
    const ProgramResult ran = run("uci");
    EXPECT_EQ(0, ran.status) << ran.err;
    EXPECT_THAT(ran.out, HasSubstr("lan is 192.168.7.1\n"));
    EXPECT_THAT(file("/etc/config/network"), HasSubstr("\toption mtu '1400'\n"));
    EXPECT_EQ("network restart\n", file("/tmp/init.d.log"));
}

TEST_F(MinimalOnAGateway, PlaceFileWritesTheFileAndRestartsTheApplication) {
    const ProgramResult ran = run("place_file");
    EXPECT_EQ(0, ran.status) << ran.err;
    EXPECT_EQ(R"({"portID":"2"})", file("/opt/apps/ZEQ/cfg/ZEQ.json"));
    EXPECT_THAT(file("/tmp/init.d.log"), HasSubstr("ZEQ"));
}

TEST_F(MinimalOnAGateway, DeviceInfoFindsTheGateway) {
    const ProgramResult ran = run("device_info");
    EXPECT_EQ(0, ran.status) << ran.err;
    EXPECT_THAT(ran.out, HasSubstr("device_info in " + std::string(TAVO_MINIMAL) + "\n"));
    EXPECT_THAT(ran.out, HasSubstr("\nserial number "));
    EXPECT_THAT(ran.out, HasSubstr("\nserial port RS232\n"));
    EXPECT_THAT(ran.out, HasSubstr("\nNode-RED: yes\n"));
}

TEST_F(MinimalOnAGateway, BoardSetsTheLed) {
    const ProgramResult ran = run("board");
    EXPECT_EQ(0, ran.status) << ran.err;
    EXPECT_EQ("temperature 41\n", ran.out);
    EXPECT_THAT(file("/tmp/gpio.state"), HasSubstr("led_usr 0\n"));
}

TEST(MinimalBoard, ReportsAMissingBoard) {
    support::inPrivateMounts({"/dev"}, [] {
        const ProgramResult ran = runProgram({program("board")});
        EXPECT_EQ(1, ran.status);
        EXPECT_EQ("no LED: No such file or directory\n", ran.err);
    });
}

TEST(MinimalRunProgram, RunsThreeProgramsInThreeWays) {
    EXPECT_EQ("$HOME; a b\nraw wait status 0\nline: working\nexit code 3\na\nb\nexit code 3\n",
              outputOf({program("run_program")}));
}

TEST(MinimalWatch, PrintsTheFilesThatAreWritten) {
    const TempDir directory;
    RunningProgram watch({program("watch"), directory.path(), "60"});
    ASSERT_TRUE(eventually([&] { return watch.outSoFar() == "watching\n"; }));
    support::writeFile(directory / "news", "text");
    EXPECT_TRUE(
        eventually([&] { return watch.outSoFar() == "watching\n" + (directory / "news") + "\n"; }));
    kill(watch.pid(), SIGKILL); // otherwise it runs for a minute
    watch.wait();
}

TEST(MinimalAutomount, MountsTheDeviceAndUnmountsItAtTheEnd) {
    support::FakePrograms programs;
    programs.add("mount");
    programs.add("umount");
    const TempDir directory;
    support::writeFile(directory / "song", "la");
    // A node that always exists; the fake programs above prevent any mount.
    const std::string out = outputOf({program("automount"), "null", directory.path()}, "\n");
    EXPECT_THAT(out, HasSubstr("1 entries\n"));
    EXPECT_THAT(out, HasSubstr("ejected\n"));
}

TEST(MinimalPublish, PublishesOverTlsAndLeavesItsState) {
    const support::Certificates certificates;
    const Broker broker(certificates.settings(true));
    const std::string port = std::to_string(broker.port());
    EXPECT_EQ("", outputOf({program("publish"), "127.0.0.1", port, certificates.directory.path()}));
}

TEST(MinimalPublish, NamesABrokerThatDoesNotAnswer) {
    const support::Port unused;
    const std::string port = std::to_string(unused.number());
    const ProgramResult ran = runProgram({program("publish"), "127.0.0.1", port, "/nowhere"});
    EXPECT_EQ(1, ran.status);
    EXPECT_EQ("cannot connect to ssl://127.0.0.1:" + port + "\n", ran.err);
}

TEST(MinimalEncrypt, EncryptsAndDecryptsAText) {
    const std::string out = outputOf({program("encrypt")});
    EXPECT_THAT(out, testing::MatchesRegex("[A-Za-z0-9+/=]{24}\nthe port is 502\n"));
}

TEST(MinimalLineChannel, EchoesCommandsUntilStop) {
    RunningProgram channel({program("line_channel")}, {}, "hello\nstop\n");
    const ProgramResult ran = channel.wait();
    EXPECT_EQ(0, ran.status);
    EXPECT_EQ("hello\nunknown command\nstop\n", ran.out);
}

} // namespace
