#include "kvr/api/NQ_JsonRPC.h"

#include <algorithm>
#include <memory>
#include <stdexcept>

#include <syslog.h>

#include <json-c/json_object.h>

namespace kvr::api {

using data::NQ_JSON;

CallbackMethod::~CallbackMethod() = default;

NQ_RPCHandler::NQ_RPCHandler() { syslog(LOG_INFO, "NQ_RPCHandler loaded"); }

NQ_RPCHandler::~NQ_RPCHandler() {
    syslog(LOG_INFO, "NQ_RPCHandler unloaded");
    for (CallbackMethod* method : methods)
        delete method;
}

void NQ_RPCHandler::AddMethod(CallbackMethod* m) {
    std::unique_ptr<CallbackMethod> owner(m); // until the table has it: push_back() may throw
    methods.push_back(m);
    (void)owner.release();
}

void NQ_RPCHandler::DeleteMethod(const std::string& name) {
    // Deliberate: a dispatcher that can describe itself always can.
    if (name == "system.describe")
        return;
    const auto found = std::find_if(methods.begin(), methods.end(), [&](CallbackMethod* method) {
        return method != nullptr && method->GetName() == name;
    });
    if (found == methods.end())
        return;
    delete *found;
    methods.erase(found);
}

CallbackMethod* NQ_RPCHandler::Lookup(const std::string& name) const {
    for (CallbackMethod* method : methods)
        if (method->GetName() == name)
            return method;
    return nullptr;
}

bool NQ_RPCHandler::Process(const NQ_JSON& request, NQ_JSON& response) {
    if (request.getObj() == nullptr)
        return false;
    const std::string method = request.get_json_string("method");
    // Deliberate: the parameters are read as text only to refuse a null before any handler sees it.
    // The text itself is not used.
    json_object* params = nullptr;
    if (json_object_object_get_ex(request.getObj(), "params", &params) &&
        json_object_get_string(params) == nullptr)
        throw std::logic_error("kvr::api::NQ_RPCHandler: \"params\" is null");
    if (method.empty())
        return false;
    CallbackMethod* handler = Lookup(method);
    return handler != nullptr && handler->Call(request, response);
}

bool NQ_RPCHandler::Process(const std::string& text, NQ_JSON& response) {
    NQ_JSON request(text);
    if (request.getObj() == nullptr || request.json_object_is_array())
        return false;
    return Process(request, response);
}

bool NQ_RPCHandler::Process(const char* text, NQ_JSON& response) {
    if (text == nullptr)
        throw std::logic_error("kvr::api::NQ_RPCHandler: the request text is null");
    return Process(std::string(text), response);
}

} // namespace kvr::api
