#ifndef TAVO_AGENT_AGENT_H
#define TAVO_AGENT_AGENT_H

#include "Descriptors.h"

#include <kvr/api/com/NQ_Sockets.h>

namespace agent {

class MqttPublisher;
class RequestHandler;

/// Takes the messages of the socket server: has each handled, prints the response and publishes it.
class Agent : public kvr::api::iot::Observer<kvr::api::com::NQ_Sockets> {
public:
    /// `publisher` may be null. All must outlive the agent.
    Agent(RequestHandler& handler, const ResponseOutput& output, MqttPublisher* publisher)
        : handler_(handler), output_(output), publisher_(publisher) {}

    /// On the server's thread. Raises std::runtime_error once the handler refuses requests, upon
    /// which the server gives up the connection.
    void update(kvr::api::com::NQ_Sockets* server) override;

private:
    RequestHandler& handler_;
    const ResponseOutput& output_;
    MqttPublisher* publisher_;
};

} // namespace agent

#endif
