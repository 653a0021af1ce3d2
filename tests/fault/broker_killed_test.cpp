// A broker that is killed repeatedly while a gateway publishes. A killed broker saves nothing.
//
// A watcher receives what each broker forwards. It subscribes with QoS 0. The broker therefore
// sends it every message before it acknowledges the publisher's, and queues none. When send()
// fails, the publisher reconnects and continues with the next message.

#include "Broker.h"

#include <kvr/api/com/NQ_Mqtt.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

using kvr::api::com::NQ_Mqtt;
using support::Broker;

constexpr int kKills = 20;

/// The least number of messages: with QoS 1 and 2, Paho takes a tenth of a second for each.
int beforeEachKill(int qos) { return qos == 0 ? 1000 : 5; }

/// A subscriber to the topic "t" with QoS 0 that speaks the protocol itself.
class Watcher {
public:
    /// Returns after the broker has acknowledged the subscription.
    explicit Watcher(int port) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(0, connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address));
        write(std::string("\x10\x0f\0\4MQTT\4\2\0\0\0\3eye", 17)); // CONNECT, no keep-alive
        readPackets([](unsigned char type) { return type == 0x20; });
        write(std::string("\x82\6\0\1\0\1t\0", 8)); // SUBSCRIBE
        readPackets([](unsigned char type) { return type == 0x90; });
    }
    ~Watcher() { close(socket_); }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    /// Reads everything until the broker is gone.
    void readToTheEnd(std::map<std::string, int>& counts) {
        readPackets([](unsigned char) { return false; });
        for (const std::string& message : messages_)
            ++counts[message];
    }

private:
    void write(const std::string& bytes) {
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
                  send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }

    /// Reads until a packet of the wanted type has arrived or the connection ends.
    template <class Wanted>
    void readPackets(const Wanted& wanted) {
        for (;;) {
            while (buffer_.size() >= 2 && buffer_.size() >= 2U + lengthOfFirst()) {
                const auto type = static_cast<unsigned char>(buffer_[0]);
                if ((type & 0xf0) == 0x30) // PUBLISH: the payload follows the topic "t"
                    messages_.push_back(buffer_.substr(5, lengthOfFirst() - 3));
                buffer_.erase(0, 2 + lengthOfFirst());
                if (wanted(type))
                    return;
            }
            char piece[4096];
            const ssize_t got = recv(socket_, piece, sizeof piece, 0);
            if (got <= 0)
                return;
            buffer_.append(piece, static_cast<std::size_t>(got));
        }
    }

    std::size_t lengthOfFirst() const { return static_cast<unsigned char>(buffer_[1]); }

    int socket_;
    std::string buffer_;
    std::vector<std::string> messages_;
};

/// The results for all messages of one quality of service.
struct Counts {
    int sent = 0;
    int confirmed = 0; ///< send() returned true
    int lost = 0;      ///< confirmed, but never forwarded
    int arrivedUnconfirmed = 0;
    int twice = 0; ///< forwarded more than once
};

Counts publishWhileTheBrokerIsKilled(int qos) {
    Broker broker;
    NQ_Mqtt mqtt("127.0.0.1", "gateway");
    mqtt.setConnOpts(std::to_string(broker.port()), "", "", 1, 1, 20, 1, 0);
    mqtt.initialise();
    bool keepTrying = true;
    EXPECT_TRUE(mqtt.connect(keepTrying));
    Counts counts;
    std::set<std::string> confirmed;
    std::map<std::string, int> passedOn;
    auto watcher = std::make_unique<Watcher>(broker.port());
    for (int kill = 0; kill < kKills; ++kill) {
        const int first = counts.sent + 1;
        std::atomic<int> sentNow{0};
        std::thread killing([&] {
            while (sentNow < beforeEachKill(qos))
                std::this_thread::yield();
            broker.kill(); // while a message is being sent
        });
        for (;;) {
            const std::string message = std::to_string(++counts.sent);
            const bool done = mqtt.send("t", message, qos, 0);
            ++sentNow;
            if (!done)
                break;
            confirmed.insert(message);
        }
        killing.join();
        std::map<std::string, int> now;
        watcher->readToTheEnd(now);
        // One connection delivers messages in order and without gaps.
        for (std::size_t i = 0; qos == 0 && i < now.size(); ++i)
            EXPECT_EQ(1U, now.count(std::to_string(first + static_cast<int>(i))));
        for (const auto& [message, count] : now)
            passedOn[message] += count;
        broker.start();
        watcher = std::make_unique<Watcher>(broker.port());
        EXPECT_TRUE(mqtt.connect(keepTrying));
    }
    EXPECT_TRUE(mqtt.send("t", "last", qos, 0));
    confirmed.insert("last");
    ++counts.sent;
    broker.stop(); // forwards its messages before it ends
    watcher->readToTheEnd(passedOn);
    counts.confirmed = static_cast<int>(confirmed.size());
    for (const std::string& message : confirmed)
        counts.lost += passedOn.count(message) == 0;
    for (const auto& [message, count] : passedOn) {
        counts.arrivedUnconfirmed += confirmed.count(message) == 0;
        counts.twice += count > 1;
    }
    EXPECT_EQ(1, passedOn["last"]);
    std::cout << "fault: broker killed " << kKills << " times, QoS " << qos << ": " << counts.sent
              << " sent, " << counts.confirmed << " confirmed, " << counts.lost << " of them lost, "
              << counts.arrivedUnconfirmed << " arrived unconfirmed, " << counts.twice
              << " arrived twice" << std::endl;
    return counts;
}

} // namespace

TEST(BrokerKilled, Qos0ConfirmsWhatIsLostAndSendsNothingTwice) {
    const Counts counts = publishWhileTheBrokerIsKilled(0);
    EXPECT_EQ(0, counts.twice);
    EXPECT_EQ(0, counts.arrivedUnconfirmed);
    EXPECT_EQ(kKills, counts.sent - counts.confirmed); // the send() that saw the connection lost
    EXPECT_GT(counts.lost, 0);
    EXPECT_LT(counts.lost, counts.confirmed);
}

TEST(BrokerKilled, Qos1LosesNothingConfirmedAndSendsAtMostOneTwiceForEachKill) {
    const Counts counts = publishWhileTheBrokerIsKilled(1);
    EXPECT_EQ(0, counts.lost);
    EXPECT_EQ(kKills, counts.sent - counts.confirmed); // the message that was being sent
    EXPECT_LE(counts.arrivedUnconfirmed, kKills);
    EXPECT_LE(counts.twice, kKills);
}

TEST(BrokerKilled, Qos2LosesNothingConfirmedAndSendsNothingTwice) {
    const Counts counts = publishWhileTheBrokerIsKilled(2);
    EXPECT_EQ(0, counts.lost);
    EXPECT_EQ(0, counts.twice);
    EXPECT_EQ(kKills, counts.sent - counts.confirmed);
    EXPECT_LE(counts.arrivedUnconfirmed, kKills);
}
