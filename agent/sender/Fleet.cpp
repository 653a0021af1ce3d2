#include "sender/Fleet.h"

#include "rpc/Request.h"
#include "rpc/Rpc.h"
#include "rpc/Text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <random>
#include <stdexcept>
#include <thread>

#include <unistd.h>

namespace agent {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// Far larger than any response.
constexpr std::size_t kLongestResponse = 16 * 1024 * 1024;
constexpr milliseconds kStep(100);
constexpr seconds kRetryPause(1);
/// The broker sends all retained states directly after the subscription.
constexpr milliseconds kQuiet(1000);
/// A request is repeated after this time, and each pause is twice as long as the last. The agent
/// carries it out once.
constexpr seconds kFirstRepeat(5);

/// Unique, because agents remember the ids of the latest requests.
std::string newId() {
    std::random_device random;
    char text[32];
    std::snprintf(text, sizeof text, "tavo-rpc-%08x%08x", static_cast<unsigned>(random()),
                  static_cast<unsigned>(random()));
    return text;
}

bool isResult(json_object* response) {
    return json_object_object_get_ex(response, "result", nullptr) != 0;
}

} // namespace

Fleet::Fleet(const Broker& broker, const std::string& base, const std::string& sender,
             Clock::time_point deadline)
    : base_(base), sender_(sender), deadline_(deadline), client_(broker, sender, kLongestResponse),
      hasTerminal_(isatty(STDERR_FILENO) != 0) {}

void Fleet::connect() {
    for (;;) {
        const std::string problem = client_.connect();
        if (problem.empty() && subscribe())
            return;
        if (Clock::now() + kRetryPause >= deadline_)
            throw std::runtime_error(problem.empty() ? "the broker refuses the subscription"
                                                     : problem);
        std::this_thread::sleep_for(kRetryPause);
    }
}

bool Fleet::subscribe() { return client_.subscribe(base_ + "/+/response/" + sender_); }

std::set<std::string> Fleet::findAll() {
    if (!client_.subscribe(base_ + "/+/state"))
        throw std::runtime_error("the broker refuses the subscription to the gateways' states");
    const std::string end = "/state";
    std::set<std::string> names;
    auto quietSince = Clock::now();
    while (Clock::now() < quietSince + kQuiet && !isPast()) {
        MqttMessage message;
        const MqttClient::Event event = client_.receive(message, kStep);
        if (event == MqttClient::Event::Lost)
            throw std::runtime_error("the connection to the broker was lost");
        if (event != MqttClient::Event::Message)
            continue;
        const std::size_t begin = base_.size() + 1;
        const std::string name =
            message.topic.substr(begin, message.topic.size() - begin - end.size());
        if (message.payload == "online" && isSender(name))
            names.insert(name);
        else
            names.erase(name);
        quietSince = Clock::now();
    }
    return names;
}

Fleet::Outcome Fleet::call(const Payload& payload, const std::set<std::string>& gateways) {
    try {
        const Request request(payload.text);
        if (!request.isNotification()) {
            id_ = newId();
            originalId_ = share(request.id());
            json_object_object_add(request.tree(), "id", newText(id_).release());
        }
        text_ = oneLine(request.tree());
    } catch (const RpcError& error) {
        throw std::runtime_error(payload.label + ": " + messageOf(error.code()) + ": " +
                                 error.what());
    }
    count_ = gateways.size();
    sendTo(gateways);
    if (id_.empty())
        return awaitTaken() ? Outcome() : Outcome{0, {gateways.begin(), gateways.end()}};

    pending_ = gateways;
    auto pause = kFirstRepeat;
    auto repeat = Clock::now() + pause;
    while (!pending_.empty() && !isPast()) {
        showProgress();
        MqttMessage message;
        switch (client_.receive(message, kStep)) {
        case MqttClient::Event::Message:
            take(message);
            break;
        case MqttClient::Event::Lost:
            connect();
            sendTo(pending_);
            break;
        case MqttClient::Event::Nothing:
            break;
        }
        if (Clock::now() >= repeat) {
            sendTo(pending_);
            pause *= 2;
            repeat = Clock::now() + pause;
        }
    }
    showProgress();
    if (hasTerminal_)
        std::cerr << '\n';
    return {errors_, {pending_.begin(), pending_.end()}};
}

void Fleet::sendTo(const std::set<std::string>& gateways) {
    for (const std::string& name : gateways) {
        const int number = client_.publish(base_ + "/" + name + "/request/" + sender_, text_);
        numbers_.push_back(number);
    }
}

/// True when the broker has taken every message in time.
bool Fleet::awaitTaken() {
    MqttMessage ignored;
    const auto isAcknowledged = [this](int number) {
        return number != 0 && client_.isAcknowledged(number);
    };
    while (!isPast()) {
        numbers_.erase(std::remove_if(numbers_.begin(), numbers_.end(), isAcknowledged),
                       numbers_.end());
        if (numbers_.empty())
            return true;
        if (client_.receive(ignored, milliseconds(10)) == MqttClient::Event::Lost)
            return false; // some may have been carried out already
    }
    return false;
}

/// Prints a response that the call waits for; ignores any other.
void Fleet::take(const MqttMessage& message) {
    const std::size_t begin = base_.size() + 1;
    const std::string name = message.topic.substr(begin, message.topic.find('/', begin) - begin);
    const ParsedJson response = parseJson(message.payload);
    json_object* id = nullptr;
    json_object_object_get_ex(response.value.get(), "id", &id);
    // Other responses are repeated, or belong to earlier requests of this sender.
    if (message.retained || !isType(id, json_type_string) || textOf(id) != id_ ||
        pending_.erase(name) == 0)
        return;
    if (!isResult(response.value.get()))
        ++errors_;
    put(response.value, "id", share(originalId_.get()));
    if (hasTerminal_)
        std::cerr << "\r\033[K" << std::flush; // clears the progress line
    std::cout << name << ' ' << oneLine(response.value.get()) << std::endl;
}

void Fleet::showProgress() const {
    if (hasTerminal_)
        std::cerr << "\r" << count_ - pending_.size() << " of " << count_ << " answered"
                  << std::flush;
}

} // namespace agent
