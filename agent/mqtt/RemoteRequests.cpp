#include "mqtt/RemoteRequests.h"

#include "Log.h"
#include "rpc/Request.h"
#include "rpc/RequestHandler.h"
#include "rpc/Rpc.h"
#include "rpc/Text.h"

#include <stdexcept>

namespace agent {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// Requests that wait while one is in progress.
constexpr std::size_t kMaxWaiting = 64;
/// The pause between two attempts to connect.
constexpr std::chrono::seconds kRetryPause(2);
/// How often the thread looks for responses to local requests while the broker sends nothing.
constexpr milliseconds kIdleStep(100);
/// How often the connection is served while a request is in progress.
constexpr milliseconds kBusyStep(200);
/// How long the last messages may take when the agent ends.
constexpr milliseconds kOfflineLimit(500);

/// Returns the id of a request as JSON; empty when the message is not a request or has no id.
std::string idOf(const std::string& message) {
    try {
        const Request request(message);
        return request.isNotification() ? std::string() : oneLine(request.id());
    } catch (const RpcError&) {
        return std::string();
    }
}

/// The response to a request that was carried out, but whose own response is no longer kept.
std::string responseNotKept(const std::string& message) {
    const Request request(message);
    Json response = newResponse(request.id());
    put(response, "error",
        errorMember(
            RpcError(ErrorCode::Failed, "already carried out; the response is no longer kept")));
    return oneLine(response.get());
}

} // namespace

RemoteRequests::RemoteRequests(const Broker& broker, const std::string& name,
                               const std::string& base, const std::set<std::string>& refused,
                               RequestHandler& handler)
    : base_(base), refused_(refused), handler_(handler),
      // One byte more than is accepted, so that a longer request is refused as such.
      client_(broker, name + "-requests", kLongestRequest + 1, {base + "/state", kOffline, true}),
      uri_(broker.uri()), end_(ended_.get_future()) {}

RemoteRequests::~RemoteRequests() {
    if (!thread_.joinable())
        return;
    beginEnd();
    thread_.join();
}

void RemoteRequests::start() {
    thread_ = std::thread([this] {
        run();
        ended_.set_value();
    });
}

void RemoteRequests::publish(const std::string& response) {
    const std::lock_guard<std::mutex> lock(mutex_);
    queue_.push_back(response);
    if (queue_.size() > kMaxKept)
        queue_.pop_front();
}

void RemoteRequests::beginEnd() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ending_ = true;
    changed_.notify_all();
}

bool RemoteRequests::endsWithin(milliseconds limit) {
    return end_.wait_for(limit) == std::future_status::ready;
}

bool RemoteRequests::isEnding() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return ending_;
}

void RemoteRequests::run() {
    for (;;) {
        if (connect()) {
            if (serve())
                return;
            logError("lost " + safeLine(uri_));
            requeueUnacknowledged();
        }
        std::unique_lock<std::mutex> lock(mutex_);
        if (changed_.wait_for(lock, kRetryPause, [this] { return ending_; }))
            return;
    }
}

bool RemoteRequests::connect() {
    std::string problem = client_.connect();
    if (problem.empty() && !client_.subscribe(base_ + "/request/+"))
        problem = "the broker refuses the subscription";
    if (problem.empty() && client_.publish(base_ + "/state", kOnline, true) == 0)
        problem = "the connection was lost again";
    if (problem.empty())
        logInfo("taking requests from " + safeLine(uri_));
    else if (problem != problem_) // attempts repeat, so only new problems are logged
        logError("cannot take requests from " + safeLine(uri_) + ": " + problem);
    problem_ = problem;
    return problem.empty();
}

/// True when the agent ends, false when the connection is lost.
bool RemoteRequests::serve() {
    for (;;) {
        const bool busy = answer_.valid();
        if (busy && answer_.wait_for(kBusyStep) == std::future_status::ready)
            finish();
        if (!publishQueued())
            return false;
        if (isEnding() && !answer_.valid())
            return publishOffline();
        if (!receive(busy || !waiting_.empty() ? milliseconds(0) : kIdleStep))
            return false;
        if (!answer_.valid() && !waiting_.empty())
            begin();
    }
}

