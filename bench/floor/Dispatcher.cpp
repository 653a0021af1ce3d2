#include "Dispatcher.h"

#include <stdexcept>

#include <json-c/json.h>

namespace bench::floor {

Method::~Method() = default;

Dispatcher::~Dispatcher() {
    for (Method* method : methods_)
        delete method;
}

void Dispatcher::add(Method* method) { methods_.push_back(method); }

bool Dispatcher::process(const Json& request, Json& response) {
    json_object* tree = request.tree();
    if (tree == nullptr)
        return false;
    json_object* member = nullptr;
    std::string wanted;
    if (json_object_object_get_ex(tree, "method", &member)) {
        const char* text = json_object_get_string(member);
        if (text == nullptr)
            throw std::logic_error("null method");
        wanted = text;
    }
    // The parameters are read as text, which a null does not have.
    if (json_object_object_get_ex(tree, "params", &member) &&
        json_object_get_string(member) == nullptr)
        throw std::logic_error("null params");
    if (wanted.empty())
        return false;
    for (Method* method : methods_)
        if (method->name() == wanted)
            return method->call(request, response);
    return false;
}

bool Dispatcher::process(const std::string& text, Json& response) {
    const Json request(text);
    if (request.tree() == nullptr || json_object_is_type(request.tree(), json_type_array))
        return false;
    return process(request, response);
}

} // namespace bench::floor
