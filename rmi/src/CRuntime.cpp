#include <dds_service_sdk.h>

#include "CycloneRuntime.h"

namespace org::opensplice::DDS_RMI {

RefCounted::RefCounted() : owners(0) {}

RefCounted::~RefCounted() = default;

void RefCounted::inc_refcount() { owners.fetch_add(1, std::memory_order_relaxed); }

void RefCounted::dec_refcount() {
    // The changes of all owners to the object must be visible to the one that deletes it.
    if (owners.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete this;
}

CRuntime::CRuntime() = default;

CRuntime::~CRuntime() = default;

CRuntime_ref CRuntime::getDefaultRuntime() {
    // Never deleted, so that no DDS code runs while the process exits.
    static const CRuntime_ref* const theRuntime = new CRuntime_ref(new CycloneRuntime);
    return *theRuntime;
}

} // namespace org::opensplice::DDS_RMI
