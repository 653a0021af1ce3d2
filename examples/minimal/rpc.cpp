// Dispatches JSON-RPC requests to a method of this program.

#include <kvr/api/NQ_JsonRPC.h>

#include <iostream>
#include <string>

using kvr::api::CallbackMethod;
using kvr::api::NQ_RPCHandler;
using kvr::api::data::NQ_JSON;

class Greet : public CallbackMethod {
public:
    bool Call(const NQ_JSON& request, NQ_JSON& response) override {
        const std::string name = request.get_json_object("params").get_json_string("name");
        response.addKeyVal("id", request.get_json_string("id"));
        response.addKeyVal("result", "Hello, " + name);
        return !name.empty();
    }
    std::string GetName() const override { return "greet"; }
    std::string GetDescription() const override { return "greets the person called name"; }
};

class Dispatcher : public NQ_RPCHandler {
public:
    Dispatcher() { RegisterMethods(); }
    void RegisterMethods() override { AddMethod(new Greet); } // the dispatcher deletes it
};

int main() {
    Dispatcher dispatcher;
    NQ_JSON response;
    if (dispatcher.Process(R"({"id":"1","method":"greet","params":{"name":"Ada"}})", response))
        std::cout << response.asString() << '\n';
    if (!dispatcher.Process(R"({"id":"2","method":"vanish"})", response))
        std::cout << "there is no such method\n";
}
