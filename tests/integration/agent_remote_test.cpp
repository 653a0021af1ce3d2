// Remote requests, over MQTT with TLS: how the agent handles them. agent_remote_broker_test.cpp
// tests absent and wrong brokers.

#include "RemoteAgent.h"

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace {

using support::AgentInSandbox;
using support::Broker;
using support::Client;
using support::error;
using support::eventually;
using support::kDescribe;
using support::kRequests;
using support::kResponses;
using support::occurrences;
using support::RemoteAgent;
using support::request;
using testing::HasSubstr;
using testing::Not;

using tavo_agent_remote = RemoteAgent;

// Requests and responses

TEST_F(tavo_agent_remote, ARequestIsAnsweredToItsSender) {
    AgentInSandbox& agent = startAndWait();
    publish(kRequests + "cloud", request("none", "{}", 7));
    EXPECT_TRUE(receives(kResponses + "cloud " +
                         error("7", -32601, "Method not found", "there is no method \\\"none\\\"") +
                         "\n"));
    EXPECT_THAT(agent.log(), HasSubstr("INFO: tavo-agent: request 7 none (52 bytes from cloud)\n"));
    EXPECT_TRUE(agent.responses().empty()) << "what the local socket's requests get";
    EXPECT_EQ(0, agent.end(SIGTERM).status);
}

TEST_F(tavo_agent_remote, ARequestChangesTheGatewayAsALocalOneDoes) {
    AgentInSandbox& agent = startAndWait();
    publish(kRequests + "cloud",
            request("uci.apply",
                    R"({"config":"network","section":"lan","values":{"ipaddr":"10.9.8.7"}})"));
    ASSERT_TRUE(receives(R"("existed":true,"exists":true)"));
    EXPECT_THAT(agent.read("/etc/config/network"), HasSubstr("option ipaddr '10.9.8.7'\n"));
}

TEST_F(tavo_agent_remote, MessagesThatAreNoRequestsAreAnsweredAsOnTheSocket) {
    startAndWait();
    publish(kRequests + "cloud", "hello");
    EXPECT_TRUE(receives(kResponses + "cloud " +
                         error("null", -32700, "Parse error", "unexpected character at byte 0")));
    publish(kRequests + "cloud", std::string(200000, 'x'));
    EXPECT_TRUE(receives(error("null", -32600, "Invalid Request", "longer than 131072 bytes")));
}

TEST_F(tavo_agent_remote, NotificationsAreCarriedOutAndNotAnswered) {
    AgentInSandbox& agent = startAndWait();
    publish(kRequests + "cloud",
            R"({"jsonrpc":"2.0","method":"uci.apply","params":{"config":"network","section":"lan",)"
            R"("values":{"ipaddr":"10.9.8.6"}}})");
    publish(kRequests + "cloud", kDescribe);
    ASSERT_TRUE(receives("\"methods\""));
    EXPECT_THAT(agent.read("/etc/config/network"), HasSubstr("option ipaddr '10.9.8.6'\n"));
    EXPECT_EQ(1u, occurrences(received(), kResponses));
}

TEST_F(tavo_agent_remote, LocalAndRemoteRequestsTakeTurns) {
    AgentInSandbox& agent = startAndWait({"--allow", "sh", "--remote-allow", "process.run"});
    const std::string slow =
        R"({"command":"sh","arguments":["-c",)"
        R"("mkdir /tmp/tavo-test-one && sleep 0.3 && rmdir /tmp/tavo-test-one && echo alone"]})";
    Client local(agent.socketPath());
    for (int id = 1; id <= 3; ++id) {
        publish(kRequests + "cloud", request("process.run", slow, id));
        local.send(request("process.run", slow, id));
    }
    ASSERT_TRUE(agent.waitForResponses(3));
    ASSERT_TRUE(eventually([&] { return occurrences(received(), kResponses) == 3; }));
    EXPECT_EQ(3u, occurrences(received(), "\"output\":\"alone\\n\""));
    for (const std::string& response : agent.responses())
        EXPECT_THAT(response, HasSubstr("\"output\":\"alone\\n\""));
}

TEST_F(tavo_agent_remote, TopicsBeginWithTheBaseThatIsGiven) {
    start({"--base", "site7/gw/agent"});
    ASSERT_TRUE(logs("taking requests"));
    listen("site7/#");
    publish("site7/gw/agent/request/cloud", kDescribe);
    EXPECT_TRUE(receives("site7/gw/agent/response/cloud {"));
    EXPECT_TRUE(receives("site7/gw/agent/state online\n"));
    const std::string response = agent_->call(request("none", "{}", 2));
    EXPECT_TRUE(receives("site7/gw/agent/response " + response + "\n"));
}

// Other publications

TEST_F(tavo_agent_remote, LocalResponsesAndTheStateArePublishedAsWithoutRequests) {
    AgentInSandbox& agent = start();
    ASSERT_TRUE(logs("taking requests"));
    listen("gateways/agent/#");
    EXPECT_TRUE(receives("gateways/agent/state online\n"));
    const std::string first = agent.call(request("none", "{}", 1));
    const std::string second = agent.call("no json");
    EXPECT_TRUE(receives("gateways/agent/response " + first + "\ngateways/agent/response " +
                         second + "\n"));
    EXPECT_EQ(0, agent.end(SIGTERM).status);
    EXPECT_TRUE(receives("\ngateways/agent/state offline\n"));
}

TEST_F(tavo_agent_remote, TheBrokerPublishesThatTheAgentWasKilled) {
    agent_ = std::make_unique<AgentInSandbox>(
        "echo $$ >/tmp/agent.pid; exec \"$@\"",
        std::vector<std::string>{"--mqtt", "127.0.0.1:" + std::to_string(broker_.port()), "--tls",
                                 certificates_.directory.path(), "--requests"});
    listen("gateways/agent/#");
    ASSERT_TRUE(receives("gateways/agent/state online\n"));
    kill(std::stoi(agent_->read("/tmp/agent.pid")), SIGKILL);
    EXPECT_TRUE(receives("gateways/agent/state offline\n"));
}

TEST(tavo_agent_remote_publishing, KeepsLocalResponsesWhileTheBrokerIsAway) {
    Broker broker;
    const std::string topic = "gateways/agent/response";
    broker.createSession("watcher", topic);
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
    EXPECT_THAT(broker.receiveQueued("watcher", topic, 1),
                testing::ElementsAre(topic + " 1 0 " + response));
}

TEST(tavo_agent_remote_publishing, PublishesUnacknowledgedResponsesAgain) {
    Broker broker;
    const std::string topic = "gateways/agent/response";
    broker.createSession("watcher", topic);
    broker.stop(); // saves the session
    broker.start();
    AgentInSandbox agent(
        {"--mqtt", "127.0.0.1:" + std::to_string(broker.port()), "--requests", "--insecure"});
    ASSERT_TRUE(
        eventually([&] { return agent.log().find("taking requests") != std::string::npos; }));
    broker.suspend();
    const std::string response = agent.call(request("none", "{}", 7));
    // More bytes than the message with the agent's state, which may also be unread.
    ASSERT_TRUE(eventually([&] { return broker.unreadBytes() > topic.size() + response.size(); }));
    broker.kill();
    broker.start();
    EXPECT_THAT(broker.receiveQueued("watcher", topic, 1),
                testing::ElementsAre(topic + " 1 0 " + response));
}

// Refusals

TEST_F(tavo_agent_remote, RetainedRequestsAreIgnoredAndLogged) {
    publish(kRequests + "cloud", kDescribe, {"-r"});
    AgentInSandbox& agent = startAndWait();
    EXPECT_TRUE(logs("ERROR: tavo-agent: retained request of cloud ignored\n"));
    publish(kRequests + "cloud", request("none", "{}", 2));
    ASSERT_TRUE(receives("\"id\":2,"));
    EXPECT_THAT(received(), Not(HasSubstr("methods")));
    EXPECT_THAT(agent.log(), Not(HasSubstr("system.describe")));
}

TEST_F(tavo_agent_remote, SendersMustHavePlainNames) {
    startAndWait();
    publish(kRequests + "a b", kDescribe);
    EXPECT_TRUE(logs("ERROR: tavo-agent: request ignored: \"a b\" is not a valid sender name\n"));
    publish(kRequests + std::string(65, 'n'), kDescribe);
    EXPECT_TRUE(logs("ERROR: tavo-agent: request ignored: ", 2));
    publish(kRequests + std::string(64, 'n'), kDescribe);
    EXPECT_TRUE(receives(kResponses + std::string(64, 'n') + " {"));
    EXPECT_EQ(1u, occurrences(received(), kResponses));
}

TEST_F(tavo_agent_remote, ProgramsAndFilesNeedPermission) {
    AgentInSandbox& agent = startAndWait({"--allow", "sh"});
    publish(kRequests + "cloud",
            request("process.run",
                    R"({"command":"sh","arguments":["-c","echo >/tmp/tavo-test-here"]})", 1));
    EXPECT_TRUE(receives(
        error("1", -32000, "Failed", "process.run is not allowed for this sender") + "\n"));
    publish(kRequests + "cloud", request("config.place", "{}", 2));
    EXPECT_TRUE(receives(
        error("2", -32000, "Failed", "config.place is not allowed for this sender") + "\n"));
    EXPECT_FALSE(support::exists(agent.file("/tmp/tavo-test-here")));
    EXPECT_THAT(agent.log(), HasSubstr("ERROR: tavo-agent: request 1 process.run: -32000 Failed: "
                                       "process.run is not allowed for this sender\n"));
    // The local socket is not restricted.
    EXPECT_THAT(agent.call(request("process.run", R"({"command":"sh"})")), HasSubstr("exit_code"));
}

TEST_F(tavo_agent_remote, EachRemoteMethodMustBeAllowedByName) {
    startAndWait({"--allow", "echo", "--remote-allow", "process.run"});
    publish(kRequests + "cloud",
            request("process.run", R"({"command":"echo","arguments":["hi"]})", 1));
    EXPECT_TRUE(receives("\"output\":\"hi\\n\""));
    publish(kRequests + "cloud", request("config.place", "{}", 2));
    EXPECT_TRUE(receives("config.place is not allowed for this sender"));
}

// Repeated requests

class tavo_agent_repeated : public RemoteAgent {
protected:
    /// Returns a request that appends a line to a file at each execution.
    static std::string counting(int id) {
        return request(
            "process.run",
            R"({"command":"sh","arguments":["-c","echo >>/tmp/tavo-test-count; date +%N"]})", id);
    }
    std::size_t count() const { return agent_->read("/tmp/tavo-test-count").size(); }
    AgentInSandbox& startCounting() {
        return startAndWait({"--allow", "sh", "--remote-allow", "process.run"});
    }
    /// Publishes a request and returns its response, which must be response number `times`.
    std::string responseTo(const std::string& sender, const std::string& message,
                           std::size_t times) {
        publish(kRequests + sender, message);
        EXPECT_TRUE(eventually([&] { return occurrences(received(), kResponses) == times; }));
        const std::string all = received();
        const std::size_t begin = all.rfind(kResponses);
        return all.substr(all.find(' ', begin) + 1);
    }
};

TEST_F(tavo_agent_repeated, RequestsAreAnsweredFromMemoryAndNotRunAgain) {
    startCounting();
    const std::string first = responseTo("cloud", counting(1), 1);
    EXPECT_EQ(first, responseTo("cloud", counting(1), 2));
    EXPECT_EQ(1u, count());
    EXPECT_THAT(agent_->log(),
                HasSubstr("INFO: tavo-agent: request 1 of cloud repeated: not run again\n"));
}

TEST_F(tavo_agent_repeated, IdsOfDifferentSendersAreDistinct) {
    startCounting();
    const std::string first = responseTo("cloud", counting(1), 1);
    EXPECT_NE(first, responseTo("office", counting(1), 2));
    EXPECT_EQ(2u, count());
}

TEST_F(tavo_agent_repeated, IdsOfDifferentTypesAreDistinct) {
    startCounting();
    responseTo("cloud", counting(1), 1);
    std::string text = counting(1);
    text.replace(text.find("\"id\":1"), 6, "\"id\":\"1\"");
    EXPECT_THAT(responseTo("cloud", text, 2), HasSubstr("\"id\":\"1\""));
    EXPECT_EQ(2u, count());
}

TEST_F(tavo_agent_repeated, TheLatestSixtyFourAreRemembered) {
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

TEST_F(tavo_agent_repeated, WithResponsesTooLargeToKeepAreNotRunAgainEither) {
    startCounting();
    const auto large = [](int id) {
        return request(
            "process.run",
            R"({"command":"sh","arguments":["-c",)"
            R"("echo >>/tmp/tavo-test-count; head -c 200000 /dev/zero | tr \\\\0 \\\\033"]})",
            id);
    };
    for (int id = 1; id <= 3; ++id)
        responseTo("cloud", large(id), static_cast<std::size_t>(id));
    EXPECT_EQ(error("1", -32000, "Failed", "already carried out; the response is no longer kept") +
                  "\n",
              responseTo("cloud", large(1), 4));
    EXPECT_THAT(responseTo("cloud", large(3), 5), HasSubstr("exit_code"));
    EXPECT_EQ(3u, count());
}

} // namespace
