#include "Mqtt.h"

#include <cstdlib>
#include <cstring>

#include <MQTTClient.h>

namespace bench::floor {

Mqtt::Mqtt(const std::string& uri, const std::string& clientId) {
    MQTTClient_create(&client_, uri.c_str(), clientId.c_str(), MQTTCLIENT_PERSISTENCE_NONE,
                      nullptr);
    MQTTClient_connectOptions options = MQTTClient_connectOptions_initializer;
    options.cleansession = 0;
    if (MQTTClient_connect(client_, &options) != MQTTCLIENT_SUCCESS)
        std::abort();
}

Mqtt::~Mqtt() {
    MQTTClient_disconnect(client_, 1000);
    MQTTClient_destroy(&client_);
}

bool Mqtt::send(std::string topic, std::string payload, int qos, int retained) {
    MQTTClient_message message = MQTTClient_message_initializer;
    message.payload = const_cast<char*>(payload.c_str());
    message.payloadlen = static_cast<int>(std::strlen(payload.c_str()));
    message.qos = qos;
    message.retained = retained;
    MQTTClient_deliveryToken token = 0;
    MQTTClient_publishMessage(client_, topic.c_str(), &message, &token);
    return MQTTClient_waitForCompletion(client_, token, 60000) == MQTTCLIENT_SUCCESS;
}

} // namespace bench::floor
