#ifndef TAVO_SANDBOX_UCI_WORDS_H
#define TAVO_SANDBOX_UCI_WORDS_H

#include <cstddef>
#include <optional>
#include <string>

namespace uci {

/// Splits a package file, or a file of pending changes, into words by the platform's rules for
/// quotes, backslashes, comments and semicolons.
class WordReader {
public:
    /// `text` must outlive the reader.
    explicit WordReader(const std::string& text) : text_(text) {}

    /// Starts the next line and skips its white space. False at the end of the text.
    bool nextLine();

    /// The word that begins a statement, cut by blanks and tabs only. None at the end of the line.
    std::optional<std::string> keyword();
    /// Enters the arguments after the last keyword; fails with `reason` when the text ends there.
    void enterArguments(const char* reason);
    /// The next argument. It is empty when there is none, and for an empty pair of quotes. A quoted
    /// one may continue on the following lines.
    std::string argument();

    bool atLineEnd() const { return peek() == '\0'; }
    /// Throws Error for the current position.
    [[noreturn]] void fail(const char* reason) const;

private:
    char peek(std::size_t ahead = 0) const;
    void skipSpace();
    void fetchLine();
    std::string word();
    void quoted(char quote, std::string& word);
    bool escape();

    const std::string& text_;
    std::size_t next_ = 0; ///< in text_: begin of the line after this one
    std::size_t lineNumber_ = 0;
    std::string line_; ///< including lines to which quoted words continue
    std::size_t at_ = 0;
    std::size_t keywordEnd_ = 0;
};

bool isName(const std::string& word);        ///< of an option or a section
bool isTypeName(const std::string& word);    ///< of a section's type
bool isPackageName(const std::string& word); ///< which is also the file's name
/// Whether a pending change can hold the word: no control characters but tab and line ends.
bool isValue(const std::string& word);

/// The word between single quotes, as files hold it.
std::string quote(const std::string& word);
/// The same without the outer quotes.
std::string escapeQuotes(const std::string& word);

} // namespace uci

#endif
