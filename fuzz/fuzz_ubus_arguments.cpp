// Any bytes as the JSON argument of a `ubus call uci METHOD`, to the sandbox's simulation.
//
// The first byte picks the method.
#include "../sandbox/uci_object.h"
#include "fuzzing.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <unistd.h>

#include <json-c/json.h>

namespace {

constexpr const char* kMethods[] = {"get", "add", "set", "delete", "rename", "changes"};

constexpr char kPackage[] = "\n"
                            "config interface 'lan'\n"
                            "\toption proto 'static'\n"
                            "\toption ipaddr '192.168.1.1'\n"
                            "\tlist dns '1.1.1.1'\n"
                            "\tlist dns '8.8.8.8'\n"
                            "\n"
                            "config device\n"
                            "\toption name 'br-lan'\n"
                            "\n";

/// A gateway's configuration, as each call finds it.
class Gateway {
public:
    Gateway() {
        std::filesystem::create_directories(config_);
        restore();
    }
    ~Gateway() { std::filesystem::remove_all(directory_); }

    void restore() const {
        std::ofstream(config_ + "/network") << kPackage;
        std::filesystem::remove(pending_ + "/network");
    }

    const uci::Store& store() const { return store_; }

private:
    std::string directory_ =
        (std::filesystem::temp_directory_path() / ("tavo-fuzz-" + std::to_string(getpid())))
            .string();
    std::string config_ = directory_ + "/config";
    std::string pending_ = directory_ + "/pending";
    uci::Store store_{config_, pending_};
};

void checkOutcome(const uci::Outcome& outcome) {
    fuzzing::require(outcome.status != uci::Status::UnknownError, "no argument breaks the store");
    if (outcome.reply.empty())
        return;
    fuzzing::require(outcome.status == uci::Status::Ok, "a refused call has no reply");
    json_object* const reply = json_tokener_parse(outcome.reply.c_str());
    fuzzing::require(json_object_is_type(reply, json_type_object), "a reply is a JSON object");
    json_object_put(reply);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Gateway gateway;
    if (size == 0)
        return 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    json_object* const arguments = json_tokener_parse(text.c_str()); // as the tool does
    if (json_object_is_type(arguments, json_type_object)) {
        const char* const method = kMethods[data[0] % (sizeof kMethods / sizeof *kMethods)];
        checkOutcome(uci::call(gateway.store(), method, arguments));
        const uci::Loaded before = gateway.store().load("network");
        if (!before.pending.empty()) {
            gateway.store().commit("network");
            const uci::Loaded after = gateway.store().load("network");
            fuzzing::require(uci::format(after.package) == uci::format(before.package),
                             "a commit keeps what was pending");
            fuzzing::require(after.pending.empty(), "nothing is pending after a commit");
            gateway.restore();
        }
    }
    json_object_put(arguments);
    return 0;
}
