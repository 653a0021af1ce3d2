#include "mqtt/MqttClient.h"

#include "rpc/Text.h"

#include <algorithm>
#include <stdexcept>

namespace agent {
namespace {

constexpr int kConnectSeconds = 5;
constexpr int kKeepAliveSeconds = 30;
/// Paho sleeps for a tenth of a second while so many messages are not acknowledged.
constexpr int kMaxInFlight = 1000;
constexpr int kAtLeastOnce = 1;

MQTTClient_connectOptions connectionOptions() {
    MQTTClient_connectOptions options = MQTTClient_connectOptions_initializer;
    options.connectTimeout = kConnectSeconds;
    options.keepAliveInterval = kKeepAliveSeconds;
    options.cleansession = 1;
    options.reliable = 0;
    options.maxInflightMessages = kMaxInFlight;
    options.MQTTVersion = MQTTVERSION_3_1_1; // otherwise Paho tries twice after a failure
    return options;
}

} // namespace

MqttClient::MqttClient(const Broker& broker, const std::string& clientId,
                       std::size_t longestPayload, const MqttMessage& will)
    : broker_(broker), longestPayload_(longestPayload), will_(will) {
    const int result = MQTTClient_create(&client_, broker_.uri().c_str(), clientId.c_str(),
                                         MQTTCLIENT_PERSISTENCE_NONE, nullptr);
    if (result != MQTTCLIENT_SUCCESS)
        throw std::runtime_error("no MQTT client: " + reasonOf(result));
}

MqttClient::~MqttClient() {
    MQTTClient_disconnect(client_, /*timeout=*/0);
    MQTTClient_destroy(&client_);
}

std::string MqttClient::connect() {
    MQTTClient_connectOptions options = connectionOptions();
    MQTTClient_willOptions will = MQTTClient_willOptions_initializer;
    if (!will_.topic.empty()) {
        will.topicName = will_.topic.c_str();
        will.message = will_.payload.c_str();
        will.retained = 1;
        will.qos = kAtLeastOnce;
        options.will = &will;
    }
    MQTTClient_SSLOptions tls = MQTTClient_SSLOptions_initializer;
    const std::string authority = broker_.authorityFile();
    const std::string certificate = broker_.certificateFile();
    const std::string key = broker_.keyFile();
    if (broker_.usesTls()) {
        tls.trustStore = authority.c_str();
        tls.disableDefaultTrustStore = 1;
        tls.enableServerCertAuth = 1;
        tls.verify = 1; // the host's name, too
        if (broker_.hasClientCertificate()) {
            tls.keyStore = certificate.c_str();
            tls.privateKey = key.c_str();
        }
        tls.ssl_error_cb = tlsError;
        tls.ssl_error_context = this;
        options.ssl = &tls;
    }
    tlsError_.clear();
    const int result = MQTTClient_connect(client_, &options);
    return result == MQTTCLIENT_SUCCESS ? "" : reasonOf(result);
}

bool MqttClient::subscribe(const std::string& filter) {
    return MQTTClient_subscribe(client_, filter.c_str(), kAtLeastOnce) == MQTTCLIENT_SUCCESS;
}

int MqttClient::publish(const std::string& topic, const std::string& payload, bool retained) {
    MQTTClient_message message = MQTTClient_message_initializer;
    message.payload = const_cast<char*>(payload.data());
    message.payloadlen = static_cast<int>(payload.size());
    message.qos = kAtLeastOnce;
    message.retained = retained ? 1 : 0;
    MQTTClient_deliveryToken token = 0;
    const int result = MQTTClient_publishMessage(client_, topic.c_str(), &message, &token);
    return result == MQTTCLIENT_SUCCESS ? token : 0;
}

bool MqttClient::isAcknowledged(int number) {
    MQTTClient_deliveryToken* pending = nullptr;
    if (MQTTClient_getPendingDeliveryTokens(client_, &pending) != MQTTCLIENT_SUCCESS)
        return false;
    bool found = false;
    // The list ends in -1. It is null when nothing is pending.
    for (MQTTClient_deliveryToken* token = pending; token != nullptr && *token != -1; ++token)
        found |= *token == number;
    MQTTClient_free(pending);
    return !found && MQTTClient_isConnected(client_) != 0;
}

MqttClient::Event MqttClient::receive(MqttMessage& message, std::chrono::milliseconds limit) {
    char* topic = nullptr;
    int length =
        0; // 0 unless the topic holds NUL characters, which none does that is subscribed to
    MQTTClient_message* received = nullptr;
    const int result = MQTTClient_receive(client_, &topic, &length, &received,
                                          static_cast<unsigned long>(limit.count()));
    if (received != nullptr) {
        const std::size_t size =
            std::min(static_cast<std::size_t>(received->payloadlen), longestPayload_);
        message = {topic, std::string(static_cast<const char*>(received->payload), size),
                   received->retained != 0};
        MQTTClient_freeMessage(&received);
        MQTTClient_free(topic);
        return Event::Message;
    }
    if (result != MQTTCLIENT_SUCCESS || !MQTTClient_isConnected(client_))
        return Event::Lost;
    return Event::Nothing;
}

/// Called once for each of OpenSSL's errors, and keeps the reason: "certificate verify failed" in
/// "139...:error:0A000086:SSL routines:...:certificate verify failed:...".
int MqttClient::tlsError(const char* text, std::size_t length, void* self) {
    std::string line(text, length);
    for (int field = 0; field < 5; ++field)
        line.erase(0, std::min(line.find(':'), line.size() - 1) + 1);
    static_cast<MqttClient*>(self)->tlsError_ = line.substr(0, line.find(':'));
    return 1;
}

std::string MqttClient::reasonOf(int code) const {
    if (!tlsError_.empty())
        return safeLine(tlsError_);
    switch (code) {
    case 1:
        return "the broker does not speak MQTT 3.1.1";
    case 2:
        return "the broker refuses the client's identifier";
    case 3:
        return "the broker is unavailable";
    case 4:
    case 5:
        return "the broker refuses this client";
    default:
        break;
    }
    return broker_.usesTls() ? "no connection, or the certificate was not accepted"
                             : "no connection";
}

} // namespace agent
