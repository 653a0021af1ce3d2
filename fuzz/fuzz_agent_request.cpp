// Any bytes as a message to tavo-agent: its whole path, from the text to the commands that the
// library builds from it. No command is run: the calls that would run one are replaced, and check
// their arguments.
#include "Log.h"
#include "fake_program.h"
#include "fuzzing.h"
#include "rpc/Dispatcher.h"
#include "rpc/RequestHandler.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <syslog.h>
#include <unistd.h>

#include <json-c/json.h>

namespace {

/// What `ubus call uci get` prints for every section.
const std::string kSection = R"({ "values": { ".anonymous": false, ".type": "interface", )"
                             R"(".name": "lan", "proto": "static", "dns": [ "1.1.1.1" ] } })";

/// A command line is safe when everything outside of single quotes consists of the plain characters
/// of the library's own command lines. Nothing else from the message may reach the shell.
bool isSafe(const std::string& command) {
    const char plain[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./@ ";
    bool quoted = false;
    std::string outside;
    for (const char c : command) {
        if (c == '\'')
            quoted = !quoted;
        else if (!quoted)
            outside += c;
    }
    const std::string commit = "; uci commit ";
    const std::size_t at = outside.find(commit);
    if (outside.compare(0, 14, "ubus call uci ") == 0 && at != std::string::npos)
        outside.erase(at, 2); // the one semicolon of the library's own
    return !quoted && outside.find_first_not_of(plain) == std::string::npos &&
           outside.find("..") == std::string::npos;
}

} // namespace

// Replace the C library's functions for the agent and the library under test.
extern "C" {

int system(const char* command) {
    if (!isSafe(command))
        std::fprintf(stderr, "Command: %s\n", command);
    fuzzing::require(isSafe(command), "only plain words of a message reach the shell");
    return 0;
}

void syslog(int, const char*, ...) {}
}

namespace agent {

// Replaces the log file.
void logInfo(const std::string& text) {
    fuzzing::require(text.find('\n') == std::string::npos, "a line of the log is one line");
}

void logError(const std::string& text) { logInfo(text); }

} // namespace agent

namespace {

agent::Dispatcher& dispatcher() {
    static agent::Dispatcher instance({"echo"});
    static const bool registered = (instance.RegisterMethods(), true);
    (void)registered;
    return instance;
}

void checkResponse(const std::string& text) {
    fuzzing::require(text.find('\n') == std::string::npos, "a response is one line");
    json_object* const response = json_tokener_parse(text.c_str());
    json_object* member = nullptr;
    fuzzing::require(json_object_object_get_ex(response, "jsonrpc", &member) != 0 &&
                         std::strcmp("2.0", json_object_get_string(member)) == 0,
                     "a response is of JSON-RPC 2.0");
    fuzzing::require(json_object_object_get_ex(response, "id", nullptr) != 0,
                     "a response has an id");
    const bool isResult = json_object_object_get_ex(response, "result", nullptr) != 0;
    const bool isError = json_object_object_get_ex(response, "error", &member) != 0;
    fuzzing::require(isResult != isError, "a response is either a result or an error");
    fuzzing::require(!isError || json_object_object_get_ex(member, "code", nullptr) != 0,
                     "an error has a code");
    json_object_put(response);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzing::silenceOutput();
    fuzzing::require(access("/opt/apps", F_OK) != 0,
                     "config.place finds no applications here that it could write to");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static agent::RequestHandler handler(dispatcher());
    const std::string message(reinterpret_cast<const char*>(data), size);
    const fuzzing::FakeProgram program(kSection);
    const agent::Response response = handler.handle(message, "");
    if (!response.text.empty())
        checkResponse(response.text);
    return 0;
}
