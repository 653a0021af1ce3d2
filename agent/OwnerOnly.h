#ifndef TAVO_AGENT_OWNER_ONLY_H
#define TAVO_AGENT_OWNER_ONLY_H

#include <sys/stat.h>

namespace agent {

/// Lets what is created belong to the owner alone, while it lives.
///
/// Who can connect to the agent's socket can change the gateway's configuration, and the library
/// creates the socket as accessible as the umask makes it: once in the server's constructor and
/// again when its loop begins. So this spans both. It must not last, as the programs that the
/// methods run inherit the umask: configuration files and what restarted services write would no
/// longer be readable for others.
class OwnerOnly {
public:
    OwnerOnly() : before_(umask(077)) {}
    ~OwnerOnly() { umask(before_); }
    OwnerOnly(const OwnerOnly&) = delete;
    OwnerOnly& operator=(const OwnerOnly&) = delete;

private:
    mode_t before_;
};

} // namespace agent

#endif
