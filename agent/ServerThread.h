#ifndef TAVO_AGENT_SERVER_THREAD_H
#define TAVO_AGENT_SERVER_THREAD_H

#include <kvr/api/com/NQ_Sockets.h>

#include "Accept.h"

#include <string>
#include <thread>

namespace agent {

/// Runs the loop of a socket server on its own thread.
class ServerThread {
public:
    /// `path` is the server's socket file. Returns once the server listens.
    ServerThread(kvr::api::com::NQ_Sockets& server, Connections& connections,
                 const std::string& path);
    /// Ends the loop after the message in progress, waits for it, and removes the socket file.
    ~ServerThread();
    ServerThread(const ServerThread&) = delete;
    ServerThread& operator=(const ServerThread&) = delete;

    /// Ends the loop after the message in progress, without waiting for it. Any thread may call
    /// this.
    void beginEnd() { connections_.endLoop(); }

private:
    Connections& connections_;
    std::string path_;
    std::thread thread_;
};

/// True when a server listens on the socket file `path`. Never blocks, whatever the server does.
bool isServed(const std::string& path);

} // namespace agent

#endif
