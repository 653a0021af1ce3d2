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
/// Input:   a JSON object with the package, the section, its type (for creating it) and the
///          options. An option whose value is "" is deleted; "values":{} deletes the whole section.
///          Example:
/// @code
/// {"config":"network","section":"lan","type":"interface","values":{"mtu":"1500","gateway":""}}
/// @endcode
/// Output:  progress is printed on standard output, and so is what the tools print.
/// Failure: checkConfig() returns false for a text that does not parse. No other failure is
///          reported: the commands' statuses are ignored. A "config", "section", "type" or "values"
///          member that is null raises std::logic_error in init(), a null option in checkConfig().
///          A failing fork() ends the process (see popen2() in NQ_Files.h).
/// Threads: one at a time; commands run synchronously.
///
/// Traps:
/// - Deliberate: the class puts the texts between single quotes into shell command lines, and
///   escapes nothing. A single quote breaks the line, and text from outside can run any command.
///   Check such text before you pass it.
/// - True does not mean that anything changed: read the section back with getSystemCfg().
/// - With "type", and without "section" or with one that is not a text, all sections of the type
///   change. Without "config" all packages are committed.
/// - The tools are found along PATH.
///
/// docs/uci.md has the other traps of the real tools, with a remedy for each.
class TAVO_API NQ_UBUS {
public:
    /// Stores and parses `cfg`, and takes the four fields from it, in the order config, section,
    /// type, values. When `cfg` is empty or does not parse, "Unable to parse json" is printed and
    /// the fields keep their earlier values. getJsonCfg() returns the new text even then.
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

    /// What `ubus call uci get` prints for the section, error messages included; empty when the
    /// package exists and has no such section.
    std::string getSystemCfg() const;

    /// Prints the four fields and every option that has a value. Deletes the options whose value is
    /// empty, and commits that, so the deletion stays when applyConfig() fails. Without "values"
    /// the line "Unable to parse json" follows the four fields, and nothing is deleted. Returns
    /// false, after the line "Configuration NOT VALID", when the text of init() is empty or did not
    /// parse.
    bool checkConfig();

    /// JSON argument of the add verb, without the verb and without quotes.
    std::string makeAddConfig();

    /// JSON argument of the delete verb for the whole section, without the verb and without quotes.
    std::string makeDeleteSectionConfig();

    /// Verb and quoted JSON argument for deleting the options that checkConfig() found empty.
    /// Deliberate: complete, unlike the two operations above.
    std::string makeDeleteConfig();

    /// Prints and runs "ubus call uci " + `ubusArgs` and a commit of the package, through the
    /// shell. Always returns true.
    bool applyConfig(const std::string& ubusArgs);

    /// Deletes the section when hasEmptyValues(). Otherwise creates it when getSystemCfg() is
    /// empty, and passes the text of init() unchanged to the set verb. Each command is followed by
    /// a commit, which includes what others have left pending in the package. Always returns true.
    bool applyConfig();

    /// Prints and runs "/etc/init.d/SERVICE restart". The service is sysntpd for a section called
    /// ntp, dnsmasq for the package dhcp, else the package's name. Always returns true, also when
    /// there is no such script.
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
