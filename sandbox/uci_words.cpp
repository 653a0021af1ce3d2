#include "uci_words.h"

#include "uci_error.h"

#include <algorithm>
#include <cstddef>

namespace uci {

namespace {

// The C locale's classes, whatever locale the program runs in.
bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool isAlphanumeric(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool isPrintable(char c) { return c > ' ' && c <= '~'; }

template <class Predicate>
bool consistsOf(const std::string& word, Predicate isAllowed) {
    return !word.empty() && std::all_of(word.begin(), word.end(), isAllowed);
}

} // namespace

bool WordReader::nextLine() {
    if (next_ >= text_.size())
        return false;
    at_ = 0;
    fetchLine();
    skipSpace();
    return true;
}

std::optional<std::string> WordReader::keyword() {
    const std::size_t begin = line_.find_first_not_of(" \t", at_);
    if (begin == std::string::npos)
        return std::nullopt;
    keywordEnd_ = std::min(line_.find_first_of(" \t", begin), line_.size());
    return line_.substr(begin, keywordEnd_ - begin);
}

void WordReader::enterArguments(const char* reason) {
    if (keywordEnd_ >= line_.size())
        fail(reason);
    at_ = keywordEnd_ + 1;
}

std::string WordReader::argument() {
    skipSpace();
    if (peek() != ';')
        return word();
    ++at_;
    return "";
}

void WordReader::fail(const char* reason) const { throw Error(reason, lineNumber_, at_); }

char WordReader::peek(std::size_t ahead) const {
    return at_ + ahead < line_.size() ? line_[at_ + ahead] : '\0';
}

void WordReader::skipSpace() {
    while (isSpace(peek()))
        ++at_;
}

// Replaces the rest of this line with the next line of the text.
void WordReader::fetchLine() {
    line_.resize(std::min(at_, line_.size()));
    const std::size_t end = text_.find('\n', next_);
    const std::size_t stop = end == std::string::npos ? text_.size() : end + 1;
    const auto begin = text_.begin() + static_cast<std::ptrdiff_t>(next_);
    // A NUL ends the line early, as it ends a C text.
    line_.append(begin, std::find(begin, text_.begin() + static_cast<std::ptrdiff_t>(stop), '\0'));
    next_ = stop;
    if (end != std::string::npos)
        ++lineNumber_;
}

// Adjacent quoted and bare pieces make one word. That is how a quote is written in a value
// ('it'\''s').
std::string WordReader::word() {
    const std::size_t begin = at_;
    std::string word;
    do {
        const char c = peek();
        if (c == '\'' || c == '"') {
            quoted(c, word);
        } else if (c == '#') {
            line_.resize(at_);
        } else if (c == ';') {
            // The platform writes the terminator into the text. That of a bare word overwrites the
            // semicolon, and the rest of the line is lost. A quoted word is shorter than its
            // source, so the semicolon remains.
            if (word.size() == at_ - begin)
                line_.resize(at_);
            return word;
        } else if (c == '\\') {
            if (escape())
                word += line_[at_++];
        } else if (c != '\0') {
            word += line_[at_++];
        }
    } while (peek() != '\0' && !isSpace(peek()));
    if (peek() != '\0')
        ++at_; // the white space
    return word;
}

void WordReader::quoted(char quote, std::string& word) {
    ++at_;
    while (peek() != quote) {
        if (peek() == '\0') {
            fetchLine();
            if (peek() == '\0')
                fail(quote == '"' ? "EOF with unterminated \"" : "EOF with unterminated '");
        } else if (quote == '"' && peek() == '\\') {
            if (escape())
                word += line_[at_++];
        } else {
            word += line_[at_++];
        }
    }
    ++at_;
}

// Skips a backslash. False when it joins the next line to this one, true when it makes the
// following character an ordinary one.
bool WordReader::escape() {
    ++at_;
    const bool joins =
        peek() == '\0' || peek() == '\n' || (peek() == '\r' && peek(1) == '\n' && peek(2) == '\0');
    if (joins)
        fetchLine();
    return !joins;
}

bool isName(const std::string& word) {
    return consistsOf(word, [](char c) { return isAlphanumeric(c) || c == '_'; });
}

bool isTypeName(const std::string& word) { return consistsOf(word, isPrintable); }

bool isPackageName(const std::string& word) { return consistsOf(word, isPrintable); }

bool isValue(const std::string& word) {
    return std::all_of(word.begin(), word.end(), [](char c) {
        return static_cast<unsigned char>(c) >= ' ' || c == '\t' || c == '\n' || c == '\r';
    });
}

std::string escapeQuotes(const std::string& word) {
    std::string escaped;
    for (const char c : word) {
        if (c == '\'')
            escaped += "'\\''";
        else
            escaped += c;
    }
    return escaped;
}

std::string quote(const std::string& word) { return "'" + escapeQuotes(word) + "'"; }

} // namespace uci
