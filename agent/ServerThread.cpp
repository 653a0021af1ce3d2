#include "ServerThread.h"

#include "methods/ProcessRun.h"
#include "rpc/RequestHandler.h"

#include <algorithm>
#include <cerrno>
#include <csignal>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace agent {
namespace {

using std::chrono::milliseconds;

/// For a request in progress.
constexpr milliseconds kGrace(500);
/// From SIGTERM to SIGKILL for a program, and from there to leaving it behind.
constexpr milliseconds kProgramGrace(2000);

} // namespace

ServerThread::ServerThread(kvr::api::com::NQ_Sockets& server, const std::string& path,
                           std::chrono::seconds idleLimit)
    : path_(path), connections_(path, idleLimit), end_(ended_.get_future()) {
    thread_ = std::thread([this, &server] {
        server.loop(connections_.stopFlag());
        ended_.set_value();
    });
}

bool ServerThread::endsWithin(milliseconds limit) {
    return end_.wait_for(limit) == std::future_status::ready;
}

void ServerThread::stop(RequestHandler& handler, ProcessRun& program) {
    handler.refuseRequests();
    connections_.endLoop();
    if (!endsWithin(kGrace)) {
        program.signalProgram(SIGTERM);
        if (!endsWithin(kProgramGrace)) {
            program.signalProgram(SIGKILL);
            if (!endsWithin(kProgramGrace))
                program.abandon(); // something that the program started still holds its output
        }
    }
    thread_.join();
    unlink(path_.c_str());
}

bool isServed(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::copy_n(path.data(), std::min(path.size(), sizeof address.sun_path - 1), address.sun_path);
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    // EAGAIN: as many clients wait as the server's queue holds.
    const bool served =
        connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
        errno == EAGAIN;
    close(probe);
    return served;
}

} // namespace agent
