#ifndef TAVO_AGENT_JSON_H
#define TAVO_AGENT_JSON_H

#include <memory>
#include <string>

#include <json-c/json.h>

namespace agent {

struct ReleaseJson {
    void operator()(json_object* value) const { json_object_put(value); }
};
/// Owns one reference to a json-c tree. A null pointer is the JSON null, as in json-c.
using Json = std::unique_ptr<json_object, ReleaseJson>;

inline bool isType(const json_object* value, json_type type) {
    // The older generation of json-c takes no const.
    return json_object_is_type(const_cast<json_object*>(value), type) != 0;
}

/// One more reference to `value`.
inline Json share(json_object* value) { return Json(json_object_get(value)); }

inline Json newObject() { return Json(json_object_new_object()); }
inline Json newArray() { return Json(json_object_new_array()); }
inline Json newText(const std::string& text) {
    return Json(json_object_new_string_len(text.data(), static_cast<int>(text.size())));
}
inline Json newInt(int value) { return Json(json_object_new_int(value)); }
inline Json newBool(bool value) { return Json(json_object_new_boolean(value ? 1 : 0)); }

/// Stores `value` under `key` (copied), replacing an existing member.
inline void put(const Json& object, const char* key, Json value) {
    json_object_object_add(object.get(), key, value.release());
}

/// The characters of a string value, NUL characters included.
inline std::string textOf(json_object* text) {
    return std::string(json_object_get_string(text),
                       static_cast<std::size_t>(json_object_get_string_len(text)));
}

/// JSON text on one line, without blanks.
std::string oneLine(json_object* value);

/// What parseJson() found.
struct ParsedJson {
    bool valid = false;
    Json value;
    std::string problem; ///< when not valid: what is wrong, as a readable text
};

/// Parses `text` as exactly one JSON value, strictly by the standard, nested up to json-c's default
/// depth of 32. Only white space may follow the value.
ParsedJson parseJson(const std::string& text);

} // namespace agent

#endif
