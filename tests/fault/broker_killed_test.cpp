// A broker that is killed again and again while a gateway publishes. A killed broker saves nothing.
//
// A watcher sees what each broker passed on. It subscribes with QoS 0, so that the broker hands it
// every message before it answers the publisher, and keeps nothing back. The publisher goes on to the
// next message when send() fails, after it has connected again.

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

/// Messages sent, at least: with QoS 1 and 2, one takes Paho a tenth of a second.
int beforeEachKill(int qos) { return qos == 0 ? 1000 : 5; }

/// A subscriber of the topic "t" with QoS 0, on the bare wire.
class Watcher {
public:
    /// Returns when the broker has taken the subscription.
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

    /// Takes in all that comes until the broker is gone.
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

    /// Until a packet of the wanted kind has come, or the connection ends.
    template <class Wanted>
    void readPackets(const Wanted& wanted) {
        for (;;) {
            while (buffer_.size() >= 2 && buffer_.size() >= 2U + lengthOfFirst()) {
                const auto type = static_cast<unsigned char>(buffer_[0]);
                if ((type & 0xf0) == 0x30) // PUBLISH: after the topic "t" comes the payload
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

/// What came of all messages of one quality of service.
struct Counts {
    int sent = 0;
    int confirmed = 0; ///< send() returned true
    int lost = 0;      ///< confirmed, and never passed on
    int arrivedUnconfirmed = 0;
    int twice = 0; ///< passed on more than once
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
            broker.kill(); // in the midst of a message
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
        // What one connection carries comes in order, and without a gap.
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
    broker.stop(); // passes on what it has first
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
    EXPECT_EQ(kKills, counts.sent - counts.confirmed); // when the lost connection shows
    EXPECT_GT(counts.lost, 0);
    EXPECT_LT(counts.lost, counts.confirmed);
}

TEST(BrokerKilled, Qos1LosesNothingConfirmedAndSendsAtMostOneTwiceForEachKill) {
    const Counts counts = publishWhileTheBrokerIsKilled(1);
    EXPECT_EQ(0, counts.lost);
    EXPECT_EQ(kKills, counts.sent - counts.confirmed); // the message of the moment
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
