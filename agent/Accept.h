#ifndef TAVO_AGENT_ACCEPT_H
#define TAVO_AGENT_ACCEPT_H

#include <chrono>
#include <future>
#include <mutex>
#include <string>

#include <sys/socket.h>

namespace agent {

/// Manages the connections of one socket server. Accept.cpp defines accept() for the whole program,
/// and calls this object when the server calls accept(). Only one object may exist at a time.
///
/// - A client's descriptor is closed when the server accepts the next client.
/// - Clients that connected before loop() made its own listener are served first.
/// - A client that sends nothing for the idle limit is dropped: the server's recv() then fails.
/// - endLoop() ends the server's loop, whatever it waits for.
class Connections {
public:
    /// `path` is the server's socket file.
    Connections(const std::string& path, std::chrono::seconds idleLimit);
    ~Connections();
    Connections(const Connections&) = delete;
    Connections& operator=(const Connections&) = delete;

    /// The flag for NQ_Sockets::loop(). Only the thread that runs the loop writes it, in accept(),
    /// so it needs no lock.
    bool& stopFlag() { return stop_; }

    /// Blocks until the loop calls accept() for the first time. The server listens then.
    void waitUntilListening() { listening_.get_future().wait(); }

    /// Sends a message to the client whose message is being handled: the length in four bytes, host
    /// byte order, then `text`. Never blocks. Returns false when the client does not take all of
    /// it. The connection then ends, because the client would read the next message as the rest of
    /// this one. Call it on the loop's thread.
    bool answer(const std::string& text);

    /// Ends the loop after the message in progress. From any thread.
    void endLoop();

    /// True when `descriptor` is a listening socket of the server.
    bool isListener(int descriptor) const;

    /// What accept() returns for the server's listener.
    int next(int listener, sockaddr* address, socklen_t* length);

private:
    int earlierListener(int listener) const;
    bool hasEarlyClient();
    bool waitForClient(int listener) const;
    void keep(int client);
    void closeClient();

    std::string path_;
    std::chrono::seconds idleLimit_;
    int wakeUp_; ///< an eventfd, readable once the loop must end
    std::promise<void> listening_;
    bool first_ = true; ///< until next() is called
    int earlier_ = -1;  ///< the constructor's listener, while clients wait in its queue
    bool stop_ = false;
    std::mutex mutex_;
    bool ending_ = false; // guarded by mutex_
    int client_ = -1;     // guarded by mutex_
};

} // namespace agent

#endif
