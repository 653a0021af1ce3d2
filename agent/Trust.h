#ifndef TAVO_AGENT_TRUST_H
#define TAVO_AGENT_TRUST_H

#include <sys/types.h>
#include <unistd.h>

namespace agent {

/// True for the user that this process runs as, and for root, who can do anything anyway.
inline bool isTrusted(uid_t user) { return user == geteuid() || user == 0; }

} // namespace agent

#endif
