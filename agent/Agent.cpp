#include "Agent.h"

#include "Accept.h"
#include "Log.h"
#include "mqtt/Publisher.h"
#include "rpc/RequestHandler.h"

namespace agent {

void Agent::update(kvr::api::com::NQ_Sockets* server) {
    const Response response = handler_.handle(server->getLastMessage(), "");
    if (!response.text.empty()) {
        if (!output_.write(response.text))
            logError("the response could not be written");
        if (publisher_ != nullptr)
            publisher_->publish(response.text);
        if (response.wantedBySender && !connections_.answer(response.text))
            logError("the response could not be sent back");
    }
}

} // namespace agent
