#include "rpc/Params.h"

#include "rpc/Rpc.h"
#include "rpc/Text.h"

#include <algorithm>

namespace agent {
namespace {

std::string inQuotes(const std::string& name) { return "\"" + name + "\""; }

} // namespace

void refuseParam(const std::string& why) { throw RpcError(ErrorCode::InvalidParams, why); }

void Params::allowOnly(const std::vector<std::string>& known) const {
    if (object_ == nullptr)
        return;
    json_object_object_foreach(object_, key, value) {
        (void)value;
        if (std::find(known.begin(), known.end(), key) == known.end())
            refuseParam("there is no parameter " + inQuotes(safeLine(key, 60)));
    }
}

bool Params::has(const char* name) const {
    return json_object_object_get_ex(object_, name, nullptr) != 0;
}

json_object* Params::get(const char* name) const {
    json_object* value = nullptr;
    json_object_object_get_ex(object_, name, &value);
    return value;
}

std::string Params::text(const char* name) const {
    if (!has(name))
        refuseParam(inQuotes(name) + " is missing");
    if (!isType(get(name), json_type_string))
        refuseParam(inQuotes(name) + " must be a string");
    return textOf(get(name));
}

std::string Params::textOr(const char* name, const std::string& fallback) const {
    return has(name) ? text(name) : fallback;
}

bool Params::flagOr(const char* name, bool fallback) const {
    if (!has(name))
        return fallback;
    if (!isType(get(name), json_type_boolean))
        refuseParam(inQuotes(name) + " must be true or false");
    return json_object_get_boolean(get(name)) != 0;
}

int Params::integer(const char* name, int least, int most) const {
    const std::string range = std::to_string(least) + " to " + std::to_string(most);
    if (!has(name))
        refuseParam(inQuotes(name) + " is missing");
    json_object* value = get(name);
    if (!isType(value, json_type_int) || json_object_get_int64(value) < least ||
        json_object_get_int64(value) > most)
        refuseParam(inQuotes(name) + " must be an integer, " + range);
    return json_object_get_int(value);
}

json_object* Params::object(const char* name) const {
    if (!has(name))
        refuseParam(inQuotes(name) + " is missing");
    if (!isType(get(name), json_type_object))
        refuseParam(inQuotes(name) + " must be an object");
    return get(name);
}

std::vector<std::string> Params::textsOrNone(const char* name) const {
    std::vector<std::string> texts;
    if (!has(name))
        return texts;
    json_object* array = get(name);
    if (!isType(array, json_type_array))
        refuseParam(inQuotes(name) + " must be an array of strings");
    const auto count = json_object_array_length(array);
    for (std::decay_t<decltype(count)> i = 0; i < count; ++i) {
        json_object* element = json_object_array_get_idx(array, i);
        if (!isType(element, json_type_string))
            refuseParam(inQuotes(name) + " must be an array of strings");
        texts.push_back(textOf(element));
    }
    return texts;
}

std::string Params::name(const char* name, const char* extra) const {
    const std::string value = text(name);
    if (!isName(value, extra))
        refuseParam(inQuotes(name) + " may contain only letters, digits, _" +
                    (*extra == '\0' ? std::string() : " and any of " + std::string(extra)) +
                    ", and must not be empty or begin with -");
    return value;
}

} // namespace agent
