#include "uci_object.h"

#include "reply_text.h"

#include <json-c/json.h>

#include <cstdint>
#include <exception>
#include <optional>

namespace uci {

namespace {

/// How a method ends when it cannot do what it was asked.
struct Refusal {
    Status status;
};

// The daemon's argument tables name a type for each member and drop members of another one, so
// these count as missing. A text ends at its first NUL on the bus.
json_object* member(json_object* arguments, const char* key, json_type type) {
    json_object* found = nullptr;
    json_object_object_get_ex(arguments, key, &found);
    return found && json_object_is_type(found, type) ? found : nullptr;
}

std::optional<std::string> text(json_object* arguments, const char* key) {
    json_object* found = member(arguments, key, json_type_string);
    if (!found)
        return std::nullopt;
    return json_object_get_string(found);
}

std::string needText(json_object* arguments, const char* key) {
    const std::optional<std::string> found = text(arguments, key);
    if (!found)
        throw Refusal{Status::InvalidArgument};
    return *found;
}

/// The package an operation is about; it exists.
std::string needPackage(const Store& store, json_object* arguments) {
    const std::string package = needText(arguments, "config");
    if (!isPackageName(package))
        throw Refusal{Status::InvalidArgument};
    if (!store.has(package))
        throw Refusal{Status::NotFound};
    return package;
}

Section& needSection(Package& package, const std::string& name) {
    Section* section = package.find(name);
    if (!section)
        throw Refusal{Status::NotFound};
    return *section;
}

void describe(const Section& section, std::optional<long> index, ReplyText& reply) {
    reply.addBoolean(".anonymous", section.anonymous);
    reply.add(".type", section.type);
    reply.add(".name", section.name);
    if (index)
        reply.addNumber(".index", *index);
    for (const Option& option : section.options) {
        if (option.isList)
            reply.add(option.name, option.values);
        else
            reply.add(option.name, option.values.front());
    }
}

std::string get(const Store& store, json_object* arguments) {
    Package package = store.load(needPackage(store, arguments));
    const std::optional<std::string> name = text(arguments, "section");
    const std::optional<std::string> optionName = text(arguments, "option");
    ReplyText reply;
    reply.open();
    if (!name) {
        reply.open("values");
        long index = 0;
        for (const Section& section : package.sections) {
            reply.open(section.name);
            describe(section, index++, reply);
            reply.close();
        }
        reply.close();
    } else {
        Section* section = package.find(*name);
        if (!section)
            return ""; // the daemon answers nothing at all, successfully
        if (optionName) {
            const Option* option = section->find(*optionName);
            if (!option)
                return "";
            if (option->isList)
                reply.add("value", option->values);
            else
                reply.add("value", option->values.front());
        } else {
            reply.open("values");
            describe(*section, std::nullopt, reply);
            reply.close();
        }
    }
    reply.close();
    return reply.text() + "\n";
}

/// The text that an option stores for a JSON value.
std::string scalar(json_object* value) {
    switch (json_object_get_type(value)) {
    case json_type_string:
        return json_object_get_string(value);
    case json_type_int:
        return std::to_string(static_cast<std::int64_t>(json_object_get_int64(value)));
    case json_type_boolean:
        return json_object_get_boolean(value) ? "1" : "0";
    default:
        throw Refusal{Status::InvalidArgument};
    }
}

std::vector<json_object*> elementsOf(json_object* array) {
    // An int in the older json-c, a size_t in the newer one.
    using Index = decltype(json_object_array_length(array));
    std::vector<json_object*> elements;
    for (Index i = 0; i < json_object_array_length(array); ++i)
        elements.push_back(json_object_array_get_idx(array, i));
    return elements;
}

/// The changes that give `section` the values. None of them is stored when one value is refused.
std::vector<Change> changesFor(Section& section, json_object* values) {
    std::vector<Change> changes;
    json_object_object_foreach(values, key, value) {
        if (!isName(key))
            throw Refusal{Status::InvalidArgument};
        const Option* existing = section.find(key);
        if (json_object_is_type(value, json_type_array)) {
            // Always stored anew, at the end, as the daemon does even for an equal list.
            const std::vector<json_object*> elements = elementsOf(value);
            if (elements.empty())
                throw Refusal{Status::InvalidArgument};
            if (existing)
                changes.push_back({Change::DeleteOption, section.name, key, ""});
            for (json_object* element : elements)
                changes.push_back({Change::AddListElement, section.name, key, scalar(element)});
            continue;
        }
        const std::string wanted = scalar(value);
        if (wanted.empty()) {
            if (existing)
                changes.push_back({Change::DeleteOption, section.name, key, ""});
        } else if (!existing || existing->isList || existing->values.front() != wanted) {
            changes.push_back({Change::SetOption, section.name, key, wanted});
        }
    }
    return changes;
}

std::string add(const Store& store, json_object* arguments) {
    const std::string type = needText(arguments, "type");
    const std::optional<std::string> wantedName = text(arguments, "name");
    if (!isTypeName(type) || (wantedName && !isName(*wantedName)))
        throw Refusal{Status::InvalidArgument};
    const std::string packageName = needPackage(store, arguments);

    Package package = store.load(packageName);
    const std::string name = wantedName ? *wantedName : package.nextName(type);
    std::vector<Change> changes;
    const Section* existing = package.find(name);
    if (!existing || existing->type != type)
        changes.push_back({wantedName ? Change::NameSection : Change::AddSection, name, "", type});
    if (json_object* values = member(arguments, "values", json_type_object)) {
        for (const Change& change : changes)
            apply(change, package);
        const std::vector<Change> further = changesFor(*package.find(name), values);
        changes.insert(changes.end(), further.begin(), further.end());
    }
    store.addPending(packageName, changes);

    ReplyText reply;
    reply.open();
    reply.add("section", name);
    reply.close();
    return reply.text() + "\n";
}

std::string set(const Store& store, json_object* arguments) {
    const std::string sectionName = needText(arguments, "section");
    json_object* values = member(arguments, "values", json_type_object);
    if (!values)
        throw Refusal{Status::InvalidArgument};
    const std::string packageName = needPackage(store, arguments);

    Package package = store.load(packageName);
    Section& section = needSection(package, sectionName);
    if (json_object_object_length(values) == 0)
        throw Refusal{Status::NotFound};
    store.addPending(packageName, changesFor(section, values));
    return "";
}

/// Names of the options a delete is about; none for the whole section.
std::optional<std::vector<std::string>> optionsToDelete(json_object* arguments) {
    std::vector<std::string> names;
    if (json_object* array = member(arguments, "options", json_type_array)) {
        for (json_object* element : elementsOf(array))
            if (json_object_is_type(element, json_type_string))
                names.push_back(json_object_get_string(element));
        return names;
    }
    if (const std::optional<std::string> single = text(arguments, "option"))
        return std::vector<std::string>{*single};
    return std::nullopt;
}

std::string remove(const Store& store, json_object* arguments) {
    const std::string sectionName = needText(arguments, "section");
    const std::string packageName = needPackage(store, arguments);

    Package package = store.load(packageName);
    Section& section = needSection(package, sectionName);
    std::vector<Change> changes;
    if (const auto options = optionsToDelete(arguments)) {
        for (const std::string& option : *options)
            if (section.removeOption(option))
                changes.push_back({Change::DeleteOption, sectionName, option, ""});
        if (changes.empty())
            throw Refusal{Status::NotFound};
    } else {
        changes.push_back({Change::DeleteSection, sectionName, "", ""});
    }
    store.addPending(packageName, changes);
    return "";
}

} // namespace

Outcome call(const Store& store, const std::string& method, json_object* arguments) {
    try {
        const Store::Lock lock(store);
        if (method == "get")
            return {Status::Ok, get(store, arguments)};
        if (method == "add")
            return {Status::Ok, add(store, arguments)};
        if (method == "set")
            return {Status::Ok, set(store, arguments)};
        if (method == "delete")
            return {Status::Ok, remove(store, arguments)};
        return {Status::MethodNotFound, ""};
    } catch (const Refusal& refusal) {
        return {refusal.status, ""};
    } catch (const std::exception&) { // a broken or unreadable file
        return {Status::UnknownError, ""};
    }
}

} // namespace uci
