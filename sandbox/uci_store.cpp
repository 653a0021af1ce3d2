#include "uci_store.h"

#include "uci_error.h"
#include "uci_words.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace uci {

namespace {

namespace fs = std::filesystem;

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    if (!file)
        throw Error(Error::Kind::Io);
    return content.str();
}

std::string contentOrNothing(const std::string& path) {
    std::error_code none;
    return fs::is_regular_file(path, none) ? contentOf(path) : "";
}

void write(const std::string& path, std::ios::openmode mode, const std::string& content) {
    std::ofstream file(path, mode | std::ios::binary);
    file << content;
    file.close();
    if (!file)
        throw Error(Error::Kind::Io);
}

// Replaces the file with a rename, so that a reader never sees half of it. A symbolic link stays
// one.
void replaceContent(const std::string& path, const std::string& content) {
    std::error_code failure;
    const fs::path target = fs::canonical(path, failure);
    const std::string fresh =
        fs::path(path).parent_path() / ("." + target.filename().string() + ".new");
    write(fresh, std::ios::trunc, content);
    if (!failure)
        fs::permissions(fresh, fs::status(target).permissions(), failure);
    if (!failure)
        fs::rename(fresh, target, failure);
    if (failure) {
        std::error_code none;
        fs::remove(fresh, none);
        throw Error(Error::Kind::Io);
    }
}

// New files and directories get the same permissions as those in the directory of packages.
mode_t modeOf(const std::string& path, mode_t otherwise) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : otherwise;
}

std::string environmentOr(const char* variable, const char* otherwise) {
    const char* value = std::getenv(variable);
    return value != nullptr && *value != '\0' ? value : otherwise;
}

} // namespace

Store::Store(std::string configDirectory, std::string pendingDirectory)
    : configDirectory_(std::move(configDirectory)), pendingDirectory_(std::move(pendingDirectory)) {
}

Store Store::ofEnvironment() {
    return {environmentOr("TAVO_UCI_CONFIG_DIR", "/etc/config"),
            environmentOr("TAVO_UCI_PENDING_DIR", "/tmp/.uci")};
}

bool Store::isPresent() const {
    std::error_code none;
    return fs::is_directory(configDirectory_, none);
}

std::vector<std::string> Store::packages() const {
    std::error_code failure;
    bool isEmpty = true;
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(configDirectory_, failure)) {
        const std::string name = entry.path().filename().string();
        std::error_code none;
        isEmpty = isEmpty && name.front() == '.';
        if (name.find('.') == std::string::npos && isPackageName(name) && !entry.is_directory(none))
            names.push_back(name);
    }
    if (isEmpty)
        throw Error(Error::Kind::NotFound);
    std::sort(names.begin(), names.end());
    return names;
}

Loaded Store::load(const std::string& package) const {
    // The platform would use these as paths of other files.
    if (!package.empty() && (package.front() == '.' || package.front() == '/'))
        throw Error(Error::Kind::NotFound);
    if (!isPackageName(package))
        throw Error(Error::Kind::InvalidArgument);
    std::error_code none;
    if (!fs::is_regular_file(configFile(package), none))
        throw Error(Error::Kind::NotFound);

    Loaded loaded;
    loaded.package = parse(contentOf(configFile(package)));
    for (const std::optional<Change>& change :
         parseChanges(package, contentOrNothing(pendingFile(package)))) {
        if (!change)
            continue;
        loaded.pending.push_back(*change);
        try {
            replay(*change, loaded.package);
            loaded.changed = true;
        } catch (const Error&) { // the file has changed since
        }
    }
    return loaded;
}

void Store::addPending(const std::string& package, const std::vector<Change>& changes) const {
    if (changes.empty())
        return;
    std::string lines;
    for (const Change& change : changes)
        lines += formatChange(package, change);
    ::mkdir(pendingDirectory_.c_str(), modeOf(configDirectory_, 0700));
    const int created = ::open(pendingFile(package).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC,
                               modeOf(configFile(package), 0600));
    if (created >= 0)
        ::close(created);
    write(pendingFile(package), std::ios::app, lines);
}

void Store::revert(const std::string& package, const std::optional<std::string>& section,
                   const std::optional<std::string>& option) const {
    std::string kept;
    for (const std::optional<Change>& change :
         parseChanges(package, contentOrNothing(pendingFile(package)))) {
        if (!change)
            return; // the platform stops here as well
        const bool matches =
            (!section || change->section == *section) && (!option || change->option == option);
        if (!matches)
            kept += formatChange(package, *change);
    }
    std::error_code none;
    if (fs::exists(pendingFile(package), none))
        write(pendingFile(package), std::ios::trunc, kept);
}

void Store::commit(const std::string& package) const {
    const Loaded loaded = load(package);
    if (!loaded.changed)
        return;
    replaceContent(configFile(package), format(loaded.package));
    write(pendingFile(package), std::ios::trunc, "");
}

std::string Store::configFile(const std::string& package) const {
    return configDirectory_ + "/" + package;
}

std::string Store::pendingFile(const std::string& package) const {
    return pendingDirectory_ + "/" + package;
}

Store::Lock::Lock(const Store& store)
    : directory_(::open(store.configDirectory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (directory_ >= 0)
        ::flock(directory_, LOCK_EX);
}

Store::Lock::~Lock() {
    if (directory_ >= 0)
        ::close(directory_);
}

} // namespace uci
