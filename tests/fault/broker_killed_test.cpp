// A broker that is killed repeatedly while a gateway publishes. A killed broker saves nothing.
//
// A subscriber receives what each broker forwards. When send() fails, the publisher reconnects and
// continues with the next message.

#include <kvr/api/com/NQ_Mqtt.h>

#include "Broker.h"
#include "Subscriber.h"

#include <atomic>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>

#include <gtest/gtest.h>

namespace {

using kvr::api::com::NQ_Mqtt;
using support::Broker;
using support::Subscriber;

constexpr int kKills = 20;

/// The least number of messages: with QoS 1 and 2, Paho takes a tenth of a second for each.
int beforeEachKill(int qos) { return qos == 0 ? 1000 : 5; }

/// Reads everything that the broker still forwards before it ends, and counts each message.
void readToTheEnd(Subscriber& watcher, std::map<std::string, int>& counts) {
    for (std::string message; watcher.next(message);)
        ++counts[message];
}

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
    auto watcher = std::make_unique<Subscriber>(broker.port(), "t");
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
        readToTheEnd(*watcher, now);
        // One connection delivers messages in order and without gaps.
        for (std::size_t i = 0; qos == 0 && i < now.size(); ++i)
            EXPECT_EQ(1U, now.count(std::to_string(first + static_cast<int>(i))));
        for (const auto& [message, count] : now)
            passedOn[message] += count;
        broker.start();
        watcher = std::make_unique<Subscriber>(broker.port(), "t");
        EXPECT_TRUE(mqtt.connect(keepTrying));
    }
    EXPECT_TRUE(mqtt.send("t", "last", qos, 0));
    confirmed.insert("last");
    ++counts.sent;
    // With QoS 0, a broker that is stopped may not have read the message yet.
    bool arrived = false;
    for (std::string message; !arrived && watcher->next(message);) {
        ++passedOn[message];
        arrived = message == "last";
    }
    broker.stop(); // forwards its messages before it ends
    readToTheEnd(*watcher, passedOn);
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
