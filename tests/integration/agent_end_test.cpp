// How a signal ends the agent, in every state.

#include "AgentInSandbox.h"
#include "Waiting.h"

#include <chrono>
#include <csignal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::AgentInSandbox;
using support::Client;
using support::request;
using support::result;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using Clock = std::chrono::steady_clock;

const std::string kDescribe = request("system.describe", "{}");

class tavo_agent_end : public testing::TestWithParam<int> {};

std::string nameOf(int signal) { return signal == SIGTERM ? "SIGTERM" : "SIGINT"; }

void expectCleanEnd(AgentInSandbox& agent, const support::ProgramResult& ran, int signal) {
    EXPECT_EQ(0, ran.status) << ran.err;
    EXPECT_FALSE(support::exists(agent.socketPath()));
    EXPECT_THAT(agent.log(), EndsWith("INFO: tavo-agent: ended by " + nameOf(signal) + "\n"));
}

TEST_P(tavo_agent_end, IsCleanWhileNobodyIsConnected) {
    AgentInSandbox agent;
    const support::ProgramResult ran = agent.end(GetParam());
    expectCleanEnd(agent, ran, GetParam());
    // No connection was broken off.
    EXPECT_THAT(ran.err, EndsWith("Connected.\nReceiving: 0 bytes\nReceive result:0\n"));
}

TEST_P(tavo_agent_end, IsCleanWhileASilentClientIsConnected) {
    AgentInSandbox agent;
    Client client(agent.socketPath());
    ASSERT_TRUE(agent.waitForErrors("Connected.\n"));
    expectCleanEnd(agent, agent.end(GetParam()), GetParam());
}

TEST_P(tavo_agent_end, IsCleanInTheMiddleOfAMessage) {
    AgentInSandbox agent;
    Client client(agent.socketPath());
    client.sendRaw(std::string("\x10\0\0\0", 4));
    ASSERT_TRUE(agent.waitForErrors("Receiving: 16 bytes\n"));
    expectCleanEnd(agent, agent.end(GetParam()), GetParam());
}

TEST_P(tavo_agent_end, WaitsForARequestInProgress) {
    AgentInSandbox agent({"--allow", "sh"});
    Client client(agent.socketPath());
    client.send(request(
        "process.run",
        R"({"command":"sh","arguments":["-c","echo >/tmp/tavo-test-begun; sleep 0.3; echo finished"]})"));
    ASSERT_TRUE(
        support::eventually([&] { return support::exists(agent.file("/tmp/tavo-test-begun")); }));
    const support::ProgramResult ran = agent.end(GetParam());
    EXPECT_THAT(ran.out, HasSubstr(R"("output":"finished\n")"));
    expectCleanEnd(agent, ran, GetParam());
}

TEST_P(tavo_agent_end, DoesNotDisturbACommandOfTheLibrary) {
    AgentInSandbox agent("PATH=/tmp/tavo-test-bin:$PATH exec \"$@\"", {});
    support::runProgram({"mkdir", agent.file("/tmp/tavo-test-bin")});
    support::writeFile(agent.file("/tmp/tavo-test-bin/ubus"),
                       "#!/bin/sh\n"
                       "if [ \"$3\" = get ]; then echo >/tmp/tavo-test-begun; sleep 0.2;\n"
                       "echo '{\"values\":{\"a\":\"1\"}}'; fi\n",
                       0755);
    Client client(agent.socketPath());
    client.send(request("uci.apply", R"({"config":"x","section":"y","values":{"a":"1"}})"));
    ASSERT_TRUE(
        support::eventually([&] { return support::exists(agent.file("/tmp/tavo-test-begun")); }));
    const support::ProgramResult ran = agent.end(GetParam());
    EXPECT_EQ(result(R"({"config":"x","section":"y","existed":true,"exists":true,)"
                     R"("values":{"a":"1"},"restarted":false})") +
                  "\n",
              ran.out);
    expectCleanEnd(agent, ran, GetParam());
}

