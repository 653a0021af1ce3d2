#include "ServerThread.h"

#include "methods/ProcessRun.h"
#include "rpc/RequestHandler.h"

#include <algorithm>
#include <mutex>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace agent {
namespace {

using std::chrono::milliseconds;

/// For a client that is just sending, or a request in progress.
constexpr milliseconds kGrace(500);
/// Between two attempts to break off a wait.
constexpr milliseconds kPause(20);
/// From SIGTERM to SIGKILL for a program, and from there to leaving it behind.
constexpr milliseconds kProgramGrace(2000);

int newSocket() { return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }

bool connectTo(const std::string& path, int descriptor) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::copy_n(path.data(), std::min(path.size(), sizeof address.sun_path - 1), address.sun_path);
    return connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

} // namespace

ServerThread::ServerThread(kvr::api::com::NQ_Sockets& server, const std::string& path)
    : path_(path), waker_(newSocket()), end_(ended_.get_future()) {
    thread_ = std::thread([this, &server] {
        const OwnStopFlags own(flags_);
        registered_.set_value();
        server.loop(flags_.stop);
        ended_.set_value();
    });
    registered_.get_future().wait(); // a stop before that would go unheard
}

bool ServerThread::endsWithin(milliseconds limit) {
    return end_.wait_for(limit) == std::future_status::ready;
}

void ServerThread::wake() const {
    // Its end is the shortest of all connections. Nobody listens when the loop has ended already.
    (void)connectTo(path_, waker_);
    close(waker_);
}

void ServerThread::stop(RequestHandler& handler, ProcessRun& program) {
    handler.refuseRequests();
    setStopFlags(thread_);
    wake();

    bool ended = endsWithin(kGrace);
    if (!ended)
        program.signalProgram(SIGTERM);
    milliseconds waited(0);
    while (!ended) {
        // Not in the middle of a request: only reading from a client may be broken off.
        std::unique_lock<std::mutex> idle(handler.busy(), std::try_to_lock);
        if (idle.owns_lock()) {
            breakOff(thread_);
            idle.unlock();
        }
        ended = endsWithin(kPause);
        waited += kPause;
        if (waited == kProgramGrace)
            program.signalProgram(SIGKILL);
        if (waited == 2 * kProgramGrace)
            program.abandon(); // something that the program started still holds its output
    }
    thread_.join();
    unlink(path_.c_str());
}

bool isServed(const std::string& path) {
    const int descriptor = newSocket();
    const bool served = connectTo(path, descriptor);
    close(descriptor);
    return served;
}

} // namespace agent
