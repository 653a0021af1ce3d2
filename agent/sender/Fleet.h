#ifndef TAVO_AGENT_SENDER_FLEET_H
#define TAVO_AGENT_SENDER_FLEET_H

#include "mqtt/MqttClient.h"
#include "rpc/Json.h"
#include "sender/Payload.h"

#include <chrono>
#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace agent {

/// Sends one request to many gateways through an MQTT broker. Prints each response when it arrives:
/// the gateway's name, a blank, and one line of JSON.
class Fleet {
public:
    using Clock = std::chrono::steady_clock;

    struct Outcome {
        std::size_t errors = 0;              ///< responses that hold no result
        std::vector<std::string> unanswered; ///< gateways, in order of their names
    };

    /// Topics begin with `base`, '/', and a gateway's name. Only one program at a time may use
    /// `sender`.
    Fleet(const Broker& broker, const std::string& base, const std::string& sender,
          Clock::time_point deadline);

    /// Connects, and repeats a failed attempt until the deadline. Throws std::runtime_error with
    /// the reason when the broker does not accept the connection in time.
    void connect();

    /// The gateways whose agents are connected, by their retained states.
    std::set<std::string> findAll();

    /// Sends the request and waits until all `gateways` have answered, at most until the deadline.
    /// A notification gets no response, so this only waits until the broker has taken the messages.
    /// Throws std::runtime_error when `payload` is not a request.
    Outcome call(const Payload& payload, const std::set<std::string>& gateways);

private:
    bool subscribe();
    void sendTo(const std::set<std::string>& gateways);
    bool awaitTaken();
    void take(const MqttMessage& message);
    bool isPast() const { return Clock::now() >= deadline_; }
    void showProgress() const;

    std::string base_;
    std::string sender_;
    Clock::time_point deadline_;
    MqttClient client_;
    bool hasTerminal_;

    std::string text_; ///< of the request, with a new id
    std::string id_;   ///< the new id
    Json originalId_;  ///< the id that it replaces
    std::set<std::string> pending_;
    std::vector<int> numbers_; ///< of messages that the broker may not have taken
    std::size_t count_ = 0;    ///< of the gateways
    std::size_t errors_ = 0;
};

} // namespace agent

#endif
