#ifndef TAVO_AGENT_AGENT_H
#define TAVO_AGENT_AGENT_H

#include <kvr/api/com/NQ_Sockets.h>

#include "Descriptors.h"

namespace agent {

class Connections;
class Publisher;
class RequestHandler;

/// Receives the messages of the socket server. Has each message handled, and prints and publishes
/// the response. Also sends the response back if the request wants it.
class Agent : public kvr::api::iot::Observer<kvr::api::com::NQ_Sockets> {
public:
    /// `publisher` may be null. All must outlive the agent.
    Agent(RequestHandler& handler, Connections& connections, const ResponseOutput& output,
          Publisher* publisher)
        : handler_(handler), connections_(connections), output_(output), publisher_(publisher) {}

    /// Runs on the server's thread. Throws std::runtime_error once the handler refuses requests;
    /// the server then drops the connection.
    void update(kvr::api::com::NQ_Sockets* server) override;

private:
    RequestHandler& handler_;
    Connections& connections_;
    const ResponseOutput& output_;
    Publisher* publisher_;
};

} // namespace agent

#endif
