#ifndef TAVO_SANDBOX_REPLY_TEXT_H
#define TAVO_SANDBOX_REPLY_TEXT_H

#include <string>
#include <vector>

/// JSON text in the bus tool's layout: one tab per level, one member or element per line, or all in
/// one line. `key` is empty for elements of an array.
class ReplyText {
public:
    /// Begins the outermost object.
    explicit ReplyText(bool inOneLine = false) : inOneLine_(inOneLine) { open("", '{'); }

    void openObject(const std::string& key) { open(key, '{'); }
    void openArray(const std::string& key) { open(key, '['); }
    void close();

    void add(const std::string& key, const std::string& value);
    void add(const std::string& key, const std::vector<std::string>& values);
    void addBoolean(const std::string& key, bool value);
    void addNumber(const std::string& key, long value);

    /// Ends the outermost object too.
    std::string finish();

private:
    void open(const std::string& key, char bracket);
    void begin(const std::string& key);
    void newLine();

    bool inOneLine_;
    std::string text_;
    std::string closing_; ///< the closing brackets, innermost last
    bool first_ = true;
};

#endif
