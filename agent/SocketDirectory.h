#ifndef TAVO_AGENT_SOCKET_DIRECTORY_H
#define TAVO_AGENT_SOCKET_DIRECTORY_H

#include <string>

namespace agent {

/// The path of the socket file `name`: /tmp/socketDDS/NAME.
std::string socketPath(const std::string& name);

/// Creates the directory of the socket files when it is missing. Only its owner can access it. Any
/// user can create it in /tmp first, so call socketDirectoryProblem() next.
void makeSocketDirectory();

/// Returns why the directory cannot be trusted; empty when it can, or when it is missing. Another
/// user who owns it or may write to it could replace the agent's socket. Root is always trusted.
std::string socketDirectoryProblem();

} // namespace agent

#endif
