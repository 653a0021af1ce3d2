#include "rpc/Request.h"

#include "rpc/Rpc.h"
#include "rpc/Text.h"

#include <cstdint>
#include <limits>

namespace agent {
namespace {

[[noreturn]] void refuse(ErrorCode code, const std::string& why) { throw RpcError(code, why); }

/// Finds the escape \u0000. json-c cuts a key there, and the library every text. The text in use
/// would differ from the text that was checked.
bool escapesNul(const std::string& text) {
    for (std::size_t i = 0; i + 1 < text.size(); ++i) {
        if (text[i] != '\\')
            continue;
        if (text.compare(i + 1, 5, "u0000") == 0)
            return true;
        ++i; // the escaped character, which may be a backslash itself
    }
    return false;
}

/// json-c stores integers in 64 bits and silently changes larger ones. The response to such an id
/// would carry another id.
bool mayBeNarrowed(json_object* id) {
    if (!isType(id, json_type_int))
        return false;
    const std::int64_t value = json_object_get_int64(id);
    return value == std::numeric_limits<std::int64_t>::max() ||
           value == std::numeric_limits<std::int64_t>::min();
}

bool isUsableId(json_object* id) {
    return id == nullptr || isType(id, json_type_string) || isType(id, json_type_double) ||
           (isType(id, json_type_int) && !mayBeNarrowed(id));
}

json_object* member(const Json& object, const char* key) {
    json_object* value = nullptr;
    json_object_object_get_ex(object.get(), key, &value);
    return value;
}

bool has(const Json& object, const char* key) {
    return json_object_object_get_ex(object.get(), key, nullptr) != 0;
}

} // namespace

Request::Request(const std::string& text) {
    if (text.size() > kLongestRequest)
        refuse(ErrorCode::InvalidRequest,
               "longer than " + std::to_string(kLongestRequest) + " bytes");
    // The part of a message that has not arrived consists of zero bytes.
    if (text.find('\0') != std::string::npos)
        refuse(ErrorCode::ParseError, "contains zero bytes, or did not arrive in one piece");
    if (!isUtf8(text))
        refuse(ErrorCode::ParseError, "not UTF-8");

    ParsedJson parsed = parseJson(text);
    if (!parsed.valid)
        refuse(ErrorCode::ParseError, parsed.problem);
    tree_ = std::move(parsed.value);
    if (isType(tree_.get(), json_type_array))
        refuse(ErrorCode::InvalidRequest, "batches are not supported");
    if (!isType(tree_.get(), json_type_object))
        refuse(ErrorCode::InvalidRequest, "not an object");

    if (has(tree_, "id")) {
        json_object* id = member(tree_, "id");
        if (!isUsableId(id))
            refuse(ErrorCode::InvalidRequest, "\"id\" must be a string, a number or null");
        id_ = id;
        hasId_ = true;
    }
    json_object* answer = member(tree_, "answer");
    wantsAnswer_ = isType(answer, json_type_boolean) && json_object_get_boolean(answer) != 0;
    json_object* method = member(tree_, "method");
    if (isType(method, json_type_string))
        method_ = textOf(method);
    holdsNul_ = escapesNul(text);
}

void Request::check() const {
    json_object* version = member(tree_, "jsonrpc");
    if (!isType(version, json_type_string) || textOf(version) != "2.0")
        refuse(ErrorCode::InvalidRequest, "\"jsonrpc\" must be \"2.0\"");
    if (has(tree_, "answer") && !isType(member(tree_, "answer"), json_type_boolean))
        refuse(ErrorCode::InvalidRequest, "\"answer\" must be true or false");
    if (method_.empty())
        refuse(ErrorCode::InvalidRequest, "\"method\" must be a non-empty string");
    if (has(tree_, "params")) {
        json_object* params = member(tree_, "params");
        if (isType(params, json_type_array))
            refuse(ErrorCode::InvalidParams,
                   "\"params\" must be an object, with parameters by name");
        if (!isType(params, json_type_object))
            refuse(ErrorCode::InvalidRequest, "\"params\" must be an object");
    }
    if (holdsNul_)
        refuse(method_.find('\0') != std::string::npos ? ErrorCode::InvalidRequest
                                                       : ErrorCode::InvalidParams,
               "NUL characters are not accepted");
}

} // namespace agent
