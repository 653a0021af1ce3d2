#include "FakePaho.h"

#include <algorithm>
#include <cstdint>
#include <sstream>

#include <MQTTClient.h>

namespace support {
namespace {

FakePaho* fake = nullptr;
int theClient = 0;

std::string shown(const char* text) { return text ? std::string("'") + text + "'" : "null"; }

std::string shown(const MQTTClient_message& message) {
    std::ostringstream line;
    line << "'"
         << std::string(static_cast<const char*>(message.payload),
                        static_cast<std::size_t>(message.payloadlen))
         << "' qos=" << message.qos << " retained=" << message.retained << " dup=" << message.dup;
    return line.str();
}

std::string handle(MQTTClient client) {
    return client == &theClient ? "client" : client ? "?" : "null";
}

} // namespace

FakePaho::FakePaho()
    : nanosleep_(interposedNanosleep, [this](const timespec* pause, timespec*) {
          calls.push_back("pause " + std::to_string(pause->tv_sec) + "s " +
                          std::to_string(pause->tv_nsec) + "ns");
          if (flag != nullptr && count("pause") == pausesUntilStop)
              *flag = false;
          return 0;
      }) {
    fake = this;
}

FakePaho::~FakePaho() { fake = nullptr; }

int FakePaho::count(const std::string& name) const {
    return static_cast<int>(std::count_if(calls.begin(), calls.end(), [&](const std::string& call) {
        return call.compare(0, name.size(), name) == 0;
    }));
}

} // namespace support

using support::fake;
using support::handle;
using support::shown;
using support::theClient;

extern "C" {

int MQTTClient_create(MQTTClient* client, const char* uri, const char* id, int persistence,
                      void* context) {
    fake->calls.push_back("create " + shown(uri) + " " + shown(id) + " " +
                          (persistence == MQTTCLIENT_PERSISTENCE_NONE ? "none" : "?") +
                          (context ? " context" : " null"));
    *client = &theClient;
    return 0;
}

int MQTTClient_connect(MQTTClient client, MQTTClient_connectOptions* options) {
    std::ostringstream line;
    line << "connect " << handle(client) << " timeout=" << options->connectTimeout
         << " retry=" << options->retryInterval << " keepalive=" << options->keepAliveInterval
         << " reliable=" << options->reliable << " clean=" << options->cleansession
         << " user=" << shown(options->username) << " password=" << shown(options->password);
    if (const MQTTClient_willOptions* will = options->will)
        line << " will=" << shown(will->topicName) << "," << shown(will->message)
             << ",qos=" << will->qos << ",retained=" << will->retained;
    if (const MQTTClient_SSLOptions* ssl = options->ssl)
        line << " ssl=" << shown(ssl->enabledCipherSuites)
             << ",server=" << ssl->enableServerCertAuth << ",trust=" << shown(ssl->trustStore)
             << ",cert=" << shown(ssl->keyStore) << ",key=" << shown(ssl->privateKey)
             << ",password=" << shown(ssl->privateKeyPassword);
    fake->calls.push_back(line.str());
    const int result = fake->connectResults.front();
    if (fake->connectResults.size() > 1)
        fake->connectResults.erase(fake->connectResults.begin());
    return result;
}

int MQTTClient_publishMessage(MQTTClient client, const char* topic, MQTTClient_message* message,
                              MQTTClient_deliveryToken* token) {
    fake->calls.push_back("publish " + handle(client) + " " + shown(topic) + " " + shown(*message));
    if (fake->publishResult == 0)
        *token = fake->publishToken;
    return fake->publishResult;
}

int MQTTClient_waitForCompletion(MQTTClient client, MQTTClient_deliveryToken token,
                                 unsigned long timeout) {
    fake->calls.push_back("wait " + handle(client) + " token=" + std::to_string(token) +
                          " ms=" + std::to_string(timeout));
    return fake->waitResult;
}

int MQTTClient_subscribe(MQTTClient client, const char* topic, int qos) {
    fake->calls.push_back("subscribe " + handle(client) + " " + shown(topic) +
                          " qos=" + std::to_string(qos));
    return fake->subscribeResult;
}

int MQTTClient_disconnect(MQTTClient client, int timeout) {
    fake->calls.push_back("disconnect " + handle(client) + " ms=" + std::to_string(timeout));
    return 0;
}

void MQTTClient_destroy(MQTTClient* client) {
    fake->calls.push_back("destroy " + handle(*client));
    *client = nullptr;
}
}
