#ifndef TAVO_AGENT_MQTT_PUBLISHER_H
#define TAVO_AGENT_MQTT_PUBLISHER_H

#include "Options.h"

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

/// Publishes the responses at an MQTT broker, from a thread of its own: a broker that is slow or
/// away delays no request.
///
/// Topics: gateways/NAME/response for the responses; gateways/NAME/state, retained, says
/// "online" while the agent is connected and "offline" (its will) when it is not.
class MqttPublisher {
public:
    /// Starts connecting; `name` is the agent's.
    MqttPublisher(const Broker& broker, const std::string& name);
    /// Calls end() and waits for the thread, however long that takes.
    ~MqttPublisher();
    MqttPublisher(const MqttPublisher&) = delete;
    MqttPublisher& operator=(const MqttPublisher&) = delete;

    /// Publishes what is left, if connected, and "offline". False when the broker does not answer
    /// for three seconds: the thread then still waits for it, and only _exit() ends the process in
    /// time.
    bool end();

    /// Never waits. While the broker is away the latest responses are kept, the oldest dropped.
    void publish(const std::string& response);

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
