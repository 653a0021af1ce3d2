#ifndef TAVO_TESTS_UCI_TOOLS_H
#define TAVO_TESTS_UCI_TOOLS_H

#include <kvr/api/mng/NQ_UBUS.h>

#include "FakePrograms.h"

#include <string>
#include <vector>

namespace support {

const char kLan[] = R"({"config":"network","section":"lan","type":"interface",)"
                    R"("values":{"ipaddr":"192.168.1.1","gateway":""}})";
const char kUnparsable[] = "Unable to parse json\n";

/// A gateway's tools, first in PATH. The test chooses what `ubus call uci get` prints.
class UciTools {
public:
    explicit UciTools(const std::string& getScript = "") {
        programs.add("ubus", "if [ \"$3\" = get ]; then\n:\n" + getScript + "\nfi");
        programs.add("uci");
    }
    std::vector<std::string> calls() const { return programs.calls(); }

    FakePrograms programs;
};

/// Tools that report the section as existing.
class UciToolsWithSection : public UciTools {
public:
    UciToolsWithSection() : UciTools("echo '{ \"values\": { } }'") {}
};

inline kvr::api::mng::NQ_UBUS configured(const std::string& text) {
    kvr::api::mng::NQ_UBUS ubus;
    ubus.init(text);
    return ubus;
}

inline kvr::api::mng::NQ_UBUS named(const std::string& config, const std::string& section) {
    return configured(R"({"config":")" + config + R"(","section":")" + section + R"("})");
}

} // namespace support

#endif
