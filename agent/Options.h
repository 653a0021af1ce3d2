#ifndef TAVO_AGENT_OPTIONS_H
#define TAVO_AGENT_OPTIONS_H

#include "mqtt/Broker.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace agent {

struct Options {
    std::string name;                 ///< of the socket
    std::vector<std::string> allowed; ///< programs for process.run
    std::optional<Broker> broker;     ///< where responses are also published
    std::string base;                 ///< what the topics begin with
    bool takesRequests = false;       ///< also from the broker
    /// Methods that requests from the broker may not name.
    std::set<std::string> refusedRemotely{"config.place", "process.run"};
    std::size_t logLimit = 1024 * 1024; ///< bytes
    std::chrono::seconds idleLimit{10};
};

/// Reads the command line. Ends the process for --help (status 0) and, with a message, for invalid
/// arguments (status 2).
Options parseOptions(int argc, char** argv);

} // namespace agent

#endif
