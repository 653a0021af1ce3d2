// tavo-rpc with several gateways, through a real broker.

#include "AgentInSandbox.h"
#include "Broker.h"
#include "Certificates.h"
#include "Waiting.h"

#include <algorithm>
#include <csignal>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::AgentInSandbox;
using support::Broker;
using support::Certificates;
using support::error;
using support::eventually;
using support::request;
using support::RunningProgram;
using testing::HasSubstr;
using testing::StartsWith;

const std::string kDescribe = request("system.describe", "{}");

/// Two gateways, gw1 and gw2, and a sender's settings to reach them.
class tavo_rpc_gateways : public testing::Test {
protected:
    std::vector<std::string> brokerArguments() const {
        return {"--mqtt", "127.0.0.1:" + std::to_string(broker_.port()), "--tls",
                certificates_.directory.path()};
    }

    /// Starts the agent `name` and waits until it accepts requests.
    void start(const std::string& name) {
        std::vector<std::string> arguments = brokerArguments();
        const std::vector<std::string> more = {"--requests", "--remote-allow", "process.run",
                                               "--allow", "sh"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        // Replaces the last argument, which is the default name of every test's agent.
        const std::string wrapper = "count=$#; for argument; do\n"
                                    "[ $count -eq 1 ] || set -- \"$@\" \"$argument\"\n"
                                    "shift; count=$((count - 1)); done; exec \"$@\" " +
                                    name;
        agents_.push_back(std::make_unique<AgentInSandbox>(wrapper, arguments));
        ASSERT_TRUE(eventually([&] {
            return agents_.back()->log().find("taking requests") != std::string::npos;
        })) << agents_.back()->log();
    }

    std::vector<std::string> command(const std::vector<std::string>& more) const {
        std::vector<std::string> arguments = {TAVO_RPC};
        for (const std::string& argument : brokerArguments())
            arguments.push_back(argument);
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

    support::ProgramResult send(const std::vector<std::string>& more,
                                const std::string& message) const {
        return support::runProgram(command(more), {}, message);
    }

    static std::vector<std::string> sortedLines(const std::string& text) {
        std::vector<std::string> lines;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);)
            lines.push_back(line);
        std::sort(lines.begin(), lines.end());
        return lines;
    }

    Certificates certificates_;
    Broker broker_{certificates_.settings(true)};
    std::vector<std::unique_ptr<AgentInSandbox>> agents_;
};

std::string notFound(const std::string& id) {
    return error(id, -32601, "Method not found", "there is no method \\\"none\\\"");
}

TEST_F(tavo_rpc_gateways, AnswerUnderTheirNamesWithTheIdOfTheRequest) {
    start("gw1");
    start("gw2");
    const support::ProgramResult ran =
        send({"--to", "gw1", "gw2", "-"}, R"({"jsonrpc":"2.0","id":"seven","method":"none"})");
    EXPECT_EQ(
        std::vector<std::string>({"gw1 " + notFound("\"seven\""), "gw2 " + notFound("\"seven\"")}),
        sortedLines(ran.out));
    EXPECT_EQ("", ran.err) << "a progress line is for terminals";
    EXPECT_EQ(1, ran.status) << "responses are errors";
}

TEST_F(tavo_rpc_gateways, AreSelectedByNameOrAllTogether) {
    start("gw1");
    start("gw2");
    const support::ProgramResult one = send({"--to", "gw2", "-"}, kDescribe);
    EXPECT_THAT(one.out, StartsWith("gw2 {\"jsonrpc\":\"2.0\",\"id\":1,\"result\":{\"methods\":"));
    EXPECT_EQ(0, one.status) << one.err;

    const support::ProgramResult all = send({"--all", "-"}, kDescribe);
    EXPECT_EQ(2u, sortedLines(all.out).size());
    EXPECT_EQ(0, all.status) << all.err;

    agents_[0]->end(SIGTERM);
    const support::ProgramResult left = send({"--all", "-"}, kDescribe);
    EXPECT_THAT(left.out, StartsWith("gw2 {"));
    EXPECT_EQ(1u, sortedLines(left.out).size());
    EXPECT_EQ(0, left.status) << left.err;
}

TEST_F(tavo_rpc_gateways, ThatDoNotAnswerAreNamed) {
    start("gw2");
    const support::ProgramResult ran =
        send({"--timeout", "1", "--to", "gw1", "--to", "gw2", "gw3", "-"}, kDescribe);
    EXPECT_THAT(ran.out, StartsWith("gw2 {"));
    EXPECT_EQ("tavo-rpc: no response within 1 s from gw1 gw3\n", ran.err);
    EXPECT_EQ(2, ran.status);
}

