#include "rpc/Rpc.h"

namespace agent {

const char* messageOf(ErrorCode code) {
    switch (code) {
    case ErrorCode::parseError:
        return "Parse error";
    case ErrorCode::invalidRequest:
        return "Invalid Request";
    case ErrorCode::methodNotFound:
        return "Method not found";
    case ErrorCode::invalidParams:
        return "Invalid params";
    case ErrorCode::internalError:
        return "Internal error";
    case ErrorCode::failed:
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
