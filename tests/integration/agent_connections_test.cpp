// Connections to the agent's socket: a large number of them, and clients that send nothing.

#include "AgentInSandbox.h"
#include "Waiting.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::AgentInSandbox;
using support::Client;
using support::eventually;
using support::request;
using testing::HasSubstr;
using testing::Not;
using Clock = std::chrono::steady_clock;

const std::string kDescribe = request("system.describe", "{}");

/// A wrapper that records the agent's process id and the number of its inherited descriptors.
const std::string kRecordingItself =
    "echo $$ >/tmp/agent.pid; ls /proc/$$/fd | wc -l >/tmp/agent.inherited; exec \"$@\"";

pid_t processOf(const AgentInSandbox& agent) { return std::stoi(agent.read("/tmp/agent.pid")); }

/// Counts the standard descriptors and those that the agent has opened.
std::ptrdiff_t descriptorsOf(const AgentInSandbox& agent) {
    const std::filesystem::directory_iterator all("/proc/" + std::to_string(processOf(agent)) +
                                                  "/fd");
    const int inherited = std::stoi(agent.read("/tmp/agent.inherited"));
    return std::distance(begin(all), end(all)) - inherited + 3;
}

/// Clients that connect and send nothing. The server's queue is short, so most of them block in
/// connect(). Their threads end with the server.
class SilentClients {
public:
    SilentClients(const AgentInSandbox& agent, int count) {
        for (int i = 0; i < count; ++i)
            threads_.emplace_back([this, path = agent.socketPath()] {
                ++begun_;
                try {
                    const Client client(path);
                    ++connected_;
                    eventually([&] { return ended_.load(); });
                } catch (const std::runtime_error&) {
                    // refused, because the server has ended
                }
            });
        // One is connected to the server, six fill the queue.
        if (!eventually([&] { return begun_ == count && connected_ == 7; }))
            throw std::runtime_error("only " + std::to_string(connected_) + " are connected");
    }

    ~SilentClients() {
        ended_ = true;
        for (std::thread& thread : threads_)
            thread.join();
    }

private:
    std::atomic<int> begun_{0};
    std::atomic<int> connected_{0};
    std::atomic<bool> ended_{false};
    std::vector<std::thread> threads_;
};

// Descriptors

TEST(tavo_agent_connections, AreClosedSoThatDescriptorsNeverRunOut) {
    AgentInSandbox agent("ulimit -n 256; " + kRecordingItself, {});
    const pid_t process = processOf(agent);
    const std::size_t count = TAVO_CONNECTIONS;
    for (std::size_t i = 1; i <= count; ++i) {
        ASSERT_TRUE(Client(agent.socketPath()).send(request("none", "{}", static_cast<int>(i))));
        if (i % 1000 == 0) {
            ASSERT_TRUE(agent.waitForResponses(i));
        }
    }
    ASSERT_TRUE(agent.waitForResponses(count));
    const std::vector<std::string> responses = agent.responses();
    ASSERT_EQ(count, responses.size());
    for (std::size_t i = 0; i < count; ++i)
        ASSERT_THAT(responses[i], HasSubstr("\"id\":" + std::to_string(i + 1) + ","));
    EXPECT_EQ(process, processOf(agent));
    EXPECT_LE(descriptorsOf(agent), 10);
    EXPECT_EQ(0, agent.end(SIGTERM).status);
}

TEST(tavo_agent_connections, AreAcceptedByTheProgramsOwnFunction) {
    // The library calls the function that the program exports, otherwise the C library's.
    EXPECT_THAT(support::runProgram({"nm", "-D", "--defined-only", TAVO_AGENT}).out,
                HasSubstr(" T accept\n"));
}

TEST(tavo_agent_connections, LeaveTheLimitOfDescriptorsAsItIs) {
    AgentInSandbox agent("ulimit -S -n 99; exec \"$@\"", {"--allow", "sh"});
    EXPECT_THAT(
        agent.call(request("process.run", R"({"command":"sh","arguments":["-c","ulimit -n"]})")),
        HasSubstr("\"output\":\"99\\n\""));
}

