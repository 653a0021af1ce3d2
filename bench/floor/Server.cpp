#include "Server.h"

#include "print.h"

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace bench::floor {
namespace {

/// Decimal digits of a number.
class Digits {
public:
    explicit Digits(long long number)
        : end_(std::to_chars(text_, text_ + sizeof text_, number).ptr) {}
    operator std::string_view() const {
        return std::string_view(text_, static_cast<std::size_t>(end_ - text_));
    }

private:
    char text_[24];
    char* end_;
};

} // namespace

Listener::~Listener() = default;

Server::Server(std::string path, Listener* listener)
    : path_(std::move(path)), listeners_{listener} {}

Server::~Server() = default;

void Server::loop(bool& stop) {
    const int server = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path_.c_str(), path_.size());
    unlink(path_.c_str());
    if (bind(server, reinterpret_cast<const sockaddr*>(&address),
             static_cast<socklen_t>(path_.size() + sizeof address.sun_family)) == -1 ||
        listen(server, 5) == -1)
        std::abort();
    while (!stop) {
        printLine({"Waiting for a connection..."});
        const int client = accept(server, nullptr, nullptr);
        printLine({"Connected."});
        while (receive(client)) {
        }
    }
}

bool Server::receive(int client) {
    std::uint32_t length = 0;
    if (recv(client, &length, sizeof length, 0) < 0)
        std::abort();
    printLine({"Receiving: ", Digits(length), " bytes"});
    std::string payload(length, '\0');
    const ssize_t result = length == 0 ? 0 : recv(client, &payload[0], length, 0);
    printLine({"Receive result:", Digits(result)});
    if (result <= 0)
        return false;
    lastMessage = std::move(payload);
    printLine({"Received:", lastMessage});
    for (std::size_t i = 0; i < listeners_.size(); ++i) // a listener may change the list
        listeners_[i]->received(this);
    return true;
}

} // namespace bench::floor
