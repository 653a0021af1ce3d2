#ifndef TAVO_TESTS_SOCKET_FIXTURE_H
#define TAVO_TESTS_SOCKET_FIXTURE_H

#include <kvr/api/com/NQ_Sockets.h>

#include "CapturedOutput.h"
#include "ScriptedCalls.h"
#include "SocketFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace support {

using kvr::api::com::NQ_Sockets;

const std::string kSocketDirectory = "/tmp/socketDDS/";
constexpr std::size_t kAddressPath = sizeof sockaddr_un().sun_path; // 108

inline std::string lengthPrefix(std::uint32_t length) {
    std::string bytes(sizeof length, '\0');
    std::memcpy(&bytes[0], &length, sizeof length);
    return bytes;
}

inline std::string message(const std::string& payload) {
    return lengthPrefix(static_cast<std::uint32_t>(payload.size())) + payload;
}

/// The client's end of a connection.
class SocketClient {
public:
    explicit SocketClient(const std::string& path, int flags = 0)
        : descriptor_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::copy_n(path.data(), std::min(path.size(), kAddressPath), address.sun_path);
        const auto length = static_cast<socklen_t>(sizeof address.sun_family + path.size());
        error_ =
            connect(descriptor_, reinterpret_cast<sockaddr*>(&address), length) == 0 ? 0 : errno;
    }
    ~SocketClient() { close(); }
    SocketClient(const SocketClient&) = delete;
    SocketClient& operator=(const SocketClient&) = delete;

    int error() const { return error_; }

    void send(const std::string& bytes) {
        ASSERT_EQ(0, error_) << std::strerror(error_);
        ASSERT_EQ(static_cast<ssize_t>(bytes.size()),
                  ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }

    void close() {
        if (descriptor_ != -1)
            ::close(descriptor_);
        descriptor_ = -1;
    }

    bool isOpen() const { return descriptor_ != -1; }

private:
    int descriptor_;
    int error_;
};

class MessageRecorder : public kvr::api::iot::Observer<NQ_Sockets> {
public:
    void update(NQ_Sockets* subject) override {
        messages.push_back(subject->getLastMessage());
        if (onUpdate)
            onUpdate();
    }
    std::vector<std::string> messages;
    std::function<void()> onUpdate;
};

/// The path of a socket file that no other test uses. The destructor removes the file.
class SocketName {
public:
    SocketName() {
        static int number = 0;
        name = "tavo-test-" + std::to_string(getpid()) + "-" + std::to_string(++number);
        path = kSocketDirectory + name;
    }
    ~SocketName() { support::removeSocketFile(path); }
    SocketName(const SocketName&) = delete;
    SocketName& operator=(const SocketName&) = delete;
    std::string name;
    std::string path;
};

/// A server with one observer, and its actions. Each action runs on the server's thread just before
/// an accept(). It returns ScriptedCall::kPassOn, or the error with which accept() must fail. The
/// last action sets the stop flag.
class SocketFixture {
public:
    using AcceptAction = std::function<int()>;

    SocketFixture() : server(socketName.name.c_str()) { server.attach(&recorder); }

    /// Runs the server's loop and returns what it printed.
    std::string serve(const std::vector<AcceptAction>& actions) {
        stop = actions.empty();
        const ScriptedCall accepting(Call::accept, [&](int number) {
            const auto index = static_cast<std::size_t>(number) - 1;
            stop = number >= static_cast<int>(actions.size());
            return index < actions.size() ? actions[index]() : ECANCELED;
        });
        return printedBy([&] { server.loop(stop); });
    }

    /// A client that sends these bytes in one call and closes its end.
    AcceptAction sends(const std::string& bytes) {
        return [this, bytes] {
            SocketClient(path()).send(bytes);
            return ScriptedCall::kPassOn;
        };
    }

    static AcceptAction failsWith(int error) {
        return [error] { return error; };
    }

    const std::string& path() const { return socketName.path; }

    SocketName socketName;
    bool stop = false;
    MessageRecorder recorder;
    NQ_Sockets server;
};

} // namespace support

#endif
