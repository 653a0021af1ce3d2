#ifndef TAVO_AGENT_AGENT_H
#define TAVO_AGENT_AGENT_H

#include "Descriptors.h"
#include "OwnerOnly.h"
#include "rpc/Dispatcher.h"
#include "rpc/Rpc.h"

#include <kvr/api/com/NQ_Sockets.h>

#include <atomic>
#include <mutex>
#include <string>

namespace agent {

class MqttPublisher;
class Request;

/// Handles the messages of a socket server: checks each, has it dispatched, prints the response and
/// logs both.
class Agent : public kvr::api::iot::Observer<kvr::api::com::NQ_Sockets> {
public:
    /// `ownerOnly` is lifted with the first message; `publisher` may be null. All must outlive the
    /// agent.
    Agent(Dispatcher& dispatcher, const ResponseOutput& output, MqttPublisher* publisher,
          OwnerOnly& ownerOnly)
        : dispatcher_(dispatcher), output_(output), publisher_(publisher), ownerOnly_(ownerOnly) {}

    /// On the server's thread. Raises std::runtime_error once refuseRequests() was called, upon
    /// which the server gives up the connection.
    void update(kvr::api::com::NQ_Sockets* server) override;

    /// From now on no request is begun. From any thread.
    void refuseRequests() { ending_ = true; }

    /// Held while a message is handled.
    std::mutex& busy() { return busy_; }

private:
    void handle(const std::string& message);
    /// The response; null for a notification. Logs the outcome.
    Json respond(const std::string& message);
    Json dispatch(const Request& request);

    Dispatcher& dispatcher_;
    const ResponseOutput& output_;
    MqttPublisher* publisher_;
    OwnerOnly& ownerOnly_;
    std::atomic<bool> ending_{false};
    std::mutex busy_;
};

} // namespace agent

#endif
