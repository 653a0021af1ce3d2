#ifndef TAVO_AGENT_SYSTEM_INFO_H
#define TAVO_AGENT_SYSTEM_INFO_H

#include "methods/Method.h"

namespace agent {

/// system.info: information about the agent and the gateway.
class SystemInfo : public Method {
public:
    SystemInfo();

private:
    Json run(const Params& params) override;
};

} // namespace agent

#endif
