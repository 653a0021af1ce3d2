#include "uci_change.h"

#include "uci_error.h"
#include "uci_words.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace uci {

namespace {

struct Mark {
    char character;
    Change::Kind kind;
};
// What a pending change begins with; a plain Set begins with its path.
constexpr Mark kMarks[] = {{'+', Change::Kind::AddSection}, {'-', Change::Kind::Delete},
                           {'|', Change::Kind::AddToList},  {'~', Change::Kind::DeleteFromList},
                           {'@', Change::Kind::Rename},     {'^', Change::Kind::Reorder}};

Section& needSection(const Target& target) {
    if (target.section == nullptr)
        throw Error(Error::Kind::InvalidArgument);
    return *target.section;
}

void setType(Package& package, const Target& target, const std::string& type) {
    if (target.section == nullptr) {
        package.add(type, target.name);
        return;
    }
    // When the type's length differs, the platform creates the section again. It is no longer
    // anonymous then: its generated name becomes a real one.
    if (target.section->type.size() != type.size())
        target.section->anonymous = false;
    target.section->type = type;
}

void moveTo(Package& package, const Section& section, const std::string& position) {
    Section moved = section;
    package.remove(section);
    const auto end = std::strtoul(position.c_str(), nullptr, 10);
    const auto place = std::min<std::size_t>(end, package.sections.size());
    package.sections.insert(package.sections.begin() + static_cast<std::ptrdiff_t>(place),
                            std::move(moved));
}

bool isPlausible(const Change& change, const Path& path) {
    if (!path.section || !isName(*path.section))
        return false;
    switch (change.kind) {
    case Change::Kind::Delete:
        return true;
    case Change::Kind::Reorder:
        return path.value && !path.option;
    case Change::Kind::Rename:
        return path.value && isName(*path.value);
    case Change::Kind::AddToList:
    case Change::Kind::DeleteFromList:
        return path.value && path.option;
    case Change::Kind::Set:
    case Change::Kind::AddSection:
        break;
    }
    return path.value.has_value();
}

std::optional<Change> parseChange(const std::string& package, std::string word) {
    Change change{Change::Kind::Set, "", std::nullopt, std::nullopt};
    const auto* const mark =
        std::find_if(std::begin(kMarks), std::end(kMarks),
                     [&](const Mark& each) { return !word.empty() && each.character == word[0]; });
    if (mark != std::end(kMarks)) {
        change.kind = mark->kind;
        word.erase(0, 1);
    }
    const Path path = parsePath(word);
    if (path.package != package || !isPlausible(change, path))
        return std::nullopt;
    change.section = *path.section;
    change.option = path.option;
    change.value = path.value;
    return change;
}

} // namespace

std::optional<Change> set(Package& package, const Target& target, const std::string& value) {
    if (target.section == nullptr && target.option)
        throw Error(Error::Kind::InvalidArgument);
    if (!target.option && !value.empty() && !isTypeName(value))
        throw Error(Error::Kind::InvalidArgument);
    if (value.empty())
        return target.isComplete() ? remove(package, target) : std::nullopt;
    if (!target.option) {
        if (target.section != nullptr && target.section->type == value)
            return std::nullopt;
        setType(package, target, value);
    } else if (!target.section->setOption(*target.option, value)) {
        return std::nullopt;
    }
    return Change{Change::Kind::Set, target.name, target.option, value};
}

Change addSection(Package& package, const std::string& type) {
    return {Change::Kind::AddSection, package.addAnonymous(type).name, std::nullopt, type};
}

Change addToList(const Target& target, const std::string& value) {
    Section& section = needSection(target);
    if (!target.option)
        throw Error(Error::Kind::InvalidArgument);
    section.addToList(*target.option, value);
    return {Change::Kind::AddToList, target.name, target.option, value};
}

std::optional<Change> deleteFromList(const Target& target, const std::string& value) {
    needSection(target);
    Option* const list = target.existingOption();
    if (list == nullptr || !list->isList)
        return std::nullopt;
    list->values.erase(std::remove(list->values.begin(), list->values.end(), value),
                       list->values.end());
    return Change{Change::Kind::DeleteFromList, target.name, target.option, value};
}

std::optional<Change> remove(Package& package, const Target& target,
                             const std::optional<std::string>& position) {
    if (!target.name.empty() && !target.isComplete())
        throw Error(Error::Kind::NotFound);
    Section& section = needSection(target);
    Option* const option = target.existingOption();
    if (option != nullptr && option->isList && position && !position->empty()) {
        int index = 0;
        if (std::sscanf(position->c_str(), "%d", &index) == 0 || index < 0 ||
            static_cast<std::size_t>(index) >= option->values.size())
            return std::nullopt;
        option->values.erase(option->values.begin() + index);
        return Change{Change::Kind::Delete, target.name, target.option, position};
    }
    // The target's texts may be the section's own.
    Change change{Change::Kind::Delete, target.name, target.option, std::nullopt};
    if (target.option)
        section.removeOption(*change.option);
    else
        package.remove(section);
    return change;
}

Change rename(const Target& target, const std::optional<std::string>& name) {
    if (!target.name.empty() && !target.isComplete())
        throw Error(Error::Kind::NotFound);
    Section& section = needSection(target);
    if (!name)
        throw Error(Error::Kind::InvalidArgument);
    if (Option* const option = target.existingOption()) {
        option->name = *name;
    } else {
        section.name = *name;
        section.anonymous = false;
    }
    return {Change::Kind::Rename, target.name, target.option, name};
}

void replay(const Change& change, Package& package) {
    const Target target{package.find(change.section), change.section, change.option};
    switch (change.kind) {
    case Change::Kind::Set:
        set(package, target, *change.value);
        break;
    case Change::Kind::AddSection:
        set(package, target, *change.value);
        if (Section* const added = change.option ? nullptr : package.find(change.section))
            added->anonymous = true;
        break;
    case Change::Kind::Delete:
        remove(package, target, change.value);
        break;
    case Change::Kind::AddToList:
        addToList(target, *change.value);
        break;
    case Change::Kind::DeleteFromList:
        deleteFromList(target, *change.value);
        break;
    case Change::Kind::Rename:
        rename(target, change.value);
        break;
    case Change::Kind::Reorder:
        if (!target.isComplete())
            throw Error(Error::Kind::NotFound);
        moveTo(package, *target.section, *change.value);
        break;
    }
}

std::string formatChange(const std::string& package, const Change& change) {
    std::string line;
    for (const Mark& mark : kMarks)
        if (mark.kind == change.kind)
            line += mark.character;
    line += package + "." + change.section;
    if (change.option)
        line += "." + *change.option;
    if (change.value)
        line += "=" + quote(*change.value);
    return line + "\n";
}

std::vector<std::optional<Change>> parseChanges(const std::string& package,
                                                const std::string& text) {
    std::vector<std::optional<Change>> changes;
    WordReader words(text);
    while (words.nextLine()) {
        std::optional<Change> change;
        try {
            std::string word = words.argument();
            if (words.atLineEnd())
                change = parseChange(package, std::move(word));
        } catch (const Error&) {
            change.reset(); // the others remain valid
        }
        changes.push_back(std::move(change));
    }
    return changes;
}

} // namespace uci
