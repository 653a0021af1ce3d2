#include "uci_store.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace uci {

namespace {

namespace fs = std::filesystem;

// The pending file holds one change per statement, in the words and quotes of package files:
// KEYWORD SECTION [OPTION] [VALUE]
struct Form {
    Change::Kind kind;
    const char* keyword;
    bool hasOption;
    bool hasValue;

    std::size_t words() const { return 2U + (hasOption ? 1U : 0U) + (hasValue ? 1U : 0U); }
};
const std::array<Form, 6> kForms{{{Change::NameSection, "section", false, true},
                                  {Change::AddSection, "anonymous", false, true},
                                  {Change::DeleteSection, "drop", false, false},
                                  {Change::SetOption, "option", true, true},
                                  {Change::AddListElement, "list", true, true},
                                  {Change::DeleteOption, "delete", true, false}}};

Change changeOf(const Statement& statement) {
    const auto form = std::find_if(kForms.begin(), kForms.end(), [&](const Form& each) {
        return each.keyword == statement.words[0] && each.words() == statement.words.size();
    });
    if (form == kForms.end())
        throw ParseError("invalid pending change", statement.line);
    return {form->kind, statement.words[1], form->hasOption ? statement.words[2] : "",
            form->hasValue ? statement.words.back() : ""};
}

std::string lineOf(const Change& change) {
    const Form& form = *std::find_if(kForms.begin(), kForms.end(),
                                     [&](const Form& each) { return each.kind == change.kind; });
    std::string line = std::string(form.keyword) + " " + quote(change.section);
    if (form.hasOption)
        line += " " + quote(change.option);
    if (form.hasValue)
        line += " " + quote(change.value);
    return line + "\n";
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::system_error(errno, std::generic_category(), path);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

// By a rename, so that a reader never meets half a file.
void replaceContent(const std::string& path, const std::string& content) {
    const std::string fresh = path + ".new";
    std::ofstream file(fresh, std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    if (!file)
        throw std::system_error(errno, std::generic_category(), fresh);
    std::error_code missing; // a file that is written for the first time
    const fs::file_status old = fs::status(path, missing);
    if (fs::exists(old))
        fs::permissions(fresh, old.permissions());
    fs::rename(fresh, path);
}

std::string environmentOr(const char* variable, const char* otherwise) {
    const char* value = std::getenv(variable);
    return value && *value ? value : otherwise;
}

} // namespace

void apply(const Change& change, Package& package) {
    Section* section = package.find(change.section);
    switch (change.kind) {
    case Change::NameSection:
        if (section)
            section->type = change.value;
        else
            package.append(change.value, change.section, false);
        break;
    case Change::AddSection:
        if (!section)
            package.append(change.value, change.section, true);
        break;
    case Change::DeleteSection:
        package.remove(change.section);
        break;
    case Change::SetOption:
        if (section)
            section->setOption(change.option, change.value);
        break;
    case Change::AddListElement:
        if (section)
            section->addToList(change.option, change.value);
        break;
    case Change::DeleteOption:
        if (section)
            section->removeOption(change.option);
        break;
    }
}

Store::Store(std::string configDirectory, std::string pendingDirectory)
    : configDirectory_(std::move(configDirectory)), pendingDirectory_(std::move(pendingDirectory)) {
}

Store Store::ofEnvironment() {
    return {environmentOr("TAVO_UCI_CONFIG_DIR", "/etc/config"),
            environmentOr("TAVO_UCI_PENDING_DIR", "/tmp/.uci")};
}

bool Store::isPresent() const { return fs::is_directory(configDirectory_); }

bool Store::has(const std::string& package) const {
    return isPackageName(package) && fs::is_regular_file(configFile(package));
}

std::vector<std::string> Store::packages() const {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(configDirectory_))
        if (has(entry.path().filename().string()))
            names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

Package Store::load(const std::string& package) const {
    Package loaded = parse(contentOf(configFile(package)));
    for (const Change& change : pending(package))
        apply(change, loaded);
    return loaded;
}

std::vector<Change> Store::pending(const std::string& package) const {
    std::vector<Change> changes;
    if (fs::exists(pendingFile(package)))
        for (const Statement& statement : split(contentOf(pendingFile(package))))
            changes.push_back(changeOf(statement));
    return changes;
}

void Store::addPending(const std::string& package, const std::vector<Change>& changes) const {
    if (changes.empty())
        return;
    std::string content =
        fs::exists(pendingFile(package)) ? contentOf(pendingFile(package)) : std::string();
    for (const Change& change : changes)
        content += lineOf(change);
    replaceContent(pendingFile(package), content);
}

void Store::commit(const std::string& package) const {
    if (!fs::exists(pendingFile(package)))
        return;
    replaceContent(configFile(package), format(load(package)));
    fs::remove(pendingFile(package));
}

std::string Store::configFile(const std::string& package) const {
    return configDirectory_ + "/" + package;
}

std::string Store::pendingFile(const std::string& package) const {
    return pendingDirectory_ + "/" + package;
}

Store::Lock::Lock(const Store& store) {
    fs::create_directories(store.pendingDirectory_);
    directory_ = ::open(store.pendingDirectory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory_ < 0 || ::flock(directory_, LOCK_EX) != 0)
        throw std::system_error(errno, std::generic_category(), store.pendingDirectory_);
}

Store::Lock::~Lock() { ::close(directory_); }

} // namespace uci
