// tavo-rpc, with the agent at the other end.

#include "AgentInSandbox.h"
#include "Waiting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::readFile;

namespace {

constexpr char kSendTry[] = "Try 'tavo-rpc --help' for more information.\n";

TEST(tavo_rpc, SendsEachFileAsOneMessage) {
    AgentInSandbox agent({"--allow", "sh"});
    support::writeFile(agent.file("/tmp/a.json"), request("none", "{}", 1));
    support::writeFile(agent.file("/tmp/b.json"), request("none", "{}", 2) + "\n");
    // Programs that the agent runs are in its gateway, where they find its socket.
    const auto inside = [&](const std::string& arguments) {
        Client(agent.socketPath())
            .send(R"({"jsonrpc":"2.0","method":"process.run","params":{"command":"sh",)"
                  R"("arguments":["-c",")" TAVO_RPC " agent " +
                  arguments + " </tmp/a.json >>/tmp/sent 2>&1; echo status $? >>/tmp/sent\"]}}");
    };
    inside("/tmp/b.json /tmp/a.json");
    ASSERT_TRUE(agent.waitForResponses(2));
    inside("");
    inside("/tmp/b.json -");
    ASSERT_TRUE(agent.waitForResponses(5));
    std::string ids;
    for (const std::string& response : agent.responses())
        ids += response.substr(response.find("\"id\":") + 5, 1);
    EXPECT_EQ("21121", ids);
    EXPECT_EQ("status 0\nstatus 0\nstatus 0\n", agent.read("/tmp/sent"));
}

TEST(tavo_rpc, SaysWhatItCannotSend) {
    const auto expectFailure = [](const std::string& arguments, const std::string& why) {
        const support::Ran ran =
            runInSandbox({"sh", "-c", "mkdir /tmp/d; : >/tmp/empty; " TAVO_RPC " " + arguments});
        EXPECT_EQ(1, ran.status);
        EXPECT_EQ("tavo-rpc: " + why + "\n", ran.err);
    };
    expectFailure("nobody /etc/config/network", "/tmp/socketDDS/nobody: No such file or directory");
    expectFailure("nobody /tmp/missing", "/tmp/missing: No such file or directory");
    expectFailure("nobody /tmp/d", "/tmp/d: Is a directory");
    expectFailure("nobody /tmp/empty",
                  "/tmp/empty: empty (an empty message would end the connection)");
    expectFailure(std::string(100, 'n') + " /etc/config/network",
                  "the name is too long for a socket");
}

TEST(tavo_rpc, SendsNothingToADirectoryThatOthersControl) {
    const auto expectRefusal = [](const std::string& directory, const std::string& why) {
        const support::Ran ran = runInSandbox(
            {"sh", "-c", "mkdir /tmp/socketDDS; " + directory + "; echo {} | " TAVO_RPC " agent"});
        EXPECT_EQ(1, ran.status);
        EXPECT_EQ("tavo-rpc: /tmp/socketDDS" + why + "\n", ran.err);
    };
    expectRefusal("chmod 0777 /tmp/socketDDS",
                  " can be written to by others and has no sticky bit");
    expectRefusal("chmod 1777 /tmp/socketDDS", "/agent: No such file or directory");
    const std::string foreign = "chown 12345 /tmp/socketDDS";
    if (runInSandbox({"sh", "-c", "mkdir /tmp/socketDDS && " + foreign}).status != 0)
        GTEST_SKIP() << "a directory of another user's takes root";
    expectRefusal(foreign, " belongs to another user");
}

TEST(tavo_rpc, WarnsOfWhatMayArriveCutAndGivesUpWhenItIsNotTaken) {
    AgentInSandbox agent({"--allow", "sh"});
    support::writeFile(agent.file("/tmp/large"), std::string(40000, ' '));
    support::writeFile(agent.file("/tmp/huge"), std::string(1 << 20, 'a'));
    Client(agent.socketPath())
        .send(R"({"jsonrpc":"2.0","method":"process.run","params":{"command":"sh",)"
              R"("arguments":["-c","(exec >/tmp/sent 2>&1; for f in large huge; do )" TAVO_RPC
              R"( agent /tmp/$f; echo status $?; done) &"]}})");
    ASSERT_TRUE(support::eventually([&] {
        return support::exists(agent.file("/tmp/sent")) &&
               readFile(agent.file("/tmp/sent")).find("status 1\n") != std::string::npos;
    }));
    EXPECT_EQ("tavo-rpc: /tmp/large: 40000 bytes may not arrive in one piece\n"
              "status 0\n"
              "tavo-rpc: /tmp/huge: 1048576 bytes may not arrive in one piece\n"
              "tavo-rpc: /tmp/huge: the server does not take the whole message\n"
              "status 1\n",
              agent.read("/tmp/sent"));
}

TEST(tavo_rpc, ExplainsItselfAndRefusesWrongCommandLines) {
    EXPECT_THAT(support::runProgram({TAVO_RPC, "--help"}).out,
                testing::StartsWith("Usage: tavo-rpc NAME [FILE...]\n"));
    const support::Ran none = support::runProgram({TAVO_RPC});
    EXPECT_EQ(2, none.status);
    EXPECT_EQ(std::string("tavo-rpc: the NAME of the socket is missing\n") + kSendTry, none.err);
    const support::Ran unknown = support::runProgram({TAVO_RPC, "--fast", "a"});
    EXPECT_EQ(2, unknown.status);
    EXPECT_EQ(std::string("tavo-rpc: unrecognized option '--fast'\n") + kSendTry, unknown.err);
}

} // namespace
