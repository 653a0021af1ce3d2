#include "uci_file.h"

#include "uci_words.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <optional>

namespace uci {

namespace {

/// Builds a package from its text.
class Reader {
public:
    explicit Reader(const std::string& text) : words_(text) {}

    Package run() {
        while (words_.nextLine())
            while (readStatement()) {
            }
        return std::move(package_);
    }

private:
    /// False at the end of the line.
    bool readStatement() {
        const std::optional<std::string> keyword = words_.keyword();
        if (!keyword || keyword->front() == '#')
            return false;
        if (*keyword == "package" || *keyword == "p")
            readPackage();
        else if (*keyword == "config" || *keyword == "c")
            readSection();
        else if (*keyword == "option" || *keyword == "o")
            readOption(false);
        else if (*keyword == "list" || *keyword == "l")
            readOption(true);
        else
            words_.fail("invalid command");
        return true;
    }

    // The package has the file's name. This one is ignored.
    void readPackage() {
        words_.enterArguments("package without name");
        const std::string name = requireArgument();
        if (!isPlainPackageName(name))
            words_.fail("invalid character in name field");
        endStatement();
    }

    void readSection() {
        words_.enterArguments("config without name");
        const std::string type = requireArgument();
        if (!isTypeName(type))
            words_.fail("invalid character in type field");
        const std::string name = words_.argument();
        if (!name.empty() && !isName(name))
            words_.fail("invalid character in name field");
        endStatement();

        Section* section = name.empty() ? &package_.addAnonymous(type) : package_.find(name);
        if (section == nullptr)
            section = &package_.add(type, name);
        else if (section->type != type)
            words_.fail("section of different type overwrites prior section with same name");
        current_ = static_cast<std::size_t>(section - package_.sections.data());
    }

    void readOption(bool isList) {
        if (package_.sections.empty())
            words_.fail("option/list command found before the first section");
        words_.enterArguments("option without name");
        const std::string name = requireArgument();
        if (!isName(name))
            words_.fail("invalid character in name field");
        const std::string value = words_.argument();
        endStatement();

        Section& section = package_.sections[current_];
        if (isList)
            section.addToList(name, value);
        else if (!value.empty())
            section.setOption(name, value);
    }

    std::string requireArgument() {
        std::string argument = words_.argument();
        if (argument.empty())
            words_.fail("insufficient arguments");
        return argument;
    }

    void endStatement() {
        if (!words_.argument().empty())
            words_.fail("too many arguments");
    }

    static bool isPlainPackageName(std::string name) {
        std::replace(name.begin(), name.end(), '-', '_');
        return isName(name);
    }

    WordReader words_;
    Package package_;
    std::size_t current_ = 0;
};

// The platform makes the name from a hash of the type, since the options are not known yet.
std::string generatedName(const Package& package, const std::string& type) {
    std::uint32_t hash = 5381;
    for (const char c : type)
        hash = hash * 33 + static_cast<unsigned char>(c);
    char name[32];
    std::snprintf(name, sizeof name, "cfg%02zx%04x", package.counted, hash & 0xffffU);
    return name;
}

} // namespace

Option* Section::find(const std::string& option) {
    const auto found = std::find_if(options.begin(), options.end(),
                                    [&](const Option& each) { return each.name == option; });
    return found == options.end() ? nullptr : &*found;
}

const Option* Section::find(const std::string& option) const {
    return const_cast<Section*>(this)->find(option);
}

bool Section::setOption(const std::string& option, const std::string& value) {
    Option* existing = find(option);
    if (existing == nullptr) {
        options.push_back({option, false, {value}});
        return true;
    }
    if (!existing->isList && existing->values.front() == value)
        return false;
    existing->isList = false;
    existing->values = {value};
    return true;
}

void Section::addToList(const std::string& option, const std::string& value) {
    Option* existing = find(option);
    if (existing == nullptr) {
        options.push_back({option, true, {value}});
        return;
    }
    existing->isList = true;
    existing->values.push_back(value);
}

void Section::removeOption(const std::string& option) {
    if (Option* existing = find(option))
        options.erase(options.begin() + (existing - options.data()));
}

Section* Package::find(const std::string& section) {
    const auto found = std::find_if(sections.begin(), sections.end(),
                                    [&](const Section& each) { return each.name == section; });
    return found == sections.end() ? nullptr : &*found;
}

Section* Package::at(const std::string& type, int index) {
    std::vector<Section*> fitting;
    for (Section& section : sections)
        if (type.empty() || section.type == type)
            fitting.push_back(&section);
    const auto count = static_cast<std::ptrdiff_t>(fitting.size());
    const std::ptrdiff_t position = index < 0 ? index + count : index;
    return position < 0 || position >= count ? nullptr
                                             : fitting[static_cast<std::size_t>(position)];
}

Section& Package::add(const std::string& type, const std::string& name) {
    ++counted;
    Section section;
    section.type = type;
    section.name = name;
    sections.push_back(std::move(section));
    return sections.back();
}

Section& Package::addAnonymous(const std::string& type) {
    Section& section = add(type, "");
    section.name = generatedName(*this, type);
    section.anonymous = true;
    return section;
}

void Package::remove(const Section& section) {
    sections.erase(sections.begin() + (&section - sections.data()));
}

Package parse(const std::string& text) { return Reader(text).run(); }

std::string format(const Package& package) {
    std::string text;
    for (const Section& section : package.sections) {
        text += "\nconfig " + escapeQuotes(section.type);
        if (!section.anonymous)
            text += " " + quote(section.name);
        text += "\n";
        for (const Option& option : section.options)
            for (const std::string& value : option.values)
                text += std::string(option.isList ? "\tlist " : "\toption ") + option.name + " " +
                        quote(value) + "\n";
    }
    return text + "\n";
}

} // namespace uci
