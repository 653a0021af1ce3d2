// A gateway's `uci` tool.
#include "uci_error.h"
#include "uci_path.h"
#include "uci_store.h"
#include "uci_words.h"

#include <cstdio>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <strings.h>
#include <unistd.h>

namespace {

using uci::Change;
using uci::Error;
using uci::Loaded;
using uci::Option;
using uci::Package;
using uci::Path;
using uci::Section;
using uci::Store;
using uci::Target;

constexpr char kUsage[] = " [<options>] <command> [<arguments>]\n"
                          "\n"
                          "Commands of the desktop sandbox's uci:\n"
                          "\tadd        <config> <section-type>\n"
                          "\tadd_list   <config>.<section>.<option>=<string>\n"
                          "\tchanges    [<config>]\n"
                          "\tcommit     [<config>]\n"
                          "\tdel_list   <config>.<section>.<option>=<string>\n"
                          "\tdelete     <config>.<section>[.<option>[=<index>]]\n"
                          "\texport     [<config>]\n"
                          "\tget        <config>.<section>[.<option>]\n"
                          "\trename     <config>.<section>[.<option>]=<name>\n"
                          "\trevert     <config>[.<section>[.<option>]]\n"
                          "\tset        <config>.<section>[.<option>]=<value>\n"
                          "\tshow       [<config>[.<section>[.<option>]]]\n"
                          "\n"
                          "Options:\n"
                          "\t-d <str>   separate the elements of lists by <str>\n"
                          "\t-q         print no error messages\n"
                          "\t-X         show anonymous sections by their generated names\n";

constexpr int kMisused = 255;

struct Options {
    std::string delimiter = " ";
    bool quiet = false;
    bool byIndex = true; ///< show anonymous sections as @type[index]
};

/// What a command's argument names.
struct Subject {
    Path path;
    Loaded loaded;
    Target target;
};

Subject subjectOf(const Store& store, const std::string& argument) {
    Subject subject;
    subject.path = uci::parsePath(argument);
    subject.loaded = store.load(subject.path.package);
    if (subject.path.section)
        subject.target =
            uci::resolve(subject.loaded.package, *subject.path.section, subject.path.option);
    return subject;
}

/// Throws when a part of the subject is missing.
void needComplete(const Subject& subject) {
    if (subject.path.section && !subject.target.isComplete())
        throw Error(Error::Kind::NotFound);
}

// --- commands that read --------------------------------------------------------------------------

std::string valueOf(const Option& option, bool always, const Options& options) {
    if (!option.isList)
        return always ? uci::quote(option.values.front()) : option.values.front();
    std::string text;
    bool first = true;
    for (const std::string& value : option.values) {
        const bool quoted = always || value.find_first_of(" \t\r\n") != std::string::npos;
        text += (first ? "" : options.delimiter) + (quoted ? uci::quote(value) : value);
        first = false;
    }
    return text;
}

void showOption(const std::string& section, const Option& option, const Options& options) {
    std::cout << section << "." << option.name << "=" << valueOf(option, true, options) << "\n";
}

void showSection(const std::string& path, const Section& section, const Options& options) {
    std::cout << path << "=" << section.type << "\n";
    for (const Option& option : section.options)
        showOption(path, option, options);
}

void showPackage(const std::string& name, const Package& package, const Options& options) {
    std::map<std::string, int> counts; // of the sections of each type
    for (const Section& section : package.sections) {
        const std::string byIndex =
            "@" + section.type + "[" + std::to_string(counts[section.type]++) + "]";
        const bool indexed = section.anonymous && options.byIndex;
        showSection(name + "." + (indexed ? byIndex : section.name), section, options);
    }
}

void show(const Store& store, const std::string& argument, const Options& options) {
    const Subject subject = subjectOf(store, argument);
    needComplete(subject);
    const std::string& package = subject.path.package;
    if (!subject.path.section)
        showPackage(package, subject.loaded.package, options);
    else if (const Option* const option = subject.target.existingOption())
        showOption(package + "." + subject.target.name, *option, options);
    else
        showSection(package + "." + subject.target.name, *subject.target.section, options);
}

void changes(const Store& store, const std::string& argument, const Options&) {
    const Subject subject = subjectOf(store, argument);
    for (const Change& change : subject.loaded.pending) {
        const bool isDeletion = change.kind == Change::Kind::Delete;
        std::cout << (isDeletion ? "-" : "") << subject.path.package << "." << change.section;
        if (change.option)
            std::cout << "." << *change.option;
        if (!isDeletion)
            std::cout << (change.kind == Change::Kind::AddToList        ? "+="
                          : change.kind == Change::Kind::DeleteFromList ? "-="
                                                                        : "=")
                      << uci::quote(*change.value);
        std::cout << "\n";
    }
}

void exportPackage(const Store& store, const std::string& argument, const Options&) {
    const Subject subject = subjectOf(store, argument);
    std::cout << "package " << uci::escapeQuotes(subject.path.package) << "\n"
              << uci::format(subject.loaded.package);
}

void commit(const Store& store, const std::string& argument, const Options&) {
    const Subject subject = subjectOf(store, argument);
    store.commit(subject.path.package);
}

bool get(Subject& subject, const Store&, const Options& options) {
    needComplete(subject);
    if (const Option* const option = subject.target.existingOption())
        std::cout << valueOf(*option, false, options) << "\n";
    else if (subject.target.section != nullptr)
        std::cout << subject.target.section->type << "\n";
    return true;
}

// --- commands that record a change ---------------------------------------------------------------

void save(const Subject& subject, const Store& store, const std::optional<Change>& change) {
    if (change)
        store.addPending(subject.path.package, {*change});
}

std::string needValue(const Subject& subject) {
    if (!subject.path.value || !subject.path.section)
        throw Error(Error::Kind::InvalidArgument);
    return *subject.path.value;
}

bool set(Subject& subject, const Store& store, const Options&) {
    const std::string value = needValue(subject);
    save(subject, store, uci::set(subject.loaded.package, subject.target, value));
    return true;
}

bool addList(Subject& subject, const Store& store, const Options&) {
    save(subject, store, uci::addToList(subject.target, needValue(subject)));
    return true;
}

bool deleteList(Subject& subject, const Store& store, const Options&) {
    save(subject, store, uci::deleteFromList(subject.target, needValue(subject)));
    return true;
}

bool remove(Subject& subject, const Store& store, const Options&) {
    int position = 0;
    if (subject.path.value && std::sscanf(subject.path.value->c_str(), "%d", &position) == 0)
        return false;
    save(subject, store, uci::remove(subject.loaded.package, subject.target, subject.path.value));
    return true;
}

bool rename(Subject& subject, const Store& store, const Options&) {
    save(subject, store, uci::rename(subject.target, subject.path.value));
    return true;
}

bool revert(Subject& subject, const Store& store, const Options&) {
    const auto section = subject.path.section ? std::make_optional(subject.target.name)
                                              : std::optional<std::string>();
    store.revert(subject.path.package, section, subject.path.option);
    return true;
}

// --- the commands -------------------------------------------------------------------------------

/// A command about one package, or about each in turn.
struct PackageCommand {
    const char* name;
    void (*run)(const Store&, const std::string& argument, const Options&);
};
constexpr PackageCommand kPackageCommands[] = {
    {"show", show}, {"changes", changes}, {"export", exportPackage}, {"commit", commit}};

struct SectionCommand {
    const char* name;
    const char* otherName;
    bool takesValue;
    bool (*run)(Subject&, const Store&, const Options&); ///< false to fail without a message
};
constexpr SectionCommand kSectionCommands[] = {
    {"get", "get", false, get},
    {"set", "set", true, set},
    {"add_list", "add_list", true, addList},
    {"del_list", "del_list", true, deleteList},
    {"delete", "del", true, remove},
    {"rename", "ren", true, rename},
    {"revert", "revert", false, revert},
};

class Tool {
public:
    Tool(const char* name, const Options& options) : name_(name), options_(options) {}

