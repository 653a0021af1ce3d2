#ifndef TAVO_AGENT_OPTIONS_H
#define TAVO_AGENT_OPTIONS_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace agent {

struct Broker {
    std::string host;
    std::string port;
};

struct Options {
    std::string name;                   ///< of the socket
    std::vector<std::string> allowed;   ///< programs for process.run
    std::optional<Broker> broker;       ///< where responses are published, too
    std::size_t logLimit = 1024 * 1024; ///< bytes
    std::chrono::seconds idleLimit{10};
};

/// Reads the command line. Ends the process for --help (status 0) and, with a message, for anything
/// that it does not understand (status 2).
Options parseOptions(int argc, char** argv);

} // namespace agent

#endif
