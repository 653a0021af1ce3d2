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
        case '/': // the bus tool does so, though JSON need not
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

void ReplyText::open(const std::string& key) {
    if (!key.empty())
        beginMember(key);
    text_ += "{";
    ++level_;
    newLine();
    first_ = true;
}

void ReplyText::close() {
    --level_;
    newLine();
    text_ += "}";
    first_ = false;
}

void ReplyText::add(const std::string& key, const std::string& value) {
    beginMember(key);
    text_ += quoted(value);
}

void ReplyText::add(const std::string& key, const std::vector<std::string>& values) {
    beginMember(key);
    text_ += "[";
    ++level_;
    bool first = true;
    for (const std::string& value : values) {
        if (!first)
            text_ += ",";
        first = false;
        newLine();
        text_ += quoted(value);
    }
    --level_;
    newLine();
    text_ += "]";
}

void ReplyText::addBoolean(const std::string& key, bool value) {
    beginMember(key);
    text_ += value ? "true" : "false";
}

void ReplyText::addNumber(const std::string& key, long value) {
    beginMember(key);
    text_ += std::to_string(value);
}

void ReplyText::beginMember(const std::string& key) {
    if (!first_) {
        text_ += ",";
        newLine();
    }
    first_ = false;
    text_ += quoted(key) + ": ";
}

void ReplyText::newLine() { text_ += "\n" + std::string(level_, '\t'); }