    int run(const std::vector<std::string>& words) const {
        const Store::Lock lock(store_);
        for (const PackageCommand& command : kPackageCommands)
            if (isCalled(words, command.name))
                return runPackageCommand(command, words);
        for (const SectionCommand& command : kSectionCommands)
            if (isCalled(words, command.name) || isCalled(words, command.otherName))
                return runSectionCommand(command, words);
        if (isCalled(words, "add") && words.size() == 3)
            return add(words[1], words[2]);
        if (isCalled(words, "help")) {
            usage();
            return 0;
        }
        return misused();
    }

    void usage() const { std::cerr << "Usage: " << name_ << kUsage; }

private:
    static bool isCalled(const std::vector<std::string>& words, const char* command) {
        return ::strcasecmp(words[0].c_str(), command) == 0;
    }

    int runPackageCommand(const PackageCommand& command,
                          const std::vector<std::string>& words) const {
        if (words.size() > 2)
            return misused();
        if (words.size() == 2)
            return report([&] { command.run(store_, words[1], options_); });
        return report([&] {
            for (const std::string& package : store_.packages())
                report([&] { command.run(store_, package, options_); });
        });
    }

    int runSectionCommand(const SectionCommand& command,
                          const std::vector<std::string>& words) const {
        if (words.size() != 2)
            return misused();
        bool done = false;
        report([&] {
            Subject subject = subjectOf(store_, words[1]);
            done = (command.takesValue || !subject.path.value) &&
                   command.run(subject, store_, options_);
        });
        return done ? 0 : 1;
    }

    int add(const std::string& package, const std::string& type) const {
        return report(
            [&] {
                Loaded loaded = store_.load(package);
                const Change change = uci::addSection(loaded.package, type);
                store_.addPending(package, {change});
                std::cout << change.section << "\n";
            },
            true);
    }

    /// Runs an operation; reports its error. The result is the exit status: 1, or the error's own
    /// number.
    template <class Operation>
    int report(Operation operation, bool byKind = false) const {
        try {
            operation();
            return 0;
        } catch (const Error& error) {
            std::cout << std::flush;
            if (!options_.quiet)
                std::cerr << name_ << ": " << error.what() << "\n";
            return byKind ? static_cast<int>(error.kind()) : 1;
        }
    }

    int misused() const {
        usage();
        return kMisused;
    }

    const char* name_;
    Options options_;
    Store store_ = Store::ofEnvironment();
};

} // namespace

int main(int argc, char* argv[]) {
    Options options;
    bool understood = true;
    for (int option = 0; (option = ::getopt(argc, argv, "d:qsX")) != -1;) {
        if (option == 'd')
            options.delimiter = optarg;
        else if (option == 'q')
            options.quiet = true;
        else if (option == 'X')
            options.byIndex = false;
        else if (option == '?')
            understood = false;
    }
    const Tool tool(argv[0], options);
    const std::vector<std::string> words(argv + optind, argv + argc);
    if (words.empty() || !understood) {
        tool.usage();
        return 0;
    }
    return tool.run(words);
}
