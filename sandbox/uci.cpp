// A gateway's `uci` tool: commit, and the commands that show what is there.
#include "uci_store.h"

#include <algorithm>
#include <exception>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using uci::Change;
using uci::Store;

const char kUsage[] = "Usage: uci [-q] <command> [<arguments>]\n"
                      "This one belongs to the desktop sandbox. Commands:\n"
                      "\tcommit     [<config>]\n"
                      "\tchanges    [<config>]\n"
                      "\tshow       [<config>[.<section>[.<option>]]]\n"
                      "\tget        <config>.<section>[.<option>]\n";

/// What an argument such as network.lan.ipaddr names; the parts not given are empty.
struct Target {
    std::string package;
    std::string section;
    std::string option;
};

Target targetOf(const std::string& argument) {
    Target target;
    std::string* const parts[] = {&target.package, &target.section, &target.option};
    std::size_t begin = 0;
    for (std::string* part : parts) {
        const std::size_t end = std::min(argument.find('.', begin), argument.size());
        *part = argument.substr(begin, end - begin);
        begin = std::min(end + 1, argument.size());
    }
    return target;
}

struct NoSuchEntry : std::runtime_error {
    NoSuchEntry() : std::runtime_error("Entry not found") {}
};

std::vector<std::string> packagesNamed(const Store& store, const std::string& package) {
    if (package.empty())
        return store.packages();
    if (!store.has(package))
        throw NoSuchEntry();
    return {package};
}

std::string joined(const uci::Option& option, bool quoted) {
    std::string text;
    for (const std::string& value : option.values)
        text += (text.empty() ? "" : " ") + (quoted ? uci::quote(value) : value);
    return text;
}

void commit(const Store& store, const std::string& argument) {
    for (const std::string& package : packagesNamed(store, argument))
        store.commit(package);
}

void changes(const Store& store, const std::string& argument) {
    for (const std::string& package : packagesNamed(store, argument)) {
        for (const Change& change : store.pending(package)) {
            const std::string section = package + "." + change.section;
            const std::string option = section + "." + change.option;
            const std::string value = uci::quote(change.value);
            switch (change.kind) {
            case Change::NameSection:
            case Change::AddSection:
                std::cout << section << "=" << value << "\n";
                break;
            case Change::DeleteSection:
                std::cout << "-" << section << "\n";
                break;
            case Change::SetOption:
                std::cout << option << "=" << value << "\n";
                break;
            case Change::AddListElement:
                std::cout << option << "+=" << value << "\n";
                break;
            case Change::DeleteOption:
                std::cout << "-" << option << "\n";
                break;
            }
        }
    }
}

void showOption(const std::string& path, const uci::Option& option) {
    std::cout << path << "." << option.name << "=" << joined(option, true) << "\n";
}

void showSection(const std::string& package, const uci::Section& section) {
    const std::string path = package + "." + section.name;
    std::cout << path << "=" << section.type << "\n";
    for (const uci::Option& option : section.options)
        showOption(path, option);
}

void show(const Store& store, const std::string& argument) {
    const Target target = targetOf(argument);
    for (const std::string& name : packagesNamed(store, target.package)) {
        uci::Package package = store.load(name);
        if (target.section.empty()) {
            for (const uci::Section& section : package.sections)
                showSection(name, section);
            continue;
        }
        uci::Section* section = package.find(target.section);
        if (!section)
            throw NoSuchEntry();
        if (target.option.empty()) {
            showSection(name, *section);
            continue;
        }
        const uci::Option* option = section->find(target.option);
        if (!option)
            throw NoSuchEntry();
        showOption(name + "." + section->name, *option);
    }
}

void get(const Store& store, const std::string& argument) {
    const Target target = targetOf(argument);
    if (!store.has(target.package))
        throw NoSuchEntry();
    uci::Package package = store.load(target.package);
    uci::Section* section = package.find(target.section);
    if (!section)
        throw NoSuchEntry();
    if (target.option.empty()) {
        std::cout << section->type << "\n";
        return;
    }
    const uci::Option* option = section->find(target.option);
    if (!option)
        throw NoSuchEntry();
    std::cout << joined(*option, false) << "\n";
}

struct Command {
    const char* name;
    void (*run)(const Store&, const std::string& argument);
    bool needsArgument;
};
const Command kCommands[] = {{"commit", commit, false},
                             {"changes", changes, false},
                             {"show", show, false},
                             {"get", get, true}};

} // namespace

int main(int argc, char* argv[]) {
    std::vector<std::string> arguments(argv + 1, argv + argc);
    const bool quiet = !arguments.empty() && arguments[0] == "-q";
    if (quiet)
        arguments.erase(arguments.begin());
    const auto command =
        std::find_if(std::begin(kCommands), std::end(kCommands), [&](const Command& each) {
            return !arguments.empty() && arguments[0] == each.name && arguments.size() <= 2 &&
                   (arguments.size() == 2 || !each.needsArgument);
        });
    if (command == std::end(kCommands)) {
        std::cerr << kUsage;
        return 255;
    }
    try {
        const Store store = Store::ofEnvironment();
        const Store::Lock lock(store);
        command->run(store, arguments.size() == 2 ? arguments[1] : "");
    } catch (const std::exception& error) {
        if (!quiet)
            std::cerr << "uci: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