TEST_P(tavo_agent_end, EndsAProgramThatStillRuns) {
    AgentInSandbox agent({"--allow", "sh"});
    Client client(agent.socketPath());
    client.send(request(
        "process.run",
        R"({"command":"sh","arguments":["-c","echo >/tmp/tavo-test-begun; exec sleep 100"]})"));
    ASSERT_TRUE(
        support::eventually([&] { return support::exists(agent.file("/tmp/tavo-test-begun")); }));
    const support::ProgramResult ran = agent.end(GetParam());
    EXPECT_THAT(ran.out, HasSubstr(R"("raw_status":15,"exit_code":null,"signal":15)"));
    expectCleanEnd(agent, ran, GetParam());
}

INSTANTIATE_TEST_SUITE_P(signals, tavo_agent_end, testing::Values(SIGTERM, SIGINT),
                         [](const auto& signal) { return nameOf(signal.param); });

TEST(tavo_agent, KillsAProgramThatIgnoresSigterm) {
    AgentInSandbox agent({"--allow", "sh"});
    Client client(agent.socketPath());
    client.send(request(
        "process.run",
        R"({"command":"sh","arguments":["-c",)"
        R"("ulimit -t 20; trap '' TERM; echo >/tmp/tavo-test-begun; while :; do :; done"]})"));
    ASSERT_TRUE(
        support::eventually([&] { return support::exists(agent.file("/tmp/tavo-test-begun")); }));
    const support::ProgramResult ran = agent.end(SIGTERM);
    EXPECT_THAT(ran.out, HasSubstr(R"("raw_status":9,"exit_code":null,"signal":9)"));
    expectCleanEnd(agent, ran, SIGTERM);
}

TEST(tavo_agent, DoesNotWaitForAProcessThatKeepsAProgramsOutputOpen) {
    AgentInSandbox agent({"--allow", "sh"});
    Client client(agent.socketPath());
    // The background program ends by itself a little later.
    client.send(request("process.run",
                        R"({"command":"sh","arguments":["-c",)"
                        R"("sleep 9 & echo >/tmp/tavo-test-begun; exec sleep 100"]})"));
    ASSERT_TRUE(
        support::eventually([&] { return support::exists(agent.file("/tmp/tavo-test-begun")); }));
    const auto begin = Clock::now();
    const support::ProgramResult ran = agent.end(SIGTERM);
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(8));
    EXPECT_THAT(ran.out,
                HasSubstr(R"("code":-32000,"message":"Failed",)"
                          R"("data":"the agent ended before the program's output was complete")"));
    expectCleanEnd(agent, ran, SIGTERM);
}

TEST(tavo_agent, StartsNoRequestWhileItIsEnding) {
    AgentInSandbox agent({"--allow", "sh"});
    Client client(agent.socketPath());
    client.send(
        request("process.run",
                R"({"command":"sh","arguments":["-c","echo >/tmp/tavo-test-begun; sleep 0.3"]})"));
    client.send(kDescribe);
    ASSERT_TRUE(
        support::eventually([&] { return support::exists(agent.file("/tmp/tavo-test-begun")); }));
    const support::ProgramResult ran = agent.end(SIGTERM);
    EXPECT_THAT(ran.out, Not(HasSubstr("methods")));
    EXPECT_THAT(agent.log(),
                HasSubstr("ERROR: tavo-agent: request dropped: the agent is ending\n"));
    expectCleanEnd(agent, ran, SIGTERM);
}

TEST(tavo_agent, StartsProgramsWithNoSignalBlockedOrIgnored) {
    AgentInSandbox agent({"--allow", "grep"});
    EXPECT_THAT(
        agent.call(request("process.run",
                           R"({"command":"grep","arguments":["Sig[BI]","/proc/self/status"]})")),
        HasSubstr(R"("output":"SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n")"));
}

} // namespace
