#ifndef TAVO_AGENT_RPC_H
#define TAVO_AGENT_RPC_H

#include "rpc/Json.h"

#include <stdexcept>
#include <string>

namespace agent {

/// The error codes of JSON-RPC 2.0, and one of the range it leaves to servers.
enum class ErrorCode {
    ParseError = -32700,
    InvalidRequest = -32600,
    MethodNotFound = -32601,
    InvalidParams = -32602,
    InternalError = -32603,
    Failed = -32000, ///< the request is valid, but could not be carried out
};

/// Ends the handling of a request and becomes its error response. what() is the response's "data",
/// one readable sentence.
class RpcError : public std::runtime_error {
public:
    RpcError(ErrorCode code, const std::string& data) : std::runtime_error(data), code_(code) {}
    ErrorCode code() const { return code_; }

private:
    ErrorCode code_;
};

/// The standard's name of a code ("Invalid params").
const char* messageOf(ErrorCode code);

/// The "error" member of a response.
Json errorMember(const RpcError& error);

/// A response without its result or error, which the caller adds. `id` is null when it is not
/// known.
Json newResponse(json_object* id);

} // namespace agent

#endif
