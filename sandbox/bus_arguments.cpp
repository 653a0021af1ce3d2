#include "bus_arguments.h"

#include <cstdint>
#include <limits>

namespace bus {

namespace {

json_object* member(json_object* arguments, const char* key, json_type type) {
    json_object* found = nullptr;
    json_object_object_get_ex(arguments, key, &found);
    return found != nullptr && json_object_is_type(found, type) != 0 ? found : nullptr;
}

// The bus carries integers in 32 bits where they fit, otherwise in 64. The daemon prints both as
// unsigned numbers.
std::string integer(std::int64_t value) {
    using Narrow = std::numeric_limits<std::int32_t>;
    if (value >= Narrow::min() && value <= Narrow::max())
        return std::to_string(static_cast<std::uint32_t>(value));
    return std::to_string(static_cast<std::uint64_t>(value));
}

} // namespace

std::optional<std::string> text(json_object* arguments, const char* key) {
    json_object* const found = member(arguments, key, json_type_string);
    if (found == nullptr)
        return std::nullopt;
    return json_object_get_string(found);
}

json_object* table(json_object* arguments, const char* key) {
    return member(arguments, key, json_type_object);
}

json_object* array(json_object* arguments, const char* key) {
    return member(arguments, key, json_type_array);
}

std::vector<std::pair<std::string, json_object*>> members(json_object* table) {
    std::vector<std::pair<std::string, json_object*>> found;
    json_object_object_foreach(table, key, value) { found.emplace_back(key, value); }
    return found;
}

std::vector<json_object*> elements(json_object* array) {
    // An int in the older json-c, a size_t in the newer one.
    using Index = decltype(json_object_array_length(array));
    std::vector<json_object*> found;
    for (Index i = 0; i < json_object_array_length(array); ++i)
        found.push_back(json_object_array_get_idx(array, i));
    return found;
}

std::optional<std::string> scalar(json_object* value) {
    switch (json_object_get_type(value)) {
    case json_type_string:
        return json_object_get_string(value);
    case json_type_int:
        return integer(json_object_get_int64(value));
    case json_type_boolean:
        return json_object_get_boolean(value) ? "1" : "0";
    case json_type_null:
    case json_type_double:
    case json_type_object:
    case json_type_array:
        break;
    }
    return std::nullopt;
}

} // namespace bus
