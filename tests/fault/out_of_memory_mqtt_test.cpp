// Memory that runs out: MQTT.

#include <kvr/api/com/NQ_Mqtt.h>

#include "Broker.h"
#include "FailingMemory.h"
#include "Interposed.h"

#include <functional>
#include <set>
#include <string>

#include <gtest/gtest.h>

using fault::AtLeast;
using fault::exhaust;
using fault::kLong;
using fault::Memory;
using kvr::api::com::NQ_Mqtt;

// Paho ends the process when it has no memory for a client, also during a connect.
TEST(OutOfMemory, Mqtt) {
    const std::string made = "tcp://127.0.0.1:1883";
    const bool stub = TAVO_PAHO_IS_STUB != 0; // it allocates the client only, and keeps nothing
    exhaust("NQ_Mqtt::initialise", AtLeast{stub ? 6 : 60}, stub ? made : made + " (memory kept)",
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

namespace {

const std::string kKept = " (memory kept)";
const std::string kOpen = kKept + " (1 descriptors kept)";

/// Returns a client that a trial can connect to `broker`.
NQ_Mqtt& clientOf(const support::Broker& broker) {
    auto& mqtt = *new NQ_Mqtt("127.0.0.1", "gateway");
    mqtt.setConnOpts(std::to_string(broker.port()), kLong, kLong, 1, 1, 20, 1, 1);
    mqtt.setLwt(kLong, kLong, kLong, 0, 0);
    mqtt.initialise();
    return mqtt;
}

} // namespace

// With a real broker. Paho's allocations fail, too. What Paho keeps includes the client, which the
// trials do not destroy: disconnecting would take most of the time.
TEST(OutOfMemory, MqttConnection) {
    const support::Broker broker;
    exhaust(
        "NQ_Mqtt::connect and send", AtLeast{80}, "connected, sent" + kOpen,
        {"not connected" + kKept, "connected, not sent" + kKept, "std::bad_alloc" + kKept,
         "std::bad_alloc" + kOpen, "signal 11 in libpaho-mqtt3cs"},
        [&](Memory& memory) {
            NQ_Mqtt& mqtt = clientOf(broker);
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

namespace {

/// The outcomes of a message exchange with the broker.
const std::set<std::string> kOfHandshakes = {"failed" + kKept, "std::bad_alloc" + kOpen,
                                             "signal 11 in libpaho-mqtt3cs"};

/// Connects with all memory. It then fails during `action`, which returns whether it succeeded.
std::string afterConnecting(const support::Broker& broker, Memory& memory,
                            const std::function<bool(NQ_Mqtt&)>& action) {
    NQ_Mqtt& mqtt = clientOf(broker);
    bool keepTrying = false;
    EXPECT_TRUE(mqtt.connect(keepTrying));
    memory.fail();
    const bool done = action(mqtt);
    memory.recover();
    return done ? "done" : "failed";
}

} // namespace

TEST(OutOfMemory, MqttSendingWithQos1) {
    const support::Broker broker;
    exhaust(
        "NQ_Mqtt::send, QoS 1", AtLeast{30}, "done" + kOpen, kOfHandshakes,
        [&](Memory& memory) {
            return afterConnecting(broker, memory,
                                   [](NQ_Mqtt& mqtt) { return mqtt.send(kLong, kLong, 1, 0); });
        },
        fault::WarmUp::no);
}

TEST(OutOfMemory, MqttSubscribing) {
    const support::Broker broker;
    exhaust(
        "NQ_Mqtt::subscribe", AtLeast{30}, "done" + kOpen, kOfHandshakes,
        [&](Memory& memory) {
            return afterConnecting(broker, memory,
                                   [](NQ_Mqtt& mqtt) { return mqtt.subscribe(kLong, 1); });
        },
        fault::WarmUp::no);
}
