#include <kvr/api/com/NQ_Mqtt.h>

#include "Child.h"
#include "TempDir.h"
#include "floor/Mqtt.h"
#include "measure.h"
#include "support/Port.h"
#include "support/Waiting.h"

#include <chrono>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <MQTTClient.h>

namespace bench {
namespace {

using kvr::api::com::NQ_Mqtt;

const std::string kTopic = "gateway/living-room/temperature";
const std::string kPayload = R"({"value":21.375,"time":"2020-01-02T03:04:05.123Z"})";

bool takesConnections(int port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    const int probe = socket(AF_INET, SOCK_STREAM, 0);
    const bool taken =
        connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    return taken;
}

/// A broker on a loopback port of its own.
class Broker {
public:
    /// Returns once the broker accepts connections.
    Broker() {
        std::ofstream(directory_.file("conf"))
            << "listener " << port_.number() << " 127.0.0.1\nallow_anonymous true\nlog_dest none\n"
            << (geteuid() == 0 ? "user root\n" : ""); // a user namespace may have no other user
        child_ = std::make_unique<Child>([this] {
            const int nowhere = open("/dev/null", O_WRONLY);
            dup2(nowhere, STDERR_FILENO);
            const std::string path = directory_.file("conf");
            execlp("mosquitto", "mosquitto", "-c", path.c_str(), static_cast<char*>(nullptr));
            execl("/usr/sbin/mosquitto", "mosquitto", "-c", path.c_str(),
                  static_cast<char*>(nullptr));
            _exit(127);
        });
        const bool decided = support::eventually(
            [this] { return child_->hasEnded() || takesConnections(port_.number()); },
            std::chrono::seconds(10));
        if (!decided || child_->hasEnded())
            throw std::runtime_error("mosquitto does not start");
    }
    std::string port() const { return std::to_string(port_.number()); }
    std::string uri() const { return "tcp://127.0.0.1:" + port(); }

private:
    TempDir directory_;
    support::Port port_;
    std::unique_ptr<Child> child_;
};

/// Paho used as in its manual.
class DirectClient {
public:
    explicit DirectClient(const std::string& uri) {
        MQTTClient_create(&client_, uri.c_str(), "peer", MQTTCLIENT_PERSISTENCE_NONE, nullptr);
        MQTTClient_connectOptions options = MQTTClient_connectOptions_initializer;
        if (MQTTClient_connect(client_, &options) != MQTTCLIENT_SUCCESS)
            std::abort();
    }
    ~DirectClient() {
        MQTTClient_disconnect(client_, 1000);
        MQTTClient_destroy(&client_);
    }
    DirectClient(const DirectClient&) = delete;
    DirectClient& operator=(const DirectClient&) = delete;

    void send(int qos) {
        MQTTClient_deliveryToken token = 0;
        MQTTClient_publish(client_, kTopic.c_str(), static_cast<int>(kPayload.size()),
                           kPayload.data(), qos, 0, &token);
        MQTTClient_waitForCompletion(client_, token, 60000);
    }

private:
    MQTTClient client_ = nullptr;
};

void addPublishing(int qos) {
    const std::string operation = "MQTT publish, QoS " + std::to_string(qos);
    // A fixed number of messages. The cost of one depends on how many wait for the broker.
    const Repeat repeat = {20, qos == 0 ? 2000 : 3};
    add(
        operation, kLibrary,
        [qos] {
            auto broker = std::make_shared<Broker>();
            auto client = std::make_shared<NQ_Mqtt>("127.0.0.1", "bench");
            client->setConnOpts(broker->port(), "", "", 60, 10, 60, 1, 0);
            client->initialise();
            bool keepTrying = true;
            if (!client->connect(keepTrying))
                std::abort();
            return [broker, client, qos] {
                benchmark::DoNotOptimize(client->send(kTopic, kPayload, qos, 0));
            };
        },
        repeat);
    add(
        operation, kFloor,
        [qos] {
            auto broker = std::make_shared<Broker>();
            auto client = std::make_shared<floor::Mqtt>(broker->uri(), "floor");
            return [broker, client, qos] {
                benchmark::DoNotOptimize(client->send(kTopic, kPayload, qos, 0));
            };
        },
        repeat);
    add(
        operation, "Paho, called directly",
        [qos] {
            auto broker = std::make_shared<Broker>();
            auto client = std::make_shared<DirectClient>(broker->uri());
            return [broker, client, qos] { client->send(qos); };
        },
        repeat);
}

} // namespace

void addMqtt() {
    addPublishing(0);
    addPublishing(1);
}

} // namespace bench
