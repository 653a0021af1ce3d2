#include "methods/UciApply.h"

#include "rpc/Rpc.h"
#include "rpc/Text.h"

#include <kvr/api/mng/NQ_UBUS.h>

namespace agent {
namespace {

using kvr::api::mng::NQ_UBUS;

/// The text becomes one argument of a shell command, for which Linux allows 128 KiB.
constexpr std::size_t kLongestSection = 64 * 1024;

bool isTextList(json_object* value) {
    if (!isType(value, json_type_array) || json_object_array_length(value) == 0)
        return false;
    const auto count = json_object_array_length(value);
    for (std::decay_t<decltype(count)> i = 0; i < count; ++i)
        if (!isType(json_object_array_get_idx(value, i), json_type_string))
            return false;
    return true;
}

void checkValues(json_object* values) {
    json_object_object_foreach(values, option, value) {
        if (!isName(option, ""))
            refuseParam("an option's name may hold only letters, digits and _");
        if (!isType(value, json_type_string) && !isTextList(value))
            refuseParam("option \"" + safeLine(option, 60) +
                        "\" must be a string or an array of strings that is not empty");
    }
}

/// The text for NQ_UBUS, made of the checked parts alone.
std::string sectionText(const Params& params) {
    // Looked for in the text written anew, in which an escaped quote (\u0027) shows as what it is.
    if (oneLine(params.whole()).find('\'') != std::string::npos)
        refuseParam("single quotes are not accepted");

    Json section = newObject();
    put(section, "config", newText(params.name("config", "-")));
    put(section, "section", newText(params.name("section", "-")));
    if (params.has("type"))
        put(section, "type", newText(params.name("type", "-")));
    json_object* values = params.object("values");
    checkValues(values);
    put(section, "values", share(values));

    const std::string text = oneLine(section.get());
    if (text.size() > kLongestSection)
        refuseParam("the section is longer than " + std::to_string(kLongestSection) + " bytes");
    return text;
}

[[noreturn]] void fail(const std::string& why) { throw RpcError(ErrorCode::failed, why); }

/// The section as it is now; null when it does not exist. Raises RpcError with the tool's own
/// message when it cannot be read: NQ_UBUS would take that message for a section and go on.
Json currentSection(const NQ_UBUS& ubus) {
    const std::string text = ubus.getSystemCfg();
    if (text.empty())
        return nullptr;
    ParsedJson parsed = parseJson(text);
    json_object* values = nullptr;
    json_object_object_get_ex(parsed.value.get(), "values", &values);
    if (!isType(values, json_type_object))
        fail("the configuration cannot be read: " +
             safeLine(text.substr(0, text.find_last_not_of('\n') + 1)));
    return share(values);
}

/// The options that are not as asked for, by name; an option asked to be "" must be gone.
std::string optionsNotTaken(json_object* asked, const Json& present) {
    std::string names;
    json_object_object_foreach(asked, option, value) {
        json_object* now = nullptr;
        const bool exists = json_object_object_get_ex(present.get(), option, &now) != 0;
        const bool toBeGone =
            isType(value, json_type_string) && json_object_get_string_len(value) == 0;
        const bool taken = toBeGone ? !exists : exists && oneLine(now) == oneLine(value);
        if (!taken)
            names += std::string(names.empty() ? "" : ", ") + option;
    }
    return names;
}

/// The commands' statuses are lost in the library, so their effect is looked at instead.
void verify(const NQ_UBUS& ubus, json_object* asked, const Json& present) {
    const std::string name = ubus.getConfigField() + "/" + ubus.getSectionField();
    if (ubus.hasEmptyValues()) {
        if (present != nullptr)
            fail(name + " could not be deleted");
        return;
    }
    if (present == nullptr)
        fail(name + " does not exist and could not be created");
    const std::string names = optionsNotTaken(asked, present);
    if (!names.empty())
        fail(name + " did not take over: " + safeLine(names));
}

/// The options alone, without ".type" and the like, which the service adds.
Json optionsOf(const Json& present) {
    Json options = newObject();
    json_object_object_foreach(present.get(), name, value) {
        if (name[0] != '.')
            put(options, name, share(value));
    }
    return options;
}

} // namespace

UciApply::UciApply()
    : Method("uci.apply", "changes, creates or deletes (\"values\": {}) a section of the "
                          "configuration: config, section, type, values, restart") {}

Json UciApply::run(const Params& params) {
    params.allowOnly({"config", "section", "type", "values", "restart"});
    const bool restart = params.flagOr("restart", false);
    NQ_UBUS ubus;
    ubus.init(sectionText(params));

    const bool existed = currentSection(ubus) != nullptr;
    if (!ubus.checkConfig())
        throw RpcError(ErrorCode::internalError, "the section was not accepted");
    ubus.applyConfig();
    const Json present = currentSection(ubus);
    verify(ubus, params.object("values"), present);
    if (restart)
        ubus.restartService();

    Json result = newObject();
    put(result, "config", newText(ubus.getConfigField()));
    put(result, "section", newText(ubus.getSectionField()));
    put(result, "existed", newBool(existed));
    put(result, "exists", newBool(present != nullptr));
    if (present != nullptr)
        put(result, "values", optionsOf(present));
    put(result, "restarted", newBool(restart));
    return result;
}

} // namespace agent
