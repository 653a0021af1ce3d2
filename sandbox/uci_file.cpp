#include "uci_file.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace uci {

namespace {

bool isAlphanumeric(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool consistsOf(const std::string& word, const char* furtherCharacters) {
    const std::string further = furtherCharacters;
    return !word.empty() && std::all_of(word.begin(), word.end(), [&](char c) {
        return isAlphanumeric(c) || further.find(c) != std::string::npos;
    });
}

/// Cuts a text into words. One object reads one text, front to back.
class Splitter {
public:
    explicit Splitter(const std::string& text) : text_(text) {}

    std::vector<Statement> run() {
        while (at_ < text_.size())
            readLine();
        return std::move(statements_);
    }

private:
    void readLine() {
        Statement statement;
        statement.line = line_;
        while (at_ < text_.size() && text_[at_] != '\n') {
            const char c = text_[at_];
            if (c == ' ' || c == '\t' || c == '\r')
                ++at_;
            else if (c == '#')
                at_ = std::min(text_.find('\n', at_), text_.size());
            else
                statement.words.push_back(readWord());
        }
        next(); // the line end
        if (!statement.words.empty())
            statements_.push_back(std::move(statement));
    }

    // Quoted and bare pieces that touch each other make one word: that is how a quote gets into a
    // value ('it'\''s').
    std::string readWord() {
        std::string word;
        while (at_ < text_.size()) {
            const char c = text_[at_];
            if (c == '\'')
                readSingleQuoted(word);
            else if (c == '"')
                readDoubleQuoted(word);
            else if (c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '#')
                break;
            else if (c == '\\' && at_ + 1 < text_.size())
                readEscaped(word);
            else
                word += next();
        }
        return word;
    }

    void readSingleQuoted(std::string& word) {
        next();
        while (peek() != '\'')
            word += next();
        next();
    }

    void readDoubleQuoted(std::string& word) {
        next();
        while (peek() != '"') {
            if (peek() == '\\')
                readEscaped(word);
            else
                word += next();
        }
        next();
    }

    void readEscaped(std::string& word) {
        next();
        if (peek() == '\n')
            next(); // a line continued on the next one
        else
            word += next();
    }

    char peek() const {
        if (at_ >= text_.size())
            throw ParseError("unterminated word", line_);
        return text_[at_];
    }

    char next() {
        if (at_ >= text_.size())
            return '\n';
        if (text_[at_] == '\n')
            ++line_;
        return text_[at_++];
    }

    const std::string& text_;
    std::size_t at_ = 0;
    std::size_t line_ = 1;
    std::vector<Statement> statements_;
};

/// Builds a package from statements.
class Reader {
public:
    Package run(const std::vector<Statement>& statements) {
        for (const Statement& statement : statements)
            read(statement);
        nameAnonymousSections();
        return std::move(package_);
    }

private:
    void read(const Statement& statement) {
        const std::string& keyword = statement.words.front();
        const std::size_t arguments = statement.words.size() - 1;
        if (keyword == "package" && arguments == 1)
            return; // the file's name tells the package
        if (keyword == "config" && (arguments == 1 || arguments == 2))
            readSection(statement);
        else if ((keyword == "option" || keyword == "list") && arguments == 2)
            readOption(statement, keyword == "list");
        else
            throw ParseError("invalid command", statement.line);
    }

    void readSection(const Statement& statement) {
        const std::string& type = statement.words[1];
        const std::string name = statement.words.size() > 2 ? statement.words[2] : "";
        if (!isTypeName(type) || !(name.empty() || isName(name)))
            throw ParseError("invalid character in name field", statement.line);
        if (Section* earlier = name.empty() ? nullptr : package_.find(name)) {
            if (earlier->type != type)
                throw ParseError("section " + name + " has another type before", statement.line);
            current_ = static_cast<std::size_t>(earlier - package_.sections.data());
            return;
        }
        package_.append(type, name, name.empty());
        positions_.push_back(package_.counted);
        current_ = package_.sections.size() - 1;
    }

    void readOption(const Statement& statement, bool isList) {
        if (package_.sections.empty())
            throw ParseError("option command found before the first section", statement.line);
        const std::string& name = statement.words[1];
        const std::string& value = statement.words[2];
        if (!isName(name))
            throw ParseError("invalid character in name field", statement.line);
        Section& section = package_.sections[current_];
        if (isList)
            section.addToList(name, value);
        else if (value.empty())
            section.removeOption(name);
        else
            section.setOption(name, value);
    }

    // Only now, because a later named section may already carry the name.
    void nameAnonymousSections() {
        const std::size_t total = package_.counted;
        for (std::size_t i = 0; i < package_.sections.size(); ++i) {
            Section& section = package_.sections[i];
            if (!section.anonymous)
                continue;
            package_.counted = positions_[i] - 1;
            section.name = package_.nextName(section.type);
        }
        package_.counted = total;
    }

    Package package_;
    std::size_t current_ = 0;
    std::vector<std::size_t> positions_;
};

} // namespace

Option* Section::find(const std::string& option) {
    const auto found = std::find_if(options.begin(), options.end(),
                                    [&](const Option& each) { return each.name == option; });
    return found == options.end() ? nullptr : &*found;
}

void Section::setOption(const std::string& option, const std::string& value) {
    Option* existing = find(option);
    if (existing && !existing->isList) {
        existing->values.front() = value;
        return;
    }
    removeOption(option);
    options.push_back({option, false, {value}});
}

void Section::addToList(const std::string& option, const std::string& value) {
    Option* existing = find(option);
    if (!existing) {
        options.push_back({option, true, {value}});
        return;
    }
    existing->isList = true;
    existing->values.push_back(value);
}

bool Section::removeOption(const std::string& option) {
    Option* existing = find(option);
    if (!existing)
        return false;
    options.erase(options.begin() + (existing - options.data()));
    return true;
}

Section* Package::find(const std::string& section) {
    const auto found = std::find_if(sections.begin(), sections.end(),
                                    [&](const Section& each) { return each.name == section; });
    return found == sections.end() ? nullptr : &*found;
}

Section& Package::append(const std::string& type, const std::string& name, bool anonymous) {
    ++counted;
    Section section;
    section.type = type;
    section.name = name;
    section.anonymous = anonymous;
    sections.push_back(std::move(section));
    return sections.back();
}

bool Package::remove(const std::string& section) {
    Section* existing = find(section);
    if (!existing)
        return false;
    sections.erase(sections.begin() + (existing - sections.data()));
    return true;
}

std::string Package::nextName(const std::string& type) const {
    std::uint32_t hash = 5381;
    for (const char c : type)
        hash = hash * 33 + static_cast<unsigned char>(c);
    for (;; ++hash) { // until no section of the file carries the name already
        char name[32];
        std::snprintf(name, sizeof name, "cfg%02zx%04x", counted + 1, hash & 0xffffU);
        const auto taken = [&](const Section& each) { return each.name == name; };
        if (std::none_of(sections.begin(), sections.end(), taken))
            return name;
    }
}

ParseError::ParseError(const std::string& reason, std::size_t line)
    : std::runtime_error("Parse error (" + reason + ") at line " + std::to_string(line)) {}

std::vector<Statement> split(const std::string& text) { return Splitter(text).run(); }

Package parse(const std::string& text) { return Reader().run(split(text)); }

std::string format(const Package& package) {
    std::string text = "\n";
    for (const Section& section : package.sections) {
        text += "config " + section.type;
        if (!section.anonymous)
            text += " " + quote(section.name);
        text += "\n";
        for (const Option& option : section.options)
            for (const std::string& value : option.values)
                text += std::string(option.isList ? "\tlist " : "\toption ") + option.name + " " +
                        quote(value) + "\n";
        text += "\n";
    }
    return text;
}

std::string quote(const std::string& word) {
    std::string quoted = "'";
    for (const char c : word) {
        if (c == '\'')
            quoted += "'\\''";
        else
            quoted += c;
    }
    return quoted + "'";
}

bool isName(const std::string& word) { return consistsOf(word, "_"); }

bool isTypeName(const std::string& word) { return consistsOf(word, "_-"); }

bool isPackageName(const std::string& word) { return consistsOf(word, "_-"); }

} // namespace uci
