#ifndef TAVO_AGENT_SENDER_CONNECTION_H
#define TAVO_AGENT_SENDER_CONNECTION_H

#include "OwnedDescriptor.h"

#include <chrono>
#include <stdexcept>
#include <string>

namespace agent {

/// No answer arrived, or none in time.
class NoAnswer : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A connection to a socket server of this machine. Failures raise std::runtime_error, with a
/// readable reason.
class Connection {
public:
    /// Connects to the server NAME. Refuses another user's server, as that user could read the
    /// messages. Waits at most for `limit` until the server takes the connection, and then until it
    /// takes each message.
    Connection(const std::string& name, std::chrono::seconds limit);

    /// Sends one message: its length in four bytes, host byte order, then its bytes.
    void send(const std::string& payload);

    /// Returns the next message that the server sends, of the same form.
    std::string receive(std::chrono::seconds limit);

private:
    using Deadline = std::chrono::steady_clock::time_point;
    std::string receiveBytes(std::size_t count, Deadline deadline);

    OwnedDescriptor descriptor_;
};

} // namespace agent

#endif
