// Any bytes as a request to a dispatcher whose handlers read it and answer.
#include <kvr/api/NQ_JsonRPC.h>

#include "fuzzing.h"
#include "walk.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include <json-c/json.h>

using kvr::api::CallbackMethod;
using kvr::api::data::NQ_JSON;

namespace {

int calls = 0;

/// Reads all of the request and answers with its parameters.
class Echo : public CallbackMethod {
public:
    Echo(const char* name, bool result) : name_(name), result_(result) {}
    bool Call(const NQ_JSON& request, NQ_JSON& response) override {
        ++calls;
        fuzzing::walk(request);
        const NQ_JSON params = request.get_json_object("params");
        response.addObjtoObj(response.getObj(), "result", json_object_get(params.getObj()));
        response.addKeyVal("id", request.get_json_obj_as_string("id"));
        return result_;
    }
    std::string GetName() const override { return name_; }
    std::string GetDescription() const override { return "echo"; }

private:
    const char* name_;
    bool result_;
};

class UncalledMethod : public CallbackMethod {
public:
    explicit UncalledMethod(const char* name) : name_(name) {}
    bool Call(const NQ_JSON&, NQ_JSON&) override {
        fuzzing::require(false, "only the first method of a name that is not empty is called");
        return false;
    }
    std::string GetName() const override { return name_; }
    std::string GetDescription() const override { return "unreachable"; }

private:
    const char* name_;
};

class Dispatcher : public kvr::api::NQ_RPCHandler {
public:
    Dispatcher() { RegisterMethods(); }
    void RegisterMethods() override {
        AddMethod(new Echo("system.describe", true));
        AddMethod(new Echo("ping", true));
        AddMethod(new UncalledMethod("ping"));
        AddMethod(new Echo("7", false));
        AddMethod(new UncalledMethod(""));
    }
};

/// Only one is created, since each sends records to the system log.
Dispatcher& dispatcher() {
    static Dispatcher instance;
    return instance;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzing::silenceOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    NQ_JSON response;
    const int before = calls;
    bool result = false;
    try {
        result = dispatcher().Process(text, response);
    } catch (const std::logic_error&) { // "method" or "params" is null
    }
    fuzzing::require(calls - before <= 1, "one request makes one call at most");
    fuzzing::require(!result || calls > before, "only a handler makes a request succeed");
    fuzzing::require(calls > before || response.asString() == "{ }",
                     "only handlers touch the response");

    NQ_JSON another;
    try {
        dispatcher().Process(text.c_str(), another);
    } catch (const std::logic_error&) {
    }
    return 0;
}
