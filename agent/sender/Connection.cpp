#include "sender/Connection.h"

#include "SocketDirectory.h"
#include "Trust.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace agent {
namespace {

using std::chrono::milliseconds;

[[noreturn]] void fail(const std::string& problem) { throw std::runtime_error(problem); }

[[noreturn]] void failWithReason(const std::string& problem) {
    fail(problem + ": " + std::strerror(errno));
}

void setSendLimit(int descriptor, std::chrono::seconds limit) {
    timeval value = {};
    value.tv_sec = static_cast<time_t>(limit.count());
    setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &value,
               sizeof value); // also limits connect()
}

void refuseStranger(int descriptor, const std::string& path) {
    ucred peer = {};
    socklen_t length = sizeof peer;
    if (getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0)
        failWithReason(path);
    if (!isTrusted(peer.uid))
        fail(path + " is served by another user");
}

} // namespace

Connection::Connection(const std::string& name, std::chrono::seconds limit)
    : descriptor_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    if (!descriptor_.isOpen())
        failWithReason("socket");
    const std::string path = socketPath(name);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        fail("the name is too long for a socket");
    std::copy(path.begin(), path.end(), address.sun_path);
    const std::string problem = socketDirectoryProblem();
    if (!problem.empty())
        fail(problem);

    setSendLimit(descriptor_.get(), limit);
    if (connect(descriptor_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
        -1) {
        if (errno == EAGAIN)
            throw NoAnswer(path + ": the server accepts no further connections");
        failWithReason(path);
    }
    refuseStranger(descriptor_.get(), path);
}

void Connection::send(const std::string& payload) {
    const auto length = static_cast<std::uint32_t>(payload.size());
    std::string message(reinterpret_cast<const char*>(&length), sizeof length);
    message += payload;
    // One call, so that the server finds the whole message. A blocking send() is short only when
    // the time limit has passed.
    const ssize_t sent = ::send(descriptor_.get(), message.data(), message.size(), MSG_NOSIGNAL);
    if (sent == -1 && errno != EAGAIN)
        failWithReason("the message cannot be sent");
    if (sent != static_cast<ssize_t>(message.size()))
        fail("the server does not accept the whole message");
}

std::string Connection::receive(std::chrono::seconds limit) {
    const Deadline deadline = std::chrono::steady_clock::now() + limit;
    const std::string prefix = receiveBytes(sizeof(std::uint32_t), deadline);
    std::uint32_t length = 0;
    std::memcpy(&length, prefix.data(), sizeof length);
    return receiveBytes(length, deadline);
}

std::string Connection::receiveBytes(std::size_t count, Deadline deadline) {
    std::string bytes;
    while (bytes.size() < count) {
        const auto left =
            std::chrono::duration_cast<milliseconds>(deadline - std::chrono::steady_clock::now());
        // Rounded up, so that the wait does not end just before the deadline.
        const auto wait = static_cast<int>(std::max<milliseconds::rep>(left.count() + 1, 0));
        pollfd readable = {descriptor_.get(), POLLIN, 0};
        const int ready = poll(&readable, 1, wait);
        if (ready == 0)
            throw NoAnswer("no answer came in time");
        char piece[4096];
        const ssize_t result = ready < 0 ? ready
                                         : recv(descriptor_.get(), piece,
                                                std::min(sizeof piece, count - bytes.size()), 0);
        if (result == 0)
            throw NoAnswer("the server has closed the connection without an answer");
        if (result < 0 && errno != EINTR)
            failWithReason("the answer cannot be received");
        if (result > 0)
            bytes.append(piece, static_cast<std::size_t>(result));
    }
    return bytes;
}

} // namespace agent