TEST(tavo_agent_connections, AreNotPassedOnToPrograms) {
    AgentInSandbox agent({"--allow", "sh"});
    // ls may miss a descriptor that the shell closes meanwhile, and reports that.
    EXPECT_THAT(agent.call(request("process.run",
                                   R"({"command":"sh","arguments":["-c",)"
                                   R"("ls -l /proc/$$/fd 2>/dev/null | grep -c socket:"]})")),
                HasSubstr("\"output\":\"0\\n\""));
}

TEST(tavo_agent_connections, AreNotServedByAProgramThatOutlivesTheAgent) {
    AgentInSandbox agent("\"$@\" & echo $! >/tmp/agent.pid; exec sleep 100", {"--allow", "sh"});
    agent.call(request("process.run",
                       R"({"command":"sh","arguments":["-c",)"
                       R"("sleep 100 >/dev/null 2>&1 & echo $! >/tmp/tavo-test-left"]})"));
    kill(processOf(agent), SIGKILL);
    // A zombie without other threads; its parent does not reap it.
    const std::string process = "/proc/" + std::to_string(processOf(agent));
    ASSERT_TRUE(eventually([&] {
        const std::filesystem::directory_iterator threads(process + "/task");
        return std::distance(begin(threads), end(threads)) == 1 &&
               support::readFile(process + "/status").find("State:\tZ") != std::string::npos;
    }));
    EXPECT_THROW(Client(agent.socketPath()), std::runtime_error);
    EXPECT_EQ(0, kill(std::stoi(agent.read("/tmp/tavo-test-left")), SIGKILL))
        << "it must be running";
}

TEST(tavo_agent_connections, WaitWithoutBusyLoopWhileTheSystemIsShortOfDescriptors) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizers' own checks need descriptors";
#endif
    AgentInSandbox agent(kRecordingItself, {});
    ASSERT_THAT(agent.call(kDescribe), HasSubstr("\"result\":"));
    const auto limit = [&](const std::string& count) {
        return support::runProgram({"prlimit", "--pid", std::to_string(processOf(agent)),
                                    "--nofile=" + count + ":"})
            .status;
    };
    ASSERT_EQ(0, limit("3"));
    const auto begin = Clock::now();
    Client client(agent.socketPath());
    client.send(kDescribe);
    ASSERT_TRUE(agent.waitForErrors("Error accepting socket connection\n"));
    ASSERT_TRUE(eventually([&] { return Clock::now() - begin > std::chrono::seconds(1); }));
    const std::string errors = agent.errors();
    ASSERT_EQ(0, limit("64"));
    EXPECT_TRUE(agent.waitForResponses(2));
    std::size_t attempts = 0;
    for (std::size_t at = 0; (at = errors.find("Error accepting", at)) != std::string::npos; ++at)
        ++attempts;
    EXPECT_LT(attempts, 20u) << "of which each prints lines and takes the processor's time";
}

// Silent clients

class tavo_agent_silent_clients : public testing::TestWithParam<int> {};

TEST_P(tavo_agent_silent_clients, DoNotPreventTheAgentFromEnding) {
    AgentInSandbox agent({"--idle", "1000"});
    const SilentClients clients(agent, GetParam());
    const auto begin = Clock::now();
    const support::ProgramResult ran = agent.end(SIGTERM);
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(2));
    EXPECT_EQ(0, ran.status) << ran.err;
    EXPECT_FALSE(support::exists(agent.socketPath()));
}

TEST_P(tavo_agent_silent_clients, DoNotPreventASecondStartFromReportingThatTheNameIsServed) {
    AgentInSandbox agent("(until [ -e /tmp/tavo-test-go ]; do sleep 0.01; done\n"
                         "\"$@\" 2>/tmp/second.err; echo status $? >/tmp/second.status) &\n"
                         "exec \"$@\"",
                         {"--idle", "1000"});
    const SilentClients clients(agent, GetParam());
    support::writeFile(agent.file("/tmp/tavo-test-go"), "");
    EXPECT_TRUE(eventually(
        [&] {
            return support::exists(agent.file("/tmp/second.status")) &&
                   agent.read("/tmp/second.status") == "status 1\n";
        },
        std::chrono::seconds(5)));
    EXPECT_EQ("tavo-agent: another process already serves /tmp/socketDDS/agent\n",
              agent.read("/tmp/second.err"));
    agent.end(SIGTERM);
}

