// An application as a user would write it, built only against the installed library. It uses one
// feature of each kind:
// - a class with virtual functions, and a static function
// - a class that contains a type of another library
// - a template, and a global function
// - json-c's own functions for a document's handles
#include <kvr/api/NQ_JsonRPC.h>
#include <kvr/api/StdInReader.h>
#include <kvr/api/com/NQ_Mqtt.h>
#include <kvr/api/crypto/NQ_Crypto.h>
#include <kvr/api/data/NQ_JSON.h>
#include <kvr/api/file/NQ_Files.h>
#include <kvr/api/version.h>

#if defined(CONSUMER_EXPECTS_DDS)
#include <kvr/api/mdw/NQ_DDS_RMI.h>
#elif __has_include(<kvr/api/mdw/NQ_DDS_RMI.h>)
#error "the class's header is installed, but the class is not in the library"
#endif

#include <cstdio>
#include <cstdlib>
#include <string>

using kvr::api::data::NQ_JSON;

namespace {

class Echo : public kvr::api::CallbackMethod {
public:
    bool Call(const NQ_JSON& request, NQ_JSON& response) override {
        response.addKeyVal("echo", request.get_json_string("text"));
        return true;
    }
    std::string GetName() const override { return "echo"; }
    std::string GetDescription() const override { return "gives the text back"; }
};

class Dispatcher : public kvr::api::NQ_RPCHandler {
public:
    Dispatcher() { Dispatcher::RegisterMethods(); }
    void RegisterMethods() override { AddMethod(new Echo); }
};

} // namespace

int main() {
    Dispatcher dispatcher;
    NQ_JSON response;
    if (!dispatcher.Process("{\"method\":\"echo\",\"text\":\"hello\"}", response))
        return EXIT_FAILURE;

    const kvr::api::com::NQ_Mqtt publisher("localhost", "consumer");
    StdInReader reader;
    char* const copy = convert(kvr::api::crypto::NQ_Base64::base64_encode("hello"));
    std::printf("%s %s %zu %d\n", response.asString().c_str(), copy, reader.lastLine.size(),
                publisher.getLastResult());
    json_object* const number = json_object_new_int(5);
    std::printf("%s\n", json_object_get_string(number));
    json_object_put(number);
    std::printf("%s %d.%d.%d\n", TAVO_VERSION, TAVO_VERSION_MAJOR, TAVO_VERSION_MINOR,
                TAVO_VERSION_PATCH);
    delete[] copy;
#if defined(CONSUMER_EXPECTS_DDS)
    kvr::api::mdw::NQ_DDS_RMI_RUNTIME runtime;
    org::opensplice::DDS_RMI::CRuntime_ref none;
    std::puts(none.get() == nullptr ? "DDS" : "?");
    (void)runtime;
#endif
    return EXIT_SUCCESS;
}
