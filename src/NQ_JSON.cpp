#include "kvr/api/data/NQ_JSON.h"

#include "detail/console.h"

#include <cstddef>
#include <fstream>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <type_traits>

#include <json-c/json.h>

namespace kvr::api::data {
namespace {

using Tokener = std::unique_ptr<json_tokener, decltype(&json_tokener_free)>;

// Throws explicitly, because not every standard library checks for a null text.
const char* required(const char* text) {
    if (text == nullptr)
        throw std::logic_error("kvr::api::data::NQ_JSON: a text is null");
    return text;
}

std::string textOf(json_object* value) { return required(json_object_get_string(value)); }

bool is(json_object* value, json_type type) { return json_object_is_type(value, type) != 0; }

/// json-c returns null when memory is exhausted. Stored in a document, that null would become a
/// JSON null and change what the document means.
json_object* made(json_object* value) {
    if (value == nullptr)
        throw std::bad_alloc();
    return value;
}

/// `add` is json_object_object_add(), whose older generation does not report a failure. The newer
/// one also refuses to add an object to itself, which is not a lack of memory.
template <class Adder>
void addMember(Adder add, json_object* object, const char* key, json_object* value) {
    if constexpr (std::is_void_v<decltype(add(object, key, value))>) {
        add(object, key, value);
    } else if (add(object, key, value) != 0 && value != object) {
        json_object_put(value);
        throw std::bad_alloc();
    }
}

/// Null for a missing key and for a member that is null. Use it only where both mean the same.
json_object* memberOf(json_object* object, const char* key) {
    json_object* member = nullptr;
    json_object_object_get_ex(object, required(key), &member);
    return member;
}

json_object* memberOf(json_object* object, const std::string& key) {
    json_object* member = nullptr;
    json_object_object_get_ex(object, key.c_str(), &member);
    return member;
}

int lengthOf(json_object* array) {
    return is(array, json_type_array) ? static_cast<int>(json_object_array_length(array)) : 0;
}

/// Null when there is no such element. json-c itself only checks whether the index is too large: it
/// requires an array, and its older generation also an index that is not negative.
json_object* elementOf(json_object* array, int idx) {
    if (idx < 0 || !is(array, json_type_array))
        return nullptr;
    // The index has the type of the length: int in the older generation, size_t in the newer.
    return json_object_array_get_idx(array,
                                     static_cast<decltype(json_object_array_length(array))>(idx));
}

json_object* parse(const std::string& text) {
    const Tokener tokener(json_tokener_new(), &json_tokener_free);
    if (tokener == nullptr)
        throw std::bad_alloc();
    json_object* value =
        json_tokener_parse_ex(tokener.get(), text.c_str(), static_cast<int>(text.length()));
    if (json_tokener_get_error(tokener.get()) != json_tokener_success)
        detail::printLine({"Unable to parse json"});
    return value;
}

} // namespace

NQ_JSON::NQ_JSON() : obj(made(json_object_new_object())), tempObj(nullptr) {}

NQ_JSON::NQ_JSON(const std::string& text) : obj(parse(text)), tempObj(nullptr) {}

NQ_JSON::NQ_JSON(const json_object* o)
    : obj(json_object_get(const_cast<json_object*>(o))), tempObj(nullptr) {}

NQ_JSON::NQ_JSON(const NQ_JSON& other) : obj(json_object_get(other.obj)), tempObj(nullptr) {}

NQ_JSON& NQ_JSON::operator=(const NQ_JSON& other) {
    if (this != &other) {
        // Two handles of one tree own a reference each, so dropping ours first cannot free what
        // `other` still holds.
        json_object_put(obj);
        obj = json_object_get(other.obj);
    }
    return *this;
}

NQ_JSON::~NQ_JSON() { json_object_put(obj); }

NQ_JSON NQ_JSON::fromFile(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream content;
    content << file.rdbuf();
    return NQ_JSON(content.str());
}

std::string NQ_JSON::get_json_string(const std::string& key) const {
    json_object* member = nullptr;
    if (!json_object_object_get_ex(obj, key.c_str(), &member))
        return std::string();
    return textOf(member);
}

std::string NQ_JSON::get_json_obj_as_string(const std::string& key) const {
    json_object* member = nullptr;
    if (!json_object_object_get_ex(obj, key.c_str(), &member))
        return std::string();
    return required(json_object_to_json_string_ext(member, JSON_C_TO_STRING_PLAIN));
}

int NQ_JSON::get_json_int(const std::string& key) const {
    return json_object_get_int(memberOf(obj, key));
}

double NQ_JSON::get_json_double(const std::string& key) const {
    return json_object_get_double(memberOf(obj, key));
}

NQ_JSON NQ_JSON::get_json_object(const std::string& key) const {
    return NQ_JSON(memberOf(obj, key));
}

bool NQ_JSON::keyExists(const std::string& key) const {
    return json_object_object_get_ex(obj, key.c_str(), nullptr) != 0;
}

bool NQ_JSON::json_object_is_array() { return is(obj, json_type_array); }

int NQ_JSON::json_object_array_len() const { return lengthOf(obj); }

int NQ_JSON::getArraySize() const { return lengthOf(obj); }

int NQ_JSON::json_object_array_len(const char* key) const { return lengthOf(memberOf(obj, key)); }

std::string NQ_JSON::get_json_string_arrayID(int idx) const { return textOf(elementOf(obj, idx)); }

std::string NQ_JSON::get_json_string_arrayID(const char* key, int idx) const {
    return textOf(elementOf(memberOf(obj, key), idx));
}

NQ_JSON NQ_JSON::getArrayObject(int idx) const { return NQ_JSON(elementOf(obj, idx)); }

json_object* NQ_JSON::getObj() const { return obj; }

json_object* NQ_JSON::gettempObj() const { return tempObj; }

void NQ_JSON::settempObj(json_object* o) { tempObj = o; }

std::string NQ_JSON::asString() const { return textOf(obj); }

void NQ_JSON::addStringtoObj(json_object* array, const char* s) {
    addObjtoArray(array, made(json_object_new_string(required(s))));
}

void NQ_JSON::addObjtoArray(json_object* array, json_object* value) {
    if (!is(array, json_type_array)) {
        json_object_put(value);
    } else if (json_object_array_add(array, value) != 0) {
        json_object_put(value);
        throw std::bad_alloc();
    }
}

void NQ_JSON::addObjtoObj(json_object* object, const char* key, json_object* value) {
    required(key);
    if (!is(object, json_type_object))
        json_object_put(value);
    else
        addMember(json_object_object_add, object, key, value);
}

void NQ_JSON::addKeyValtoObj(json_object* object, const char* key, const char* value) {
    required(key);
    addObjtoObj(object, key, made(json_object_new_string(required(value))));
}

void NQ_JSON::addKeyVal(const std::string& key, const std::string& value) {
    addKeyValtoObj(obj, key.c_str(), value.c_str());
}

json_object* NQ_JSON::newArray() { return made(json_object_new_array()); }

void NQ_JSON::asMap(std::map<std::string, std::string>& out) const {
    out.clear();
    if (!is(obj, json_type_object))
        return;
    // Constructed in place: json-c's keys are unique, so every member is a new entry.
    json_object_object_foreach(obj, key, value) {
        out.emplace(key, required(json_object_get_string(value)));
    }
}

void NQ_JSON::emptyFields(std::vector<std::string>& out, json_object* object) const {
    out.clear();
    if (!is(object, json_type_object))
        return;
    json_object_object_foreach(object, key, value) {
        const char* text = required(json_object_get_string(value));
        if (*text == '\0')
            out.emplace_back(key);
        else
            detail::printLine({key, "=", text});
    }
}

} // namespace kvr::api::data
