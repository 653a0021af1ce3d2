#ifndef TAVO_SANDBOX_UCI_STORE_H
#define TAVO_SANDBOX_UCI_STORE_H

#include "uci_change.h"
#include "uci_file.h"

#include <optional>
#include <string>
#include <vector>

namespace uci {

/// A package as readers see it: its file with the pending changes applied.
struct Loaded {
    Package package;
    std::vector<Change> pending; ///< also those that no longer fit the file
    bool changed = false;        ///< whether at least one did fit
};

/// The packages of one gateway: a directory of files, and a directory with the pending changes to
/// each of them. `ubus` and `uci` are separate processes and share these files. Every function
/// throws Error.
class Store {
public:
    Store(std::string configDirectory, std::string pendingDirectory);

    /// The gateway's own directories, /etc/config and /tmp/.uci, or those that TAVO_UCI_CONFIG_DIR
    /// and TAVO_UCI_PENDING_DIR name.
    static Store ofEnvironment();

    /// False when there is no directory of packages: the program does not run on a gateway.
    bool isPresent() const;
    /// Sorted by name.
    std::vector<std::string> packages() const;

    Loaded load(const std::string& package) const;

    void addPending(const std::string& package, const std::vector<Change>& changes) const;
    /// Drops the pending changes to a section or to one of its options. Without a section, drops
    /// all of the package.
    void revert(const std::string& package, const std::optional<std::string>& section,
                const std::optional<std::string>& option) const;
    /// Writes the pending changes into the package's file; without pending changes the file stays
    /// unchanged.
    void commit(const std::string& package) const;

    /// While it exists, no other process can change anything. Readers need it as well. Between the
    /// two steps of a commit, the pending changes are both in the package's file and beside it. A
    /// reader would see a list's new elements twice.
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
