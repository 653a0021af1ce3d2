#include "uci_object.h"

#include "bus_arguments.h"
#include "reply_text.h"
#include "uci_edit.h"
#include "uci_error.h"
#include "uci_words.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <optional>

namespace uci {

namespace {

using Type = std::optional<std::string>;

/// Ends a method that cannot do what was requested.
struct Refusal {
    Status status;
};

void refuse(Status status) {
    if (status != Status::Ok)
        throw Refusal{status};
}

std::string requireText(json_object* arguments, const char* key) {
    const std::optional<std::string> found = bus::text(arguments, key);
    if (!found)
        throw Refusal{Status::InvalidArgument};
    return *found;
}

// There are no sessions here, so every one is unknown.
void refuseSession(json_object* arguments) {
    if (bus::text(arguments, "ubus_rpc_session"))
        throw Refusal{Status::PermissionDenied};
}

/// A section's name, or "@type[index]".
bool isSectionText(const std::string& text) {
    if (text.empty() || text.front() != '@')
        return isName(text);
    const std::size_t open = text.find('[');
    if (open == std::string::npos)
        return false;
    std::string type = text.substr(1, open - 1);
    std::replace(type.begin(), type.end(), '-', '_');
    char* end = nullptr;
    const char* const number = text.c_str() + open + 1;
    std::strtol(number, &end, 10);
    return (type.empty() || isName(type)) && end != number && std::string(end) == "]";
}

bool isDaemonsTypeName(std::string type) {
    std::replace(type.begin(), type.end(), '-', '_');
    return isName(type);
}

Section* findSection(Package& package, const std::string& text) {
    if (text.empty() || text.front() != '@')
        return package.find(text);
    try {
        return findByIndex(package, text);
    } catch (const Error&) {
        return nullptr;
    }
}

void addOption(ReplyText& reply, const std::string& key, const Option& option) {
    if (option.isList)
        reply.add(key, option.values);
    else
        reply.add(key, option.values.front());
}

void addSection(ReplyText& reply, const std::string& key, const Section& section,
                std::optional<long> index) {
    reply.openObject(key);
    reply.addBoolean(".anonymous", section.anonymous);
    reply.add(".type", section.type);
    reply.add(".name", section.name);
    if (index)
        reply.addNumber(".index", *index);
    for (const Option& option : section.options)
        addOption(reply, option.name, option);
    reply.close();
}

void addChanges(ReplyText& reply, const std::string& key, const std::vector<Change>& changes) {
    // In the order of Change::Kind.
    static constexpr const char* kNames[] = {"set",      "add",    "remove", "list-add",
                                             "list-del", "rename", "order"};
    reply.openArray(key);
    for (const Change& change : changes) {
        reply.openArray("");
        reply.add("", kNames[static_cast<std::size_t>(change.kind)]);
        reply.add("", change.section);
        if (change.option)
            reply.add("", *change.option);
        if (change.value && change.kind == Change::Kind::Reorder)
            reply.addNumber("", std::atol(change.value->c_str()));
        else if (change.value)
            reply.add("", *change.value);
        reply.close();
    }
    reply.close();
}

/// One call. Each method returns whether it has a reply.
class Call {
public:
    Call(const Store& store, json_object* arguments, ReplyText& reply)
        : store_(store), arguments_(arguments), reply_(reply) {}

    bool configs() {
        reply_.add("configs", store_.packages());
        return true;
    }

    bool get() {
        const std::string config = requireText(arguments_, "config");
        refuseSession(arguments_);
        Package package = store_.load(config).package;
        const std::optional<std::string> name = bus::text(arguments_, "section");
        if (!name) {
            describe(package);
            return true;
        }
        // A missing section or option is no error: the daemon's reply is empty then.
        Section* const section = findSection(package, *name);
        if (section == nullptr)
            return false;
        if (const std::optional<std::string> option = bus::text(arguments_, "option")) {
            const Option* const found = section->find(*option);
            if (found != nullptr)
                addOption(reply_, "value", *found);
            return found != nullptr;
        }
        addSection(reply_, "values", *section, std::nullopt);
        return true;
    }

    bool add() {
        const std::string config = requireText(arguments_, "config");
        const std::string type = requireText(arguments_, "type");
        refuseSession(arguments_);
        const std::optional<std::string> name = bus::text(arguments_, "name");
        if (!isDaemonsTypeName(type) || (name && !isName(*name)))
            throw Refusal{Status::InvalidArgument};

        Edit edit{store_.load(config).package, {}};
        if (name)
            edit.record(uci::set(edit.package, resolve(edit.package, *name, std::nullopt), type));
        else
            edit.record(uci::addSection(edit.package, type));
        const std::string section = name ? *name : edit.changes.back().section;
        if (json_object* const values = bus::table(arguments_, "values"))
            for (const auto& [option, value] : bus::members(values))
                refuse(addValue(edit, edit.package.find(section), option, value));
        store_.addPending(config, edit.changes);
        reply_.add("section", section);
        return true;
    }

    bool set() {
        const std::string config = requireText(arguments_, "config");
        json_object* const values = bus::table(arguments_, "values");
        const std::optional<std::string> name = requireFilter();
        if (values == nullptr)
            throw Refusal{Status::InvalidArgument};
        refuseSession(arguments_);
        if (name && !isSectionText(*name))
            throw Refusal{Status::InvalidArgument};

        Edit edit{store_.load(config).package, {}};
        Status last = Status::Ok;
        bool any = false;
        const auto setAll = [&](Section* section) {
            for (const auto& [option, value] : bus::members(values)) {
                any = true;
                const Status status = setValue(edit, section, option, value);
                if (status != Status::Ok)
                    last = status;
            }
        };
        if (name) {
            setAll(findSection(edit.package, *name));
        } else {
            for (const Section& section : edit.package.sections)
                if (matches(section, type(), match()))
                    setAll(edit.package.find(section.name));
        }
        refuse(last);
        refuse(any ? Status::Ok : Status::NotFound);
        store_.addPending(config, edit.changes);
        return false;
    }

