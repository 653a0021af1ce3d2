// Changes a section of the UCI configuration, reads it back, and restarts its service.
// On a desktop: sandbox/run build/release/examples/minimal/uci

#include <kvr/api/data/NQ_JSON.h>
#include <kvr/api/mng/NQ_UBUS.h>

#include <iostream>

using kvr::api::data::NQ_JSON;
using kvr::api::mng::NQ_UBUS;

int main() {
    NQ_UBUS uci;
    // Numbers are written as texts. A single quote would break the shell's command line: check text
    // from outside first.
    uci.init(R"({"config":"network","section":"lan","type":"interface",)"
             R"("values":{"ipaddr":"192.168.7.1","mtu":"1400"}})");
    if (!uci.checkConfig()) // false for a text that is not JSON
        return 2;
    uci.applyConfig(); // always true: reading it back shows the effect

    const NQ_JSON reply(uci.getSystemCfg());
    const NQ_JSON values = reply.get_json_object("values");
    if (values.get_json_string("ipaddr") != "192.168.7.1" ||
        values.get_json_string("mtu") != "1400") {
        std::cerr << "the change was not stored\n";
        return 1;
    }
    std::cout << "lan is " << values.get_json_string("ipaddr") << '\n';
    uci.restartService(); // /etc/init.d/network restart
}
