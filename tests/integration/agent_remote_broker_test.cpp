// Remote requests, over MQTT with TLS: absent and wrong brokers, the documented access list, and
// the agent's options.

#include "RemoteAgent.h"

#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace {

using support::AgentInSandbox;
using support::Broker;
using support::Certificates;
using support::eventually;
using support::kDescribe;
using support::kRequests;
using support::occurrences;
using support::RemoteAgent;
using support::request;
using support::runInSandbox;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

using tavo_agent_remote = RemoteAgent;

// The broker

TEST_F(tavo_agent_remote, RequestsAreAcceptedAgainWhenTheBrokerIsBack) {
    startAndWait();
    listener_.reset();
    broker_.stop();
    ASSERT_TRUE(
        logs("ERROR: tavo-agent: lost ssl://127.0.0.1:" + std::to_string(broker_.port()) + "\n"))
        << agent_->log();
    ASSERT_TRUE(logs("ERROR: tavo-agent: cannot take requests from ssl://127.0.0.1:" +
                     std::to_string(broker_.port()) + ": no connection"));
    broker_.start();
    ASSERT_TRUE(logs("INFO: tavo-agent: taking requests from ssl://", 2));
    listen();
    publish(kRequests + "cloud", kDescribe);
    EXPECT_TRUE(receives("\"methods\""));
}

TEST_F(tavo_agent_remote, ARepeatedRequestGetsTheResponseThatCouldNotBePublished) {
    AgentInSandbox& agent = startAndWait({"--allow", "sh", "--remote-allow", "process.run"});
    const std::string slow = request(
        "process.run",
        R"({"command":"sh","arguments":["-c",)"
        R"("echo >>/tmp/tavo-test-count; until [ -e /tmp/tavo-test-go ]; do sleep 0.01; done"]})");
    publish(kRequests + "cloud", slow);
    ASSERT_TRUE(eventually([&] { return support::exists(agent.file("/tmp/tavo-test-count")); }));
    listener_.reset();
    broker_.stop();
    support::writeFile(agent.file("/tmp/tavo-test-go"), "");
    ASSERT_TRUE(logs("INFO: tavo-agent: request 1 process.run: done\n"));
    broker_.start();
    ASSERT_TRUE(logs("INFO: tavo-agent: taking requests from ssl://", 2));
    listen();
    publish(kRequests + "cloud", slow);
    EXPECT_TRUE(receives("\"exit_code\":0"));
    EXPECT_EQ("\n", agent.read("/tmp/tavo-test-count"));
}

TEST_F(tavo_agent_remote, TheAgentEndsInTimeWhileTheBrokerStaysSilent) {
    const support::Listener silent;
    AgentInSandbox agent({"--mqtt", "127.0.0.1:" + std::to_string(silent.port()), "--requests",
                          "--tls", certificates_.directory.path()});
    ASSERT_TRUE(silent.holdClient());
    const auto begin = std::chrono::steady_clock::now();
    const support::ProgramResult ran = agent.end(SIGTERM);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_EQ(0, ran.status);
    EXPECT_THAT(agent.log(), EndsWith("INFO: tavo-agent: ended by SIGTERM\n"));
}

TEST_F(tavo_agent_remote, AProgramInProgressIsEndedWithTheAgent) {
    AgentInSandbox& agent = startAndWait({"--allow", "sh", "--remote-allow", "process.run"});
    publish(
        kRequests + "cloud",
        request(
            "process.run",
            R"({"command":"sh","arguments":["-c","echo >/tmp/tavo-test-begun; exec sleep 100"]})"));
    ASSERT_TRUE(eventually([&] { return support::exists(agent.file("/tmp/tavo-test-begun")); }));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(0, agent.end(SIGTERM).status);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
    EXPECT_TRUE(receives(R"("raw_status":15,"exit_code":null,"signal":15)"));
}

// Wrong brokers

