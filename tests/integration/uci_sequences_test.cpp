// Random sequences of changes by the sandbox's `ubus` and `uci`, compared with a simple model of
// what the tools are documented to do. The seeds are fixed.

#include "SandboxTools.h"

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr int kNotFound = 252;
constexpr int kSequences = TAVO_SEQUENCES; // for each seed
constexpr int kSteps = 8;

using Values = std::vector<std::string>;

struct Section {
    std::string type;
    std::map<std::string, Values> options;
};
using Sections = std::map<std::string, Section>;

/// Returns a text as `uci show` prints it.
std::string quoted(const std::string& text) {
    std::string result;
    for (const char c : text)
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return "'" + result + "'";
}

std::string asJson(const std::string& text) {
    std::string result;
    for (const char c : text)
        result += (c == '"' || c == '\\' ? "\\" : "") + std::string(1, c);
    return "\"" + result + "\"";
}

/// The lines of `uci show`, in any order.
std::multiset<std::string> linesOf(const Sections& sections) {
    std::multiset<std::string> lines;
    for (const auto& [name, section] : sections) {
        lines.insert("p." + name + "=" + section.type);
        for (const auto& [option, values] : section.options) {
            std::string line;
            for (const std::string& value : values)
                line += (line.empty() ? "" : " ") + quoted(value);
            lines.insert("p." + name + "." + option + "=" + line);
        }
    }
    return lines;
}

std::multiset<std::string> linesOf(const std::string& text) {
    std::multiset<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.insert(line);
    return lines;
}

/// The tools and the model, which take the same steps.
class UciSequences : public support::SandboxUbus, public testing::WithParamInterface<unsigned> {
protected:
    void begin() {
        provide("p", "config t 'a'\n\toption x '1'\n\tlist y '2'\n\tlist y '3'\n");
        committed_ = {{"a", {"t", {{"x", {"1"}}, {"y", {"2", "3"}}}}}};
        pending_ = committed_;
    }

    void step() {
        switch (random_() % 8) {
        case 0:
            return add(pick({"a", "b", "c"}), pick({"t", "u"}));
        case 1:
        case 2:
        case 3:
            return set(pick({"a", "b", "c"}));
        case 4:
            return deleteOption(pick({"a", "b", "c"}), pick({"x", "y", "z"}));
        case 5:
            return deleteSection(pick({"a", "b", "c"}));
        case 6:
            return addToList(pick({"a", "b", "c"}), pick({"x", "y", "z"}));
        default:
            return random_() % 2 == 0 ? commit() : revert();
        }
    }

    void expectSame() const {
        EXPECT_EQ(linesOf(pending_), linesOf(uci({"show", "p"}).out)) << steps_;
    }

    void commit() {
        note("commit", uci({"commit", "p"}), 0);
        committed_ = pending_;
    }

    std::string steps_; // for the message of a failure

private:
    std::string pick(const std::vector<std::string>& from) { return from[random_() % from.size()]; }
    std::string pickValue() {
        return pick({"1", "2", "two words", "it's", "#", "a\"b", "back\\slash", "=", ""});
    }

    void note(const std::string& what, const support::ProgramResult& ran, int expected) {
        steps_ += what + "\n";
        EXPECT_EQ(expected, ran.status) << steps_ << ran.err;
    }

    void add(const std::string& name, const std::string& type) {
        const std::string json =
            R"({"config":"p","name":")" + name + R"(","type":")" + type + "\"}";
        note("add " + json, call("add", json), 0);
        pending_[name].type = type; // an existing section keeps its options
    }

    void set(const std::string& name) {
        const std::string option = pick({"x", "y", "z"});
        Values values = {pickValue()};
        const bool isList = random_() % 3 == 0;
        std::string text = asJson(values[0]);
        if (isList) {
            values = {"one", pick({"two", "it's three"})};
            text = "[" + asJson(values[0]) + "," + asJson(values[1]) + "]";
        }
        const std::string json = R"({"config":"p","section":")" + name + R"(","values":{")" +
                                 option + "\":" + text + "}}";
        const auto found = pending_.find(name);
        note("set " + json, call("set", json), found == pending_.end() ? kNotFound : 0);
        if (found == pending_.end())
            return;
        if (values[0].empty())
            found->second.options.erase(option);
        else
            found->second.options[option] = values;
    }

    void deleteOption(const std::string& name, const std::string& option) {
        const std::string json =
            R"({"config":"p","section":")" + name + R"(","options":[")" + option + "\",\"never\"]}";
        const auto found = pending_.find(name);
        const bool existed = found != pending_.end() && found->second.options.erase(option) == 1;
        note("delete " + json, call("delete", json), existed ? 0 : kNotFound);
    }

    void deleteSection(const std::string& name) {
        const std::string json = R"({"config":"p","section":")" + name + "\"}";
        note("delete " + json, call("delete", json), pending_.erase(name) == 1 ? 0 : kNotFound);
    }

    void addToList(const std::string& name, const std::string& option) {
        const auto found = pending_.find(name);
        const std::string value = pick({"one", "it's three"});
        const bool exists = found != pending_.end();
        note("add_list " + name + "." + option + "=" + value,
             uci({"add_list", "p." + name + "." + option + "=" + value}), exists ? 0 : 1);
        if (exists)
            found->second.options[option].push_back(value); // a single value becomes a list
    }

    void revert() {
        note("revert", uci({"revert", "p"}), 0);
        pending_ = committed_;
    }

    std::mt19937 random_{GetParam()};
    Sections committed_;
    Sections pending_;
};

TEST_P(UciSequences, EndInTheStateOfTheModel) {
    for (int sequence = 0; sequence < kSequences && !HasFailure(); ++sequence) {
        steps_.clear();
        begin();
        for (int i = 0; i < kSteps && !HasFailure(); ++i)
            step();
        expectSame();
        commit();
        expectSame(); // now read from the file
    }
}

INSTANTIATE_TEST_SUITE_P(seeds, UciSequences, testing::Range(1U, 5U));

} // namespace
