#ifndef TAVO_AGENT_OWNER_ONLY_H
#define TAVO_AGENT_OWNER_ONLY_H

#include <sys/stat.h>

namespace agent {

/// While it exists, only the owner can access the files that the process creates.
///
/// A user who can connect to the agent's socket can change the gateway's configuration. The umask
/// decides who can connect. The library creates the socket in the server's constructor, and again
/// when its loop begins. So this object must exist during both. It must be destroyed afterwards,
/// since the programs that the methods run inherit the umask. The configuration files and the files
/// of restarted services would otherwise not be readable for others.
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
