// Runs the cases of recorded_uci.txt, which explains their form, and of further_uci.txt with the
// sandbox's tools. Writes what each case does in the same form and compares the texts.

#include "RunProgram.h"
#include "TempDir.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Files = std::map<std::string, std::string>; ///< contents by name
using Lines = std::vector<std::string>;

struct Case {
    std::string title;
    int line = 0; ///< line number in the file
    Lines commands;
    std::string text; ///< the commands and all their effects
};

struct Record {
    Files packages;
    std::vector<Case> cases;
};

bool startsWith(const std::string& line, const std::string& beginning) {
    return line.compare(0, beginning.size(), beginning) == 0;
}

Record readRecord(const std::string& path) {
    std::ifstream file(path);
    Record record;
    std::string* package = nullptr;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        if (line.empty() || line.front() == '#') {
            continue;
        } else if (startsWith(line, "package ")) {
            package = &record.packages[line.substr(8)];
        } else if (startsWith(line, "== ")) {
            record.cases.push_back({line.substr(3), number, {}, ""});
        } else if (!record.cases.empty()) {
            Case& current = record.cases.back();
            current.text += line + "\n";
            if (startsWith(line, "$ "))
                current.commands.push_back(line.substr(2));
        } else if (package && line.front() == '|') {
            *package += line.substr(1) + "\n";
        } else {
            throw std::runtime_error(path + ":" + std::to_string(number) + ": " + line);
        }
    }
    return record;
}

Lines linesOf(const std::string& text) {
    Lines lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty() && line.back() == '\r')
            line.replace(line.size() - 1, 1, "<CR>");
        lines.push_back(line);
    }
    if (!text.empty() && text.back() != '\n')
        lines.back() += "<no line end>";
    return lines;
}

std::string marked(const std::string& mark, const std::string& text) {
    std::string result;
    for (const std::string& line : linesOf(text)) {
        result += mark + line + "\n";
        if (startsWith(line, "Usage: "))
            return result + mark + "...\n";
    }
    return result;
}

/// Returns the removed and added lines, grouped, as the shortest difference.
std::string difference(const std::string& name, const Lines& before, const Lines& after) {
    // common[i][j]: length of the longest common subsequence of the first i and the first j lines
    std::vector<std::vector<std::size_t>> common(before.size() + 1,
                                                 std::vector<std::size_t>(after.size() + 1));
    for (std::size_t i = 0; i < before.size(); ++i)
        for (std::size_t j = 0; j < after.size(); ++j)
            common[i + 1][j + 1] = before[i] == after[j]
                                       ? common[i][j] + 1
                                       : std::max(common[i][j + 1], common[i + 1][j]);
    // Backwards, so that a removed section begins with the empty line before it.
    std::string result;
    std::string removed;
    std::string added;
    std::size_t i = before.size();
    std::size_t j = after.size();
    while (i > 0 || j > 0) {
        if (i > 0 && j > 0 && before[i - 1] == after[j - 1]) {
            result = std::exchange(removed, "") + std::exchange(added, "") + result;
            --i;
            --j;
        } else if (j == 0 || (i > 0 && common[i - 1][j] >= common[i][j - 1])) {
            removed = name + " -" + before[--i] + "\n" + removed;
        } else {
            added = name + " +" + after[--j] + "\n" + added;
        }
    }
    return removed + added + result;
}

/// A separate gateway for each case. The commands run in its root directory.
class Gateway {
public:
    explicit Gateway(const Files& packages) : files_(packages) {
        std::filesystem::create_directories(config_);
        std::filesystem::create_directories(root_ / "tmp");
        for (const auto& [name, content] : packages)
            support::writeFile(config_ + "/" + name, content);
    }

    std::string run(const std::string& command) {
        const support::ProgramResult ran = support::runProgram(
            {"sh", "-c", "cd \"$GATEWAY\"\n" + command},
            {"GATEWAY=" + root_.path(), "TAVO_UCI_CONFIG_DIR=" + config_,
             "TAVO_UCI_PENDING_DIR=" + pending_,
             std::string("PATH=") + TAVO_SANDBOX_BIN + ":" + std::getenv("PATH")});
        std::string text = "$ " + command + "\n" + marked(">", ran.out) + marked("2>", ran.err);
        if (ran.status != 0)
            text += "exit " + std::to_string(ran.status) + "\n";
        return text + changes();
    }

    std::string pending() const {
        std::string text;
        for (const auto& [name, content] : contents(pending_))
            text += marked("pending ", content);
        return text;
    }

private:
    static Files contents(const std::string& directory) {
        Files files;
        std::error_code missing;
        for (const auto& entry : std::filesystem::directory_iterator(directory, missing))
            if (entry.is_regular_file())
                files[entry.path().filename().string()] = support::readFile(entry.path().string());
        return files;
    }

    std::string changes() {
        Files now = contents(config_);
        Files all = files_;
        all.insert(now.begin(), now.end());
        std::string text;
        for (const auto& each : all)
            text += difference(each.first, linesOf(files_[each.first]), linesOf(now[each.first]));
        files_ = std::move(now);
        return text;
    }

    support::TempDir root_;
    std::string config_ = root_ / "etc/config";
    std::string pending_ = root_ / "tmp/.uci";
    Files files_;
};

class RecordedUci : public testing::Test {
public:
    RecordedUci(const Files& packages, const Case& recorded)
        : packages_(packages), case_(recorded) {}

    void TestBody() override {
        Gateway gateway(packages_);
        std::string text;
        for (const std::string& command : case_.commands)
            text += gateway.run(command);
        EXPECT_EQ(case_.text, text + gateway.pending());
    }

private:
    const Files& packages_;
    const Case& case_;
};

/// Returns the title as one word, as names of tests require.
std::string nameOf(const Case& recorded) {
    std::string name;
    bool capital = true;
    for (const char c : recorded.title) {
        const auto letter = static_cast<unsigned char>(c);
        if (std::isalnum(letter))
            name += static_cast<char>(capital ? std::toupper(letter) : c);
        capital = c == ' ';
    }
    return name;
}

} // namespace

int main(int argc, char* argv[]) {
    testing::InitGoogleTest(&argc, argv);
    static const std::map<std::string, std::string> files = {{"RecordedUci", TAVO_RECORDED_UCI},
                                                             {"FurtherUci", TAVO_FURTHER_UCI}};
    static std::map<std::string, Record> records;
    for (const auto& [suite, path] : files) {
        const Record& record = records[suite] = readRecord(path);
        for (const Case& each : record.cases)
            testing::RegisterTest(
                suite.c_str(), nameOf(each).c_str(), nullptr, nullptr, path.c_str(), each.line,
                [&record, &each] { return new RecordedUci(record.packages, each); });
    }
    return RUN_ALL_TESTS();
}
