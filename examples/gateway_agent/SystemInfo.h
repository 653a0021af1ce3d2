#ifndef GATEWAY_AGENT_SYSTEM_INFO_H
#define GATEWAY_AGENT_SYSTEM_INFO_H

#include "Method.h"

namespace agent {

/// system.info: what the agent knows about itself and the gateway.
class SystemInfo : public Method {
public:
    SystemInfo();

private:
    Json run(const Params& params) override;
};

} // namespace agent

#endif
