#include "uci_edit.h"

#include "bus_arguments.h"
#include "uci_words.h"

#include <algorithm>

namespace uci {

namespace {

Target targetOf(Section& section, const std::string& option) {
    return {&section, section.name, option};
}

void removeOption(Edit& edit, Section& section, const std::string& option) {
    edit.record(remove(edit.package, targetOf(section, option)));
}

/// Whether an option contains a text, as an element of a list or as one of the words of a value.
bool containsValue(const Option& option, const std::string& text) {
    if (option.isList)
        return std::find(option.values.begin(), option.values.end(), text) != option.values.end();
    const std::string& value = option.values.front();
    std::size_t end = 0;
    for (std::size_t begin = value.find_first_not_of(" \t"); begin != std::string::npos;
         begin = value.find_first_not_of(" \t", end)) {
        end = std::min(value.find_first_of(" \t", begin), value.size());
        if (value.compare(begin, end - begin, text) == 0)
            return true;
    }
    return false;
}

} // namespace

void Edit::record(std::optional<Change> change) {
    if (change)
        changes.push_back(std::move(*change));
}

Status setValue(Edit& edit, Section* section, const std::string& option, json_object* value) {
    if (!isName(option))
        return Status::InvalidArgument;
    if (section == nullptr)
        return Status::NotFound;
    const Option* const existing = section->find(option);
    if (json_object_is_type(value, json_type_array)) {
        if (existing != nullptr)
            removeOption(edit, *section, option);
        Status status = Status::InvalidArgument;
        for (json_object* element : bus::elements(value)) {
            if (const std::optional<std::string> text = bus::scalar(element)) {
                edit.record(addToList(targetOf(*section, option), *text));
                status = Status::Ok;
            }
        }
        return status;
    }
    const std::optional<std::string> text = bus::scalar(value);
    if (!text)
        return Status::InvalidArgument;
    if (existing != nullptr && existing->isList)
        removeOption(edit, *section, option);
    edit.record(set(edit.package, targetOf(*section, option), *text));
    return Status::Ok;
}

Status addValue(Edit& edit, Section* section, const std::string& option, json_object* value) {
    if (!isName(option))
        return Status::InvalidArgument;
    if (section == nullptr)
        return Status::NotFound;
    const bool isList = json_object_is_type(value, json_type_array) != 0;
    Status status = Status::Ok;
    for (json_object* each : isList ? bus::elements(value) : std::vector<json_object*>{value}) {
        const std::optional<std::string> text = bus::scalar(each);
        if (!text)
            status = Status::InvalidArgument;
        else if (isList)
            edit.record(addToList(targetOf(*section, option), *text));
        else
            edit.record(set(edit.package, targetOf(*section, option), *text));
    }
    return status;
}

Status removeOptions(Edit& edit, Section* section,
                     const std::optional<std::vector<std::string>>& options) {
    if (section == nullptr)
        return Status::NotFound;
    if (!options) {
        edit.record(remove(edit.package, {section, section->name, std::nullopt}));
        return Status::Ok;
    }
    Status status = Status::NotFound;
    for (const std::string& option : *options) {
        if (section->find(option) != nullptr) {
            removeOption(edit, *section, option);
            status = Status::Ok;
        }
    }
    return status;
}

bool matches(const Section& section, const std::optional<std::string>& type, json_object* match) {
    if (type && section.type != *type)
        return false;
    if (match == nullptr)
        return true;
    bool hasCriteria = false;
    bool found = false;
    for (const auto& [name, value] : bus::members(match)) {
        const std::optional<std::string> text = bus::scalar(value);
        if (!text)
            continue;
        hasCriteria = true;
        // A missing option does not matter when another one matches.
        const Option* const option = section.find(name);
        if (option == nullptr)
            continue;
        if (!containsValue(*option, *text))
            return false;
        found = true;
    }
    return found || !hasCriteria;
}

} // namespace uci
