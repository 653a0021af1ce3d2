// A gateway's `ubus` tool, as far as programs of a gateway use it: "ubus call uci METHOD JSON". The
// bus and the configuration daemon behind it are simulated in this process, on the files that `uci`
// works on too.
#include "uci_object.h"

#include <json-c/json.h>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace {

using uci::Outcome;
using uci::Status;

const char kUsage[] = "Usage: ubus [<options>] <command> [arguments...]\n"
                      "This one belongs to the desktop sandbox and knows one command:\n"
                      " - call <path> <method> [<message>]\tCall a method of the object uci:\n"
                      "\t\t\t\t\tget, add, set, delete\n";

const int kNoBus = -1;

const char* textOf(Status status) {
    switch (status) {
    case Status::Ok:
        break;
    case Status::InvalidArgument:
        return "Invalid argument";
    case Status::MethodNotFound:
        return "Method not found";
    case Status::NotFound:
        return "Not found";
    case Status::ParseError:
        return "Parsing message data failed";
    case Status::UnknownError:
        return "Unknown error";
    }
    return "Success";
}

/// Reports a failed call as the tool does; the result is the exit status, the bus's number negated.
int fail(const std::vector<std::string>& arguments, Status status) {
    std::cerr << "Command failed: ubus call ";
    for (const std::string& argument : arguments)
        std::cerr << argument << " ";
    std::cerr << "(" << textOf(status) << ")\n";
    if (status == Status::InvalidArgument)
        std::cerr << kUsage;
    return -static_cast<int>(status);
}

using Json = std::unique_ptr<json_object, decltype(&json_object_put)>;

int call(const uci::Store& store, const std::vector<std::string>& arguments) {
    if (arguments.size() < 2 || arguments.size() > 3)
        return fail(arguments, Status::InvalidArgument);
    const std::string message = arguments.size() == 3 ? arguments[2] : "{}";
    const Json json(json_tokener_parse(message.c_str()), json_object_put);
    if (!json || !json_object_is_type(json.get(), json_type_object))
        return fail(arguments, Status::ParseError);
    if (arguments[0] != "uci") {
        // Found out before the call is made, hence the other form and the positive status.
        std::cerr << "Command failed: " << textOf(Status::NotFound) << "\n";
        return static_cast<int>(Status::NotFound);
    }
    const Outcome outcome = uci::call(store, arguments[1], json.get());
    if (outcome.status != Status::Ok)
        return fail(arguments, outcome.status);
    std::cout << outcome.reply << std::flush;
    return 0;
}

} // namespace

int main(int argc, char* argv[]) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.empty() || arguments[0] != "call") {
        std::cerr << kUsage;
        return -static_cast<int>(Status::InvalidArgument);
    }
    const uci::Store store = uci::Store::ofEnvironment();
    if (!store.isPresent()) {
        std::cerr << "Failed to connect to ubus\n";
        return kNoBus;
    }
    return call(store, {arguments.begin() + 1, arguments.end()});
}
