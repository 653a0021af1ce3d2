#ifndef TAVO_TESTS_BROKER_H
#define TAVO_TESTS_BROKER_H

#include "Port.h"
#include "RunProgram.h"
#include "TempDir.h"

#include <memory>
#include <string>
#include <vector>

namespace support {

/// Listens on a loopback port; hangs up on clients, or never answers them.
class Listener {
public:
    Listener();
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    int port() const { return port_; }
    /// Takes one connection and closes it; false when none comes within ten seconds.
    bool waitForClient() const;
    /// Waits for a connection and leaves it without an answer; false when none comes within ten
    /// seconds.
    bool holdClient() const;

private:
    int socket_;
    int port_;
};

/// A real MQTT broker (mosquitto) on a loopback port of its own, ended with its object. Its port
/// and its state are kept over stop() and start().
class Broker {
public:
    /// `settings` are lines for its configuration; they follow the listener's.
    explicit Broker(const std::string& settings = "allow_anonymous true\n");

    int port() const { return port_.number(); }

    /// Returns once the broker takes connections.
    void start();

    /// Ends the broker as its service manager would, and waits.
    void stop();

    /// Kills the broker, which saves nothing, and waits.
    void kill();

    /// Halts the broker, which then takes connections and messages but reads none, until kill().
    void halt();

    /// What a subscriber gets for `filter`: one line "topic qos retained payload" per message, at
    /// most `count` of them, or fewer when no more come for a while.
    std::vector<std::string> receive(const std::string& filter, int count) const;

    /// Makes a session that lasts, under the subscriber's name, so that receiveKept() with the same
    /// name gets what is published in between with a quality of service above 0 (or 0, with the
    /// broker's queue_qos0_messages).
    void keepFor(const std::string& subscriber, const std::string& filter) const;

    /// What was kept for `subscriber`, as receive() gives it.
    std::vector<std::string> receiveKept(const std::string& subscriber, const std::string& filter,
                                         int count) const;

    /// The directory of its configuration.
    const TempDir& directory() const { return directory_; }

private:
    std::vector<std::string> client(const std::vector<std::string>& more) const;

    TempDir directory_;
    Port port_;
    std::unique_ptr<RunningProgram> program_;
};

} // namespace support

#endif
