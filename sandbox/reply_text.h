#ifndef TAVO_SANDBOX_REPLY_TEXT_H
#define TAVO_SANDBOX_REPLY_TEXT_H

#include <string>
#include <vector>

/// JSON text in the bus tool's layout: one tab per level, one member or element a line.
class ReplyText {
public:
    /// Opens an object; `key` is empty for the outermost.
    void open(const std::string& key = "");
    void close();

    void add(const std::string& key, const std::string& value);
    void add(const std::string& key, const std::vector<std::string>& values);
    void addBoolean(const std::string& key, bool value);
    void addNumber(const std::string& key, long value);

    /// Complete once everything is closed.
    const std::string& text() const { return text_; }

private:
    void beginMember(const std::string& key);
    void newLine();

    std::string text_;
    std::size_t level_ = 0;
    bool first_ = true;
};

#endif
