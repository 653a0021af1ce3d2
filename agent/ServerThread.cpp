#include "ServerThread.h"

#include <algorithm>
#include <cerrno>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace agent {

ServerThread::ServerThread(kvr::api::com::NQ_Sockets& server, Connections& connections,
                           const std::string& path)
    : connections_(connections), path_(path),
      thread_([this, &server] { server.loop(connections_.stopFlag()); }) {
    connections_.waitUntilListening();
}

ServerThread::~ServerThread() {
    beginEnd();
    thread_.join();
    unlink(path_.c_str());
}

bool isServed(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::copy_n(path.data(), std::min(path.size(), sizeof address.sun_path - 1), address.sun_path);
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    // EAGAIN: the server's queue of waiting clients is full.
    const bool served =
        connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
        errno == EAGAIN;
    close(probe);
    return served;
}

} // namespace agent
