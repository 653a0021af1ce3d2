#ifndef TAVO_SANDBOX_UCI_CHANGE_H
#define TAVO_SANDBOX_UCI_CHANGE_H

#include "uci_path.h"

#include <optional>
#include <string>
#include <vector>

namespace uci {

/// One change that is not committed yet.
struct Change {
    enum class Kind { Set, AddSection, Delete, AddToList, DeleteFromList, Rename, Reorder };
    Kind kind;
    std::string section;
    std::optional<std::string> option;
    std::optional<std::string> value; ///< a section's type; a list's position when deleting from it
};

// Each of these makes one change to a package in memory and returns the change to record. Returns
// nothing when the package already was as requested. Throws Error.

/// An empty value deletes the option. Without an option, the value is the type of the section,
/// which is created when missing.
std::optional<Change> set(Package& package, const Target& target, const std::string& value);
Change addSection(Package& package, const std::string& type);
Change addToList(const Target& target, const std::string& value);
/// Deletes every element that has this value.
std::optional<Change> deleteFromList(const Target& target, const std::string& value);
/// `position` is that of the one list element to delete. It is ignored for anything but a list.
std::optional<Change> remove(Package& package, const Target& target,
                             const std::optional<std::string>& position = std::nullopt);
Change rename(const Target& target, const std::optional<std::string>& name);

/// Applies a recorded change again.
void replay(const Change& change, Package& package);

/// The change as the package's file of pending changes holds it, with the line end.
std::string formatChange(const std::string& package, const Change& change);
/// The changes in such a file; an empty optional for each that cannot be read.
std::vector<std::optional<Change>> parseChanges(const std::string& package,
                                                const std::string& text);

} // namespace uci

#endif