TEST_F(tavo_rpc_gateways, ThatAreAllAbsentAreReported) {
    const support::ProgramResult ran = send({"--all", "-"}, kDescribe);
    EXPECT_EQ("tavo-rpc: no gateway is connected to the broker\n", ran.err);
    EXPECT_EQ(2, ran.status);
}

TEST_F(tavo_rpc_gateways, CarryOutARequestOnceForEachRunOfTheSender) {
    start("gw1");
    const std::string count = request(
        "process.run", R"({"command":"sh","arguments":["-c","echo >>/tmp/tavo-test-count"]})");
    EXPECT_EQ(0, send({"--sender", "cloud", "--to", "gw1", "-"}, count).status);
    EXPECT_EQ(0, send({"--sender", "cloud", "--to", "gw1", "-"}, count).status);
    EXPECT_EQ("\n\n", agents_[0]->read("/tmp/tavo-test-count"));
}

TEST_F(tavo_rpc_gateways, GetARequestAgainWhenTheyDoNotAnswer) {
    RunningProgram sender(command({"--to", "gw2", "-"}), {}, request("none", "{}", 5));
    RunningProgram watcher({"mosquitto_sub", "-h", "127.0.0.1", "-p",
                            std::to_string(broker_.port()), "--cafile",
                            certificates_.directory / "mqtt_ca-cert.crt", "--cert",
                            certificates_.directory / "mqtt_client-cert.crt", "--key",
                            certificates_.directory / "mqtt_client-key.key", "-C", "1", "-t",
                            "gateways/gw2/request/+"});
    ASSERT_EQ(0, watcher.wait().status) << "a repeated request";
    start("gw2");
    const support::ProgramResult ran = sender.wait();
    EXPECT_EQ("gw2 " + notFound("5") + "\n", ran.out);
    EXPECT_EQ(1, ran.status);
}

TEST_F(tavo_rpc_gateways, AnswerARequestThatWasSentWhileTheBrokerWasAway) {
    start("gw1");
    broker_.stop();
    RunningProgram sender(command({"--to", "gw1", "-"}), {}, kDescribe);
    ASSERT_TRUE(eventually([&] {
        return agents_[0]->log().find("ERROR: tavo-agent: cannot take requests from") !=
               std::string::npos;
    }));
    broker_.start();
    const support::ProgramResult ran = sender.wait();
    EXPECT_THAT(ran.out, StartsWith("gw1 {"));
    EXPECT_EQ(0, ran.status) << ran.err;
}

TEST_F(tavo_rpc_gateways, AnswerThoughTheBrokerStopsMeanwhile) {
    start("gw1");
    RunningProgram sender(
        command({"--to", "gw1", "-"}), {},
        request(
            "process.run",
            R"({"command":"sh","arguments":["-c",)"
            R"("echo >>/tmp/tavo-test-count; until [ -e /tmp/tavo-test-go ]; do sleep 0.01; done"]})"));
    ASSERT_TRUE(
        eventually([&] { return support::exists(agents_[0]->file("/tmp/tavo-test-count")); }));
    broker_.stop();
    support::writeFile(agents_[0]->file("/tmp/tavo-test-go"), "");
    ASSERT_TRUE(eventually(
        [&] { return agents_[0]->log().find("process.run: done") != std::string::npos; }));
    broker_.start();
    const support::ProgramResult ran = sender.wait();
    EXPECT_THAT(ran.out, HasSubstr("\"exit_code\":0"));
    EXPECT_EQ(0, ran.status) << ran.err;
    EXPECT_EQ("\n", agents_[0]->read("/tmp/tavo-test-count"));
}

TEST_F(tavo_rpc_gateways, AreNotWaitedForAfterANotification) {
    start("gw1");
    const support::ProgramResult ran =
        send({"--to", "gw1", "-"},
             R"({"jsonrpc":"2.0","method":"process.run",)"
             R"("params":{"command":"sh","arguments":["-c","echo >/tmp/tavo-test-here"]}})");
    EXPECT_EQ(0, ran.status) << ran.err;
    EXPECT_EQ("", ran.out);
    EXPECT_TRUE(
        eventually([&] { return support::exists(agents_[0]->file("/tmp/tavo-test-here")); }));
}

TEST_F(tavo_rpc_gateways, AreReachedBelowAnotherBase) {
    start("gw1");
    EXPECT_EQ(2, send({"--timeout", "1", "--base", "site7", "--to", "gw1", "-"}, kDescribe).status);
    EXPECT_EQ(0, send({"--base", "gateways", "--to", "gw1", "-"}, kDescribe).status);
}

