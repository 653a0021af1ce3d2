#ifndef TAVO_TESTS_SOAK_LOAD_H
#define TAVO_TESTS_SOAK_LOAD_H

#include "AgentInSandbox.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace soak {

/// What the clients have done so far. All threads use it.
class Tally {
public:
    int newId() { return ++ids_; }
    /// The most responses that there can be so far.
    int due() const { return ids_ + incomplete_; }

    /// `code` is 0 for a result, otherwise the error's.
    void answered(int id, int code);
    void unanswered(const std::string& why);
    /// For a complete request whose client did not wait for the response.
    void sentWithoutWaiting(int id);
    void refused() { ++refused_; }
    void disconnectedEarly() { ++disconnectedEarly_; }
    /// For half a request, which has a response without an id.
    void incompleteSent() { ++incomplete_; }
    void silent() { ++silent_; }
    void brokerKilled() { ++kills_; }
    void serviceRestarted() { ++restarts_; }

    int kills() const { return kills_; }
    int restarts() const { return restarts_; }
    /// All counts in one line.
    std::string line() const;
    std::vector<std::string> failures() const;
    /// The ids of the requests that must have one response each.
    std::set<int> expected() const;

private:
    mutable std::mutex guard_;
    std::atomic<int> ids_{0};
    std::atomic<int> incomplete_{0};
    std::atomic<int> refused_{0};
    std::atomic<int> disconnectedEarly_{0};
    std::atomic<int> silent_{0};
    std::atomic<int> kills_{0};
    std::atomic<int> restarts_{0};
    int answers_ = 0;
    std::map<int, int> codes_;
    std::set<int> expected_;
    std::vector<std::string> failures_;
};

/// Reads a response's id and its error code, or 0. Returns false for any other text.
bool readResponse(const std::string& text, int& id, int& code);

/// Sends a request that changes nothing, and waits for its response.
void sendSimple(const support::AgentInSandbox& agent, Tally& tally);

/// Sends one request of each kind.
void sendEachKind(const support::AgentInSandbox& agent, Tally& tally);

/// The clients: threads that run until the object is destroyed.
class Load {
public:
    Load(const support::AgentInSandbox& agent, Tally& tally);
    ~Load();
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

private:
    void start(const std::function<void()>& action);
    void pause(std::chrono::milliseconds time);
    std::unique_ptr<support::Client> connected();
    void sendRequests(unsigned seed);
    void disconnectEarly();
    void staySilent();

    const std::string path_;
    Tally& tally_;
    std::atomic<bool> over_{false};
    std::vector<std::thread> threads_;
};

} // namespace soak

#endif
