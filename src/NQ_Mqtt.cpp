#include "kvr/api/com/NQ_Mqtt.h"

#include <kvr/api/datetime/NQ_Time.h>

#include "detail/console.h"

#include <cstring>
#include <utility>

#include <syslog.h>

namespace kvr::api::com {
namespace {

constexpr int kPauseMilliseconds = 1000;
constexpr int kAttemptsPerReport = 30;

const char* failureText(int code) {
    switch (code) {
    case 1:
        return "Connection refused: Unacceptable protocol version";
    case 2:
        return "Connection refused: Identifier rejected";
    case 3:
        return "Connection refused: Server unavailable";
    case 4:
        return "Connection refused: Bad user name or password";
    case 5:
        return "Connection refused: Not authorized";
    default:
        return "Connection refused: Unknown connection error";
    }
}

const char* orNull(const std::string& text) { return text.empty() ? nullptr : text.c_str(); }

/// In milliseconds; wraps instead of overflowing for times beyond 24 days.
int timeout(int seconds) { return static_cast<int>(1000u * static_cast<unsigned int>(seconds)); }

/// `payload` must outlive the message.
MQTTClient_message messageOf(const std::string& payload, int qos, int retained) {
    MQTTClient_message message = MQTTClient_message_initializer;
    message.payload = const_cast<char*>(payload.c_str());
    message.payloadlen = static_cast<int>(std::strlen(payload.c_str()));
    message.qos = qos;
    message.retained = retained;
    return message;
}

} // namespace

NQ_Mqtt::NQ_Mqtt(std::string brokerHost, std::string id)
    : lastResult(0), debug(false), host(std::move(brokerHost)), clientId(std::move(id)),
      pahoConnectOptions(MQTTClient_connectOptions_initializer),
      pahoWillOptions(MQTTClient_willOptions_initializer),
      pahoSslOptions(MQTTClient_SSLOptions_initializer), client(nullptr) {}

NQ_Mqtt::~NQ_Mqtt() {
    MQTTClient_disconnect(client, timeout(connOpts.connectTimeout));
    MQTTClient_destroy(&client);
}

void NQ_Mqtt::setConnOpts(std::string port, std::string username, std::string password,
                          int connectTimeout, int retryInterval, int keepAliveInterval,
                          int reliable, int cleansession) {
    connOpts.port = std::move(port);
    connOpts.username = std::move(username);
    connOpts.password = std::move(password);
    connOpts.connectTimeout = connectTimeout;
    connOpts.retryInterval = retryInterval;
    connOpts.keepAliveInterval = keepAliveInterval;
    connOpts.reliable = reliable;
    connOpts.cleansession = cleansession;
}

void NQ_Mqtt::setSslOpts(std::string enabledCipherSuites, std::string privateKeyPassword,
                         int enableServerCertAuth, int enableClientCertAuth, std::string certDir) {
    sslOpts.enabledCipherSuites = std::move(enabledCipherSuites);
    sslOpts.privateKeyPassword = std::move(privateKeyPassword);
    sslOpts.enableServerCertAuth = enableServerCertAuth;
    sslOpts.enableClientCertAuth = enableClientCertAuth;
    sslOpts.certDir = std::move(certDir);
    sslOpts.caCertFile = sslOpts.certDir + "/mqtt_ca-cert.crt";
    sslOpts.clientCertFile = sslOpts.certDir + "/mqtt_client-cert.crt";
    sslOpts.clientKeyFile = sslOpts.certDir + "/mqtt_client-key.key";
}

void NQ_Mqtt::setLwt(std::string topic, std::string message, std::string connectMessage, int qos,
                     int retained) {
    lwt.topic = std::move(topic);
    lwt.message = std::move(message);
    lwt.connectMessage = std::move(connectMessage);
    lwt.qos = qos;
    lwt.retained = retained;
}

void NQ_Mqtt::enableDebug() { debug = true; }

void NQ_Mqtt::disableDebug() { debug = false; }

bool NQ_Mqtt::initialise() {
    serverUri = sslOpts.enabledCipherSuites.empty() ? "tcp://" : "ssl://";
    serverUri += host + ":" + connOpts.port;
    if (debug)
        detail::out() << "Trying to connect to " << serverUri << "...";
    MQTTClient_create(&client, serverUri.c_str(), clientId.c_str(), MQTTCLIENT_PERSISTENCE_NONE,
                      nullptr); // a failure shows when connecting
    // Reset in every call, so that no pointer of an earlier call remains.
    pahoConnectOptions = MQTTClient_connectOptions_initializer;
    pahoWillOptions = MQTTClient_willOptions_initializer;
    pahoSslOptions = MQTTClient_SSLOptions_initializer;
    fillConnection();
    if (!lwt.topic.empty())
        fillWill();
    if (!sslOpts.enabledCipherSuites.empty())
        fillTls();
    return true;
}

void NQ_Mqtt::fillConnection() {
    pahoConnectOptions.connectTimeout = connOpts.connectTimeout;
    pahoConnectOptions.retryInterval = connOpts.retryInterval;
    pahoConnectOptions.keepAliveInterval = connOpts.keepAliveInterval;
    pahoConnectOptions.reliable = connOpts.reliable;
    pahoConnectOptions.cleansession = connOpts.cleansession;
    pahoConnectOptions.username = orNull(connOpts.username);
    pahoConnectOptions.password = orNull(connOpts.password);
}

void NQ_Mqtt::fillWill() {
    pahoWillOptions.topicName = lwt.topic.c_str();
    pahoWillOptions.message = lwt.message.c_str();
    pahoWillOptions.qos = lwt.qos;
    pahoWillOptions.retained = lwt.retained;
    pahoConnectOptions.will = &pahoWillOptions;
}

void NQ_Mqtt::fillTls() {
    pahoSslOptions.enabledCipherSuites = sslOpts.enabledCipherSuites.c_str();
    pahoSslOptions.enableServerCertAuth = sslOpts.enableServerCertAuth;
    if (sslOpts.enableServerCertAuth == 1)
        pahoSslOptions.trustStore = sslOpts.caCertFile.c_str();
    if (sslOpts.enableClientCertAuth == 1) {
        pahoSslOptions.keyStore = sslOpts.clientCertFile.c_str();
        pahoSslOptions.privateKey = sslOpts.clientKeyFile.c_str();
    }
    pahoSslOptions.privateKeyPassword = orNull(sslOpts.privateKeyPassword);
    pahoConnectOptions.ssl = &pahoSslOptions;
}

bool NQ_Mqtt::connect(bool& keepTrying) {
    while (host.empty()) {
        datetime::NQ_Time::delay(kPauseMilliseconds);
        if (!keepTrying)
            return false;
    }
    for (int attempt = 0;; ++attempt) {
        lastResult = MQTTClient_connect(client, &pahoConnectOptions);
        if (lastResult == MQTTCLIENT_SUCCESS)
            break;
        reportFailure(attempt);
        datetime::NQ_Time::delay(kPauseMilliseconds);
        if (!keepTrying)
            return false;
    }
    // Deliberate: the bare host here, the whole address in a failure.
    syslog(LOG_INFO, "Connected to MQTT Broker at %s", host.c_str());
    if (debug)
        detail::out() << "Connected to MQTT Broker at " << host << std::endl;
    if (!lwt.topic.empty())
        publishConnected();
    return true;
}

void NQ_Mqtt::reportFailure(int attempt) const {
    const char* text = failureText(lastResult);
    if (debug)
        detail::out() << "Failed to connect to " << serverUri << "; " << text << std::endl;
    if (attempt % kAttemptsPerReport == 0) {
        syslog(LOG_ERR, "Failed to connect to MQTT Broker at %s", serverUri.c_str());
        syslog(LOG_ERR, "%s", text);
    }
}

void NQ_Mqtt::publishConnected() {
    MQTTClient_message message = messageOf(lwt.connectMessage, lwt.qos, lwt.retained);
    MQTTClient_deliveryToken token = 0;
    MQTTClient_publishMessage(client, lwt.topic.c_str(), &message, &token); // not waited for
}

bool NQ_Mqtt::send(std::string topic, std::string payload, int qos, int retained) {
    MQTTClient_message message = messageOf(payload, qos, retained);
    MQTTClient_deliveryToken token = 0;
    // A failure shows in the wait.
    MQTTClient_publishMessage(client, topic.c_str(), &message, &token);
    lastResult = MQTTClient_waitForCompletion(
        client, token, static_cast<unsigned long>(timeout(connOpts.connectTimeout)));
    return lastResult == MQTTCLIENT_SUCCESS;
}

bool NQ_Mqtt::subscribe(std::string topic, int qos) {
    lastResult = MQTTClient_subscribe(client, topic.c_str(), qos);
    return lastResult == MQTTCLIENT_SUCCESS;
}

int NQ_Mqtt::getLastResult() const { return lastResult; }

const std::string& NQ_Mqtt::getServerUri() const { return serverUri; }

} // namespace kvr::api::com
