#include "Subscriber.h"

#include <cstdint>
#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace support {
namespace {

constexpr unsigned char kConnack = 0x20;
constexpr unsigned char kPublish = 0x30;
constexpr unsigned char kSuback = 0x90;

/// A text after its length in two bytes.
std::string field(const std::string& text) {
    return std::string{static_cast<char>(text.size() >> 8), static_cast<char>(text.size())} + text;
}

/// Returns the payload of a message of QoS 0: what follows its topic.
std::string payloadOf(const std::string& body) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(body.at(i)); };
    return body.substr(2U + 256U * byte(0) + byte(1));
}

} // namespace

Subscriber::Subscriber(int port, const std::string& filter, Session session)
    : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("no broker");
    writeConnect(session);
    await(kConnack);
    writeSubscribe(filter);
    await(kSuback);
}

Subscriber::~Subscriber() { close(socket_); }

void Subscriber::writeConnect(Session session) {
    const std::string flags = {session == Session::clean ? '\2' : '\0', 0, 0}; // no keep-alive
    const std::string body = field("MQTT") + '\4' + flags + field("eye");
    write(std::string{'\x10', static_cast<char>(body.size())} + body);
}

void Subscriber::writeSubscribe(const std::string& filter) {
    const std::string body = std::string{0, 1} + field(filter) + '\0';
    write(std::string{'\x82', static_cast<char>(body.size())} + body);
}

void Subscriber::write(const std::string& bytes) {
    if (send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(bytes.size()))
        throw std::runtime_error("the broker does not read");
}

bool Subscriber::receive(std::string& bytes, std::size_t count) const {
    bytes.resize(count);
    return count == 0 ||
           recv(socket_, &bytes[0], count, MSG_WAITALL) == static_cast<ssize_t>(count);
}

bool Subscriber::readPacket(unsigned char& type, std::string& body) const {
    std::string byte;
    if (!receive(byte, 1))
        return false;
    type = static_cast<unsigned char>(byte[0]);
    std::size_t length = 0;
    for (unsigned shift = 0;; shift += 7) {
        if (!receive(byte, 1))
            return false;
        const auto part = static_cast<unsigned char>(byte[0]);
        length |= static_cast<std::size_t>(part & 0x7fU) << shift;
        if (part < 0x80)
            return receive(body, length);
    }
}

void Subscriber::await(unsigned char wanted) {
    unsigned char type = 0;
    for (std::string body; readPacket(type, body);) {
        if (type == wanted)
            return;
        if ((type & 0xf0U) == kPublish)
            early_.push_back(payloadOf(body));
    }
    throw std::runtime_error("the broker does not accept the subscriber");
}

bool Subscriber::next(std::string& payload) {
    if (!early_.empty()) {
        payload = early_.front();
        early_.pop_front();
        return true;
    }
    unsigned char type = 0;
    for (std::string body; readPacket(type, body);) {
        if ((type & 0xf0U) == kPublish) {
            payload = payloadOf(body);
            return true;
        }
    }
    return false;
}

void Subscriber::disconnect() { shutdown(socket_, SHUT_RDWR); }

} // namespace support
