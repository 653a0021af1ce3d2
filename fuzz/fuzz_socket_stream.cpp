// Any bytes that a client sends to an NQ_Sockets, over a real connection.
//
// The first byte limits how many bytes one read receives, so that the server's reads are short (0:
// no limit). The rest is the stream.
#include <kvr/api/com/NQ_Sockets.h>

#include "bounded_memory.h"
#include "fuzzing.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <dlfcn.h>
#include <sanitizer/asan_interface.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

using kvr::api::com::NQ_Sockets;

namespace {

template <class Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

constexpr std::size_t kNoLimit = 65536; // well below a socket's buffer

/// The only client of a run: both ends of its connection, and the bytes that it has not sent yet.
struct Client {
    const std::uint8_t* data = nullptr;
    std::size_t left = 0;
    std::size_t pieceLimit = 0;
    int serverEnd = -1;
    int clientEnd = -1;
    bool stop = false;

    int connect() {
        int ends[2];
        fuzzing::require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "socketpair works");
        serverEnd = ends[0];
        clientEnd = ends[1];
        stop = true; // the server reads it when this connection has ended
        return serverEnd;
    }

    /// Sends the next piece when the server has read all of the last one.
    void feed() {
        int unread = 0;
        if (ioctl(serverEnd, FIONREAD, &unread) == 0 && unread > 0)
            return;
        const std::size_t piece = std::min(left, pieceLimit);
        if (piece == 0) {
            shutdown(clientEnd, SHUT_WR);
            return;
        }
        const ssize_t sent = send(clientEnd, data, piece, MSG_DONTWAIT);
        fuzzing::require(sent == static_cast<ssize_t>(piece), "the socket's buffer has room");
        data += piece;
        left -= piece;
    }

    void disconnect() {
        close(serverEnd); // intentionally left open by the server
        close(clientEnd);
        serverEnd = clientEnd = -1;
    }
};

Client client;
int lastListener = -1;

struct Listener : kvr::api::iot::Observer<NQ_Sockets> {
    void update(NQ_Sockets* server) override {
        fuzzing::require(!server->getLastMessage().empty(), "no empty message is announced");
    }
};

std::string socketName() { return "tavo-fuzz-" + std::to_string(getpid()); }

void removeSocket() { unlink(("/tmp/socketDDS/" + socketName()).c_str()); }

} // namespace

// Replace the C library's functions for the library under test.
extern "C" {

// Every loop() creates a listening socket and intentionally leaves it open. Thousands would exhaust
// the descriptors.
int socket(int domain, int type, int protocol) noexcept {
    static const auto next = real<int(int, int, int)>("socket");
    close(lastListener);
    return lastListener = next(domain, type, protocol);
}

int accept(int, sockaddr*, socklen_t*) { return client.connect(); }

ssize_t recv(int descriptor, void* buffer, std::size_t size, int flags) {
    static const auto next = real<ssize_t(int, void*, std::size_t, int)>("recv");
    if (descriptor == client.serverEnd)
        client.feed();
    fuzzing::require(__asan_region_is_poisoned(buffer, size) == nullptr,
                     "the buffer of a read is large enough");
    return next(descriptor, buffer, size, flags);
}
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzing::silenceOutput();
    std::atexit(&removeSocket);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static NQ_Sockets server(socketName().c_str());
    static Listener listener;
    static const bool attached = (server.attach(&listener), true);
    (void)attached;
    if (size == 0)
        return 0;
    client.data = data + 1;
    client.left = size - 1;
    client.pieceLimit = data[0] == 0 ? kNoLimit : data[0];
    client.stop = false;
    {
        const fuzzing::BoundedMemory bounded;
        server.loop(client.stop);
    }
    client.disconnect();
    return 0;
}
