#include "mqtt/Broker.h"

#include "rpc/Text.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace agent {
namespace {

constexpr std::size_t kLongestTopic = 200;

bool isPort(const std::string& text) {
    if (text.empty() || text.size() > 5 ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    const int number = std::stoi(text);
    return number >= 1 && number <= 65535;
}

} // namespace

bool Broker::hasClientCertificate() const { return access(certificateFile().c_str(), F_OK) == 0; }

std::optional<Broker> parseBroker(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos)
        return std::nullopt;
    const Broker broker{text.substr(0, colon), text.substr(colon + 1), ""};
    if (!isName(broker.host, "-.:[]") || !isPort(broker.port))
        return std::nullopt;
    return broker;
}

std::string tlsProblem(const Broker& broker) {
    if (!broker.usesTls())
        return "";
    std::string needed[] = {broker.authorityFile(), broker.certificateFile(), broker.keyFile()};
    const std::size_t count = broker.hasClientCertificate() ? 3 : 1;
    for (std::size_t i = 0; i < count; ++i)
        if (access(needed[i].c_str(), R_OK) != 0)
            return safeLine(needed[i]) + ": " + std::strerror(errno);
    return "";
}

bool isTopic(const std::string& text) {
    return text.size() <= kLongestTopic && isName(text, "-./") && text.front() != '/' &&
           text.back() != '/' && text.find("//") == std::string::npos;
}

bool isSender(const std::string& text) {
    return text.size() <= kLongestSender && isName(text, "-.");
}

} // namespace agent
