#include "Broker.h"

#include "Waiting.h"

#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace support {
namespace {

sockaddr_in loopback(int port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/// Sends a CONNECT and waits for any reaction: a broker that expects TLS closes the connection. An
/// accepted connection alone proves nothing: the kernel accepts it before mosquitto enters its main
/// loop, and until then mosquitto ignores a SIGTERM.
bool serves(int port) {
    const std::string connectPacket("\x10\x11\0\4MQTT\4\2\0\x3c\0\5probe", 19);
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    pollfd reaction = {probe, POLLIN, 0};
    const bool serving =
        connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        send(probe, connectPacket.data(), connectPacket.size(), MSG_NOSIGNAL) > 0 &&
        poll(&reaction, 1, 10000) == 1;
    close(probe);
    return serving;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        result.push_back(line);
    return result;
}

} // namespace

Listener::Listener() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        listen(socket_, 1) != 0)
        throw std::runtime_error("no port");
    port_ = ntohs(address.sin_port);
}

Listener::~Listener() { close(socket_); }

bool Listener::holdClient() const {
    pollfd waiting = {socket_, POLLIN, 0};
    return poll(&waiting, 1, 10000) == 1;
}

bool Listener::waitForClient() const {
    if (!holdClient())
        return false;
    close(accept(socket_, nullptr, nullptr));
    return true;
}

Broker::Broker(const std::string& settings) {
    std::string configuration = "listener " + std::to_string(port()) + " 127.0.0.1\n" + settings +
                                "persistence true\npersistence_location " + directory_.path() +
                                "/\n";
    if (geteuid() == 0)
        configuration += "user root\n"; // otherwise it cannot read files of a temporary directory
    writeFile(directory_ / "mosquitto.conf", configuration);
    start();
}

void Broker::start() {
    if (program_) // a second broker could not listen on the same port
        throw std::logic_error("the broker is running");
    program_ = std::make_unique<RunningProgram>(
        std::vector<std::string>{"mosquitto", "-c", directory_ / "mosquitto.conf"},
        std::vector<std::string>{"PATH=/usr/sbin:/usr/bin:/sbin:/bin"});
    if (!eventually([&] { return serves(port()); }))
        throw std::runtime_error("mosquitto does not start: " + program_->errSoFar());
}

void Broker::stop() {
    ::kill(program_->pid(), SIGTERM);
    program_->wait();
    program_.reset();
}

void Broker::kill() {
    ::kill(program_->pid(), SIGKILL);
    program_->wait();
    program_.reset();
}

void Broker::suspend() { ::kill(program_->pid(), SIGSTOP); }

std::size_t Broker::unreadBytes() const {
    char server[32]; // as the kernel prints the address, on a little-endian machine
    std::snprintf(server, sizeof server, "0100007F:%04X", static_cast<unsigned>(port()));
    std::ifstream connections("/proc/net/tcp");
    std::size_t count = 0;
    for (std::string line; std::getline(connections, line);) {
        std::istringstream fields(line);
        std::string number, local, remote, state, queues; // queues: bytes to send, bytes to read
        fields >> number >> local >> remote >> state >> queues;
        const bool isConnected = state == "01";
        if (local == server && isConnected)
            count += std::stoul(queues.substr(queues.find(':') + 1), nullptr, 16);
    }
    return count;
}

std::vector<std::string> Broker::client(const std::vector<std::string>& more) const {
    std::vector<std::string> arguments = {"mosquitto_sub", "-h", "127.0.0.1", "-p",
                                          std::to_string(port())};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return linesOf(runProgram(arguments).out);
}

std::vector<std::string> Broker::receive(const std::string& filter, int count) const {
    return client(
        {"-q", "2", "-t", filter, "-C", std::to_string(count), "-W", "10", "-F", "%t %q %r %p"});
}

void Broker::createSession(const std::string& subscriber, const std::string& filter) const {
    client({"-q", "2", "-t", filter, "-i", subscriber, "-c", "-E"});
}

std::vector<std::string> Broker::receiveQueued(const std::string& subscriber,
                                               const std::string& filter, int count) const {
    return client({"-q", "2", "-t", filter, "-i", subscriber, "-c", "-C", std::to_string(count),
                   "-W", "10", "-F", "%t %q %r %p"});
}

} // namespace support
