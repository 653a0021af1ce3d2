#include "methods/UciSection.h"

#include <kvr/api/file/NQ_Files.h>
#include <kvr/api/mng/NQ_UBUS.h>

#include "rpc/Rpc.h"
#include "rpc/Text.h"

namespace agent {
namespace {

/// Enough for any package, and within the range of an int.
constexpr std::size_t kMaxIndexDigits = 6;

/// TYPE of "@TYPE[INDEX]"; empty when `section` has another form.
std::string typeOfPosition(const std::string& section) {
    const std::size_t bracket = section.find('[');
    if (section.empty() || section[0] != '@' || bracket == std::string::npos ||
        section.back() != ']')
        return "";
    const std::string type = section.substr(1, bracket - 1);
    std::string index = section.substr(bracket + 1, section.size() - bracket - 2);
    if (!index.empty() && index[0] == '-') // counts from the end
        index.erase(0, 1);
    const bool isNumber = !index.empty() && index.size() <= kMaxIndexDigits &&
                          index.find_first_not_of("0123456789") == std::string::npos;
    return isName(type, "-") && isNumber ? type : "";
}

/// The member "values" of what the get command prints; null when it prints nothing.
Json valuesOf(const std::string& output) {
    if (output.empty())
        return nullptr;
    const ParsedJson parsed = parseJson(output);
    json_object* values = nullptr;
    json_object_object_get_ex(parsed.value.get(), "values", &values);
    if (!isType(values, json_type_object))
        throw RpcError(ErrorCode::Failed,
                       "the configuration cannot be read: " +
                           safeLine(output.substr(0, output.find_last_not_of('\n') + 1)));
    return share(values);
}

/// Only the options, without ".type" and the like.
Json optionsOf(const Json& values) {
    Json options = newObject();
    json_object_object_foreach(values.get(), name, value) {
        if (name[0] != '.')
            put(options, name, share(value));
    }
    return options;
}

bool isEmptyText(json_object* value) {
    return isType(value, json_type_string) && json_object_get_string_len(value) == 0;
}

} // namespace

UciName::UciName(const Params& params)
    : config_(params.name("config", "-")), section_(params.text("section")),
      positionType_(typeOfPosition(section_)) {
    if (!isPosition() && !isName(section_, ""))
        refuseParam("\"section\" must be letters, digits and _, or @TYPE[INDEX]");
}

UciSection readSection(const UciName& name) {
    Json meant = newObject();
    put(meant, "config", newText(name.config()));
    put(meant, "section", newText(name.section()));
    kvr::api::mng::NQ_UBUS ubus;
    ubus.init(oneLine(meant.get()));

    UciSection section;
    const Json values = valuesOf(ubus.getSystemCfg());
    if (values == nullptr)
        return section;
    const Params members(values.get());
    section.exists = true;
    section.anonymous = members.flagOr(".anonymous", false);
    section.name = members.textOr(".name", "");
    section.type = members.textOr(".type", "");
    section.options = optionsOf(values);
    return section;
}

std::size_t countSections(const std::string& config, const std::string& type) {
    Json filter = newObject();
    put(filter, "config", newText(config));
    put(filter, "type", newText(type));
    const Json sections = valuesOf(
        kvr::api::file::NQ_Popen::execute("ubus", {"call", "uci", "get", oneLine(filter.get())}));
    return sections == nullptr
               ? 0
               : static_cast<std::size_t>(json_object_object_length(sections.get()));
}

std::vector<std::string> optionsThatDiffer(const Json& asked, const Json& present) {
    std::vector<std::string> names;
    json_object_object_foreach(asked.get(), option, value) {
        json_object* now = nullptr;
        const bool exists = json_object_object_get_ex(present.get(), option, &now) != 0;
        const bool same = isEmptyText(value) ? !exists : exists && oneLine(now) == oneLine(value);
        if (!same)
            names.emplace_back(option);
    }
    return names;
}

} // namespace agent
