#ifndef TAVO_SANDBOX_UCI_EDIT_H
#define TAVO_SANDBOX_UCI_EDIT_H

#include "uci_change.h"
#include "uci_object.h"

#include <optional>
#include <string>
#include <vector>

/// Turns the values of a call into changes, as the configuration daemon does.
namespace uci {

/// A package that a call changes. The changes are recorded only when the whole call succeeds.
struct Edit {
    Package package;
    std::vector<Change> changes;

    void record(std::optional<Change> change);
};

/// Sets an option to a JSON value as the method set does: a list is always replaced.
Status setValue(Edit& edit, Section* section, const std::string& option, json_object* value);

/// Sets an option to a JSON value as the method add does: a list is appended to an earlier one.
Status addValue(Edit& edit, Section* section, const std::string& option, json_object* value);

/// Deletes the given options that exist, or the whole section when no list of options is given.
Status removeOptions(Edit& edit, Section* section,
                     const std::optional<std::vector<std::string>>& options);

/// Whether a section matches the arguments "type" and "match" of a call, either of which may be
/// null.
bool matches(const Section& section, const std::optional<std::string>& type, json_object* match);

} // namespace uci

#endif
