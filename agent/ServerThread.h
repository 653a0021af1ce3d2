#ifndef TAVO_AGENT_SERVER_THREAD_H
#define TAVO_AGENT_SERVER_THREAD_H

#include "Signals.h"

#include <kvr/api/com/NQ_Sockets.h>

#include <future>
#include <string>
#include <thread>

namespace agent {

class ProcessRun;
class RequestHandler;

/// Runs the loop of a socket server on a thread of its own and ends it.
///
/// The loop waits in accept() and recv() and looks at its stop flag only between connections. So
/// ending it takes three things: the flag; a connection of our own, for a loop that waits for a
/// client; and a signal, for one whose client holds a connection and says nothing.
class ServerThread {
public:
    /// `path` is the server's socket file.
    ServerThread(kvr::api::com::NQ_Sockets& server, const std::string& path);

    /// Ends the loop, waits for it, and removes the socket file. A request in progress is finished
    /// first; a program that it runs is ended by SIGTERM, then by SIGKILL.
    void stop(RequestHandler& handler, ProcessRun& program);

private:
    bool endsWithin(std::chrono::milliseconds limit);
    void wake() const;

    std::string path_;
    int waker_; // made beforehand, for the case that no descriptor is left
    StopFlags flags_;
    std::promise<void> registered_;
    std::promise<void> ended_;
    std::future<void> end_;
    std::thread thread_;
};

/// True when a server accepts connections on the socket file `path`.
bool isServed(const std::string& path);

} // namespace agent

#endif
