#include "Dispatcher.h"

#include "ProcessRun.h"
#include "SystemDescribe.h"
#include "UciApply.h"

namespace agent {

Dispatcher::Dispatcher(const std::vector<std::string>& allowed)
    : processRun_(new ProcessRun(allowed)) {}

void Dispatcher::RegisterMethods() {
    const std::vector<kvr::api::CallbackMethod*> added = {new UciApply, processRun_};
    AddMethod(new SystemDescribe({added.begin(), added.end()}));
    for (kvr::api::CallbackMethod* method : added)
        AddMethod(method);
}

} // namespace agent
