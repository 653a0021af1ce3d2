#ifndef TAVO_AGENT_MQTT_BROKER_H
#define TAVO_AGENT_MQTT_BROKER_H

#include <optional>
#include <string>

namespace agent {

/// An MQTT broker and how to reach it.
struct Broker {
    std::string host;
    std::string port;
    /// The directory with the certificate of the broker's authority. Where the broker requires
    /// them, it also holds the client's certificate and key. The functions below name the files.
    /// Empty for a connection without TLS.
    std::string tlsDirectory;

    bool usesTls() const { return !tlsDirectory.empty(); }
    std::string uri() const { return (usesTls() ? "ssl://" : "tcp://") + host + ":" + port; }

    /// The names are those that NQ_Mqtt expects.
    std::string authorityFile() const { return tlsDirectory + "/mqtt_ca-cert.crt"; }
    std::string certificateFile() const { return tlsDirectory + "/mqtt_client-cert.crt"; }
    std::string keyFile() const { return tlsDirectory + "/mqtt_client-key.key"; }

    bool hasClientCertificate() const;
};

/// Reads HOST:PORT; returns nothing for another form. An IPv6 address needs brackets.
std::optional<Broker> parseBroker(const std::string& text);

/// Returns which file for TLS cannot be read, or an empty text.
std::string tlsProblem(const Broker& broker);

/// True when `text` can be part of a topic: levels of letters, digits, '_', '-' and '.', separated
/// by '/', none of them empty.
bool isTopic(const std::string& text);

/// Longest name of a sender.
constexpr std::size_t kLongestSender = 64;

/// True when `text` can name a sender: one level of a topic, not longer than kLongestSender.
bool isSender(const std::string& text);

} // namespace agent

#endif
