#ifndef TAVO_SANDBOX_UCI_FILE_H
#define TAVO_SANDBOX_UCI_FILE_H

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

/// UCI packages as they stand in files: the model, the reader and the writer.
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
    /// Replaces a single value where it stands; anything else becomes the last option.
    void setOption(const std::string& option, const std::string& value);
    /// Appends to a list; a single value of that name becomes the list's first element.
    void addToList(const std::string& option, const std::string& value);
    /// False when there was none.
    bool removeOption(const std::string& option);
};

struct Package {
    std::vector<Section> sections;
    /// Sections counted so far, deleted ones included: numbers the names of anonymous sections.
    std::size_t counted = 0;

    Section* find(const std::string& section);
    Section& append(const std::string& type, const std::string& name, bool anonymous);
    /// False when there was none.
    bool remove(const std::string& section);
    /// Name for the anonymous section of that type which would be appended next.
    std::string nextName(const std::string& type) const;
};

/// A file that is no UCI text; what() says where and why.
class ParseError : public std::runtime_error {
public:
    ParseError(const std::string& reason, std::size_t line);
};

/// Words of a text, line by line, quotes and comments resolved; lines without a word are left out.
/// Quoted words may hold line ends.
struct Statement {
    std::size_t line = 0; ///< where it begins, from 1
    std::vector<std::string> words;
};
std::vector<Statement> split(const std::string& text);

Package parse(const std::string& text);
std::string format(const Package& package);

/// The word between single quotes, as files hold it.
std::string quote(const std::string& word);

bool isName(const std::string& word);        ///< of an option or a section
bool isTypeName(const std::string& word);    ///< of a section's type
bool isPackageName(const std::string& word); ///< which is also the file's name

} // namespace uci

#endif
