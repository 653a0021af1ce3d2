#include "rpc/Rpc.h"

namespace agent {

const char* messageOf(ErrorCode code) {
    switch (code) {
    case ErrorCode::ParseError:
        return "Parse error";
    case ErrorCode::InvalidRequest:
        return "Invalid Request";
    case ErrorCode::MethodNotFound:
        return "Method not found";
    case ErrorCode::InvalidParams:
        return "Invalid params";
    case ErrorCode::InternalError:
        return "Internal error";
    case ErrorCode::Failed:
        break;
    }
    return "Failed";
}

Json errorMember(const RpcError& error) {
    Json member = newObject();
    put(member, "code", newInt(static_cast<int>(error.code())));
    put(member, "message", newText(messageOf(error.code())));
    put(member, "data", newText(error.what()));
    return member;
}

Json newResponse(json_object* id) {
    Json response = newObject();
    put(response, "jsonrpc", newText("2.0"));
    put(response, "id", share(id));
    return response;
}

} // namespace agent
