#include <kvr/api/com/NQ_Mqtt.h>

#include "Broker.h"
#include "CapturedSyslog.h"
#include "Certificates.h"
#include "ForkedChild.h"
#include "Waiting.h"

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::com::NQ_Mqtt;
using support::Broker;
using support::CapturedSyslog;
using support::Certificates;
using support::TempDir;
using testing::ElementsAre;

struct Options {
    std::string username;
    std::string password;
    int clean = 1;
    int connectSeconds = 5; // short, because an attempt may hit a broker that starts or stops
};

// Enough for a key exchange on a busy machine under an emulator.
constexpr int kSecondsForTls = 30;

/// Returns a client of the broker on `port`, with short pauses between attempts.
std::unique_ptr<NQ_Mqtt> clientOf(int port, const Options& options = {},
                                  const std::string& id = "gateway") {
    auto mqtt = std::make_unique<NQ_Mqtt>("127.0.0.1", id);
    mqtt->setConnOpts(std::to_string(port), options.username, options.password,
                      options.connectSeconds, 1, 20, 1, options.clean);
    return mqtt;
}

bool connects(NQ_Mqtt& mqtt) {
    bool once = false; // a single attempt
    mqtt.initialise();
    return mqtt.connect(once);
}

std::unique_ptr<NQ_Mqtt> tlsClientOf(const Broker& broker, const std::string& certDir,
                                     int serverAuth, int clientAuth) {
    Options options;
    options.connectSeconds = kSecondsForTls;
    auto mqtt = clientOf(broker.port(), options);
    mqtt->setSslOpts("HIGH", "", serverAuth, clientAuth, certDir);
    return mqtt;
}

} // namespace

TEST(NQ_Mqtt_broker, ConnectsWithoutTlsAndPublishes) {
    const Broker broker;
    const auto mqtt = clientOf(broker.port());
    ASSERT_TRUE(connects(*mqtt));
    EXPECT_TRUE(mqtt->send("a/b", "hello", 0, 1));
    EXPECT_EQ(0, mqtt->getLastResult());
    EXPECT_THAT(broker.receive("a/b", 1), ElementsAre("a/b 0 1 hello"));
}

TEST(NQ_Mqtt_broker, PublishesWithEveryQualityOfService) {
    const Broker broker("allow_anonymous true\nqueue_qos0_messages true\n");
    broker.createSession("watcher", "t/#");
    const auto mqtt = clientOf(broker.port());
    ASSERT_TRUE(connects(*mqtt));
    EXPECT_TRUE(mqtt->send("t/0", "zero", 0, 0));
    EXPECT_TRUE(mqtt->send("t/1", "one", 1, 0));
    EXPECT_TRUE(mqtt->send("t/2", "two", 2, 0));
    EXPECT_THAT(broker.receiveQueued("watcher", "t/#", 3),
                ElementsAre("t/0 0 0 zero", "t/1 1 0 one", "t/2 2 0 two"));
}

TEST(NQ_Mqtt_broker, PayloadEndsAtItsFirstNul) {
    const Broker broker;
    const auto mqtt = clientOf(broker.port());
    ASSERT_TRUE(connects(*mqtt));
    EXPECT_TRUE(mqtt->send("t", std::string("cut\0here", 8), 1, 1));
    EXPECT_THAT(broker.receive("t", 1), ElementsAre("t 1 1 cut"));
}

TEST(NQ_Mqtt_broker, AMessageThatTheClientRefusesCountsAsDeliveredWhileConnected) {
    const Broker broker;
    const auto mqtt = clientOf(broker.port());
    mqtt->initialise();
    EXPECT_FALSE(mqtt->send("\xff", "not UTF-8", 1, 0));
    bool once = false;
    ASSERT_TRUE(mqtt->connect(once));
    EXPECT_TRUE(mqtt->send("\xff", "not UTF-8", 1, 0));
    EXPECT_EQ(0, mqtt->getLastResult());
    EXPECT_TRUE(mqtt->send("t", "the connection is whole", 1, 1));
    EXPECT_THAT(broker.receive("#", 1), ElementsAre("t 1 1 the connection is whole"));
}

TEST(NQ_Mqtt_broker, SubscribeIsAnsweredByTheBroker) {
    const Broker broker;
    const auto mqtt = clientOf(broker.port());
    ASSERT_TRUE(connects(*mqtt));
    EXPECT_TRUE(mqtt->subscribe("a/#", 1));
    EXPECT_FALSE(mqtt->subscribe("a/#/b", 1)); // not a valid filter
}

