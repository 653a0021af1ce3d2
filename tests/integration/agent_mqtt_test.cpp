// The agent's responses at a real MQTT broker.

#include "AgentInSandbox.h"
#include "Broker.h"
#include "Waiting.h"

#include <chrono>
#include <csignal>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::AgentInSandbox;
using support::Broker;
using support::eventually;
using support::request;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

const std::string kResponses = "gateways/agent/response";

std::string addressOf(const Broker& broker) { return "127.0.0.1:" + std::to_string(broker.port()); }

/// Waits until `subscriber` has printed `expected`.
bool receives(const support::RunningProgram& subscriber, const std::string& expected) {
    return eventually([&] { return subscriber.outSoFar().find(expected) != std::string::npos; });
}

std::vector<std::string> subscribe(const Broker& broker) {
    return {"mosquitto_sub",   "-h", "127.0.0.1", "-p", std::to_string(broker.port()), "-v", "-t",
            "gateways/agent/#"};
}

TEST(tavo_agent_mqtt, PublishesEveryResponseAndItsState) {
    const Broker broker;
    AgentInSandbox agent({"--mqtt", addressOf(broker)});
    support::RunningProgram subscriber(subscribe(broker));
    ASSERT_TRUE(receives(subscriber, "gateways/agent/state online\n"));
    const std::string first = agent.call(request("none", "{}", 1));
    const std::string second = agent.call("no json");
    ASSERT_TRUE(receives(subscriber, "gateways/agent/response " + first +
                                         "\ngateways/agent/response " + second + "\n"));
    EXPECT_EQ(0, agent.end(SIGTERM).status);
    EXPECT_TRUE(receives(subscriber, second + "\ngateways/agent/state offline\n"));
    EXPECT_THAT(agent.log(),
                HasSubstr("INFO: tavo-agent: publishing to tcp://" + addressOf(broker) + "\n"));
}

TEST(tavo_agent_mqtt, LeavesAWillThatIsPublishedWhenItIsKilled) {
    const Broker broker;
    AgentInSandbox agent("echo $$ >/tmp/agent.number; exec \"$@\"", {"--mqtt", addressOf(broker)});
    support::RunningProgram subscriber(subscribe(broker));
    ASSERT_TRUE(receives(subscriber, "gateways/agent/state online\n"));
    kill(std::stoi(agent.read("/tmp/agent.number")), SIGKILL);
    EXPECT_TRUE(receives(subscriber, "gateways/agent/state offline\n"));
}

TEST(tavo_agent_mqtt, AnswersWithoutABrokerAndPublishesWhenItComes) {
    Broker broker;
    broker.createSession("watcher", kResponses);
    broker.stop();
    AgentInSandbox agent({"--mqtt", addressOf(broker)});
    const std::string response = agent.call(request("none", "{}", 1));
    EXPECT_THAT(response, HasSubstr("\"code\":-32601"));
    broker.start();
    EXPECT_THAT(broker.receiveQueued("watcher", kResponses, 1),
                ElementsAre(kResponses + " 1 0 " + response));
}

TEST(tavo_agent_mqtt, ConnectsAgainAfterTheBrokerWasAway) {
    Broker broker;
    broker.createSession("watcher", kResponses);
    AgentInSandbox agent({"--mqtt", addressOf(broker)});
    ASSERT_TRUE(
        eventually([&] { return agent.log().find("publishing to tcp://") != std::string::npos; }));
    broker.stop();
    const std::string response = agent.call(request("none", "{}", 7));
    ASSERT_TRUE(eventually(
        [&] { return agent.log().find("ERROR: tavo-agent: lost tcp://") != std::string::npos; }));
    broker.start();
    EXPECT_THAT(broker.receiveQueued("watcher", kResponses, 1),
                ElementsAre(kResponses + " 1 0 " + response));
}

TEST(tavo_agent_mqtt, EndsWhileItTriesToConnect) {
    const support::Port silent;
    AgentInSandbox agent({"--mqtt", "127.0.0.1:" + std::to_string(silent.number())});
    const support::ProgramResult ran = agent.end(SIGTERM);
    EXPECT_EQ(0, ran.status);
    EXPECT_THAT(agent.log(), EndsWith("INFO: tavo-agent: ended by SIGTERM\n"));
}

TEST(tavo_agent_mqtt, EndsInTimeWhileTheBrokerAcceptsConnectionsAndStaysSilent) {
    const support::Listener broker;
    AgentInSandbox agent({"--mqtt", "127.0.0.1:" + std::to_string(broker.port())});
    ASSERT_TRUE(broker.holdClient());
    agent.call(request("none", "{}", 1));
    const auto begin = std::chrono::steady_clock::now();
    const support::ProgramResult ran = agent.end(SIGTERM);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_EQ(0, ran.status);
    EXPECT_THAT(agent.log(), EndsWith("INFO: tavo-agent: ended by SIGTERM\n"));
    EXPECT_FALSE(support::exists(agent.socketPath()));
}

} // namespace
