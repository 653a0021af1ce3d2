// The program's own accept().
//
// The library's socket server calls accept() for each client. It never closes the descriptors, and
// sets no time limit for a silent client. About a thousand connections would use up the
// descriptors, and one silent client would block all others. The server's loop() replaces the
// listener of its constructor, and never serves a client that connected before. The server's
// interface cannot change that. But a function that a program exports takes precedence over the C
// library's, also for shared libraries. So the program defines accept(). For the server's listener
// it adds what the server leaves out. For every other socket it behaves like the C library's
// function.

#include "Accept.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace agent {
namespace {

/// The pause between two attempts when the system is short of descriptors or memory. Without it the
/// server would try again immediately, and print two lines each time.
constexpr int kShortagePauseMs = 200;

/// What the kernel needs to queue a message, in addition to the message's bytes.
constexpr int kOverhead = 16 * 1024;

Connections* active = nullptr;

bool isShortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == ENOBUFS;
}

/// Enlarges the buffer of `socket`, as far as the system allows, so that it holds a message until
/// the client reads it.
void makeRoom(int socket, std::size_t bytes) {
    // The kernel doubles the value that is set, and counts its own overhead, too.
    const int needed = static_cast<int>(bytes) + kOverhead;
    int room = 0;
    socklen_t length = sizeof room;
    if (getsockopt(socket, SOL_SOCKET, SO_SNDBUF, &room, &length) == 0 && room >= 2 * needed)
        return;
    if (setsockopt(socket, SOL_SOCKET, SO_SNDBUFFORCE, &needed, sizeof needed) != 0) // root only
        setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &needed, sizeof needed);
}

/// Returns the descriptor of a client that has disconnected already, or -1 when no descriptors are
/// left.
int hungUpClient() {
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0)
        return -1;
    close(pair[1]);
    return pair[0];
}

} // namespace

Connections::Connections(const std::string& path, std::chrono::seconds idleLimit)
    : path_(path), idleLimit_(idleLimit), wakeUp_(eventfd(0, EFD_CLOEXEC)) {
    if (wakeUp_ < 0)
        throw std::runtime_error("no descriptor for an event");
    active = this;
}

Connections::~Connections() {
    active = nullptr;
    closeClient();
    close(wakeUp_);
}

bool Connections::answer(const std::string& text) {
    const auto length = static_cast<std::uint32_t>(text.size());
    std::string message(reinterpret_cast<const char*>(&length), sizeof length);
    message += text;
    const std::lock_guard<std::mutex> lock(mutex_);
    makeRoom(client_, message.size());
    if (send(client_, message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL) ==
        static_cast<ssize_t>(message.size()))
        return true;
    shutdown(client_, SHUT_RDWR);
    return false;
}

void Connections::endLoop() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ending_ = true;
    // A loop that waits for a client's bytes reads what has arrived, then the end of the stream.
    // The other direction stays open for an answer.
    if (client_ >= 0)
        shutdown(client_, SHUT_RD);
    eventfd_write(wakeUp_, 1); // for a loop that waits for a client
}

bool Connections::isListener(int descriptor) const {
    sockaddr_un address = {};
    socklen_t length = sizeof address;
    if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        address.sun_family != AF_UNIX)
        return false;
    // The server binds without a terminator.
    const std::size_t most =
        length - std::min<std::size_t>(length, offsetof(sockaddr_un, sun_path));
    return path_ == std::string(address.sun_path,
                                std::find(address.sun_path, address.sun_path + most, '\0'));
}

/// Returns the listener that the server's constructor made, or -1. It was opened before `listener`,
/// and no lower descriptor has been closed since then, so its number is lower.
int Connections::earlierListener(int listener) const {
    for (int descriptor = 0; descriptor < listener; ++descriptor)
        if (isListener(descriptor))
            return descriptor;
    return -1;
}

/// Closes the earlier listener when no client waits in its queue. No further client can connect to
/// it, because the socket file belongs to the new listener.
bool Connections::hasEarlyClient() {
    if (earlier_ < 0)
        return false;
    pollfd waiting = {earlier_, POLLIN, 0};
    if (poll(&waiting, 1, 0) == 1)
        return true;
    close(earlier_);
    earlier_ = -1;
    return false;
}

/// Returns false when the loop must end.
bool Connections::waitForClient(int listener) const {
    pollfd waiting[] = {{listener, POLLIN, 0}, {wakeUp_, POLLIN, 0}};
    while (poll(waiting, 2, -1) < 0 && errno == EINTR) {
    }
    return waiting[1].revents == 0;
}

int Connections::next(int listener, sockaddr* address, socklen_t* length) {
    closeClient(); // the server is done with it
    if (first_) {
        first_ = false;
        earlier_ = earlierListener(listener);
        // The server makes its listeners inheritable. A service that a request restarts would
        // otherwise hold them after the agent has ended.
        fcntl(earlier_, F_SETFD, FD_CLOEXEC);
        fcntl(listener, F_SETFD, FD_CLOEXEC);
        listening_.set_value();
    }
    const bool isEarly = hasEarlyClient();
    if (!isEarly && !waitForClient(listener)) {
        stop_ = true;
        keep(hungUpClient());
        return client_;
    }
    const int client = accept4(isEarly ? earlier_ : listener, address, length, SOCK_CLOEXEC);
    if (client < 0) {
        const int error = errno;
        pollfd ending = {wakeUp_, POLLIN, 0};
        if (isShortage(error))
            poll(&ending, 1, kShortagePauseMs);
        errno = error;
        return client;
    }
    timeval limit = {};
    limit.tv_sec = static_cast<time_t>(idleLimit_.count());
    setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    keep(client);
    return client;
}

void Connections::keep(int client) {
    const std::lock_guard<std::mutex> lock(mutex_);
    client_ = client;
    if (ending_ && client_ >= 0)
        shutdown(client_, SHUT_RD);
}

void Connections::closeClient() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (client_ >= 0)
        close(client_);
    client_ = -1;
}

} // namespace agent

extern "C" __attribute__((visibility("default"))) int accept(int descriptor, sockaddr* address,
                                                             socklen_t* length) {
    if (agent::active != nullptr && agent::active->isListener(descriptor))
        return agent::active->next(descriptor, address, length);
    return accept4(descriptor, address, length, 0);
}
