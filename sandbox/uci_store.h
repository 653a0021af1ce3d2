#ifndef TAVO_SANDBOX_UCI_STORE_H
#define TAVO_SANDBOX_UCI_STORE_H

#include "uci_file.h"

#include <string>
#include <vector>

namespace uci {

/// One change that waits for a commit.
struct Change {
    enum Kind {
        NameSection,    ///< make a named section, or give an existing one another type
        AddSection,     ///< make an anonymous section
        DeleteSection,  //
        SetOption,      ///< to a single value
        AddListElement, ///< at the end
        DeleteOption
    };
    Kind kind;
    std::string section;
    std::string option; ///< empty for the section kinds
    std::string value;  ///< the type for the first two kinds, empty for the deletions
};

/// Does one change to a package in memory. A change that finds nothing to do is no error.
void apply(const Change& change, Package& package);

/// The packages of one gateway: a directory of files, and a directory with the changes to each of
/// them that nobody has committed yet. `ubus` and `uci` are separate processes and meet here.
class Store {
public:
    Store(std::string configDirectory, std::string pendingDirectory);

    /// The gateway's own directories, /etc/config and /tmp/.uci, or those that TAVO_UCI_CONFIG_DIR
    /// and TAVO_UCI_PENDING_DIR name.
    static Store ofEnvironment();

    /// False where no gateway is: there is no directory of packages at all.
    bool isPresent() const;
    bool has(const std::string& package) const;
    /// Sorted by name.
    std::vector<std::string> packages() const;

    /// The package with its pending changes. It must exist. Throws ParseError.
    Package load(const std::string& package) const;

    std::vector<Change> pending(const std::string& package) const;
    void addPending(const std::string& package, const std::vector<Change>& changes) const;

    /// Writes the pending changes into the package's file; without one the file is not touched.
    void commit(const std::string& package) const;

    /// Keeps other processes from changing anything while it lives. Readers need it as well: between
    /// a commit's two steps, a package has the pending changes both in its file and beside it, and a
    /// list would be read with its new elements twice.
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
