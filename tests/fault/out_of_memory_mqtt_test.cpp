// Memory that runs out: MQTT.

#include <kvr/api/com/NQ_Mqtt.h>

#include "Broker.h"
#include "FailingMemory.h"
#include "Interposed.h"

#include <string>

#include <gtest/gtest.h>

using fault::exhaust;
using fault::kLong;
using fault::Memory;
using kvr::api::com::NQ_Mqtt;

// Paho ends the process when it has no memory for a client, also during a connect.
TEST(OutOfMemory, Mqtt) {
    const std::string made = "tcp://127.0.0.1:1883";
    exhaust("NQ_Mqtt::initialise", made + " (memory kept)",
            {made, "signal 11 in libpaho-mqtt3cs", "signal 6 in libpaho-mqtt3cs"},
            [](Memory& memory) {
                memory.fail();
                NQ_Mqtt mqtt("127.0.0.1", "gateway");
                mqtt.setConnOpts("1883", kLong, kLong, 1, 1, 20, 1, 1);
                mqtt.setLwt(kLong, kLong, kLong, 0, 0);
                mqtt.initialise();
                memory.recover();
                return mqtt.getServerUri();
            });
}

// With a real broker. Paho's allocations fail, too. What Paho keeps includes the client, which the
// trial does not destroy: disconnecting would take most of the time.
TEST(OutOfMemory, MqttConnection) {
    const support::Broker broker;
    const std::string kept = " (memory kept)";
    const std::string open = kept + " (1 descriptors kept)";
    exhaust(
        "NQ_Mqtt::connect and send", "connected, sent" + open,
        {"not connected" + kept, "connected, not sent" + kept, "std::bad_alloc" + kept,
         "std::bad_alloc" + open, "signal 11 in libpaho-mqtt3cs"},
        [&](Memory& memory) {
            auto& mqtt = *new NQ_Mqtt("127.0.0.1", "gateway");
            mqtt.setConnOpts(std::to_string(broker.port()), kLong, kLong, 1, 1, 20, 1, 1);
            mqtt.setLwt(kLong, kLong, kLong, 0, 0);
            mqtt.initialise();
            bool keepTrying = false;
            const support::Stub sleeping(support::interposedNanosleep,
                                         [](const timespec*, timespec*) { return 0; });
            memory.fail();
            const bool connected = mqtt.connect(keepTrying);
            const bool sent = connected && mqtt.send(kLong, kLong, 0, 0);
            memory.recover();
            if (!connected)
                return "not connected";
            return sent ? "connected, sent" : "connected, not sent";
        },
        fault::WarmUp::no);
}
