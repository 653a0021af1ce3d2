// Remote requests: by MQTT over TLS, through a real broker.

#include "AgentInSandbox.h"
#include "Broker.h"
#include "Certificates.h"
#include "Waiting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using support::Broker;
using support::Certificates;
using support::eventually;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

const std::string kDescribe = request("system.describe", "{}");
const std::string kRequests = "gateways/agent/request/";
const std::string kResponses = "gateways/agent/response/";

std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

/// A broker with TLS that requires client certificates, and a gateway with the matching files.
class FarAway : public testing::Test {
protected:
    /// Starts the agent with `more` arguments added.
    AgentInSandbox& start(const std::vector<std::string>& more = {}) {
        std::vector<std::string> arguments = {
            "--mqtt", "127.0.0.1:" + std::to_string(broker_.port()), "--tls",
            certificates_.directory.path(), "--requests"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        agent_ = std::make_unique<AgentInSandbox>(arguments);
        return *agent_;
    }

    AgentInSandbox& startAndWait(const std::vector<std::string>& more = {}) {
        start(more);
        EXPECT_TRUE(logs("INFO: tavo-agent: taking requests from ssl://")) << agent_->log();
        listen();
        return *agent_;
    }

    /// Starts a subscriber that prints each response as "topic payload".
    void listen(const std::string& filter = "gateways/+/response/+") {
        listener_ = std::make_unique<support::RunningProgram>(
            client("mosquitto_sub", {"-v", "-q", "1", "-t", filter, "-t", "ready"}));
        ASSERT_TRUE(eventually([&] {
            publish("ready", "yes");
            return heard().find("ready yes\n") != std::string::npos;
        }));
    }

    std::string heard() const { return listener_->outSoFar(); }

    bool hears(const std::string& expected) const {
        return eventually([&] { return heard().find(expected) != std::string::npos; });
    }

    bool logs(const std::string& expected, std::size_t times = 1) const {
        return eventually([&] { return occurrences(agent_->log(), expected) >= times; });
    }

    void publish(const std::string& topic, const std::string& payload,
                 const std::vector<std::string>& more = {}) const {
        std::vector<std::string> arguments = {"-q", "1", "-t", topic, "-s"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const support::Ran ran =
            support::runProgram(client("mosquitto_pub", arguments), {}, payload);
        ASSERT_EQ(0, ran.status) << ran.err;
    }

    std::vector<std::string> client(const std::string& program,
                                    const std::vector<std::string>& more) const {
        std::vector<std::string> arguments = {program,
                                              "-h",
                                              "127.0.0.1",
                                              "-p",
                                              std::to_string(broker_.port()),
                                              "--cafile",
                                              certificates_.directory / "mqtt_ca-cert.crt",
                                              "--cert",
                                              certificates_.directory / "mqtt_client-cert.crt",
                                              "--key",
                                              certificates_.directory / "mqtt_client-key.key"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

    Certificates certificates_;
    Broker broker_{certificates_.settings(true)};
    std::unique_ptr<AgentInSandbox> agent_;
    std::unique_ptr<support::RunningProgram> listener_;
};

// Requests and responses

TEST_F(FarAway, ARequestIsAnsweredToItsSender) {
    AgentInSandbox& agent = startAndWait();
    publish(kRequests + "cloud", request("none", "{}", 7));
    EXPECT_TRUE(hears(kResponses + "cloud " +
                      error("7", -32601, "Method not found", "there is no method \\\"none\\\"") +
                      "\n"));
    EXPECT_THAT(agent.log(), HasSubstr("INFO: tavo-agent: request 7 none (52 bytes from cloud)\n"));
    EXPECT_TRUE(agent.responses().empty()) << "what the local socket's requests get";
    EXPECT_EQ(0, agent.end(SIGTERM).status);
}

TEST_F(FarAway, ARequestChangesTheGatewayAsALocalOneDoes) {
    AgentInSandbox& agent = startAndWait();
    publish(kRequests + "cloud",
            request("uci.apply",
                    R"({"config":"network","section":"lan","values":{"ipaddr":"10.9.8.7"}})"));
    ASSERT_TRUE(hears(R"("existed":true,"exists":true)"));
    EXPECT_THAT(agent.read("/etc/config/network"), HasSubstr("option ipaddr '10.9.8.7'\n"));
}

TEST_F(FarAway, MessagesThatAreNoRequestsAreAnsweredAsOnTheSocket) {
    startAndWait();
    publish(kRequests + "cloud", "hello");
    EXPECT_TRUE(hears(kResponses + "cloud " +
                      error("null", -32700, "Parse error", "unexpected character at byte 0")));
    publish(kRequests + "cloud", std::string(200000, 'x'));
    EXPECT_TRUE(hears(error("null", -32600, "Invalid Request", "longer than 131072 bytes")));
}

TEST_F(FarAway, NotificationsAreCarriedOutAndNotAnswered) {
    AgentInSandbox& agent = startAndWait();
    publish(kRequests + "cloud",
            R"({"jsonrpc":"2.0","method":"uci.apply","params":{"config":"network","section":"lan",)"
            R"("values":{"ipaddr":"10.9.8.6"}}})");
    publish(kRequests + "cloud", kDescribe);
    ASSERT_TRUE(hears("\"methods\""));
    EXPECT_THAT(agent.read("/etc/config/network"), HasSubstr("option ipaddr '10.9.8.6'\n"));
    EXPECT_EQ(1u, occurrences(heard(), kResponses));
}

TEST_F(FarAway, RequestsOfBothWaysTakeTurns) {
    AgentInSandbox& agent = startAndWait({"--allow", "sh", "--remote-allow", "process.run"});
    const std::string slow = R"({"command":"sh","arguments":["-c",)"
                             R"("mkdir /tmp/one && sleep 0.3 && rmdir /tmp/one && echo alone"]})";
    Client local(agent.socketPath());
    for (int id = 1; id <= 3; ++id) {
        publish(kRequests + "cloud", request("process.run", slow, id));
        local.send(request("process.run", slow, id));
    }
    ASSERT_TRUE(agent.waitForResponses(3));
    ASSERT_TRUE(eventually([&] { return occurrences(heard(), kResponses) == 3; }));
    EXPECT_EQ(3u, occurrences(heard(), "\"output\":\"alone\\n\""));
    for (const std::string& response : agent.responses())
        EXPECT_THAT(response, HasSubstr("\"output\":\"alone\\n\""));
}

TEST_F(FarAway, TopicsBeginWithTheBaseThatIsGiven) {
    start({"--base", "site7/gw/agent"});
    ASSERT_TRUE(logs("taking requests"));
    listen("site7/#");
    publish("site7/gw/agent/request/cloud", kDescribe);
    EXPECT_TRUE(hears("site7/gw/agent/response/cloud {"));
    EXPECT_TRUE(hears("site7/gw/agent/state online\n"));
    const std::string response = agent_->call(request("none", "{}", 2));
    EXPECT_TRUE(hears("site7/gw/agent/response " + response + "\n"));
}

// What is published besides

TEST_F(FarAway, LocalResponsesAndTheStateArePublishedAsWithoutRequests) {
    AgentInSandbox& agent = start();
    ASSERT_TRUE(logs("taking requests"));
    listen("gateways/agent/#");
    EXPECT_TRUE(hears("gateways/agent/state online\n"));
    const std::string first = agent.call(request("none", "{}", 1));
    const std::string second = agent.call("no json");
    EXPECT_TRUE(
        hears("gateways/agent/response " + first + "\ngateways/agent/response " + second + "\n"));
    EXPECT_EQ(0, agent.end(SIGTERM).status);
    EXPECT_TRUE(hears("\ngateways/agent/state offline\n"));
}

TEST_F(FarAway, TheBrokerSaysWhenTheAgentHasVanished) {
    agent_ = std::make_unique<AgentInSandbox>(
        "echo $$ >/tmp/agent.number; exec \"$@\"",
        std::vector<std::string>{"--mqtt", "127.0.0.1:" + std::to_string(broker_.port()), "--tls",
                                 certificates_.directory.path(), "--requests"});
    listen("gateways/agent/#");
    ASSERT_TRUE(hears("gateways/agent/state online\n"));
    kill(std::stoi(agent_->read("/tmp/agent.number")), SIGKILL);
    EXPECT_TRUE(hears("gateways/agent/state offline\n"));
}

TEST(remote_publishing, KeepsLocalResponsesWhileTheBrokerIsAway) {
    Broker broker;
    const std::string topic = "gateways/agent/response";
    broker.keepFor("watcher", topic);
    AgentInSandbox agent(
        {"--mqtt", "127.0.0.1:" + std::to_string(broker.port()), "--requests", "--insecure"});
    const auto logs = [&](const std::string& text) {
        return eventually([&] { return agent.log().find(text) != std::string::npos; });
    };
    ASSERT_TRUE(logs("taking requests"));
    broker.stop();
    const std::string response = agent.call(request("none", "{}", 7));
    ASSERT_TRUE(logs("ERROR: tavo-agent: lost tcp://"));
    broker.start();
    EXPECT_THAT(broker.receiveKept("watcher", topic, 1),
                testing::ElementsAre(topic + " 1 0 " + response));
}

TEST(remote_publishing, GivesTheBrokerAgainWhatItHadNotTaken) {
    Broker broker;
    const std::string topic = "gateways/agent/response";
    broker.keepFor("watcher", topic);
    broker.stop(); // saves the session
    broker.start();
    AgentInSandbox agent(
        {"--mqtt", "127.0.0.1:" + std::to_string(broker.port()), "--requests", "--insecure"});
    ASSERT_TRUE(
        eventually([&] { return agent.log().find("taking requests") != std::string::npos; }));
    broker.halt();
    const std::string response = agent.call(request("none", "{}", 7));
    // Long enough for the agent to publish: it checks ten times a second.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    broker.kill();
    broker.start();
    EXPECT_THAT(broker.receiveKept("watcher", topic, 1),
                testing::ElementsAre(topic + " 1 0 " + response));
}

// What is refused

TEST_F(FarAway, RetainedRequestsAreIgnoredAndLogged) {
    publish(kRequests + "cloud", kDescribe, {"-r"});
    AgentInSandbox& agent = startAndWait();
    EXPECT_TRUE(logs("ERROR: tavo-agent: retained request of cloud ignored\n"));
    publish(kRequests + "cloud", request("none", "{}", 2));
    ASSERT_TRUE(hears("\"id\":2,"));
    EXPECT_THAT(heard(), Not(HasSubstr("methods")));
    EXPECT_THAT(agent.log(), Not(HasSubstr("system.describe")));
}

TEST_F(FarAway, SendersMustHavePlainNames) {
    startAndWait();
    publish(kRequests + "a b", kDescribe);
    EXPECT_TRUE(logs("ERROR: tavo-agent: request ignored: \"a b\" is no name of a sender\n"));
    publish(kRequests + std::string(65, 'n'), kDescribe);
    EXPECT_TRUE(logs("ERROR: tavo-agent: request ignored: ", 2));
    publish(kRequests + std::string(64, 'n'), kDescribe);
    EXPECT_TRUE(hears(kResponses + std::string(64, 'n') + " {"));
    EXPECT_EQ(1u, occurrences(heard(), kResponses));
}

TEST_F(FarAway, ProgramsAndFilesNeedLeave) {
    AgentInSandbox& agent = startAndWait({"--allow", "sh"});
    publish(kRequests + "cloud",
            request("process.run", R"({"command":"sh","arguments":["-c","echo >/tmp/here"]})", 1));
    EXPECT_TRUE(
        hears(error("1", -32000, "Failed", "process.run is not open to this sender") + "\n"));
    publish(kRequests + "cloud", request("config.place", "{}", 2));
    EXPECT_TRUE(
        hears(error("2", -32000, "Failed", "config.place is not open to this sender") + "\n"));
    EXPECT_FALSE(support::exists(agent.file("/tmp/here")));
    EXPECT_THAT(agent.log(), HasSubstr("ERROR: tavo-agent: request 1 process.run: -32000 Failed: "
                                       "process.run is not open to this sender\n"));
    // The local socket is not restricted.
    EXPECT_THAT(agent.call(request("process.run", R"({"command":"sh"})")), HasSubstr("exit_code"));
}

TEST_F(FarAway, EachOfThemIsOpenedByName) {
    startAndWait({"--allow", "echo", "--remote-allow", "process.run"});
    publish(kRequests + "cloud",
            request("process.run", R"({"command":"echo","arguments":["hi"]})", 1));
    EXPECT_TRUE(hears("\"output\":\"hi\\n\""));
    publish(kRequests + "cloud", request("config.place", "{}", 2));
    EXPECT_TRUE(hears("config.place is not open to this sender"));
}

// Repeated requests

class Repeated : public FarAway {
protected:
    /// Returns a request that appends a line to a file at each execution.
    static std::string counting(int id) {
        return request("process.run",
                       R"({"command":"sh","arguments":["-c","echo >>/tmp/count; date +%N"]})", id);
    }
    std::size_t count() const { return agent_->read("/tmp/count").size(); }
    AgentInSandbox& startCounting() {
        return startAndWait({"--allow", "sh", "--remote-allow", "process.run"});
    }
    /// Publishes a request and returns its response, which must be response number `times`.
    std::string responseTo(const std::string& sender, const std::string& message,
                           std::size_t times) {
        publish(kRequests + sender, message);
        EXPECT_TRUE(eventually([&] { return occurrences(heard(), kResponses) == times; }));
        const std::string all = heard();
        const std::size_t begin = all.rfind(kResponses);
        return all.substr(all.find(' ', begin) + 1);
    }
};

TEST_F(Repeated, RequestsAreAnsweredFromMemoryAndNotRunAgain) {
    startCounting();
    const std::string first = responseTo("cloud", counting(1), 1);
    EXPECT_EQ(first, responseTo("cloud", counting(1), 2));
    EXPECT_EQ(1u, count());
    EXPECT_THAT(agent_->log(),
                HasSubstr("INFO: tavo-agent: request 1 of cloud repeated: not run again\n"));
}

TEST_F(Repeated, IdsOfTwoSendersNeverMeet) {
    startCounting();
    const std::string first = responseTo("cloud", counting(1), 1);
    EXPECT_NE(first, responseTo("office", counting(1), 2));
    EXPECT_EQ(2u, count());
}

TEST_F(Repeated, IdsOfTwoTypesNeverMeet) {
    startCounting();
    responseTo("cloud", counting(1), 1);
    std::string text = counting(1);
    text.replace(text.find("\"id\":1"), 6, "\"id\":\"1\"");
    EXPECT_THAT(responseTo("cloud", text, 2), HasSubstr("\"id\":\"1\""));
    EXPECT_EQ(2u, count());
}

TEST_F(Repeated, TheLatestSixtyFourAreRemembered) {
    startCounting();
    const std::string first = responseTo("cloud", counting(0), 1);
    std::size_t times = 1;
    for (int id = 1; id <= 63; ++id)
        responseTo("cloud", request("none", "{}", id), ++times);
    EXPECT_EQ(first, responseTo("cloud", counting(0), ++times));
    EXPECT_EQ(1u, count());
    responseTo("cloud", request("none", "{}", 64), ++times);
    EXPECT_NE(first, responseTo("cloud", counting(0), ++times));
    EXPECT_EQ(2u, count());
}

TEST_F(Repeated, ThoseWhoseResponsesAreTooMuchToKeepAreNotRunAgainEither) {
    startCounting();
    const auto large = [](int id) {
        return request("process.run",
                       R"({"command":"sh","arguments":["-c",)"
                       R"("echo >>/tmp/count; head -c 200000 /dev/zero | tr \\\\0 \\\\033"]})",
                       id);
    };
    for (int id = 1; id <= 3; ++id)
        responseTo("cloud", large(id), static_cast<std::size_t>(id));
    EXPECT_EQ(
        error("1", -32000, "Failed", "carried out already, and the response is no longer kept") +
            "\n",
        responseTo("cloud", large(1), 4));
    EXPECT_THAT(responseTo("cloud", large(3), 5), HasSubstr("exit_code"));
    EXPECT_EQ(3u, count());
}

// The broker

TEST_F(FarAway, RequestsAreTakenAgainWhenTheBrokerIsBack) {
    startAndWait();
    listener_.reset();
    broker_.stop();
    ASSERT_TRUE(
        logs("ERROR: tavo-agent: lost ssl://127.0.0.1:" + std::to_string(broker_.port()) + "\n"))
        << agent_->log();
    ASSERT_TRUE(logs("ERROR: tavo-agent: no requests from ssl://127.0.0.1:" +
                     std::to_string(broker_.port()) + ": no connection"));
    broker_.start();
    ASSERT_TRUE(logs("INFO: tavo-agent: taking requests from ssl://", 2));
    listen();
    publish(kRequests + "cloud", kDescribe);
    EXPECT_TRUE(hears("\"methods\""));
}

TEST_F(FarAway, AResponseThatFoundNoBrokerIsGivenAgain) {
    AgentInSandbox& agent = startAndWait({"--allow", "sh", "--remote-allow", "process.run"});
    const std::string slow = request(
        "process.run", R"({"command":"sh","arguments":["-c",)"
                       R"("echo >>/tmp/count; until [ -e /tmp/go ]; do sleep 0.01; done"]})");
    publish(kRequests + "cloud", slow);
    ASSERT_TRUE(eventually([&] { return support::exists(agent.file("/tmp/count")); }));
    listener_.reset();
    broker_.stop();
    support::writeFile(agent.file("/tmp/go"), "");
    ASSERT_TRUE(logs("INFO: tavo-agent: request 1 process.run: done\n"));
    broker_.start();
    ASSERT_TRUE(logs("INFO: tavo-agent: taking requests from ssl://", 2));
    listen();
    publish(kRequests + "cloud", slow);
    EXPECT_TRUE(hears("\"exit_code\":0"));
    EXPECT_EQ("\n", agent.read("/tmp/count"));
}

TEST_F(FarAway, TheAgentEndsInTimeWhileTheBrokerStaysSilent) {
    const support::Listener silent;
    AgentInSandbox agent({"--mqtt", "127.0.0.1:" + std::to_string(silent.port()), "--requests",
                          "--tls", certificates_.directory.path()});
    ASSERT_TRUE(silent.holdClient());
    const auto begin = std::chrono::steady_clock::now();
    const support::Ran ran = agent.end(SIGTERM);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_EQ(0, ran.status);
    EXPECT_THAT(agent.log(), EndsWith("INFO: tavo-agent: ended by SIGTERM\n"));
}

TEST_F(FarAway, AProgramInProgressIsEndedWithTheAgent) {
    AgentInSandbox& agent = startAndWait({"--allow", "sh", "--remote-allow", "process.run"});
    publish(kRequests + "cloud",
            request("process.run",
                    R"({"command":"sh","arguments":["-c","echo >/tmp/begun; exec sleep 100"]})"));
    ASSERT_TRUE(eventually([&] { return support::exists(agent.file("/tmp/begun")); }));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(0, agent.end(SIGTERM).status);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
    EXPECT_TRUE(hears(R"("raw_status":15,"exit_code":null,"signal":15)"));
}

// Brokers that are not the right one

class Impostor : public FarAway {
protected:
    /// Expects an agent to reject `impostor` as its broker, and to log the reason.
    void expectRefused(const Broker& impostor, const std::string& reason) {
        const std::string address = "127.0.0.1:" + std::to_string(impostor.port());
        agent_ = std::make_unique<AgentInSandbox>(std::vector<std::string>{
            "--mqtt", address, "--requests", "--tls", certificates_.directory.path()});
        EXPECT_TRUE(
            logs("ERROR: tavo-agent: no requests from ssl://" + address + ": " + reason + "\n"))
            << agent_->log();
        EXPECT_THAT(agent_->log(), Not(HasSubstr("taking requests")));
    }
};

TEST_F(Impostor, OfAnotherAuthorityIsRefused) {
    const Certificates others;
    expectRefused(Broker(others.settings(false)), "certificate verify failed");
}

TEST_F(Impostor, WithACertificateForAnotherHostIsRefused) {
    certificates_.issue("elsewhere", "broker", "DNS:broker.example,IP:127.0.0.2");
    expectRefused(Broker(certificates_.settings(false, "elsewhere")),
                  "no connection, or the certificate does not fit");
}

TEST_F(Impostor, WithAGatewaysCertificateIsRefused) {
    certificates_.issue("gateway", "gw7", "");
    expectRefused(Broker(certificates_.settings(false, "gateway")),
                  "no connection, or the certificate does not fit");
}

TEST_F(FarAway, ABrokerThatDoesNotKnowTheGatewayRefusesIt) {
    const Certificates others;
    support::runProgram({"cp", others.directory / "mqtt_client-cert.crt",
                         certificates_.directory / "mqtt_client-cert.crt"});
    support::runProgram({"cp", others.directory / "mqtt_client-key.key",
                         certificates_.directory / "mqtt_client-key.key"});
    AgentInSandbox& agent = start();
    EXPECT_TRUE(logs("ERROR: tavo-agent: no requests from ssl://")) << agent.log();
    EXPECT_THAT(agent.log(), Not(HasSubstr("taking requests")));
}

// The broker's access list

/// The broker as documented: its users are the names in the clients' certificates.
class Listed : public FarAway {
protected:
    Listed()
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

TEST_F(Listed, SendersUseTheirOwnNamesOnly) {
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

TEST_F(Listed, AGatewayCannotSendRequests) {
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

TEST(remote_options, RefuseWhatDoesNotFit) {
    const auto expectRefusal = [](std::vector<std::string> arguments, const std::string& why) {
        arguments.insert(arguments.begin(), TAVO_AGENT);
        const support::Ran ran = support::runProgram(arguments);
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
                  "'uci.apply' is not refused to requests from the broker; see --help");
    for (const char* base : {"", "/a", "a/", "a//b", "a+", "#", "a b", "-a"})
        expectRefusal({"--mqtt", "h:1", "--base", base, "a"},
                      "'" + std::string(base) +
                          "' is no base for topics: use letters, digits, _, -, . and / between "
                          "them");
}

TEST(remote_options, NameTheFileForTlsThatIsMissing) {
    const support::Ran ran =
        runInSandbox({TAVO_AGENT, "--mqtt", "h:1", "--requests", "--tls", "/tmp/nowhere", "agent"});
    EXPECT_EQ(1, ran.status);
    EXPECT_EQ("tavo-agent: /tmp/nowhere/mqtt_ca-cert.crt: No such file or directory\n", ran.err);
}

TEST(remote_options, AllowAnUnprotectedBrokerOnRequest) {
    const Broker broker;
    AgentInSandbox agent(
        {"--mqtt", "127.0.0.1:" + std::to_string(broker.port()), "--requests", "--insecure"});
    EXPECT_TRUE(eventually([&] {
        return agent.log().find("INFO: tavo-agent: taking requests from tcp://") !=
               std::string::npos;
    }));
}

} // namespace
