#include "kvr/api/mng/NQ_UBUS.h"

#include <kvr/api/file/NQ_Files.h>

#include "detail/console.h"

#include <cstdlib>
#include <tuple>

namespace kvr::api::mng {

using data::NQ_JSON;

namespace {

std::string quoted(const std::string& verb, const std::string& argument) {
    return verb + " '" + argument + "'";
}

} // namespace

void NQ_UBUS::init(const std::string& cfg) {
    jsonCfg = cfg;
    json = NQ_JSON(jsonCfg);
    if (json.getObj() == nullptr || jsonCfg.empty())
        return;
    configField = json.get_json_string("config");
    sectionField = json.get_json_string("section");
    typeField = json.get_json_string("type");
    valuesField = json.get_json_string("values");
}

std::string NQ_UBUS::getJsonCfg() const { return jsonCfg; }

std::string NQ_UBUS::getConfigField() const { return configField; }

std::string NQ_UBUS::getSectionField() const { return sectionField; }

std::string NQ_UBUS::getValuesField() const { return valuesField; }

bool NQ_UBUS::hasEmptyValues() const { return valuesField == "{ }"; }

std::string NQ_UBUS::getSystemCfg() const {
    // No shell is involved, so this argument needs no quotes. Deliberate: it is joined as text,
    // and its only blank follows the brace.
    const std::string argument =
        "{ \"config\":\"" + configField + "\",\"section\":\"" + sectionField + "\"}";
    return file::NQ_Popen::execute("ubus", {"call", "uci", "get", argument});
}

bool NQ_UBUS::checkConfig() {
    if (json.getObj() == nullptr || jsonCfg.empty()) {
        detail::out() << "Configuration NOT VALID" << std::endl;
        return false;
    }
    detail::out() << "config:" << configField << std::endl;
    detail::out() << "section:" << sectionField << std::endl;
    detail::out() << "type:" << typeField << std::endl;
    detail::out() << "values:" << valuesField << std::endl;

    NQ_JSON values(valuesField);
    values.emptyFields(emptyOptions, values.getObj());
    if (!emptyOptions.empty())
        applyConfig(makeDeleteConfig());
    return true;
}

std::string NQ_UBUS::makeAddConfig() {
    NQ_JSON argument;
    argument.addKeyVal("config", configField);
    argument.addKeyVal("name", sectionField);
    if (!typeField.empty())
        argument.addKeyVal("type", typeField);
    return argument.asString();
}

std::string NQ_UBUS::makeDeleteSectionConfig() {
    NQ_JSON argument;
    argument.addKeyVal("config", configField);
    argument.addKeyVal("section", sectionField);
    return argument.asString();
}

std::string NQ_UBUS::makeDeleteConfig() {
    NQ_JSON argument;
    argument.addKeyVal("config", configField);
    argument.addKeyVal("section", sectionField);
    argument.settempObj(argument.newArray());
    argument.addObjtoObj(argument.getObj(), "options", argument.gettempObj()); // which owns it now
    for (const std::string& option : emptyOptions)
        argument.addStringtoObj(argument.gettempObj(), option.c_str());
    return quoted("delete", argument.asString());
}

bool NQ_UBUS::applyConfig(const std::string& ubusArgs) {
    const std::string command = "ubus call uci " + ubusArgs + "; uci commit " + configField;
    detail::out() << "Calling: " << command << std::endl;
    std::ignore = std::system(command.c_str()); // only the commands' messages show a failure
    return true;
}

bool NQ_UBUS::applyConfig() {
    if (hasEmptyValues())
        return applyConfig(quoted("delete", makeDeleteSectionConfig()));
    if (getSystemCfg().empty()) {
        // Deliberate: the spelling "does't" is part of the printed text.
        detail::out() << configField << '/' << sectionField << " does't exist yet, create it!"
                      << std::endl;
        applyConfig(quoted("add", makeAddConfig()));
    }
    return applyConfig(quoted("set", jsonCfg));
}

bool NQ_UBUS::restartService() {
    std::string service = configField;
    // Deliberate: the first test reads the section, the second one the package.
    if (sectionField == "ntp")
        service = "sysntpd";
    else if (service == "dhcp")
        service = "dnsmasq";
    const std::string command = "/etc/init.d/" + service + " restart";
    detail::out() << "Calling: " << command << std::endl;
    detail::out() << "Restarting: " << service << "..." << std::endl;
    std::ignore = std::system(command.c_str()); // only the service's messages show a failure
    detail::out() << "Service " << service << " restarted" << std::endl;
    return true;
}

} // namespace kvr::api::mng
