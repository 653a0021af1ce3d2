#include "SocketFile.h"

#include <cstdint>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace support {
namespace {

bool sendAll(int client, const void* bytes, std::size_t size) {
    return send(client, bytes, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}

} // namespace

void removeSocketFile(const std::string& path) {
    (void)unlink(path.c_str());
    (void)rmdir(path.substr(0, path.rfind('/')).c_str());
}

int SocketFile::connect() const {
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof address.sun_path - 1);
    if (::connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return client;
    close(client);
    return -1;
}

bool sendMessage(int client, const std::string& payload) {
    const auto length = static_cast<std::uint32_t>(payload.size());
    return sendAll(client, &length, sizeof length) &&
           sendAll(client, payload.data(), payload.size());
}

} // namespace support
