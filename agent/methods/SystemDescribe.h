#ifndef TAVO_AGENT_SYSTEM_DESCRIBE_H
#define TAVO_AGENT_SYSTEM_DESCRIBE_H

#include "methods/Method.h"

#include <vector>

namespace agent {

/// system.describe: lists all methods with their descriptions.
class SystemDescribe : public Method {
public:
    /// Describes itself and `others`, which must outlive this object.
    explicit SystemDescribe(const std::vector<const CallbackMethod*>& others);

private:
    Json run(const Params& params) override;

    std::vector<const CallbackMethod*> methods_;
};

} // namespace agent

#endif
