#ifndef TAVO_AGENT_METHOD_H
#define TAVO_AGENT_METHOD_H

#include <kvr/api/NQ_JsonRPC.h>

#include "rpc/Json.h"
#include "rpc/Params.h"

#include <string>

namespace agent {

/// A method of the agent. Derived classes carry it out; this one puts the outcome into the
/// response.
class Method : public kvr::api::CallbackMethod {
public:
    Method(const std::string& name, const std::string& description)
        : name_(name), description_(description) {}

    /// Adds "result", or "error" for an RpcError, to the response. Returns true for a result. Other
    /// exceptions reach the caller.
    bool Call(const kvr::api::data::NQ_JSON& request, kvr::api::data::NQ_JSON& response) final;
    std::string GetName() const final { return name_; }
    std::string GetDescription() const final { return description_; }

private:
    virtual Json run(const Params& params) = 0;

    std::string name_;
    std::string description_;
};

} // namespace agent

#endif
