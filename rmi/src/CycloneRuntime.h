#ifndef TAVO_RMI_CYCLONE_RUNTIME_H
#define TAVO_RMI_CYCLONE_RUNTIME_H

#include <dds_service_sdk.h>

#include <mutex>

#include <dds/dds.h>

namespace org::opensplice::DDS_RMI {

/// A runtime that runs while it has a participant in the default domain. The one instance is never
/// deleted.
class CycloneRuntime final : public CRuntime {
public:
    bool start(int argc, const char* argv[]) override;
    bool stop() override;
    bool isUsable() override;

private:
    std::mutex turn;
    dds_entity_t participant = 0; // guarded by turn; 0: none
};

} // namespace org::opensplice::DDS_RMI

#endif
