#include "kvr/api/com/NQ_Sockets.h"

#include "detail/console.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <tuple>
#include <utility>

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>
#include <unistd.h>

namespace kvr::api::com {
namespace {

constexpr char kDirectory[] = "/tmp/socketDDS/";
constexpr char kMakeDirectory[] = "[ -d /tmp/socketDDS ] || mkdir -p /tmp/socketDDS";
constexpr int kBacklog = 5;

[[noreturn]] void endProcess(const char* failedCall) {
    std::perror(failedCall);
    std::exit(1);
}

} // namespace

NQ_Sockets::NQ_Sockets(const char* name) : serverFd(-1) {
    try {
        if (name == nullptr)
            throw std::logic_error("the socket name is null");
        socketPath = kDirectory;
        socketPath += name;
        std::ignore = std::system(kMakeDirectory); // a failure shows in bind()
        initSocketSrv();
    } catch (...) {
        detail::reportCaught("kvr::api::com::NQ_Sockets::NQ_Sockets");
    }
}

NQ_Sockets::~NQ_Sockets() = default;

void NQ_Sockets::initSocketSrv() {
    try {
        // Deliberate: an earlier descriptor is not closed; unlinking its path leaves only the new
        // socket reachable.
        serverFd = socket(AF_UNIX, SOCK_STREAM, 0);
        if (serverFd == -1)
            endProcess("socket");

        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::copy_n(socketPath.data(), std::min(socketPath.size(), sizeof address.sun_path),
                    address.sun_path);
        unlink(socketPath.c_str());

        // The length of the whole path, so that the kernel refuses one that did not fit instead of
        // binding its beginning.
        const auto length = static_cast<socklen_t>(socketPath.size() + sizeof address.sun_family);
        if (bind(serverFd, reinterpret_cast<const sockaddr*>(&address), length) == -1)
            endProcess("bind");
        if (listen(serverFd, kBacklog) == -1)
            endProcess("listen");
    } catch (...) {
        detail::reportCaught("kvr::api::com::NQ_Sockets::initSocketSrv");
    }
}

void NQ_Sockets::loop(bool& stop) {
    initSocketSrv();
    while (!stop) {
        try {
            serveOneConnection();
        } catch (const std::exception& error) {
            detail::reportCaught("kvr::api::com::NQ_Sockets::loop", error);
        }
    }
}

void NQ_Sockets::serveOneConnection() {
    detail::printLine({"Waiting for a connection..."});
    sockaddr_un peer;
    socklen_t peerLength = sizeof peer;
    // Deliberate: a plain descriptor, never closed.
    const int client = accept(serverFd, reinterpret_cast<sockaddr*>(&peer), &peerLength);
    if (client == -1)
        throw std::runtime_error("Error accepting socket connection\n");
    detail::printLine({"Connected."});
    while (receiveMessage(client)) {
    }
}

bool NQ_Sockets::receiveMessage(int client) {
    std::uint32_t length = 0;
    // A short or empty read is not checked: missing bytes stay zero, and a length of 0 ends the
    // connection below.
    const ssize_t arrived = recv(client, &length, sizeof length, 0);
    if (arrived < 0)
        throw std::runtime_error("Error receiving socket data length\n");
    detail::printLine({"Receiving: ", detail::Decimal(length), " bytes"});

    // Where size_t has 32 bits, the length can exceed the longest text. Each C++ library reports
    // that in its own way; this exception is the same everywhere.
    if (length > lastMessage.max_size())
        throw std::bad_alloc();
    std::string payload(length, '\0');
    // After a complete length of 0, a recv() of 0 bytes would block until the client's next byte.
    const bool saysZero = arrived == sizeof length && length == 0;
    const ssize_t result = saysZero ? 0 : recv(client, &payload[0], length, 0);
    detail::printLine({"Receive result:", detail::Decimal(result)});
    if (result < 0)
        throw std::runtime_error("Error receiving socket data buffer\n");
    if (result == 0)
        return false;

    lastMessage = std::move(payload);
    detail::printLine({"Received:", lastMessage});
    notify();
    return true;
}

const std::string& NQ_Sockets::getLastMessage() const { return lastMessage; }

} // namespace kvr::api::com
