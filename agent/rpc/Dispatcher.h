#ifndef TAVO_AGENT_DISPATCHER_H
#define TAVO_AGENT_DISPATCHER_H

#include <kvr/api/NQ_JsonRPC.h>

#include <string>
#include <vector>

namespace agent {

class ProcessRun;

/// The agent's methods.
class Dispatcher : public kvr::api::NQ_RPCHandler {
public:
    /// `allowed` are the programs that process.run may start.
    explicit Dispatcher(const std::vector<std::string>& allowed);

    void RegisterMethods() override;

    /// Owned by the dispatcher, like every method.
    ProcessRun& processRun() { return *processRun_; }

private:
    ProcessRun* processRun_;
};

} // namespace agent

#endif
