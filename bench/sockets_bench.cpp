#include <kvr/api/com/NQ_Sockets.h>

#include "Child.h"
#include "floor/Server.h"
#include "measure.h"

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include <sched.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace bench {
namespace {

using kvr::api::com::NQ_Sockets;

constexpr char kDirectory[] = "/tmp/socketDDS";
constexpr int kMessages = 500;

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

/// Another process that sends all messages on one connection, once for each request().
class Client {
public:
    Client(const std::string& path, std::size_t size) : path_(path) {
        if (pipe(requests_) != 0)
            std::abort();
        child_ = std::make_unique<Child>([this, size] {
            close(requests_[1]);
            const auto length = static_cast<std::uint32_t>(size);
            std::string message(sizeof length + size, 'm');
            std::memcpy(&message[0], &length, sizeof length);
            for (char request = 0; read(requests_[0], &request, 1) == 1;)
                sendAll(message);
        });
    }
    ~Client() {
        close(requests_[0]);
        close(requests_[1]);
        unlink(path_.c_str());
        (void)rmdir(kDirectory); // when no other client uses it
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Removes the socket of an earlier server, so that the client waits for the next one.
    void request() const {
        unlink(path_.c_str());
        if (write(requests_[1], "", 1) != 1)
            std::abort();
    }

private:
    void sendAll(const std::string& message) const {
        const sockaddr_un address = addressOf(path_);
        const int connection = socket(AF_UNIX, SOCK_STREAM, 0);
        while (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
               -1)
            sched_yield();
        for (int i = 0; i < kMessages; ++i)
            if (send(connection, message.data(), message.size(), MSG_NOSIGNAL) == -1)
                std::abort();
        close(connection);
    }

    std::string path_;
    int requests_[2] = {-1, -1};
    std::unique_ptr<Child> child_;
};

/// Sets a stop flag at the last message.
class LibraryCount : public kvr::api::iot::Observer<NQ_Sockets> {
public:
    void update(NQ_Sockets*) override { stop = ++messages % kMessages == 0; }
    int messages = 0;
    bool stop = false;
};

class FloorCount : public floor::Listener {
public:
    void received(floor::Server*) override { stop = ++messages % kMessages == 0; }
    int messages = 0;
    bool stop = false;
};

/// The transport alone: receives the same messages and prints nothing.
void receiveSilently(const std::string& path) {
    const sockaddr_un address = addressOf(path);
    const int server = socket(AF_UNIX, SOCK_STREAM, 0);
    if (bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1 ||
        listen(server, 5) == -1)
        std::abort();
    const int connection = accept(server, nullptr, nullptr);
    std::string message;
    std::uint32_t length = 0;
    while (recv(connection, &length, sizeof length, 0) == sizeof length) {
        message.resize(length);
        benchmark::DoNotOptimize(recv(connection, &message[0], length, 0));
    }
    close(connection);
    close(server);
}

void addMessages(const std::string& operation, std::size_t size) {
    const Repeat repeat = {2, 2};
    addPrepared(
        operation, kLibrary,
        [size] {
            auto server = std::make_shared<NQ_Sockets>("bench");
            auto count = std::make_shared<LibraryCount>();
            server->attach(count.get());
            auto client = std::make_shared<Client>(kDirectory + std::string("/bench"), size);
            return Steps{[client, count] {
                             count->stop = false;
                             client->request();
                         },
                         [server, count] { server->loop(count->stop); }};
        },
        repeat);
    addPrepared(
        operation, kFloor,
        [size] {
            const std::string path = kDirectory + std::string("/floor");
            std::filesystem::create_directories(kDirectory);
            auto count = std::make_shared<FloorCount>();
            auto server = std::make_shared<floor::Server>(path, count.get());
            auto client = std::make_shared<Client>(path, size);
            return Steps{[client, count] {
                             count->stop = false;
                             client->request();
                         },
                         [server, count] { server->loop(count->stop); }};
        },
        repeat);
    addPrepared(
        operation, "recv, nothing printed",
        [size] {
            const std::string path = kDirectory + std::string("/silent");
            std::filesystem::create_directories(kDirectory);
            auto client = std::make_shared<Client>(path, size);
            return Steps{[client] { client->request(); }, [path] { receiveSilently(path); }};
        },
        repeat);
}

} // namespace

void addSockets() {
    addMessages("500 socket messages of 64 B", 64);
    addMessages("500 socket messages of 4 KiB", 4096);
}

} // namespace bench
