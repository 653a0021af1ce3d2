#include "methods/UciApply.h"

#include <kvr/api/mng/NQ_UBUS.h>

#include "methods/UciSection.h"
#include "rpc/Rpc.h"
#include "rpc/Text.h"

namespace agent {
namespace {

using kvr::api::mng::NQ_UBUS;

/// The text becomes one argument of a shell command, for which Linux allows 128 KiB.
constexpr std::size_t kLongestSection = 64 * 1024;

[[noreturn]] void fail(const std::string& why) { throw RpcError(ErrorCode::Failed, why); }

bool isTextList(json_object* value) {
    if (!isType(value, json_type_array) || json_object_array_length(value) == 0)
        return false;
    const auto count = json_object_array_length(value);
    for (std::decay_t<decltype(count)> i = 0; i < count; ++i)
        if (!isType(json_object_array_get_idx(value, i), json_type_string))
            return false;
    return true;
}

void checkOptions(json_object* options) {
    json_object_object_foreach(options, option, value) {
        if (!isName(option, ""))
            refuseParam("an option's name may contain only letters, digits and _");
        if (!isType(value, json_type_string) && !isTextList(value))
            refuseParam("option \"" + safeLine(option, 60) +
                        "\" must be a string or a non-empty array of strings");
    }
}

/// Checks the text that is written for the library, in which an escaped quote (\u0027) is a quote.
void refuseQuotes(const Params& params) {
    Json given = newObject();
    for (const char* name : {"config", "section", "type", "values"})
        put(given, name, share(params.get(name)));
    if (oneLine(given.get()).find('\'') != std::string::npos)
        refuseParam("single quotes are not accepted");
}

/// A checked request.
struct Change {
    explicit Change(const Params& params);

    bool deletes() const { return json_object_object_length(values.get()) == 0; }
    /// The text for NQ_UBUS, made only of the checked parts.
    std::string sectionText() const;

    UciName name;
    std::string type; ///< empty when not given
    Json values;
    Json expect; ///< null when not given
    bool restart;
};

Change::Change(const Params& params)
    : name(params), type(params.has("type") ? params.name("type", "-") : std::string()),
      values(share(params.object("values"))),
      expect(params.has("expect") ? share(params.object("expect")) : nullptr),
      restart(params.flagOr("restart", false)) {
    checkOptions(values.get());
    if (expect != nullptr)
        checkOptions(expect.get());
    if (deletes() && name.isPosition() && expect == nullptr)
        refuseParam("deleting \"" + name.section() +
                    "\" needs \"expect\" with the section's options: another section may have "
                    "moved to this position");
}

std::string Change::sectionText() const {
    Json section = newObject();
    put(section, "config", newText(name.config()));
    put(section, "section", newText(name.section()));
    if (!type.empty())
        put(section, "type", newText(type));
    put(section, "values", share(values.get()));
    std::string text = oneLine(section.get());
    if (text.size() > kLongestSection)
        refuseParam("the section is longer than " + std::to_string(kLongestSection) + " bytes");
    return text;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ", ") + name;
    return safeLine(text);
}

/// Refuses a change that the section, as it is now, does not allow.
void checkPresent(const Change& change, const UciSection& present) {
    if (change.deletes() && present.anonymous && !change.name.isPosition())
        refuseParam("section \"" + change.name.section() +
                    "\" is anonymous, and the next one inherits its name: delete it as \"@" +
                    safeLine(present.type, 60) + "[INDEX]\", with \"expect\"");
    if (!present.exists && (change.name.isPosition() || change.expect != nullptr))
        fail(change.name.text() + " does not exist");
    if (change.expect == nullptr)
        return;
    std::vector<std::string> names = optionsThatDiffer(change.expect, present.options);
    json_object_object_foreach(present.options.get(), option, value) {
        (void)value;
        if (!Params(change.expect.get()).has(option))
            names.emplace_back(option);
    }
    if (!names.empty())
        fail(change.name.text() + " is not as expected: " + joined(names));
}

/// Returns how many sections have the type of the section to be deleted. Returns 0 for any other
/// change.
std::size_t candidates(const Change& change) {
    return change.deletes() && change.name.isPosition()
               ? countSections(change.name.config(), change.name.positionType())
               : 0;
}

/// The library does not return the commands' statuses, so their effect is checked instead.
void verifyDeleted(const Change& change, std::size_t candidatesBefore) {
    const bool deleted = change.name.isPosition() ? candidates(change) < candidatesBefore
                                                  : !readSection(change.name).exists;
    if (!deleted)
        fail(change.name.text() + " could not be deleted");
}

void verifySet(const Change& change, const UciSection& now) {
    if (!now.exists)
        fail(change.name.text() + " does not exist and could not be created");
    const std::vector<std::string> names = optionsThatDiffer(change.values, now.options);
    if (!names.empty())
        fail(change.name.text() + " differs from the request: " + joined(names));
}

} // namespace

UciApply::UciApply()
    : Method("uci.apply", "changes, creates or deletes (\"values\": {}) a section of the "
                          "configuration: config, section, type, values, expect, restart") {}

Json UciApply::run(const Params& params) {
    params.allowOnly({"config", "section", "type", "values", "expect", "restart"});
    refuseQuotes(params);
    const Change change(params);
    NQ_UBUS ubus;
    ubus.init(change.sectionText());

    const std::size_t candidatesBefore = candidates(change);
    const UciSection before = readSection(change.name);
    checkPresent(change, before);
    if (!ubus.checkConfig())
        throw RpcError(ErrorCode::InternalError, "the section was not accepted");
    ubus.applyConfig();
    UciSection now;
    if (change.deletes()) {
        verifyDeleted(change, candidatesBefore);
    } else {
        now = readSection(change.name);
        verifySet(change, now);
    }
    if (change.restart)
        ubus.restartService();

    Json result = newObject();
    put(result, "config", newText(change.name.config()));
    put(result, "section", newText(change.name.section()));
    put(result, "existed", newBool(before.exists));
    put(result, "exists", newBool(now.exists));
    if (now.exists)
        put(result, "values", share(now.options.get()));
    put(result, "restarted", newBool(change.restart));
    return result;
}

} // namespace agent
