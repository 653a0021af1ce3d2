#ifndef TAVO_AGENT_SERVER_THREAD_H
#define TAVO_AGENT_SERVER_THREAD_H

#include "Accept.h"

#include <kvr/api/com/NQ_Sockets.h>

#include <chrono>
#include <string>
#include <thread>

namespace agent {

/// Runs the loop of a socket server on a thread of its own.
class ServerThread {
public:
    /// `path` is the server's socket file; a client that stays silent for `idleLimit` is cut off.
    /// Returns once the server listens.
    ServerThread(kvr::api::com::NQ_Sockets& server, const std::string& path,
                 std::chrono::seconds idleLimit);
    /// Ends the loop after the message in progress, waits for it, and removes the socket file.
    ~ServerThread();
    ServerThread(const ServerThread&) = delete;
    ServerThread& operator=(const ServerThread&) = delete;

    /// Lets the loop end after the message in progress. From any thread.
    void beginEnd() { connections_.endLoop(); }

private:
    std::string path_;
    Connections connections_;
    std::thread thread_;
};

/// True when a server listens on the socket file `path`. Never blocks, whatever the server does.
bool isServed(const std::string& path);

} // namespace agent

#endif
