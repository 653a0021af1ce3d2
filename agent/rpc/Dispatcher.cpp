#include "rpc/Dispatcher.h"

#include "methods/ConfigPlace.h"
#include "methods/Gpio.h"
#include "methods/ProcessRun.h"
#include "methods/SystemDescribe.h"
#include "methods/SystemInfo.h"
#include "methods/UciApply.h"
#include "methods/UciGet.h"

namespace agent {

Dispatcher::Dispatcher(const std::vector<std::string>& allowed)
    : processRun_(new ProcessRun(allowed)) {}

void Dispatcher::RegisterMethods() {
    const std::vector<kvr::api::CallbackMethod*> added = {
        new UciGet,     new UciApply, new ConfigPlace, processRun_,
        new SystemInfo, new GpioGet,  new GpioSet};
    AddMethod(new SystemDescribe({added.begin(), added.end()}));
    for (kvr::api::CallbackMethod* method : added)
        AddMethod(method);
}

} // namespace agent
