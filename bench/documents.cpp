#include "documents.h"

namespace bench {
namespace {

std::string devices() {
    std::string text = R"({"devices":[)";
    for (int i = 0; i < 450; ++i) {
        const std::string number = std::to_string(1000 + i);
        text += i == 0 ? "" : ",";
        text += R"({"id":)" + number + R"(,"name":"sensor-)" + number + R"(","address":"10.1.2.)" +
                std::to_string(i % 256) +
                R"(","online":true,"temperature":21.375,"tags":["floor-2","north","calibrated"],)" +
                R"("firmware":{"version":"4.11.2","installed":"2020-01-02T03:04:05.123Z"}})";
    }
    return text + "]}";
}

std::string fields() {
    std::string text = "{";
    for (int i = 0; i < 20; ++i) {
        const std::string number = std::to_string(i);
        text += i == 0 ? "" : ",";
        text += "\"option_" + number + "\":\"" +
                (i % 5 == 4 ? std::string() : "value-of-option-" + number) + "\"";
    }
    return text + "}";
}

} // namespace

const std::string& smallDocument() {
    static const std::string text =
        R"({"jsonrpc":"2.0","id":7,"method":"uci.apply","params":{"config":"network",)"
        R"("section":"lan","type":"interface","values":{"ipaddr":"192.168.1.1",)"
        R"("netmask":"255.255.255.0","proto":"static","gateway":""}}})";
    return text;
}

const std::string& largeDocument() {
    static const std::string text = devices();
    return text;
}

const std::string& flatDocument() {
    static const std::string text = fields();
    return text;
}

} // namespace bench
