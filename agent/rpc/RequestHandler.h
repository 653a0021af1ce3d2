#ifndef TAVO_AGENT_REQUEST_HANDLER_H
#define TAVO_AGENT_REQUEST_HANDLER_H

#include "rpc/Dispatcher.h"
#include "rpc/Json.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <string>

namespace agent {

class Request;

/// The outcome of one message.
struct Response {
    std::string text;            ///< one line of JSON without a newline; empty for a notification
    bool wantedBySender = false; ///< the request asks for it on its own connection
};

/// Carries out the requests of all senders, one at a time: checks each, has it dispatched, and logs
/// the request and its outcome.
class RequestHandler {
public:
    /// `dispatcher` must outlive the handler, and nothing else may use it.
    explicit RequestHandler(Dispatcher& dispatcher) : dispatcher_(dispatcher) {}

    /// Carries out one message and returns its response, as valid UTF-8. Blocks while another
    /// thread is in this function. `sender` is named in the log; it is empty for the local socket.
    /// Requests for a method of `refused` are answered with an error. Throws std::runtime_error
    /// once refuseRequests() was called. From any thread.
    Response handle(const std::string& message, const std::string& sender,
                    const std::set<std::string>& refused = {});

    /// No request is started after this call. Any thread may call it.
    void refuseRequests();

    /// Waits until no request is in progress, at most for `limit`. Returns false when one still is.
    bool waitUntilIdle(std::chrono::milliseconds limit);

private:
    /// Held while a message is handled.
    class Turn {
    public:
        explicit Turn(RequestHandler& handler);
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        RequestHandler& handler_;
    };

    Json respond(const std::string& message, const std::string& from,
                 const std::set<std::string>& refused, bool& wantedBySender);
    Json dispatch(const Request& request, const std::set<std::string>& refused);

    Dispatcher& dispatcher_;
    std::mutex mutex_;
    std::condition_variable idle_;
    bool busy_ = false;   // guarded by mutex_
    bool ending_ = false; // guarded by mutex_
};

} // namespace agent

#endif
