#ifndef TAVO_AGENT_SOCKET_DIRECTORY_H
#define TAVO_AGENT_SOCKET_DIRECTORY_H

#include <string>

namespace agent {

/// The path of the socket file `name`: /tmp/socketDDS/NAME.
std::string socketPath(const std::string& name);

/// Makes the directory of the socket files, for its owner alone, when it is missing. Everybody may
/// create it in /tmp, so call socketDirectoryProblem() next.
void makeSocketDirectory();

/// Why the directory cannot be trusted: another user who owns it, or may write to it, could put a
/// socket of theirs in the place of the agent's. Empty when it can be trusted or is missing. Root
/// is always trusted.
std::string socketDirectoryProblem();

} // namespace agent

#endif
