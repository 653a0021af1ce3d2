#include "kvr/api/mdw/NQ_DDS_RMI.h"

#include <syslog.h>

namespace kvr::api::mdw {

using org::opensplice::DDS_RMI::CRuntime;

namespace {

constexpr char kThreadingModel[] = "--RMIClientThreadingModel=MT";

bool startAsClient(CRuntime& runtime) {
    const char* arguments[] = {"isClient", "--RMIServiceDiscoveryTimeout=20", kThreadingModel};
    return runtime.start(3, arguments);
}

bool startAsServer(CRuntime& runtime) {
    const char* arguments[] = {"isServer", kThreadingModel};
    return runtime.start(2, arguments);
}

} // namespace

int NQ_DDS_RMI_RUNTIME::startRUNTIME(bool isClient) {
    runtime = CRuntime::getDefaultRuntime();
    if (runtime.get() == nullptr) {
        // Deliberate, here and below: failures are informational too, and their texts end in a
        // blank.
        syslog(LOG_INFO, "Failed to get the default Runtime ");
        return 1;
    }
    syslog(LOG_INFO, "=== Runtime start");
    if (runtime->isUsable()) {
        syslog(LOG_INFO, "=== Great! Runtime is usable");
        return 0;
    }
    const bool started = isClient ? startAsClient(*runtime.get()) : startAsServer(*runtime.get());
    // Deliberate: logged also when start() has failed.
    syslog(LOG_INFO, "=== Runtime started");
    if (started)
        return 0;
    syslog(LOG_INFO, "Failed to start the Runtime ");
    return 1;
}

bool NQ_DDS_RMI_RUNTIME::stopRUNTIME() { return runtime->stop(); }

} // namespace kvr::api::mdw
