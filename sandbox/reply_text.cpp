#include "reply_text.h"

#include <cstdio>

namespace {

std::string quoted(const std::string& value) {
    std::string text = "\"";
    for (const char c : value) {
        switch (c) {
        case '\b':
            text += "\\b";
            break;
        case '\n':
            text += "\\n";
            break;
        case '\t':
            text += "\\t";
            break;
        case '\r':
            text += "\\r";
            break;
        case '"':
        case '\\':
            text += '\\';
            text += c;
            break;
        default:
            if (static_cast<unsigned char>(c) < ' ') {
                char escape[8];
                std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
                text += escape;
            } else {
                text += c;
            }
        }
    }
    return text + "\"";
}

} // namespace

void ReplyText::open(const std::string& key, char bracket) {
    begin(key);
    text_ += bracket;
    closing_ += bracket == '{' ? '}' : ']';
    newLine();
    first_ = true;
}

void ReplyText::close() {
    const char bracket = closing_.back();
    closing_.pop_back();
    newLine();
    text_ += bracket;
    first_ = false;
}

void ReplyText::add(const std::string& key, const std::string& value) {
    begin(key);
    text_ += quoted(value);
}

void ReplyText::add(const std::string& key, const std::vector<std::string>& values) {
    openArray(key);
    for (const std::string& value : values)
        add("", value);
    close();
}

void ReplyText::addBoolean(const std::string& key, bool value) {
    begin(key);
    text_ += value ? "true" : "false";
}

void ReplyText::addNumber(const std::string& key, long value) {
    begin(key);
    text_ += std::to_string(value);
}

std::string ReplyText::finish() {
    while (!closing_.empty())
        close();
    return text_ + "\n";
}

void ReplyText::begin(const std::string& key) {
    if (!first_) {
        text_ += ",";
        newLine();
    }
    first_ = false;
    if (!key.empty())
        text_ += quoted(key) + (inOneLine_ ? ":" : ": ");
}

void ReplyText::newLine() {
    if (!inOneLine_)
        text_ += "\n" + std::string(closing_.size(), '\t');
}
