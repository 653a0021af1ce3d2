#ifndef TAVO_TESTS_SOAK_RESPONSE_RECEIVER_H
#define TAVO_TESTS_SOAK_RESPONSE_RECEIVER_H

#include "Broker.h"
#include "Load.h"
#include "Subscriber.h"

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace soak {

/// How the responses at the broker compare with the agent's standard output.
struct Comparison {
    int received = 0; ///< without repetitions
    int twice = 0;
    /// Missing, while the agent had 100 newer ones to publish. It keeps no more for the broker.
    int dropped = 0;
    int lost = 0;       ///< missing for no such reason
    int unexpected = 0; ///< not on standard output, or in another order
};

/// Receives the agent's responses from a broker that is killed and restarted. All calls must come
/// from the main thread: the kernel ends a broker together with the thread that started it.
class ResponseReceiver {
public:
    /// The broker keeps a session for the subscriber, also when it is killed.
    explicit ResponseReceiver(const Tally& tally);
    ~ResponseReceiver();
    ResponseReceiver(const ResponseReceiver&) = delete;
    ResponseReceiver& operator=(const ResponseReceiver&) = delete;

    int port() const { return broker_.port(); }
    void killBroker();
    void restartBroker();

    /// Waits for a response. Returns false when it does not arrive within a minute.
    bool waitFor(const std::string& response) const;

    /// `printed` are the responses on standard output. Those without an id are not compared: they
    /// are all alike.
    Comparison compareWith(const std::vector<std::string>& printed) const;

private:
    struct Message {
        std::string text;
        int due; ///< how many responses there can have been when it arrived
    };

    void listen();
    void leave();

    const Tally& tally_;
    support::Broker broker_;
    std::unique_ptr<support::Subscriber> subscriber_;
    std::thread thread_;
    mutable std::mutex guard_;
    std::vector<Message> messages_;
};

/// Kills and restarts the broker at intervals.
class BrokerKiller {
public:
    using Clock = std::chrono::steady_clock;

    BrokerKiller(ResponseReceiver& receiver, Tally& tally) : receiver_(receiver), tally_(tally) {}
    /// The broker runs again afterwards.
    ~BrokerKiller();
    BrokerKiller(const BrokerKiller&) = delete;
    BrokerKiller& operator=(const BrokerKiller&) = delete;

    /// Must be called often.
    void tick(Clock::time_point now);

private:
    ResponseReceiver& receiver_;
    Tally& tally_;
    bool runs_ = true;
    Clock::time_point next_ = Clock::now() + std::chrono::seconds(4);
};

} // namespace soak

#endif
