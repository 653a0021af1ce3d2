#include "mqtt/MqttPublisher.h"

#include <kvr/api/com/NQ_Mqtt.h>

#include "Log.h"
#include "Signals.h"
#include "rpc/Text.h"

namespace agent {
namespace {

using kvr::api::com::NQ_Mqtt;

constexpr int kTimeoutSeconds = 5; // for connecting and for each message
constexpr int kRetrySeconds = 10;
constexpr int kKeepAliveSeconds = 30;
/// How often the state is published again. The synchronous MQTT client sends no keep-alive, so the
/// broker would disconnect a quiet agent.
constexpr std::chrono::seconds kHeartbeat(10);

constexpr int kAtLeastOnce = 1;
constexpr int kRetained = 1;
constexpr int kNotRetained = 0;

/// OpenSSL's default list. NQ_Mqtt uses TLS only when a list is given.
constexpr char kCiphers[] = "DEFAULT";

} // namespace

MqttPublisher::MqttPublisher(const Broker& broker, const std::string& name, const std::string& base)
    : broker_(broker), name_(name), topic_(base), end_(ended_.get_future()) {}

void MqttPublisher::start() {
    std::promise<void> ready;
    thread_ = std::thread([this, &ready] {
        KeepTrying keepTrying;
        ready.set_value();
        run(keepTrying.flag());
        ended_.set_value();
    });
    ready.get_future().wait(); // stopTrying() would have no effect before
}

MqttPublisher::~MqttPublisher() {
    if (!thread_.joinable())
        return;
    beginEnd();
    thread_.join();
}

void MqttPublisher::beginEnd() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ending_ = true;
    }
    changed_.notify_all();
    stopTrying(thread_);
}

bool MqttPublisher::endsWithin(std::chrono::milliseconds limit) {
    return end_.wait_for(limit) == std::future_status::ready;
}

void MqttPublisher::publish(const std::string& response) {
    const std::lock_guard<std::mutex> lock(mutex_);
    queue_.push_back(response);
    if (queue_.size() > kMaxKept)
        queue_.pop_front();
    changed_.notify_all();
}

void MqttPublisher::run(bool& keepTrying) {
    NQ_Mqtt client(broker_.host, "tavo-agent-" + name_);
    client.setConnOpts(broker_.port, "", "", kTimeoutSeconds, kRetrySeconds, kKeepAliveSeconds,
                       /*reliable=*/1, /*cleansession=*/1);
    if (broker_.usesTls())
        client.setSslOpts(kCiphers, /*privateKeyPassword=*/"", /*enableServerCertAuth=*/1,
                          broker_.hasClientCertificate() ? 1 : 0, broker_.tlsDirectory);
    client.setLwt(topic_ + "/state", kOffline, kOnline, kAtLeastOnce, kRetained);
    client.initialise();
    while (client.connect(keepTrying)) {
        logInfo("publishing to " + safeLine(client.getServerUri()));
        if (publishQueued(client)) {
            // After an orderly disconnect the broker does not publish the will.
            client.send(topic_ + "/state", kOffline, kAtLeastOnce, kRetained);
            return;
        }
        logError("lost " + safeLine(client.getServerUri()));
        if (isEnding())
            return;
    }
}

/// True when the agent ends and everything is published, false when the connection is lost.
bool MqttPublisher::publishQueued(NQ_Mqtt& client) {
    std::string response;
    while (awaitResponse(response)) {
        const bool sent =
            response.empty()
                ? client.send(topic_ + "/state", kOnline, kAtLeastOnce, kRetained)
                : client.send(topic_ + "/response", response, kAtLeastOnce, kNotRetained);
        if (!sent)
            return false;
        dropFirst(response);
    }
    return true;
}

/// Waits for a response to publish; empty when it is time for a heartbeat. False when there is none
/// and the agent ends.
bool MqttPublisher::awaitResponse(std::string& response) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, kHeartbeat, [this] { return ending_ || !queue_.empty(); });
    response = queue_.empty() ? std::string() : queue_.front();
    return !response.empty() || !ending_;
}

/// Called after the response was sent. One that was lost with a connection is sent again.
void MqttPublisher::dropFirst(const std::string& response) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!queue_.empty() && queue_.front() == response)
        queue_.pop_front();
}

bool MqttPublisher::isEnding() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return ending_;
}

} // namespace agent
