#ifndef TAVO_SANDBOX_UCI_STORE_H
#define TAVO_SANDBOX_UCI_STORE_H

#include "uci_change.h"
#include "uci_file.h"

#include <optional>
#include <string>
#include <vector>

namespace uci {

/// A package as everybody sees it: its file with the pending changes on top.
struct Loaded {
    Package package;
    std::vector<Change> pending; ///< also those that no longer fit the file
    bool changed = false;        ///< whether at least one did fit
};

/// The packages of one gateway: a directory of files, and a directory with the changes to each of
/// them that nobody has committed yet. `ubus` and `uci` are separate processes and meet here.
/// Every function throws Error.
class Store {
public:
    Store(std::string configDirectory, std::string pendingDirectory);

    /// The gateway's own directories, /etc/config and /tmp/.uci, or those that TAVO_UCI_CONFIG_DIR
    /// and TAVO_UCI_PENDING_DIR name.
    static Store ofEnvironment();

    /// False where no gateway is: there is no directory of packages at all.
    bool isPresent() const;
    /// Sorted by name.
    std::vector<std::string> packages() const;

    Loaded load(const std::string& package) const;

    void addPending(const std::string& package, const std::vector<Change>& changes) const;
    /// Forgets the pending changes to a section or to an option of it; to the whole package
    /// without.
    void revert(const std::string& package, const std::optional<std::string>& section,
                const std::optional<std::string>& option) const;
    /// Writes the pending changes into the package's file; without one the file is not touched.
    void commit(const std::string& package) const;

    /// Keeps other processes from changing anything while it lives. Readers need it as well:
    /// between a commit's two steps, a package has the pending changes both in its file and beside
    /// it, and a list would be read with its new elements twice.
    class Lock {
    public:
        explicit Lock(const Store& store);
        ~Lock();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        int directory_;
    };

private:
    std::string configFile(const std::string& package) const;
    std::string pendingFile(const std::string& package) const;

    std::string configDirectory_;
    std::string pendingDirectory_;
};

} // namespace uci

#endif