/// Waits for messages and queues those that have arrived. False when the connection is lost.
bool RemoteRequests::receive(milliseconds limit) {
    std::size_t dropped = 0;
    MqttMessage message;
    MqttClient::Event event;
    while ((event = client_.receive(message, limit)) == MqttClient::Event::Message) {
        if (!isWanted(message))
            continue;
        if (waiting_.size() < kMaxWaiting)
            waiting_.push_back(message);
        else
            ++dropped;
        limit = milliseconds(0);
    }
    if (dropped > 0)
        logError(std::to_string(dropped) + " requests dropped: too many are waiting");
    return event != MqttClient::Event::Lost;
}

std::string RemoteRequests::senderOf(const MqttMessage& message) const {
    return message.topic.substr((base_ + "/request/").size());
}

/// Logs every message that is not wanted.
bool RemoteRequests::isWanted(const MqttMessage& message) const {
    const std::string sender = senderOf(message);
    if (!isSender(sender))
        logError("request ignored: \"" + safeLine(sender) + "\" is not a valid sender name");
    // The broker delivers a retained message with each connection, however old it is.
    else if (message.retained)
        logError("retained request of " + sender + " ignored");
    else
        return true;
    return false;
}

/// Starts the first of the waiting requests, on another thread: it may take long, and this thread
/// must keep the connection alive.
void RemoteRequests::begin() {
    const MqttMessage message = std::move(waiting_.front());
    waiting_.pop_front();
    sender_ = senderOf(message);
    id_ = idOf(message.payload);
    const std::string* known = id_.empty() ? nullptr : cache_.find(sender_, id_);
    if (known != nullptr) {
        logInfo("request " + safeLine(id_) + " of " + sender_ + " repeated: not run again");
        respond(known->empty() ? responseNotKept(message.payload) : *known);
        return;
    }
    answer_ = std::async(std::launch::async, [this, payload = message.payload, sender = sender_] {
        try {
            return handler_.handle(payload, sender, refused_).text;
        } catch (const std::exception&) {
            return std::string(); // the agent is ending, which is logged
        }
    });
}

/// Publishes the response to the request that was in progress.
void RemoteRequests::finish() {
    const std::string response = answer_.get();
    if (response.empty())
        return;
    if (!id_.empty())
        cache_.keep(sender_, id_, response);
    respond(response);
}

void RemoteRequests::respond(const std::string& response) {
    // The sender repeats a request whose response it has missed.
    if (client_.publish(base_ + "/response/" + sender_, response) == 0)
        logError("the response to " + sender_ + " could not be published");
}

/// Publishes the responses to local requests, and drops those that the broker has acknowledged.
/// False when the connection is lost.
bool RemoteRequests::publishQueued() {
    std::deque<std::string> queued;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        queued.swap(queue_);
    }
    bool connected = true;
    for (std::string& response : queued) {
        const int number = connected ? client_.publish(base_ + "/response", response) : 0;
        connected = number != 0;
        sent_.push_back({std::move(response), number});
    }
    while (connected && !sent_.empty() && client_.isAcknowledged(sent_.front().number))
        sent_.pop_front();
    return connected;
}

/// Queues the responses that were lost with a connection, so that they are published over the next.
void RemoteRequests::requeueUnacknowledged() {
    const std::lock_guard<std::mutex> lock(mutex_);
    while (!sent_.empty()) {
        if (queue_.size() < kMaxKept)
            queue_.push_front(std::move(sent_.back().response));
        sent_.pop_back();
    }
}

/// Publishes the offline state: with an orderly end the broker does not publish the will. Always
/// returns true, since nothing is left to do.
bool RemoteRequests::publishOffline() {
    const int number = client_.publish(base_ + "/state", kOffline, true);
    const auto deadline = steady_clock::now() + kOfflineLimit;
    MqttMessage ignored;
    while (number != 0 && steady_clock::now() < deadline &&
           !(client_.isAcknowledged(number) && sent_.empty())) {
        if (client_.receive(ignored, milliseconds(10)) == MqttClient::Event::Lost ||
            !publishQueued())
            break;
    }
    return true;
}

} // namespace agent
