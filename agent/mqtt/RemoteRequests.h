#ifndef TAVO_AGENT_REMOTE_REQUESTS_H
#define TAVO_AGENT_REMOTE_REQUESTS_H

#include "mqtt/MqttClient.h"
#include "mqtt/Publisher.h"
#include "mqtt/ResponseCache.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <set>
#include <string>
#include <thread>

namespace agent {

class RequestHandler;

/// The Publisher of an agent that also takes requests from the broker.
///
/// Topics in addition to a Publisher's: BASE/request/SENDER for the requests of SENDER, and
/// BASE/response/SENDER for the responses to them. So the ids of different senders cannot collide,
/// and a broker's access list can restrict who may send.
class RemoteRequests : public Publisher {
public:
    /// `name` is the agent's, `base` what the topics begin with. Requests for one of the methods
    /// `refused` are answered with an error. `handler` must outlive this object.
    RemoteRequests(const Broker& broker, const std::string& name, const std::string& base,
                   const std::set<std::string>& refused, RequestHandler& handler);
    /// Calls beginEnd() and waits for the thread, however long that takes.
    ~RemoteRequests() override;
    RemoteRequests(const RemoteRequests&) = delete;
    RemoteRequests& operator=(const RemoteRequests&) = delete;

    void start() override;
    void publish(const std::string& response) override;
    /// As a Publisher's, but first finishes and answers a request in progress.
    void beginEnd() override;
    bool endsWithin(std::chrono::milliseconds limit) override;

private:
    /// A response to a local request, published but perhaps not yet acknowledged.
    struct Sent {
        std::string response;
        int number;
    };

    void run();
    bool connect();
    bool serve();
    bool receive(std::chrono::milliseconds limit);
    std::string senderOf(const MqttMessage& message) const;
    bool isWanted(const MqttMessage& message) const;
    void begin();
    void finish();
    void respond(const std::string& response);
    bool publishQueued();
    void requeueUnacknowledged();
    bool publishOffline();
    bool isEnding();

    std::string base_;
    std::set<std::string> refused_;
    RequestHandler& handler_;
    MqttClient client_;
    std::string uri_;
    std::string problem_; ///< of the last attempt to connect
    std::deque<MqttMessage> waiting_;
    std::string sender_;              ///< of the request in progress
    std::string id_;                  ///< of the same, as JSON; empty when it has none
    std::future<std::string> answer_; ///< to the request in progress, if any
    ResponseCache cache_;
    std::deque<Sent> sent_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::string> queue_; ///< responses to local requests; guarded by mutex_
    bool ending_ = false;           ///< guarded by mutex_
    std::promise<void> ended_;
    std::future<void> end_;
    std::thread thread_;
};

} // namespace agent

#endif
