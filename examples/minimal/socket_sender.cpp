// Sends its argument to socket_server.cpp with one call: 4 bytes of length in host byte order, then
// the payload.

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

int main(int argc, char** argv) {
    const std::string payload = argc > 1 ? argv[1] : "stop";
    const std::uint32_t length = static_cast<std::uint32_t>(payload.size());
    std::string message(reinterpret_cast<const char*>(&length), sizeof length);
    message += payload;

    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/tmp/socketDDS/minimal");
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        std::perror("socket_sender");
        return 1;
    }
    const ssize_t sent = send(fd, message.data(), message.size(), MSG_NOSIGNAL);
    close(fd);
    return sent == static_cast<ssize_t>(message.size()) ? 0 : 1;
}