    bool remove() {
        const std::string config = requireText(arguments_, "config");
        const std::optional<std::string> name = requireFilter();
        refuseSession(arguments_);
        if ((type() && !isDaemonsTypeName(*type())) || (name && !isSectionText(*name)))
            throw Refusal{Status::InvalidArgument};

        Edit edit{store_.load(config).package, {}};
        const auto options = optionsToDelete();
        if (name) {
            refuse(removeOptions(edit, findSection(edit.package, *name), options));
        } else {
            refuse(removeFitting(edit, options));
        }
        store_.addPending(config, edit.changes);
        return false;
    }

    bool rename() {
        const std::string config = requireText(arguments_, "config");
        const std::string section = requireText(arguments_, "section");
        const std::string name = requireText(arguments_, "name");
        refuseSession(arguments_);
        if (!isName(name))
            throw Refusal{Status::InvalidArgument};
        Package package = store_.load(config).package;
        const Target target{package.find(section), section, bus::text(arguments_, "option")};
        store_.addPending(config, {uci::rename(target, name)});
        return false;
    }

    bool changes() {
        const std::optional<std::string> config = bus::text(arguments_, "config");
        if (config) {
            refuseSession(arguments_);
            addChanges(reply_, "changes", store_.load(*config).pending);
            return true;
        }
        reply_.openObject("changes");
        if (!bus::text(arguments_, "ubus_rpc_session"))
            for (const std::string& package : store_.packages())
                addChangesOf(package);
        return true;
    }

    bool commit() {
        const std::string config = requireText(arguments_, "config");
        refuseSession(arguments_);
        store_.commit(config);
        return false;
    }

    bool revert() {
        const std::string config = requireText(arguments_, "config");
        refuseSession(arguments_);
        store_.load(config); // throws when it is missing or cannot be read
        store_.revert(config, std::nullopt, std::nullopt);
        return false;
    }

private:
    Type type() const { return bus::text(arguments_, "type"); }
    json_object* match() const { return bus::table(arguments_, "match"); }

    /// The argument "section". Without it, "type" or "match" must select the sections.
    std::optional<std::string> requireFilter() const {
        std::optional<std::string> section = bus::text(arguments_, "section");
        if (!section && !type() && match() == nullptr)
            throw Refusal{Status::InvalidArgument};
        return section;
    }

    void describe(const Package& package) {
        reply_.openObject("values");
        long index = 0;
        for (const Section& section : package.sections) {
            if (matches(section, type(), match()))
                addSection(reply_, section.name, section, index);
            ++index;
        }
    }

    void addChangesOf(const std::string& package) {
        try {
            const std::vector<Change> pending = store_.load(package).pending;
            if (!pending.empty())
                addChanges(reply_, package, pending);
        } catch (const Error&) { // the other packages are listed all the same
        }
    }

    /// The options to delete; none for the whole section.
    std::optional<std::vector<std::string>> optionsToDelete() const {
        if (json_object* const array = bus::array(arguments_, "options")) {
            std::vector<std::string> names;
            for (json_object* element : bus::elements(array))
                if (json_object_is_type(element, json_type_string))
                    names.emplace_back(json_object_get_string(element));
            return names;
        }
        if (const std::optional<std::string> single = bus::text(arguments_, "option"))
            return std::vector<std::string>{*single};
        return std::nullopt;
    }

    Status removeFitting(Edit& edit, const std::optional<std::vector<std::string>>& options) const {
        Status last = Status::Ok;
        bool any = false;
        std::size_t i = 0;
        while (i < edit.package.sections.size()) {
            const std::size_t before = edit.package.sections.size();
            const Section& section = edit.package.sections[i];
            if (matches(section, type(), match())) {
                any = true;
                const Status status = removeOptions(edit, edit.package.find(section.name), options);
                if (status != Status::Ok)
                    last = status;
            }
            if (edit.package.sections.size() == before)
                ++i;
        }
        return any ? last : Status::NotFound;
    }

    const Store& store_;
    json_object* arguments_;
    ReplyText& reply_;
};

struct Method {
    const char* name;
    bool (Call::*run)();
};
constexpr Method kMethods[] = {
    {"get", &Call::get},       {"add", &Call::add},         {"set", &Call::set},
    {"delete", &Call::remove}, {"configs", &Call::configs}, {"changes", &Call::changes},
    {"commit", &Call::commit}, {"revert", &Call::revert},   {"rename", &Call::rename}};

Status statusOf(const Error& error) {
    switch (error.kind()) {
    case Error::Kind::InvalidArgument:
        return Status::InvalidArgument;
    case Error::Kind::NotFound:
        return Status::NotFound;
    case Error::Kind::Io:
    case Error::Kind::Parse:
        break;
    }
    return Status::UnknownError;
}

} // namespace

Outcome call(const Store& store, const std::string& method, json_object* arguments,
             bool inOneLine) {
    const auto* const found = std::find_if(std::begin(kMethods), std::end(kMethods),
                                           [&](const Method& each) { return each.name == method; });
    if (found == std::end(kMethods))
        return {Status::MethodNotFound, ""};
    try {
        const Store::Lock lock(store);
        ReplyText reply(inOneLine);
        Call call(store, arguments, reply);
        return {Status::Ok, (call.*found->run)() ? reply.finish() : ""};
    } catch (const Refusal& refusal) {
        return {refusal.status, ""};
    } catch (const Error& error) {
        return {statusOf(error), ""};
    }
}

} // namespace uci
