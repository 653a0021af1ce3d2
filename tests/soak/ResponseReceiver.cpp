#include "ResponseReceiver.h"

#include "Waiting.h"

#include <algorithm>

namespace soak {
namespace {

const char kTopic[] = "gateways/agent/response";
constexpr int kKept = 100; // responses that the agent keeps for the broker

bool hasId(const std::string& response) {
    return response.find("\"id\":null") == std::string::npos;
}

} // namespace

ResponseReceiver::ResponseReceiver(const Tally& tally)
    : tally_(tally),
      broker_("allow_anonymous true\nqueue_qos0_messages true\nmax_queued_messages 0\n") {
    listen();
    leave();
    broker_.stop(); // saves the session, which a killed broker does not
    restartBroker();
}

ResponseReceiver::~ResponseReceiver() { leave(); }

void ResponseReceiver::killBroker() {
    broker_.kill();
    thread_.join(); // it receives what the broker has still sent
}

void ResponseReceiver::restartBroker() {
    broker_.start();
    listen();
}

void ResponseReceiver::listen() {
    subscriber_ = std::make_unique<support::Subscriber>(port(), kTopic,
                                                        support::Subscriber::Session::persistent);
    thread_ = std::thread([this] {
        for (std::string text; subscriber_->next(text);) {
            const std::lock_guard<std::mutex> lock(guard_);
            messages_.push_back({text, tally_.due()});
        }
    });
}

void ResponseReceiver::leave() {
    subscriber_->disconnect();
    if (thread_.joinable())
        thread_.join();
}

bool ResponseReceiver::waitFor(const std::string& response) const {
    return support::eventually(
        [&] {
            const std::lock_guard<std::mutex> lock(guard_);
            return std::any_of(messages_.rbegin(), messages_.rend(),
                               [&](const Message& message) { return message.text == response; });
        },
        std::chrono::minutes(1));
}

Comparison ResponseReceiver::compareWith(const std::vector<std::string>& printed) const {
    std::map<std::string, int> numbers;
    for (std::size_t i = 0; i < printed.size(); ++i)
        numbers[printed[i]] = static_cast<int>(i);
    const auto missing = [&](int begin, int end) {
        return static_cast<int>(
            std::count_if(printed.begin() + begin, printed.begin() + end, hasId));
    };
    const std::lock_guard<std::mutex> lock(guard_);
    Comparison result;
    int next = 0; // the first that has not arrived
    for (const Message& message : messages_) {
        if (!hasId(message.text))
            continue;
        const auto found = numbers.find(message.text);
        if (found == numbers.end() || found->second < next - 1) {
            ++result.unexpected;
        } else if (found->second == next - 1) {
            ++result.twice;
        } else {
            const bool wasFull = message.due >= found->second + kKept;
            (wasFull ? result.dropped : result.lost) += missing(next, found->second);
            ++result.received;
            next = found->second + 1;
        }
    }
    result.lost += missing(next, static_cast<int>(printed.size()));
    return result;
}

BrokerKiller::~BrokerKiller() {
    if (!runs_)
        receiver_.restartBroker();
}

void BrokerKiller::tick(Clock::time_point now) {
    if (now < next_)
        return;
    if (runs_) {
        receiver_.killBroker();
        tally_.brokerKilled();
    } else {
        receiver_.restartBroker();
    }
    runs_ = !runs_;
    next_ = now + std::chrono::seconds(runs_ ? 4 : 2);
}

} // namespace soak
