#ifndef TAVO_AGENT_PUBLISHER_H
#define TAVO_AGENT_PUBLISHER_H

#include <chrono>
#include <cstddef>
#include <string>

namespace agent {

/// Publishes the responses to local requests at an MQTT broker, on its own thread. So a slow or
/// unreachable broker delays no request.
///
/// Topics: BASE/response for the responses; BASE/state, retained, is "online" while the agent is
/// connected and "offline" (its will) when it is not.
class Publisher {
public:
    /// How many responses are kept while the broker is unreachable. When there are more, the oldest
    /// are dropped.
    static constexpr std::size_t kMaxKept = 100;
    static constexpr char kOnline[] = "online";
    static constexpr char kOffline[] = "offline";

    virtual ~Publisher() = default;

    /// Starts the thread. Call once.
    virtual void start() = 0;

    /// Never blocks. Any thread may call this.
    virtual void publish(const std::string& response) = 0;

    /// Requests the end of the thread. If connected, the thread first publishes the remaining
    /// responses and "offline". Any thread may call this.
    virtual void beginEnd() = 0;

    /// Returns false when the thread has not ended within `limit`. It then waits for the broker,
    /// and only _exit() ends the process in time.
    virtual bool endsWithin(std::chrono::milliseconds limit) = 0;
};

} // namespace agent

#endif
