#ifndef KVR_API_MNG_NQ_UBUS_H
#define KVR_API_MNG_NQ_UBUS_H

#include <kvr/api/data/NQ_JSON.h>
#include <kvr/api/export.h>

#include <string>
#include <vector>

namespace kvr {
namespace api {
namespace mng {

/// Applies one section of the gateway's UCI configuration, through the `ubus` and `uci` tools.
///
/// Order:   init(), checkConfig(), applyConfig(), restartService().
/// Input:   a JSON object such as
///          {"config":"network","section":"lan","type":"interface","values":{"ipaddr":"192.168.1.1","gateway":""}}
///          with the package, the section, its type (for creating it) and the options. An option
///          whose value is "" is deleted; "values":{} deletes the whole section.
/// Failure: only checkConfig() tells a text that does not parse. The statuses of commands are
///          ignored. Progress is printed on standard output. A "config", "section", "type" or
///          "values" member that is null raises std::logic_error in init(), and a null option in
///          checkConfig().
/// Threads: one at a time; commands run synchronously. fork() failing ends the process (see
///          popen2() in NQ_Files.h).
///
/// Trap:    the texts are put between single quotes into shell command lines and nothing is
///          escaped, deliberately: a single quote in them breaks the line, and text from outside
///          can run any command. Check such text before it comes here.
class TAVO_API NQ_UBUS {
public:
    /// Stores and parses `cfg`, and takes the four fields from it, in the order config, section,
    /// type, values. They keep their earlier values when it is empty or does not parse ("Unable to
    /// parse json" is printed then); getJsonCfg() gives the new text nevertheless.
    void init(const std::string& cfg);

    /// The text last given to init().
    std::string getJsonCfg() const;
    /// The package, from "config".
    std::string getConfigField() const;
    /// The section's name, from "section".
    std::string getSectionField() const;
    /// The options as JSON text in json-c's spaced form, from "values".
    std::string getValuesField() const;

    /// True when "values" is an empty object: its text equals "{ }".
    bool hasEmptyValues() const;

    /// What `ubus call uci get` prints for the section, errors included; empty when a known package
    /// has no such section.
    std::string getSystemCfg() const;

    /// Prints the four fields and every option that has a value, and deletes the options whose
    /// value is empty (one command, and a commit). Without "values" the line "Unable to parse json"
    /// follows the four, and nothing is deleted. False, after the line "Configuration NOT VALID",
    /// when the text of init() is empty or did not parse.
    bool checkConfig();

    /// JSON argument of the add verb, without the verb and without quotes.
    std::string makeAddConfig();

    /// JSON argument of the delete verb for the whole section, without the verb and without quotes.
    std::string makeDeleteSectionConfig();

    /// Verb and quoted JSON argument for deleting the options that checkConfig() found empty.
    /// Deliberate: complete, unlike the two operations above.
    std::string makeDeleteConfig();

    /// Prints and runs "ubus call uci " + `ubusArgs` and a commit of the package, through the
    /// shell. Always true.
    bool applyConfig(const std::string& ubusArgs);

    /// Deletes the section when hasEmptyValues(); otherwise creates it when getSystemCfg() is
    /// empty, and sets it to the text of init(), as it stands. Always true.
    bool applyConfig();

    /// Prints and runs "/etc/init.d/SERVICE restart". The service is sysntpd for a section called
    /// ntp, dnsmasq for the package dhcp, else the package's name. Always true.
    bool restartService();

private:
    // The order is part of the binary interface.
    std::string jsonCfg;
    std::string configField;
    std::string sectionField;
    std::string typeField;
    std::string valuesField;
    std::vector<std::string> emptyOptions;
    data::NQ_JSON json;
};

} // namespace mng
} // namespace api
} // namespace kvr

#endif
