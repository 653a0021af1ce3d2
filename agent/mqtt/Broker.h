#ifndef TAVO_AGENT_MQTT_BROKER_H
#define TAVO_AGENT_MQTT_BROKER_H

#include <optional>
#include <string>

namespace agent {

/// An MQTT broker and how to reach it.
struct Broker {
    std::string host;
    std::string port;
    /// Holds the certificate of the broker's authority and, where the broker asks for them, a
    /// client's certificate and key, under the names of the functions below. Empty for a connection
    /// without TLS.
    std::string tlsDirectory;

    bool usesTls() const { return !tlsDirectory.empty(); }
    std::string uri() const { return (usesTls() ? "ssl://" : "tcp://") + host + ":" + port; }

    /// The names are those that NQ_Mqtt expects.
    std::string authorityFile() const { return tlsDirectory + "/mqtt_ca-cert.crt"; }
    std::string certificateFile() const { return tlsDirectory + "/mqtt_client-cert.crt"; }
    std::string keyFile() const { return tlsDirectory + "/mqtt_client-key.key"; }

    bool hasClientCertificate() const;
};

/// Reads HOST:PORT; nothing when `text` is not that. An IPv6 address stands in brackets.
std::optional<Broker> parseBroker(const std::string& text);

/// Empty, or which file for TLS cannot be read.
std::string tlsProblem(const Broker& broker);

/// True when `text` can stand in a topic as it is: levels of letters, digits, '_', '-' and '.',
/// separated by '/', none of them empty.
bool isTopic(const std::string& text);

/// Longest name of a sender.
constexpr std::size_t kLongestSender = 64;

/// True when `text` can name a sender: one level of a topic, not longer than kLongestSender.
bool isSender(const std::string& text);

} // namespace agent

#endif
