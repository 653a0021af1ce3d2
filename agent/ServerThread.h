#ifndef TAVO_AGENT_SERVER_THREAD_H
#define TAVO_AGENT_SERVER_THREAD_H

#include "Accept.h"

#include <kvr/api/com/NQ_Sockets.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>

namespace agent {

class ProcessRun;
class RequestHandler;

/// Runs the loop of a socket server on a thread of its own and ends it.
class ServerThread {
public:
    /// `path` is the server's socket file; a client that stays silent for `idleLimit` is cut off.
    ServerThread(kvr::api::com::NQ_Sockets& server, const std::string& path,
                 std::chrono::seconds idleLimit);

    /// Ends the loop, waits for it, and removes the socket file. A request in progress is finished
    /// first; a program that it runs is ended by SIGTERM, then by SIGKILL.
    void stop(RequestHandler& handler, ProcessRun& program);

private:
    bool endsWithin(std::chrono::milliseconds limit);

    std::string path_;
    Connections connections_;
    std::promise<void> ended_;
    std::future<void> end_;
    std::thread thread_;
};

/// True when a server listens on the socket file `path`. Never blocks, whatever the server does.
bool isServed(const std::string& path);

} // namespace agent

#endif