TEST(NQ_Mqtt_broker, UserAndPasswordAreAcceptedOrRefusedWithAMessage) {
    TempDir secrets;
    const std::string file = secrets / "passwords";
    ASSERT_EQ(0,
              support::runProgram({"mosquitto_passwd", "-b", "-c", file, "me", "secret"}).status);
    const Broker broker("allow_anonymous false\npassword_file " + file + "\n");

    Options right;
    right.username = "me";
    right.password = "secret";
    EXPECT_TRUE(connects(*clientOf(broker.port(), right)));

    Options wrong = right;
    wrong.password = "guess";
    const CapturedSyslog log;
    const auto mqtt = clientOf(broker.port(), wrong);
    EXPECT_FALSE(connects(*mqtt));
    // Current brokers for version 3.1.1 return 5, "not authorized", for a wrong password.
    EXPECT_EQ(5, mqtt->getLastResult());
    EXPECT_THAT(log.lines(),
                ElementsAre("<3> Failed to connect to MQTT Broker at " + mqtt->getServerUri(),
                            "<3> Connection refused: Not authorized"));
}

TEST(NQ_Mqtt_broker, ServerCertificateIsChecked) {
    const Certificates certificates;
    const Certificates others;
    const Broker broker(certificates.settings(false));
    const auto trusting = tlsClientOf(broker, certificates.directory.path(), 1, 0);
    EXPECT_TRUE(connects(*trusting));
    EXPECT_EQ("ssl://127.0.0.1:" + std::to_string(broker.port()), trusting->getServerUri());
    EXPECT_TRUE(trusting->send("t", "by tls", 1, 1));
    EXPECT_FALSE(connects(*tlsClientOf(broker, others.directory.path(), 1, 0)));
}

TEST(NQ_Mqtt_broker, ServerCertificateIsNotCheckedWithoutTheFlag) {
    const Certificates certificates;
    const Broker broker(certificates.settings(false));
    EXPECT_TRUE(connects(*tlsClientOf(broker, "/nowhere", 0, 0)));
}

TEST(NQ_Mqtt_broker, ClientCertificateIsSentWithTheFlagOnly) {
    const Certificates certificates;
    const Broker broker(certificates.settings(true));
    const auto known = tlsClientOf(broker, certificates.directory.path(), 1, 1);
    EXPECT_TRUE(connects(*known));
    EXPECT_TRUE(known->send("t", "known", 1, 0));
    EXPECT_FALSE(connects(*tlsClientOf(broker, certificates.directory.path(), 1, 0)));
}

TEST(NQ_Mqtt_broker, MissingTrustStoreFailsToConnect) {
    const Certificates certificates;
    const Broker broker(certificates.settings(false));
    const CapturedSyslog log;
    const auto mqtt = tlsClientOf(broker, "/nowhere", 1, 0);
    EXPECT_FALSE(connects(*mqtt));
    EXPECT_THAT(log.lines(),
                ElementsAre("<3> Failed to connect to MQTT Broker at " + mqtt->getServerUri(),
                            "<3> Connection refused: Unknown connection error"));
}

/// A client that has begun to connect, on its own thread, to a broker that is stopped.
class ConnectingClient {
public:
    explicit ConnectingClient(int port) : mqtt_(clientOf(port)) {
        mqtt_->initialise();
        thread_ = std::thread([this] { connected_ = mqtt_->connect(keepTrying_); });
        EXPECT_TRUE(support::eventually([this] { return !log_.lines().empty(); }));
    }
    ~ConnectingClient() {
        keepTrying_ = false;
        if (thread_.joinable())
            thread_.join();
    }
    ConnectingClient(const ConnectingClient&) = delete;
    ConnectingClient& operator=(const ConnectingClient&) = delete;

    void stopTrying() { keepTrying_ = false; }
    /// Waits until connect() returns, and returns its result.
    bool connected() {
        thread_.join();
        return connected_;
    }
    std::string lastRecord() const { return log_.lines().back(); }

private:
    CapturedSyslog log_;
    std::unique_ptr<NQ_Mqtt> mqtt_;
    bool keepTrying_ = true;
    bool connected_ = false;
    std::thread thread_;
};

TEST(NQ_Mqtt_broker, ConnectRetriesUntilTheBrokerIsBack) {
    Broker broker;
    broker.stop();
    ConnectingClient client(broker.port());
    broker.start();
    EXPECT_TRUE(client.connected());
    EXPECT_EQ("<6> Connected to MQTT Broker at 127.0.0.1", client.lastRecord());
}

TEST(NQ_Mqtt_broker, LostConnectionShowsInSendAndCanBeMadeAgain) {
    Broker broker;
    const auto mqtt = clientOf(broker.port());
    ASSERT_TRUE(connects(*mqtt));
    broker.stop();
    EXPECT_FALSE(mqtt->send("t", "lost", 1, 0));
    EXPECT_NE(0, mqtt->getLastResult());
    broker.start();
    bool keepTrying = true;
    EXPECT_TRUE(mqtt->connect(keepTrying));
    EXPECT_TRUE(mqtt->send("t", "found", 1, 1));
    EXPECT_THAT(broker.receive("t", 1), ElementsAre("t 1 1 found"));
}

