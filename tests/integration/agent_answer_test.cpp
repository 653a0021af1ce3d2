// Responses on the request's own connection, for requests with "answer": true.

#include "AgentInSandbox.h"
#include "Waiting.h"

#include <csignal>
#include <fstream>
#include <string>

#include <sys/socket.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::AgentInSandbox;
using support::Client;
using support::error;
using support::request;
using testing::HasSubstr;

/// Returns a request with "answer": true.
std::string asking(const std::string& method, const std::string& params, int id = 1) {
    return "{\"answer\":true," + request(method, params, id).substr(1);
}

const std::string kNone = error("1", -32601, "Method not found", "there is no method \\\"none\\\"");
const std::string kCutOff = "ERROR: tavo-agent: the response could not be sent back\n";

TEST(tavo_agent_answer, IsTheResponseOnStandardOutput) {
    AgentInSandbox agent;
    Client client(agent.socketPath());
    ASSERT_TRUE(client.send(asking("system.describe", "{}")));
    const std::string answer = client.receive();
    EXPECT_THAT(answer, HasSubstr("\"result\":{\"methods\":["));
    EXPECT_EQ(answer, agent.responses().at(0));
}

TEST(tavo_agent_answer, ComesForEachRequestOfAConnectionInOrder) {
    AgentInSandbox agent;
    Client client(agent.socketPath());
    for (int id = 1; id <= 20; ++id)
        ASSERT_TRUE(client.send(asking("none", "{}", id)));
    for (int id = 1; id <= 20; ++id)
        EXPECT_THAT(client.receive(), HasSubstr("\"id\":" + std::to_string(id) + ","));
}

TEST(tavo_agent_answer, ComesOnlyWhenItIsAskedFor) {
    AgentInSandbox agent;
    Client client(agent.socketPath());
    ASSERT_TRUE(client.send(request("none", "{}", 2)));
    ASSERT_TRUE(client.send("{\"answer\":false," + request("none", "{}", 3).substr(1)));
    ASSERT_TRUE(client.send("[" + asking("none", "{}", 4) + "]"));
    ASSERT_TRUE(client.send(R"({"answer":true,"jsonrpc":"2.0","method":"none"})"));
    ASSERT_TRUE(client.send(asking("none", "{}")));
    EXPECT_EQ(kNone, client.receive());
    EXPECT_EQ(4u, agent.responses().size());
}

TEST(tavo_agent_answer, IsNotTheResultOfAnotherMember) {
    AgentInSandbox agent;
    for (const char* value : {"1", "\"true\"", "null", "[true]", "{}"})
        EXPECT_EQ(error("1", -32600, "Invalid Request", "\\\"answer\\\" must be true or false"),
                  agent.call(std::string("{\"answer\":") + value + "," +
                             request("none", "{}").substr(1)));
}

/// Returns whether this user's sockets may buffer this many bytes.
bool mayKeep(int bytes) {
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int room = 0;
    socklen_t length = sizeof room;
    if (setsockopt(descriptor, SOL_SOCKET, SO_SNDBUFFORCE, &bytes, sizeof bytes) != 0)
        setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
    getsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &room, &length);
    close(descriptor);
    return room >= 2 * bytes;
}

TEST(tavo_agent_answer, MayBeLong) {
    if (!mayKeep(1024 * 1024))
        GTEST_SKIP() << "only root may enlarge a socket's buffer that far";
    AgentInSandbox agent({"--allow", "sh"});
    Client client(agent.socketPath());
    // 256 KiB of bytes that are not UTF-8 become three times as long.
    ASSERT_TRUE(
        client.send(asking("process.run", R"({"command":"sh","arguments":["-c",)"
                                          R"("head -c 262144 /dev/zero | tr '\\0' '\\377'"]})")));
    ASSERT_TRUE(agent.waitForResponses(1));
    EXPECT_EQ(agent.responses().at(0), client.receive());
    EXPECT_GT(agent.responses().at(0).size(), 3u * 262144u);
}

TEST(tavo_agent_answer, IsNotWaitedForWhenTheClientDoesNotRead) {
    // The idle limit must not end the connection.
    AgentInSandbox agent({"--allow", "sh", "--idle", "3600"});
    Client client(agent.socketPath());
    const std::string large =
        asking("process.run",
               R"({"command":"sh","arguments":["-c","head -c 100000 /dev/zero | tr '\\0' a"]})");
    for (int i = 0; i < 20; ++i)
        client.send(large); // fails after the agent has closed the connection
    ASSERT_TRUE(
        support::eventually([&] { return agent.log().find(kCutOff) != std::string::npos; }));
    Client other(agent.socketPath());
    ASSERT_TRUE(other.send(asking("none", "{}")));
    EXPECT_EQ(kNone, other.receive());
}

TEST(tavo_agent_answer, ToAClientThatHasGoneIsDropped) {
    AgentInSandbox agent({"--allow", "sh"});
    {
        // Keeps the agent busy until the next client has gone.
        Client first(agent.socketPath());
        ASSERT_TRUE(first.send(
            asking("process.run", R"({"command":"sh","arguments":["-c",)"
                                  R"("mkfifo /tmp/tavo-test-go; read x </tmp/tavo-test-go"]})")));
        const std::string fifo = agent.file("/tmp/tavo-test-go");
        ASSERT_TRUE(support::eventually([&] { return support::exists(fifo); }));
        ASSERT_TRUE(Client(agent.socketPath()).send(asking("none", "{}", 2)));
        std::ofstream(fifo) << '\n';
        EXPECT_THAT(first.receive(), HasSubstr("\"result\""));
    }
    Client other(agent.socketPath());
    ASSERT_TRUE(other.send(asking("none", "{}")));
    EXPECT_EQ(kNone, other.receive());
    EXPECT_THAT(agent.log(), HasSubstr(kCutOff));
    EXPECT_EQ(0, agent.end(SIGTERM).status);
}

TEST(tavo_agent_answer, ComesAlsoToARequestThatTheEndFindsInProgress) {
    AgentInSandbox agent({"--allow", "sh"});
    Client client(agent.socketPath());
    ASSERT_TRUE(client.send(asking(
        "process.run",
        R"({"command":"sh","arguments":["-c","echo >/tmp/tavo-test-began; read x </dev/zero"]})")));
    ASSERT_TRUE(
        support::eventually([&] { return support::exists(agent.file("/tmp/tavo-test-began")); }));
    agent.signal(SIGTERM);
    EXPECT_THAT(client.receive(), HasSubstr("\"signal\":"));
    EXPECT_EQ(0, agent.wait().status);
}

} // namespace
