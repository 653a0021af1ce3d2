// Serves the socket "early" through the agent's own accept(). Two clients send their messages
// before the server's loop starts, and a third one while the first is served. Prints how many
// listeners programs would inherit while the first is served, and how many are open after the loop.

#include <kvr/api/com/NQ_Sockets.h>

#include "agent/Accept.h"

#include <chrono>
#include <cstdint>
#include <iostream>
#include <string>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using kvr::api::com::NQ_Sockets;

const std::string kPath = "/tmp/socketDDS/early";
constexpr int kDescriptors = 100; // more than this program uses

void sendMessage(const std::string& payload) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    kPath.copy(address.sun_path, sizeof address.sun_path - 1);
    const auto length = static_cast<std::uint32_t>(payload.size());
    const std::string message =
        std::string(reinterpret_cast<const char*>(&length), sizeof length) + payload;
    const int client = socket(AF_UNIX, SOCK_STREAM, 0);
    if (connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        send(client, message.data(), message.size(), MSG_NOSIGNAL) < 0)
        std::cout << "not sent: " << payload << '\n';
    close(client);
}

int countListeners(const agent::Connections& connections, bool onlyInheritable) {
    int count = 0;
    for (int descriptor = 0; descriptor < kDescriptors; ++descriptor)
        if (connections.isListener(descriptor) &&
            !(onlyInheritable && (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0))
            ++count;
    return count;
}

class Ender : public kvr::api::iot::Observer<NQ_Sockets> {
public:
    explicit Ender(agent::Connections& connections) : connections_(connections) {}
    void update(NQ_Sockets* server) override {
        if (server->getLastMessage() == "first") {
            std::cout << countListeners(connections_, true) << " inheritable\n";
            sendMessage("third");
        } else if (server->getLastMessage() == "third")
            connections_.endLoop();
    }

private:
    agent::Connections& connections_;
};

} // namespace

int main() {
    agent::Connections connections(kPath, std::chrono::seconds(10));
    Ender ender(connections);
    NQ_Sockets server("early");
    server.attach(&ender);
    sendMessage("first");
    sendMessage("second");
    server.loop(connections.stopFlag());
    std::cout << countListeners(connections, false) << " open\n";
}