class tavo_agent_impostor : public RemoteAgent {
protected:
    /// Expects an agent to reject `impostor` as its broker, and to log the reason.
    void expectRefused(const Broker& impostor, const std::string& reason) {
        const std::string address = "127.0.0.1:" + std::to_string(impostor.port());
        agent_ = std::make_unique<AgentInSandbox>(std::vector<std::string>{
            "--mqtt", address, "--requests", "--tls", certificates_.directory.path()});
        EXPECT_TRUE(logs("ERROR: tavo-agent: cannot take requests from ssl://" + address + ": " +
                         reason + "\n"))
            << agent_->log();
        EXPECT_THAT(agent_->log(), Not(HasSubstr("taking requests")));
    }
};

TEST_F(tavo_agent_impostor, OfAnotherAuthorityIsRefused) {
    const Certificates others;
    expectRefused(Broker(others.settings(false)), "certificate verify failed");
}

TEST_F(tavo_agent_impostor, WithACertificateForAnotherHostIsRefused) {
    certificates_.issue("elsewhere", "broker", "DNS:broker.example,IP:127.0.0.2");
    expectRefused(Broker(certificates_.settings(false, "elsewhere")),
                  "no connection, or the certificate was not accepted");
}

TEST_F(tavo_agent_impostor, WithAGatewaysCertificateIsRefused) {
    certificates_.issue("gateway", "gw7", "");
    expectRefused(Broker(certificates_.settings(false, "gateway")),
                  "no connection, or the certificate was not accepted");
}

TEST_F(tavo_agent_remote, ABrokerThatDoesNotKnowTheGatewayRefusesIt) {
    const Certificates others;
    support::runProgram({"cp", others.directory / "mqtt_client-cert.crt",
                         certificates_.directory / "mqtt_client-cert.crt"});
    support::runProgram({"cp", others.directory / "mqtt_client-key.key",
                         certificates_.directory / "mqtt_client-key.key"});
    AgentInSandbox& agent = start();
    EXPECT_TRUE(logs("ERROR: tavo-agent: cannot take requests from ssl://")) << agent.log();
    EXPECT_THAT(agent.log(), Not(HasSubstr("taking requests")));
}

// The broker's access list

/// The broker as documented: its users are the names in the clients' certificates.
class tavo_agent_access_list : public RemoteAgent {
protected:
    tavo_agent_access_list()
        : listed_("allow_anonymous false\nrequire_certificate true\n"
                  "use_identity_as_username true\nacl_file " TAVO_ACCESS_LIST "\ncafile " +
                  certificates_.directory / "mqtt_ca-cert.crt" + "\ncertfile " +
                  certificates_.directory / "server.crt" + "\nkeyfile " +
                  certificates_.directory / "server.key" + "\n") {
        for (const char* name : {"agent", "cloud", "office"})
            certificates_.issue(name, name, "");
        for (const char* kind : {"cert.crt", "key.key"})
            support::runProgram({"cp", certificates_.directory / ("agent" + extension(kind)),
                                 certificates_.directory / (std::string("mqtt_client-") + kind)});
        agent_ = std::make_unique<AgentInSandbox>(
            std::vector<std::string>{"--mqtt", "127.0.0.1:" + std::to_string(listed_.port()),
                                     "--tls", certificates_.directory.path(), "--requests"});
    }

    static std::string extension(const std::string& kind) { return kind.substr(kind.size() - 4); }

