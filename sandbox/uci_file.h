#ifndef TAVO_SANDBOX_UCI_FILE_H
#define TAVO_SANDBOX_UCI_FILE_H

#include <cstddef>
#include <string>
#include <vector>

/// UCI packages in files: the model, the reader and the writer.
namespace uci {

struct Option {
    std::string name;
    bool isList = false;
    std::vector<std::string> values; ///< exactly one unless isList
};

struct Section {
    std::string type;
    std::string name; ///< generated for an anonymous section
    bool anonymous = false;
    std::vector<Option> options; ///< in file order

    Option* find(const std::string& option);
    const Option* find(const std::string& option) const;
    /// Replaces an option in its position, or appends it. Returns false when it already has that
    /// value.
    bool setOption(const std::string& option, const std::string& value);
    /// Appends to a list; a single value of that name becomes the list's first element.
    void addToList(const std::string& option, const std::string& value);
    void removeOption(const std::string& option);
};

struct Package {
    std::vector<Section> sections;
    /// Number of sections created so far, deleted ones included. It is part of the names of
    /// anonymous sections.
    std::size_t counted = 0;

    /// The first section of that name.
    Section* find(const std::string& section);
    /// The section at `index`, negative from the end, among those of `type`; all for an empty type.
    Section* at(const std::string& type, int index);
    /// Appends a section. References to others become invalid.
    Section& add(const std::string& type, const std::string& name);
    Section& addAnonymous(const std::string& type);
    void remove(const Section& section);
};

/// Reads a package file. Throws Error.
Package parse(const std::string& text);
std::string format(const Package& package);

} // namespace uci

#endif
