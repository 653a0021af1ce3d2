#ifndef TAVO_AGENT_SENDER_OPTIONS_H
#define TAVO_AGENT_SENDER_OPTIONS_H

#include "mqtt/Broker.h"

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace agent {

struct SenderOptions {
    std::string name; ///< of the socket, without a broker
    std::vector<std::string> files;
    bool answers = true;
    std::chrono::seconds timeout{30};
    std::optional<Broker> broker;
    std::string base = "gateways"; ///< the beginning of topics, before a gateway's name
    std::string sender;            ///< this program's name in topics
    std::set<std::string> gateways;
    bool all = false; ///< instead of `gateways`
};

/// Prints one line on standard error.
void complain(const std::string& problem);

/// Reads the command line. Ends the process for --help (status 0) and, with a message, for invalid
/// arguments (status 2).
SenderOptions parseSenderOptions(int argc, char** argv);

} // namespace agent

#endif
