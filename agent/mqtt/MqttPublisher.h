#ifndef TAVO_AGENT_MQTT_PUBLISHER_H
#define TAVO_AGENT_MQTT_PUBLISHER_H

#include "mqtt/Broker.h"
#include "mqtt/Publisher.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <string>
#include <thread>

namespace kvr {
namespace api {
namespace com {
class NQ_Mqtt;
}
} // namespace api
} // namespace kvr

namespace agent {

/// The Publisher of an agent that takes no requests from the broker. Uses the library's client.
///
/// Over TLS the broker must show a certificate of the authority. NQ_Mqtt does not compare the name
/// in it with the host's; docs/fleet.md describes how to keep another client from posing as the
/// broker.
class MqttPublisher : public Publisher {
public:
    /// `name` is the agent's, `base` what the topics begin with.
    MqttPublisher(const Broker& broker, const std::string& name, const std::string& base);
    /// Calls beginEnd() and waits for the thread, however long that takes.
    ~MqttPublisher() override;
    MqttPublisher(const MqttPublisher&) = delete;
    MqttPublisher& operator=(const MqttPublisher&) = delete;

    void start() override;
    void publish(const std::string& response) override;
    void beginEnd() override;
    bool endsWithin(std::chrono::milliseconds limit) override;

private:
    void run(bool& keepTrying);
    bool publishQueued(kvr::api::com::NQ_Mqtt& client);
    bool awaitResponse(std::string& response);
    void dropFirst(const std::string& response);
    bool isEnding();

    Broker broker_;
    std::string name_;
    std::string topic_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::string> queue_; // guarded by mutex_
    bool ending_ = false;           // guarded by mutex_
    std::promise<void> ended_;
    std::future<void> end_;
    std::thread thread_;
};

} // namespace agent

#endif