TEST_F(tavo_rpc_gateways, ShowProgressOnATerminal) {
    start("gw1");
    std::string line;
    for (const std::string& word : command({"--to", "gw1", "-"}))
        line += word + " ";
    support::writeFile(certificates_.directory / "request.json", kDescribe);
    const support::ProgramResult ran = support::runProgram(
        {"script", "-qec", line + "<" + (certificates_.directory / "request.json"), "/dev/null"});
    EXPECT_THAT(ran.out, HasSubstr("\r0 of 1 answered"));
    EXPECT_THAT(ran.out, HasSubstr("\r1 of 1 answered"));
    EXPECT_EQ(0, ran.status);
}

// A wrong broker must not receive a request.

TEST_F(tavo_rpc_gateways, AreNotReachedThroughABrokerOfAnotherAuthority) {
    const Certificates others;
    const Broker impostor(others.settings(false));
    const std::string address = "127.0.0.1:" + std::to_string(impostor.port());
    const support::ProgramResult ran =
        support::runProgram({TAVO_RPC, "--mqtt", address, "--tls", certificates_.directory.path(),
                             "--timeout", "1", "--to", "gw1", "-"},
                            {}, kDescribe);
    EXPECT_EQ("tavo-rpc: ssl://" + address + ": certificate verify failed\n", ran.err);
    EXPECT_EQ(2, ran.status);
}

TEST_F(tavo_rpc_gateways, AreNotReachedThroughABrokerForAnotherHost) {
    certificates_.issue("elsewhere", "broker", "DNS:broker.example");
    const Broker impostor(certificates_.settings(false, "elsewhere"));
    const std::string address = "127.0.0.1:" + std::to_string(impostor.port());
    const support::ProgramResult ran =
        support::runProgram({TAVO_RPC, "--mqtt", address, "--tls", certificates_.directory.path(),
                             "--timeout", "1", "--to", "gw1", "-"},
                            {}, kDescribe);
    EXPECT_EQ("tavo-rpc: ssl://" + address +
                  ": no connection, or the certificate was not accepted\n",
              ran.err);
    EXPECT_EQ(2, ran.status);
}

// The command line

TEST(tavo_rpc_fleet_options, RefuseInvalidCombinations) {
    const auto expectRefusal = [](std::vector<std::string> arguments, const std::string& why) {
        arguments.insert(arguments.begin(), TAVO_RPC);
        const support::ProgramResult ran = support::runProgram(arguments);
        EXPECT_EQ(2, ran.status);
        EXPECT_EQ("tavo-rpc: " + why + "\nTry 'tavo-rpc --help' for more information.\n", ran.err);
    };
    const std::string either = "--mqtt needs either --to NAME or --all";
    expectRefusal({"--mqtt", "h:1", "--insecure", "f"}, either);
    expectRefusal({"--mqtt", "h:1", "--insecure", "--to", "a", "--all", "f"}, either);
    expectRefusal({"--mqtt", "h:1", "--insecure", "--to", "a"},
                  "the FILE with the request is missing");
    expectRefusal({"--mqtt", "h:1", "--insecure", "--all", "a", "f"}, "--all takes one FILE");
    expectRefusal({"--mqtt", "h:1", "--to", "a", "f"},
                  "--mqtt needs --tls DIRECTORY, or --insecure where nobody else can reach the "
                  "broker");
    expectRefusal({"--mqtt", "h:1", "--insecure", "--no-answer", "--to", "a", "f"},
                  "--no-answer cannot be used with --mqtt");
    expectRefusal({"--mqtt", "h", "--all", "f"}, "'h' is not a valid HOST:PORT");
    for (const std::vector<std::string>& option : {std::vector<std::string>{"--to", "a"},
                                                   {"--all"},
                                                   {"--tls", "/"},
                                                   {"--insecure"},
                                                   {"--sender", "a"},
                                                   {"--base", "a"}}) {
        std::vector<std::string> arguments = option;
        arguments.push_back("f");
        expectRefusal(arguments, option.front() + " needs --mqtt HOST:PORT");
    }
    expectRefusal({"--mqtt", "h:1", "--insecure", "--to", "a/b", "f"},
                  "'a/b' is not a valid gateway name: use up to 64 letters, digits, _, - and .");
    expectRefusal({"--mqtt", "h:1", "--insecure", "--to", "a", "#", "f"},
                  "'#' is not a valid gateway name: use up to 64 letters, digits, _, - and .");
    expectRefusal({"--sender", "+"},
                  "'+' is not a valid sender name: use up to 64 letters, digits, _, - and .");
}

TEST(tavo_rpc_fleet_options, SendNothingThatIsNotARequest) {
    const Broker broker;
    const support::ProgramResult ran =
        support::runProgram({TAVO_RPC, "--mqtt", "127.0.0.1:" + std::to_string(broker.port()),
                             "--insecure", "--to", "gw1", "-"},
                            {}, "hello");
    EXPECT_EQ("tavo-rpc: standard input: Parse error: unexpected character at byte 0\n", ran.err);
    EXPECT_EQ(1, ran.status);
}

} // namespace