TEST(NQ_Mqtt_broker, ClearedFlagEndsTheRetries) {
    Broker broker;
    broker.stop();
    ConnectingClient client(broker.port());
    client.stopTrying();
    EXPECT_FALSE(client.connected());
}

TEST(NQ_Mqtt_broker, ConnectedMessageIsRetained) {
    const Broker broker;
    const auto mqtt = clientOf(broker.port());
    mqtt->setLwt("state", "gone", "here", 1, 1);
    ASSERT_TRUE(connects(*mqtt));
    EXPECT_THAT(broker.receive("state", 1), ElementsAre("state 1 1 here"));
}

TEST(NQ_Mqtt_broker, WillIsDeliveredWhenTheProcessIsKilled) {
    const Broker broker;
    broker.createSession("watcher", "state");
    int ready[2];
    ASSERT_EQ(0, pipe(ready));
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) {
        support::endWithParent(parent);
        const auto mqtt = clientOf(broker.port());
        mqtt->setLwt("state", "gone", "here", 1, 0);
        const char answer = connects(*mqtt) && mqtt->send("other", "x", 1, 0) ? 'y' : 'n';
        (void)!write(ready[1], &answer, 1);
        pause();
        _exit(1);
    }
    char answer = 0;
    ASSERT_EQ(1, read(ready[0], &answer, 1));
    EXPECT_EQ('y', answer);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(ready[0]);
    close(ready[1]);
    EXPECT_THAT(broker.receiveQueued("watcher", "state", 2),
                ElementsAre("state 1 0 here", "state 1 0 gone"));
}

TEST(NQ_Mqtt_broker, OrderlyEndDeliversNoWill) {
    const Broker broker;
    broker.createSession("watcher", "state");
    {
        const auto mqtt = clientOf(broker.port());
        mqtt->setLwt("state", "gone", "here", 1, 0);
        ASSERT_TRUE(connects(*mqtt));
    }
    const auto other = clientOf(broker.port(), {}, "other");
    ASSERT_TRUE(connects(*other));
    ASSERT_TRUE(other->send("state", "last", 1, 0));
    EXPECT_THAT(broker.receiveQueued("watcher", "state", 2),
                ElementsAre("state 1 0 here", "state 1 0 last"));
}

namespace {

/// Simulates a broker for one connection: accepts the client and keeps its first packet.
class FakeBroker {
public:
    FakeBroker() : listener_(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port.number()));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int yes = 1;
        setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        EXPECT_EQ(0, bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address));
        EXPECT_EQ(0, listen(listener_, 1));
        thread_ = std::thread([this] { serve(); });
    }
    ~FakeBroker() {
        if (thread_.joinable())
            thread_.join();
        close(listener_);
    }

    /// Returns the CONNECT packet after the client has disconnected.
    std::string packet() {
        thread_.join();
        return packet_;
    }

    const support::Port port;

private:
    void serve() {
        const int client = accept(listener_, nullptr, nullptr);
        char buffer[512];
        const ssize_t got = recv(client, buffer, sizeof buffer, 0);
        packet_.assign(buffer, got < 0 ? 0 : static_cast<std::size_t>(got));
        (void)!send(client, "\x20\x02\x00\x00", 4, MSG_NOSIGNAL); // accepted
        while (recv(client, buffer, sizeof buffer, 0) > 0) {
        }
        close(client);
    }

    int listener_;
    std::string packet_;
    std::thread thread_;
};

std::string bytes(const char* literal, std::size_t size) { return std::string(literal, size - 1); }
#define BYTES(literal) bytes(literal, sizeof(literal))

} // namespace

TEST(NQ_Mqtt_wire, ConnectAsksToKeepTheSessionByDefault) {
    FakeBroker broker;
    {
        NQ_Mqtt mqtt("127.0.0.1", "gw");
        mqtt.setConnOpts(std::to_string(broker.port.number()), "", "", 5, 10, 60, 1, 0);
        EXPECT_TRUE(connects(mqtt));
    }
    // Fixed header, "MQTT" level 4, flags 0 (persistent session, no will, no user), keep-alive 60,
    // "gw".
    EXPECT_EQ(BYTES("\x10\x0e\x00\x04MQTT\x04\x00\x00\x3c\x00\x02gw"), broker.packet());
}

TEST(NQ_Mqtt_wire, ConnectCarriesWillUserAndPassword) {
    FakeBroker broker;
    {
        NQ_Mqtt mqtt("127.0.0.1", "gw");
        mqtt.setConnOpts(std::to_string(broker.port.number()), "me", "pw", 5, 10, 20, 1, 1);
        mqtt.setLwt("st", "bye", "hi", 0, 1);
        EXPECT_TRUE(connects(mqtt));
    }
    // Flags: user, password, will retained, will, clean session.
    EXPECT_EQ(BYTES("\x10\x1f\x00\x04MQTT\x04\xe6\x00\x14\x00\x02gw\x00\x02st\x00\x03"
                    "bye\x00\x02me\x00\x02pw"),
              broker.packet());
}
