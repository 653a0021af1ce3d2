// Memory that runs out: the DDS runtime.

#include <kvr/api/mdw/NQ_DDS_RMI.h>

#include "DdsPeer.h"
#include "FailingMemory.h"

#include <string>

#include <gtest/gtest.h>

using fault::AtLeast;
using fault::exhaust;
using fault::Memory;
using kvr::api::mdw::NQ_DDS_RMI_RUNTIME;

TEST(OutOfMemory, DdsRuntime) {
    const support::ReservedDomain domain;
    const auto run = [](Memory& memory) {
        NQ_DDS_RMI_RUNTIME rmi;
        memory.fail();
        const int started = rmi.startRUNTIME(false);
        memory.recover();
        return std::to_string(started) + (rmi.stopRUNTIME() ? " true" : " false");
    };
    const std::string kept = " (memory kept)"; // the one runtime, and what Cyclone DDS keeps
    const auto runByNew = [&](Memory& memory) {
        memory.ofNewOnly();
        return run(memory);
    };
    exhaust("NQ_DDS_RMI_RUNTIME, this library's allocations", AtLeast{2}, "0 true" + kept, {},
            runByNew, fault::WarmUp::no);
    exhaust("NQ_DDS_RMI_RUNTIME, all allocations", AtLeast{100}, "0 true" + kept,
            {"1 false", "1 false" + kept, "std::bad_alloc", "signal 6 in libddsc",
             "signal 11 in libddsc",
             "ends without a report, raw status 11"}, // two of its threads crash together
            run, fault::WarmUp::no);
}
