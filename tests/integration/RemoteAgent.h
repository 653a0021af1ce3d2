#ifndef TAVO_TESTS_REMOTE_AGENT_H
#define TAVO_TESTS_REMOTE_AGENT_H

#include "AgentInSandbox.h"
#include "Broker.h"
#include "Certificates.h"
#include "Waiting.h"

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace support {

const std::string kDescribe = request("system.describe", "{}");
const std::string kRequests = "gateways/agent/request/";
const std::string kResponses = "gateways/agent/response/";

/// A broker with TLS that requires client certificates, and a gateway with the matching files.
class RemoteAgent : public testing::Test {
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
        listener_ = std::make_unique<RunningProgram>(
            client("mosquitto_sub", {"-v", "-q", "1", "-t", filter, "-t", "ready"}));
        ASSERT_TRUE(eventually([&] {
            publish("ready", "yes");
            return received().find("ready yes\n") != std::string::npos;
        }));
    }

    std::string received() const { return listener_->outSoFar(); }

    bool receives(const std::string& expected) const {
        return eventually([&] { return received().find(expected) != std::string::npos; });
    }

    bool logs(const std::string& expected, std::size_t times = 1) const {
        return eventually([&] { return occurrences(agent_->log(), expected) >= times; });
    }

    void publish(const std::string& topic, const std::string& payload,
                 const std::vector<std::string>& more = {}) const {
        std::vector<std::string> arguments = {"-q", "1", "-t", topic, "-s"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const ProgramResult ran = runProgram(client("mosquitto_pub", arguments), {}, payload);
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
    std::unique_ptr<RunningProgram> listener_;
};

} // namespace support

#endif
