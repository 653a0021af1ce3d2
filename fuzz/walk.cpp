#include "walk.h"

#include "fuzzing.h"

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <json-c/json.h>

using kvr::api::data::NQ_JSON;

namespace fuzzing {
namespace {

/// Calls a reader of text, which may throw only for a null. Returns whether it returned a text.
bool returnsText(const std::function<void()>& reader) {
    try {
        reader();
        return true;
    } catch (const std::logic_error&) {
        return false;
    }
}

void readMember(const NQ_JSON& object, const char* key, json_object* member) {
    require(object.keyExists(key), "a member exists");
    require(object.get_json_object(key).getObj() == member, "a member is shared");
    std::string text;
    require(returnsText([&] { text = object.get_json_string(key); }) == (member != nullptr),
            "every member but a null has a text");
    const std::string plain = object.get_json_obj_as_string(key);
    require(!plain.empty(), "every member has a JSON text");
    object.get_json_int(key);
    object.get_json_double(key);
    const int length = object.json_object_array_len(key);
    require(length >= 0, "no length is negative");
    for (int idx : {-1, 0, length - 1, length}) {
        const bool given = returnsText([&] { object.get_json_string_arrayID(key, idx); });
        require(!given || (idx >= 0 && idx < length), "there is no text beyond an array");
    }
}

void walkObject(const NQ_JSON& object) {
    std::size_t nulls = 0;
    std::size_t members = 0;
    json_object_object_foreach(object.getObj(), key, member) {
        readMember(object, key, member);
        ++members;
        nulls += member == nullptr;
        walk(object.get_json_object(key));
    }
    std::map<std::string, std::string> fields;
    if (returnsText([&] { object.asMap(fields); }))
        require(nulls == 0 && fields.size() == members, "a map has every member");
    std::vector<std::string> keys;
    if (returnsText([&] { object.emptyFields(keys, object.getObj()); })) {
        require(nulls == 0, "a null field is refused");
        for (const std::string& empty : keys)
            require(fields.at(empty).empty(), "only empty fields are collected");
    }
}

void walkArray(const NQ_JSON& array) {
    const int length = array.json_object_array_len();
    require(length == array.getArraySize(), "both lengths are the same");
    for (int idx = 0; idx < length; ++idx) {
        const NQ_JSON element = array.getArrayObject(idx);
        const bool given = returnsText([&] { array.get_json_string_arrayID(idx); });
        require(given == (element.getObj() != nullptr), "every element but a null has a text");
        walk(element);
    }
    require(array.getArrayObject(length).getObj() == nullptr, "nothing is beyond the end");
    require(array.getArrayObject(-1).getObj() == nullptr, "nothing is before the start");
}

} // namespace

void walk(const NQ_JSON& value) {
    NQ_JSON copy(value);
    require(copy.getObj() == value.getObj(), "a copy shares its tree");
    require(returnsText([&] { copy.asString(); }) == (copy.getObj() != nullptr),
            "any value has a text");
    if (copy.json_object_is_array()) {
        walkArray(copy);
        return;
    }
    require(copy.getArraySize() == 0, "only arrays have a size");
    require(copy.getArrayObject(0).getObj() == nullptr, "only arrays have elements");
    if (json_object_is_type(copy.getObj(), json_type_object))
        walkObject(copy);
    else
        require(!copy.keyExists("key") && copy.get_json_string("key").empty(),
                "only objects have members");
}

} // namespace fuzzing
