#ifndef TAVO_SANDBOX_UCI_CHANGE_H
#define TAVO_SANDBOX_UCI_CHANGE_H

#include "uci_path.h"

#include <optional>
#include <string>
#include <vector>

namespace uci {

/// One change that waits for a commit.
struct Change {
    enum Kind { Set, AddSection, Delete, AddToList, DeleteFromList, Rename, Reorder };
    Kind kind;
    std::string section;
    std::optional<std::string> option;
    std::optional<std::string> value; ///< a section's type; a list's position when deleting from it
};

// Each of these does one change to a package in memory and returns what to record, which is nothing
// when everything was as asked for. They throw Error.

/// An empty value deletes. Without an option it is the type of the section, which is made when
/// missing.
std::optional<Change> set(Package& package, const Target& target, const std::string& value);
Change addSection(Package& package, const std::string& type);
Change addToList(const Target& target, const std::string& value);
/// Deletes every element of that value.
std::optional<Change> deleteFromList(const Target& target, const std::string& value);
/// `position` deletes that element of a list only; for all else it has no meaning.
std::optional<Change> remove(Package& package, const Target& target,
                             const std::optional<std::string>& position = std::nullopt);
Change rename(const Target& target, const std::optional<std::string>& name);

/// Does a recorded change once more.
void replay(const Change& change, Package& package);

/// The change as the package's file of pending changes holds it, with the line end.
std::string formatChange(const std::string& package, const Change& change);
/// The changes in such a file; none in the place of one that cannot be read.
std::vector<std::optional<Change>> parseChanges(const std::string& package,
                                                const std::string& text);

} // namespace uci

#endif
