#ifndef TAVO_TESTS_SUBSCRIBER_H
#define TAVO_TESTS_SUBSCRIBER_H

#include <deque>
#include <string>

namespace support {

/// A subscriber of a broker on loopback, with QoS 0, that speaks MQTT itself. A broker sends it
/// every message before it acknowledges the publisher's, so a killed broker has acknowledged
/// nothing that the subscriber misses.
class Subscriber {
public:
    /// Whether the broker keeps the session when the subscriber is gone.
    enum class Session { clean, persistent };

    /// Returns after the broker has acknowledged the subscription.
    Subscriber(int port, const std::string& filter, Session session = Session::clean);
    ~Subscriber();
    Subscriber(const Subscriber&) = delete;
    Subscriber& operator=(const Subscriber&) = delete;

    /// Waits for the next message. Returns false when the connection has ended.
    bool next(std::string& payload);

    /// Ends the connection, also while another thread is in next().
    void disconnect();

private:
    void write(const std::string& bytes);
    void writeConnect(Session session);
    void writeSubscribe(const std::string& filter);
    bool receive(std::string& bytes, std::size_t count) const;
    bool readPacket(unsigned char& type, std::string& body) const;
    /// Reads until a packet of this type has arrived.
    void await(unsigned char wanted);

    int socket_;
    std::deque<std::string> early_; // messages that preceded an awaited packet
};

} // namespace support

#endif
