#ifndef TAVO_AGENT_MQTT_CLIENT_H
#define TAVO_AGENT_MQTT_CLIENT_H

#include "mqtt/Broker.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <string>

#include <MQTTClient.h>

namespace agent {

struct MqttMessage {
    std::string topic;
    std::string payload;
    bool retained = false;
};

/// A connection to a broker that also receives messages, which NQ_Mqtt cannot.
///
/// Use it on one thread, and with no other MQTT client in the process. receive() reads the packets
/// of every client, NQ_Mqtt's too, and drops those that it does not expect. Another client may then
/// never receive the broker's answer to its connection.
///
/// The class does not use Paho's callbacks, which run on Paho's own thread. When the broker
/// returns, Paho 1.3.12 can run that thread and its successor concurrently, and the process
/// crashes.
///
/// Over TLS the broker must show a certificate that the authority has issued for the host's name or
/// address.
class MqttClient {
public:
    /// The client keeps at most `longestPayload` bytes of a message. With a `will` the broker
    /// publishes that message, retained, when the client vanishes.
    MqttClient(const Broker& broker, const std::string& clientId, std::size_t longestPayload,
               const MqttMessage& will = MqttMessage());
    /// Disconnects.
    ~MqttClient();
    MqttClient(const MqttClient&) = delete;
    MqttClient& operator=(const MqttClient&) = delete;

    /// Connects, also after a lost connection. Returns an empty text, or the reason of the failure.
    /// Blocks for some seconds when the broker does not answer.
    std::string connect();

    /// Returns false when the broker refuses or the connection is lost. Messages arrive at least
    /// once.
    bool subscribe(const std::string& filter);

    /// Sends a message with delivery "at least once", and does not wait for the broker. Returns a
    /// number for isAcknowledged(), or 0 when the connection is lost.
    int publish(const std::string& topic, const std::string& payload, bool retained = false);

    /// True once receive() has read the broker's acknowledgement.
    bool isAcknowledged(int number);

    enum class Event { Message, Lost, Nothing };

    /// Waits for a message, at most for `limit`. Also keeps the connection alive: call it every few
    /// seconds.
    Event receive(MqttMessage& message, std::chrono::milliseconds limit);

private:
    static int tlsError(const char* text, std::size_t length, void* self);
    std::string reasonOf(int code) const;

    Broker broker_;
    std::size_t longestPayload_;
    MqttMessage will_; ///< none when its topic is empty
    MQTTClient client_ = nullptr;
    std::string tlsError_; ///< of the last attempt to connect
};

} // namespace agent

#endif
