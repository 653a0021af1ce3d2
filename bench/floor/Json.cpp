#include "Json.h"

#include "print.h"

#include <stdexcept>

#include <json-c/json.h>

namespace bench::floor {
namespace {

const char* required(const char* text) {
    if (__builtin_expect(text == nullptr, 0))
        throw std::logic_error("null text");
    return text;
}

} // namespace

Json::Json() : tree_(json_object_new_object()), scratch_(nullptr) {}

Json::Json(const std::string& text) : scratch_(nullptr) {
    json_tokener* tokener = json_tokener_new();
    tree_ = json_tokener_parse_ex(tokener, text.data(), static_cast<int>(text.length()));
    if (json_tokener_get_error(tokener) != json_tokener_success)
        printLine({"Unable to parse json"});
    json_tokener_free(tokener);
}

Json::Json(json_object* shared) : tree_(json_object_get(shared)), scratch_(nullptr) {}

Json::~Json() { json_object_put(tree_); }

std::string Json::text(const std::string& key) const {
    json_object* member = nullptr;
    if (!json_object_object_get_ex(tree_, key.c_str(), &member))
        return std::string();
    return required(json_object_get_string(member));
}

int Json::number(const std::string& key) const {
    json_object* member = nullptr;
    json_object_object_get_ex(tree_, key.c_str(), &member);
    return json_object_get_int(member);
}

Json Json::member(const std::string& key) const {
    json_object* member = nullptr;
    json_object_object_get_ex(tree_, key.c_str(), &member);
    return Json(member);
}

std::string Json::print() const { return required(json_object_get_string(tree_)); }

void Json::add(const std::string& key, const std::string& value) {
    addObject(tree_, key.c_str(), json_object_new_string(value.c_str()));
}

json_object* Json::newArray() { return json_object_new_array(); }

// A container of another type remains unchanged, and the value is released.
void Json::addText(json_object* array, const char* text) {
    json_object* value = json_object_new_string(required(text));
    if (!json_object_is_type(array, json_type_array) || json_object_array_add(array, value) != 0)
        json_object_put(value);
}

void Json::addObject(json_object* object, const char* key, json_object* value) {
    if (json_object_is_type(object, json_type_object))
        json_object_object_add(object, required(key), value);
    else
        json_object_put(value);
}

void Json::flatten(std::map<std::string, std::string>& out) const {
    out.clear();
    if (!json_object_is_type(tree_, json_type_object))
        return;
    json_object_object_foreach(tree_, key, value) {
        out.emplace(key, required(json_object_get_string(value)));
    }
}

void Json::emptyFields(std::vector<std::string>& out, json_object* object) const {
    out.clear();
    if (!json_object_is_type(object, json_type_object))
        return;
    json_object_object_foreach(object, key, value) {
        const char* text = required(json_object_get_string(value));
        if (*text == '\0')
            out.emplace_back(key);
        else
            printLine({key, "=", text});
    }
}

json_object* Json::tree() const { return tree_; }

} // namespace bench::floor