INSTANTIATE_TEST_SUITE_P(clients, tavo_agent_silent_clients, testing::Values(7, 200),
                         [](const auto& count) { return "Of" + std::to_string(count.param); });

TEST(tavo_agent_early_clients, AreServedFirst) {
    const auto served = [](const std::string& payload, const std::string& printed = "") {
        const std::string length = std::to_string(payload.size());
        return "Waiting for a connection...\nConnected.\nReceiving: " + length +
               " bytes\nReceive result:" + length + "\nReceived:" + payload + "\n" + printed +
               "Receiving: 0 bytes\nReceive result:0\n";
    };
    const support::ProgramResult ran = support::runInSandbox({TAVO_EARLY_CLIENTS});
    EXPECT_EQ(0, ran.status) << ran.err;
    EXPECT_EQ(served("first", "0 inheritable\n") + served("second") + served("third") +
                  "Waiting for a connection...\nConnected.\nReceiving: 0 bytes\n"
                  "Receive result:0\n1 open\n",
              ran.out);
}

/// Expects the agent to disconnect a client that has sent `bytes`, and to serve the next one.
void expectCutOffAfter(const std::string& bytes) {
    AgentInSandbox agent({"--idle", "1"});
    Client silent(agent.socketPath());
    const auto begin = Clock::now();
    ASSERT_TRUE(silent.sendRaw(bytes));
    EXPECT_THAT(agent.call(kDescribe), HasSubstr("\"result\":"));
    const auto waited = Clock::now() - begin;
    EXPECT_GE(waited, std::chrono::milliseconds(900));
    EXPECT_LT(waited, std::chrono::seconds(5));
    EXPECT_FALSE(silent.send(kDescribe)) << "the connection must be closed";
    EXPECT_EQ(1u, agent.responses().size());
}

TEST(tavo_agent_idle_limit, EndsAConnectionWithoutAByte) { expectCutOffAfter(""); }

TEST(tavo_agent_idle_limit, EndsAConnectionWithHalfAHeader) {
    expectCutOffAfter(std::string("\x10\0", 2));
}

TEST(tavo_agent_idle_limit, EndsAConnectionWithALengthAndNoPayload) {
    expectCutOffAfter(std::string("\x10\0\0\0", 4));
}

TEST(tavo_agent_idle_limit, CutsOffASenderThatStaysConnectedLonger) {
    AgentInSandbox agent({"--idle", "1"});
    Client client(agent.socketPath());
    ASSERT_TRUE(client.send(kDescribe));
    ASSERT_TRUE(agent.waitForResponses(1));
    ASSERT_TRUE(agent.waitUntilIdle(2));
    EXPECT_THAT(agent.errors(), HasSubstr("Error receiving socket data length\n"));
    EXPECT_FALSE(client.send(kDescribe));
}

TEST(tavo_agent_idle_limit, DoesNotCountTheTimeOfARequest) {
    AgentInSandbox agent({"--idle", "1", "--allow", "sleep"});
    Client client(agent.socketPath());
    client.send(request("process.run", R"({"command":"sleep","arguments":["1.5"]})"));
    ASSERT_TRUE(agent.waitForResponses(1));
    EXPECT_TRUE(client.send(kDescribe));
    EXPECT_TRUE(agent.waitForResponses(2));
}

TEST(tavo_agent_idle_limit, IsTenSecondsUnlessGiven) {
    AgentInSandbox agent;
    const Client silent(agent.socketPath());
    const auto begin = Clock::now();
    ASSERT_TRUE(agent.waitUntilIdle(2));
    EXPECT_GT(Clock::now() - begin, std::chrono::seconds(9));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(15));
}

} // namespace
