#ifndef TAVO_AGENT_REQUEST_H
#define TAVO_AGENT_REQUEST_H

#include "rpc/Json.h"

#include <cstddef>
#include <string>

namespace agent {

/// The longest request that is accepted. A longer one would not arrive whole: the socket server
/// takes a message with one read, which returns at most what the socket's buffer holds.
constexpr std::size_t kLongestRequest = 128 * 1024;

/// A checked message from outside. json-c and the library's dispatcher trust their input. They
/// accept invalid UTF-8, ignore text after a value, stop at NUL characters, and raise
/// std::logic_error for a "method" or "params" that is null. So every message must pass this class
/// first.
class Request {
public:
    /// Parses `text`. Throws RpcError (parse error or invalid request) when it is not a request, so
    /// that it has no id. check() reports the faults of a request that has an id.
    explicit Request(const std::string& text);

    /// Throws RpcError when the request must not reach the dispatcher.
    void check() const;

    /// A request without an id gets no response.
    bool isNotification() const { return !hasId_; }
    /// The extension "answer": true, by which the sender asks for the response on its connection.
    bool wantsAnswer() const { return wantsAnswer_; }
    /// Null for a notification, and for an id that is null.
    json_object* id() const { return id_; }
    /// Empty unless "method" is a text.
    const std::string& method() const { return method_; }
    json_object* tree() const { return tree_.get(); }

private:
    Json tree_;
    json_object* id_ = nullptr; // part of tree_
    bool hasId_ = false;
    bool wantsAnswer_ = false;
    bool holdsNul_ = false;
    std::string method_;
};

} // namespace agent

#endif
