#ifndef TAVO_AGENT_PUBLISHER_H
#define TAVO_AGENT_PUBLISHER_H

#include <chrono>
#include <cstddef>
#include <string>

namespace agent {

/// Publishes the responses to local requests at an MQTT broker, from a thread of its own: a broker
/// that is slow or away delays no request.
///
/// Topics: BASE/response for the responses; BASE/state, retained, says "online" while the agent is
/// connected and "offline" (its will) when it is not.
class Publisher {
public:
    /// Responses that are kept while the broker is away; then the oldest are dropped.
    static constexpr std::size_t kMostKept = 100;
    static constexpr char kOnline[] = "online";
    static constexpr char kOffline[] = "offline";

    virtual ~Publisher() = default;

    /// Starts the thread. Call once.
    virtual void start() = 0;

    /// Never blocks. From any thread.
    virtual void publish(const std::string& response) = 0;

    /// Lets the thread end after it has published what is left, if connected, and "offline". From
    /// any thread.
    virtual void beginEnd() = 0;

    /// False when the thread has not ended within `limit`: it then waits for the broker, and only
    /// _exit() ends the process in time.
    virtual bool endsWithin(std::chrono::milliseconds limit) = 0;
};

} // namespace agent

#endif
