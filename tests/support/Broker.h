#ifndef TAVO_TESTS_BROKER_H
#define TAVO_TESTS_BROKER_H

#include "Port.h"
#include "RunProgram.h"
#include "TempDir.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace support {

/// Listens on a loopback port. Closes clients' connections or never answers them.
class Listener {
public:
    Listener();
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    int port() const { return port_; }
    /// Accepts one connection and closes it. Returns false when none arrives within ten seconds.
    bool waitForClient() const;
    /// Waits for a connection and never answers it. Returns false when none arrives within ten
    /// seconds.
    bool holdClient() const;

private:
    int socket_;
    int port_;
};

/// A real MQTT broker (mosquitto) on its own loopback port. It runs from construction and ends when
/// the object is destroyed. Port and saved state survive stop() and start().
class Broker {
public:
    /// `settings` are further lines of the broker's configuration; they follow the listener's.
    explicit Broker(const std::string& settings = "allow_anonymous true\n");

    int port() const { return port_.number(); }

    /// Starts the broker again after stop() or kill(), and returns once it serves clients.
    void start();

    /// Stops the broker as its service manager would (SIGTERM) and waits for its end.
    void stop();

    /// Kills the broker, which then saves nothing, and waits for its end.
    void kill();

    /// Suspends the broker until kill(): the kernel still accepts connections and data, but the
    /// broker reads none.
    void suspend();

    /// Returns how many bytes clients have sent that the broker has not read.
    std::size_t unreadBytes() const;

    /// Subscribes to `filter` and returns what arrives: one line "topic qos retained payload" per
    /// message. Stops after `count` messages, or after 10 seconds.
    std::vector<std::string> receive(const std::string& filter, int count) const;

    /// Creates a persistent session named `subscriber`. receiveQueued() with the same name returns
    /// what is published in between with a quality of service above 0. The broker setting
    /// queue_qos0_messages adds messages of quality 0.
    void createSession(const std::string& subscriber, const std::string& filter) const;

    /// Returns the messages kept for `subscriber`, in the format of receive().
    std::vector<std::string> receiveQueued(const std::string& subscriber, const std::string& filter,
                                           int count) const;

    /// The directory of the broker's configuration file.
    const TempDir& directory() const { return directory_; }

private:
    std::vector<std::string> client(const std::vector<std::string>& more) const;

    TempDir directory_;
    Port port_;
    std::unique_ptr<RunningProgram> program_;
};

} // namespace support

#endif
