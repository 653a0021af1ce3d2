#ifndef TAVO_AGENT_UCI_GET_H
#define TAVO_AGENT_UCI_GET_H

#include "methods/Method.h"

namespace agent {

/// uci.get: reads one section of the gateway's configuration.
class UciGet : public Method {
public:
    UciGet();

private:
    Json run(const Params& params) override;
};

} // namespace agent

#endif
