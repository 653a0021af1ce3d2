#ifndef TAVO_SANDBOX_UCI_PATH_H
#define TAVO_SANDBOX_UCI_PATH_H

#include "uci_file.h"

#include <optional>
#include <string>

namespace uci {

/// A text such as network.lan.ipaddr=10.0.0.1, by which commands and pending changes name their
/// subject.
struct Path {
    std::string package;
    std::optional<std::string> section; ///< any text, also "@type[index]"
    std::optional<std::string> option;
    std::optional<std::string> value;
};

/// Throws Error when a part cannot be a name.
Path parsePath(const std::string& text);

/// A section or an option of a package, existing or to be created.
struct Target {
    Section* section = nullptr; ///< null when the package has none of that name
    std::string name;           ///< the section's
    std::optional<std::string> option;

    /// Null when the target names no option, or a missing one.
    Option* existingOption() const;
    /// Whether the named section and option exist.
    bool isComplete() const;
};

/// Finds what a section's text names: a name, or "@type[index]" with a negative index counting from
/// the end. Throws Error for anything else.
Target resolve(Package& package, const std::string& section,
               const std::optional<std::string>& option);

/// The section that "@type[index]" means, or null. Throws Error for a text of another form.
Section* findByIndex(Package& package, const std::string& text);

} // namespace uci

#endif
