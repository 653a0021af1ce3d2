// A gateway's `ubus` tool, as far as a gateway's programs use it: "ubus call uci METHOD JSON". This
// process simulates the bus and the configuration daemon, on the files that `uci` also uses.
#include "uci_object.h"

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include <json-c/json.h>

namespace {

using uci::Status;

constexpr char kUsage[] = " [<options>] <command> [arguments...]\n"
                          "The ubus of the desktop sandbox has one command:\n"
                          " - call <path> <method> [<message>]\tCall a method of the object uci:\n"
                          "\t\t\t\t\tget, add, set, delete, rename,\n"
                          "\t\t\t\t\tchanges, commit, revert, configs\n"
                          "Options:\n"
                          " -S\t\tPrint replies in one line, and no messages\n"
                          " -s <socket>, -t <timeout>, -v\n"
                          "\t\tAccepted, without effect\n";

constexpr int kNoBus = -1;
constexpr int kMisused = 1;

struct Tool {
    const char* name;
    bool terse = false;

    int usage(int status) const {
        std::cerr << "Usage: " << name << kUsage;
        return status;
    }
};

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
    case Status::PermissionDenied:
        return "Permission denied";
    case Status::ParseError:
        return "Parsing message data failed";
    case Status::UnknownError:
        return "Unknown error";
    }
    return "Success";
}

/// Reports a failure in the older form, with the bus's number as the exit status.
int failBriefly(const Tool& tool, Status status) {
    if (!tool.terse)
        std::cerr << "Command failed: " << textOf(status) << "\n";
    return static_cast<int>(status);
}

/// Reports a failed call. For scripts, when standard error is no terminal, the tool prints the call
/// too, and its exit status is the negated number. One of these numbers also means wrong usage, so
/// the tool then prints the usage as well.
int fail(const Tool& tool, const std::vector<std::string>& arguments, Status status) {
    if (tool.terse || ::isatty(STDERR_FILENO) == 1)
        return failBriefly(tool, status);
    std::cerr << "Command failed: ubus call ";
    for (const std::string& argument : arguments)
        std::cerr << argument << " ";
    std::cerr << "(" << textOf(status) << ")\n";
    const int result = -static_cast<int>(status);
    return status == Status::InvalidArgument ? tool.usage(result) : result;
}

using Json = std::unique_ptr<json_object, decltype(&json_object_put)>;

int call(const Tool& tool, const uci::Store& store, const std::vector<std::string>& arguments) {
    if (arguments.size() < 2 || arguments.size() > 3)
        return tool.usage(-static_cast<int>(Status::InvalidArgument));
    const std::string message = arguments.size() == 3 ? arguments[2] : "{}";
    const Json json(json_tokener_parse(message.c_str()), json_object_put);
    if (!json || !json_object_is_type(json.get(), json_type_object))
        return fail(tool, arguments, Status::ParseError);
    if (arguments[0] != "uci")
        return failBriefly(tool, Status::NotFound);
    const uci::Outcome outcome = uci::call(store, arguments[1], json.get(), tool.terse);
    if (outcome.status != Status::Ok)
        return fail(tool, arguments, outcome.status);
    std::cout << outcome.reply << std::flush;
    return 0;
}

} // namespace

int main(int argc, char* argv[]) {
    Tool tool{argv[0]};
    for (int option = 0; (option = ::getopt(argc, argv, "s:t:vS")) != -1;) {
        if (option == 'S')
            tool.terse = true;
        else if (option == '?')
            return tool.usage(kMisused);
    }
    const std::vector<std::string> arguments(argv + optind, argv + argc);
    if (arguments.empty())
        return tool.usage(kMisused);
    const uci::Store store = uci::Store::ofEnvironment();
    if (!store.isPresent()) {
        if (!tool.terse)
            std::cerr << "Failed to connect to ubus\n";
        return kNoBus;
    }
    if (arguments[0] != "call")
        return tool.usage(-static_cast<int>(Status::InvalidArgument));
    return call(tool, store, {arguments.begin() + 1, arguments.end()});
}
