#ifndef KVR_API_MDW_NQ_DDS_RMI_H
#define KVR_API_MDW_NQ_DDS_RMI_H

#include <dds_service_sdk.h>
#include <kvr/api/export.h>

namespace kvr {
namespace api {
namespace mdw {

/// Starts and stops the default DDS RMI runtime of the process, as an RMI client or as an RMI
/// server, with fixed options. The application creates services, proxies and QoS settings with DDS
/// RMI.
///
/// Ownership: the runtime belongs to DDS RMI, one per process. The object holds a share of it from
///            the first startRUNTIME() on; copies hold one each. Destroying the object stops
///            nothing.
/// Output:    system log records of informational priority, failures included; nothing on standard
///            output.
/// Failure:   the operations return it; exceptions of DDS RMI pass through.
/// Threads:   one object is used by one thread at a time. Objects on several threads share the one
///            runtime. The runtime over Cyclone DDS has a mutex for this; for OpenSplice see its
///            own documentation.
///
/// The class is part of the library unless the library was built with TAVO_DDS=OFF. The same
/// setting selects the provider of `<dds_service_sdk.h>`. The CMake target and the pkg-config
/// module name that header's directory.
class TAVO_API NQ_DDS_RMI_RUNTIME {
public:
    /// Fetches the default runtime and starts it. Does not start a runtime that runs already,
    /// whoever started it and in whichever role. `isClient` chooses the options:
    ///   true:  --RMIServiceDiscoveryTimeout=20 (seconds) and --RMIClientThreadingModel=MT
    ///   false: --RMIClientThreadingModel=MT
    ///
    /// Returns 0 when the runtime runs, 1 when there is no default runtime or it did not start. The
    /// system log receives, in this order,
    ///   "Failed to get the default Runtime "     alone, when there is none (1)
    ///   "=== Runtime start"
    ///   "=== Great! Runtime is usable"           it ran already (0); nothing follows
    ///   "=== Runtime started"                    start was called, whatever it returned
    ///   "Failed to start the Runtime "           it did not start (1)
    /// Deliberate: the blank at the end of two of them, and "=== Runtime started" before a failure.
    int startRUNTIME(bool isClient);

    /// Stops the runtime for all its users in the process, and returns the result of the runtime's
    /// stop operation. The object keeps its share of the runtime and may start it again. Trap: do
    /// not call it before startRUNTIME() has fetched a runtime. The pointer is not checked.
    bool stopRUNTIME();

private:
    org::opensplice::DDS_RMI::shared_ptr<org::opensplice::DDS_RMI::CRuntime> runtime;
};

} // namespace mdw
} // namespace api
} // namespace kvr

#endif