    std::vector<std::string> as(const std::string& user, const std::string& program,
                                const std::vector<std::string>& more) const {
        std::vector<std::string> arguments = {program,
                                              "-h",
                                              "127.0.0.1",
                                              "-p",
                                              std::to_string(listed_.port()),
                                              "--cafile",
                                              certificates_.directory / "mqtt_ca-cert.crt",
                                              "--cert",
                                              certificates_.directory / (user + ".crt"),
                                              "--key",
                                              certificates_.directory / (user + ".key"),
                                              "-q",
                                              "1"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

    Broker listed_;
};

TEST_F(tavo_agent_access_list, SendersUseTheirOwnNamesOnly) {
    ASSERT_TRUE(logs("INFO: tavo-agent: taking requests from ssl://"));
    support::RunningProgram cloud(as(
        "cloud", "mosquitto_sub", {"-v", "-t", "gateways/+/state", "-t", "gateways/+/response/+"}));
    ASSERT_TRUE(eventually([&] { return cloud.outSoFar() == "gateways/agent/state online\n"; }));
    // Of these three requests, only the one published by its own sender arrives.
    support::runProgram(
        as("office", "mosquitto_pub", {"-t", kRequests + "cloud", "-m", request("none", "{}", 1)}));
    support::runProgram(as("office", "mosquitto_pub",
                           {"-t", kRequests + "office", "-m", request("none", "{}", 2)}));
    support::runProgram(
        as("cloud", "mosquitto_pub", {"-t", kRequests + "cloud", "-m", request("none", "{}", 3)}));
    EXPECT_TRUE(eventually(
        [&] { return cloud.outSoFar().find("/response/cloud {") != std::string::npos; }));
    EXPECT_THAT(cloud.outSoFar(), HasSubstr("\"id\":3,"));
    EXPECT_EQ(1u, occurrences(agent_->log(), " bytes from "));
}

TEST_F(tavo_agent_access_list, AGatewayCannotSendRequests) {
    ASSERT_TRUE(logs("INFO: tavo-agent: taking requests from ssl://"));
    support::runProgram(
        as("agent", "mosquitto_pub", {"-t", kRequests + "cloud", "-m", request("none", "{}", 1)}));
    support::runProgram(
        as("cloud", "mosquitto_pub", {"-t", kRequests + "cloud", "-m", request("none", "{}", 2)}));
    ASSERT_TRUE(logs(" bytes from cloud)"));
    EXPECT_THAT(agent_->log(), HasSubstr("request 2 none (52 bytes from cloud)\n"));
    EXPECT_EQ(1u, occurrences(agent_->log(), " bytes from "));
}

// The command line

TEST(tavo_agent_remote_options, RefuseInvalidCombinations) {
    const auto expectRefusal = [](std::vector<std::string> arguments, const std::string& why) {
        arguments.insert(arguments.begin(), TAVO_AGENT);
        const support::ProgramResult ran = support::runProgram(arguments);
        EXPECT_EQ(2, ran.status);
        EXPECT_EQ("tavo-agent: " + why + "\nTry 'tavo-agent --help' for more information.\n",
                  ran.err);
    };
    expectRefusal({"--mqtt", "h:1", "--requests", "a"},
                  "--requests needs --tls DIRECTORY, or --insecure where nobody else can reach the "
                  "broker");
    for (const std::vector<std::string>& option :
         {std::vector<std::string>{"--requests"}, {"--tls", "/"}, {"--base", "x"}}) {
        std::vector<std::string> arguments = option;
        arguments.push_back("a");
        expectRefusal(arguments, option.front() + " needs --mqtt HOST:PORT");
    }
    expectRefusal({"--insecure", "a"}, "--insecure needs --requests");
    expectRefusal({"--remote-allow", "process.run", "a"}, "--remote-allow needs --requests");
    expectRefusal({"--remote-allow", "uci.apply", "a"},
                  "--remote-allow takes process.run or config.place, once each");
    for (const char* base : {"", "/a", "a/", "a//b", "a+", "#", "a b", "-a"})
        expectRefusal({"--mqtt", "h:1", "--base", base, "a"},
                      "'" + std::string(base) +
                          "' is not a valid topic: use letters, digits, _, -, . and / between "
                          "them");
}

TEST(tavo_agent_remote_options, NameTheFileForTlsThatIsMissing) {
    const support::ProgramResult ran = runInSandbox(
        {TAVO_AGENT, "--mqtt", "h:1", "--requests", "--tls", "/tmp/tavo-test-nowhere", "agent"});
    EXPECT_EQ(1, ran.status);
    EXPECT_EQ("tavo-agent: /tmp/tavo-test-nowhere/mqtt_ca-cert.crt: No such file or directory\n",
              ran.err);
}

TEST(tavo_agent_remote_options, AllowAnUnprotectedBrokerOnRequest) {
    const Broker broker;
    AgentInSandbox agent(
        {"--mqtt", "127.0.0.1:" + std::to_string(broker.port()), "--requests", "--insecure"});
    EXPECT_TRUE(eventually([&] {
        return agent.log().find("INFO: tavo-agent: taking requests from tcp://") !=
               std::string::npos;
    }));
}

} // namespace
