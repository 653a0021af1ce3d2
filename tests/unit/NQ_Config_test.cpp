#include <kvr/api/crypto/NQ_Crypto.h>
#include <kvr/api/mng/NQ_Config.h>

#include "CapturedCommands.h"
#include "CapturedOutput.h"
#include "CapturedSyslog.h"
#include "Descriptors.h"
#include "ForkedChild.h"
#include "TempDir.h"

#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::crypto::NQ_Base64;
using kvr::api::mng::NQ_Config;
using support::CapturedCommands;
using support::CapturedSyslog;
using support::printedBy;
using support::readFile;
using support::TempDir;
using support::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(!std::is_convertible<std::string, NQ_Config>::value, "a root is not a configuration");

/// The arguments of init().
struct Given {
    std::string appID;
    std::string agentID;
    std::string subDir;
    std::string fileName;
    std::string content = "{}";
    bool isBase64 = false;
};

void init(NQ_Config& config, const Given& given) {
    config.init(given.appID, given.agentID, given.subDir, given.fileName, given.content,
                given.isBase64);
}

/// Returns the resulting directory, file and command lines; no command runs.
std::vector<std::string> pathsOf(const Given& given, const std::string& root = "R") {
    const CapturedCommands commands;
    NQ_Config config(root);
    printedBy([&] { init(config, given); });
    std::vector<std::string> result = {config.getConfigDir(), config.getConfigFile()};
    for (const std::string& line : commands.lines())
        result.push_back(line);
    return result;
}

/// An application directory "app1" under its own root, with a configuration file. A real mkdir
/// creates its directory.
class Placed {
public:
    explicit Placed(const std::string& content, bool isBase64 = false) : config(root.path()) {
        printedBy([&] { init(config, {"app1", "", "cfg", "app.json", content, isBase64}); });
    }

    TempDir root;
    NQ_Config config;
    const std::string file = root / "app1/cfg/app.json";
};

/// Expects that `action` logs and runs the scripts `expected` and prints nothing. No script really
/// runs. The logger lasts as long as the process, so this runs in a forked copy. Removes the log
/// file afterwards.
void expectScripts(const Given& given, const std::function<void(NQ_Config&)>& action,
                   const std::vector<std::string>& expected) {
    const bool hadLog = support::exists("/tmp/log.out");
    const support::ForkedChild child = support::inForkedChild([&] {
        NQ_Config config("R");
        std::vector<std::string> log;
        std::vector<std::string> run;
        std::string output;
        {
            const CapturedCommands ignored;
            printedBy([&] { init(config, given); });
        }
        {
            const CapturedSyslog records;
            const CapturedCommands commands(CapturedCommands::runNothing, 256); // the commands fail
            output = printedBy([&] { action(config); });
            log = records.lines();
            run = commands.lines();
        }
        std::vector<std::string> logged;
        for (const std::string& script : expected) {
            logged.push_back("<6> Executing...");
            logged.push_back("<6> " + script);
        }
        EXPECT_EQ(expected, run);
        EXPECT_EQ(logged, log);
        EXPECT_EQ("", output);
    });
    if (!hadLog)
        unlink("/tmp/log.out");
    EXPECT_EQ(0, child.status) << child.output;
}

void stop(NQ_Config& config) { EXPECT_TRUE(config.stopAgent()); }
void restart(NQ_Config& config) { config.notifyAppRestart(); }

// paths -------------------------------------------------------------------------------------------

TEST(NQ_Config, AnAgentsFileLiesInTheAgentsDirectory) {
    EXPECT_THAT(pathsOf({"app1", "agentA", "cfg", "agent.json"}),
                ElementsAre("R/app1/agents/agentA/cfg", "R/app1/agents/agentA/cfg/agent.json",
                            "mkdir -p R/app1/agents/agentA/cfg"));
}

TEST(NQ_Config, AnApplicationsFileLiesInTheApplicationsDirectory) {
    EXPECT_THAT(pathsOf({"app1", "", "cfg", "app.json"}),
                ElementsAre("R/app1/cfg", "R/app1/cfg/app.json", "mkdir -p R/app1/cfg"));
}

TEST(NQ_Config, WithoutAnApplicationTheFileNameIsTheFullPath) {
    EXPECT_THAT(pathsOf({"", "x", "sub", "/etc/foo/bar.conf"}),
                ElementsAre("/etc/foo", "/etc/foo/bar.conf", "mkdir -p /etc/foo"));
    EXPECT_THAT(pathsOf({"", "", "sub", "/etc/foo/bar.conf"}),
                ElementsAre("/etc/foo", "/etc/foo/bar.conf", "mkdir -p /etc/foo"));
}

TEST(NQ_Config, ABareFileNameIsItsOwnDirectory) {
    EXPECT_THAT(pathsOf({"", "", "", "bar.conf"}),
                ElementsAre("bar.conf", "bar.conf", "mkdir -p bar.conf"));
}

TEST(NQ_Config, ABackslashSeparatesToo) {
    EXPECT_THAT(pathsOf({"", "", "", "c:\\foo\\bar.conf"}),
                ElementsAre("c:\\foo", "c:\\foo\\bar.conf", "mkdir -p c:\\foo"));
    EXPECT_THAT(pathsOf({"", "", "", "/a/b\\c"}), ElementsAre("/a/b", "/a/b\\c", "mkdir -p /a/b"));
    EXPECT_THAT(pathsOf({"", "", "", "a\\b/c"}), ElementsAre("a\\b", "a\\b/c", "mkdir -p a\\b"));
}

TEST(NQ_Config, TheDirectoryIsThatOfTheFilesLastSeparator) {
    EXPECT_THAT(pathsOf({"app1", "", "cfg", "deeper/app.json"}),
                ElementsAre("R/app1/cfg/deeper", "R/app1/cfg/deeper/app.json",
                            "mkdir -p R/app1/cfg/deeper"));
    EXPECT_THAT(pathsOf({"app1", "", "cfg", ""}),
                ElementsAre("R/app1/cfg", "R/app1/cfg/", "mkdir -p R/app1/cfg"));
}

TEST(NQ_Config, NoDirectoryIsMadeForAFileOfTheRootDirectory) {
    EXPECT_THAT(pathsOf({"", "", "", "/bar.conf"}), ElementsAre("", "/bar.conf"));
    EXPECT_THAT(pathsOf({"", "", "", ""}), ElementsAre("", ""));
}

TEST(NQ_Config, NoPartOfThePathIsNormalizedOrQuoted) {
    EXPECT_THAT(pathsOf({"app1", "", "", "app.json"}),
                ElementsAre("R/app1/", "R/app1//app.json", "mkdir -p R/app1/"));
    EXPECT_THAT(pathsOf({"../app 1", "a;b", "c/../d", "$x"}),
                ElementsAre("R/../app 1/agents/a;b/c/../d", "R/../app 1/agents/a;b/c/../d/$x",
                            "mkdir -p R/../app 1/agents/a;b/c/../d"));
}

TEST(NQ_Config, TheRootIsUsedAsItIsGiven) {
    EXPECT_THAT(pathsOf({"app1", "", "cfg", "f"}, ""),
                ElementsAre("/app1/cfg", "/app1/cfg/f", "mkdir -p /app1/cfg"));
    EXPECT_THAT(pathsOf({"app1", "", "cfg", "f"}, "/r/"),
                ElementsAre("/r//app1/cfg", "/r//app1/cfg/f", "mkdir -p /r//app1/cfg"));
}

TEST(NQ_Config, ApplicationsLieUnderOptAppsByDefault) {
    const CapturedCommands commands;
    NQ_Config config;
    NQ_Config withEmptyBraces = {};
    for (NQ_Config* made : {&config, &withEmptyBraces}) {
        printedBy([&] { init(*made, {"app1", "", "cfg", "f"}); });
        EXPECT_EQ("/opt/apps/app1/cfg/f", made->getConfigFile());
        EXPECT_EQ("mkdir -p /opt/apps/app1/cfg", commands.lines().back());
    }
}

TEST(NQ_Config, InitAgainReplacesEverything) {
    const CapturedCommands commands;
    NQ_Config config("R");
    printedBy([&] {
        init(config, {"app1", "agentA", "cfg", "agent.json", "QUJD", true});
        init(config, {"", "", "", "/bar.conf", "text"});
    });
    EXPECT_EQ("", config.getConfigDir());
    EXPECT_EQ("/bar.conf", config.getConfigFile());
    EXPECT_THAT(commands.lines(), ElementsAre("mkdir -p R/app1/agents/agentA/cfg"));
}

// what init() prints ------------------------------------------------------------------------------

TEST(NQ_Config, InitPrintsWhatItGotAndTheDirectory) {
    const CapturedCommands commands;
    NQ_Config config("R");
    EXPECT_EQ("AppID:app1\n"
              "AgentID:agentA\n"
              "Got Content:{\"a\":1}\n"
              "Creating directory:R/app1/agents/agentA/cfg\n",
              printedBy([&] {
                  init(config, {"app1", "agentA", "cfg", "f", "{\"a\":1}"});
              }));
}

TEST(NQ_Config, InitPrintsTheSameFourLinesForEmptyTexts) {
    NQ_Config config("R");
    EXPECT_EQ("AppID:\n"
              "AgentID:\n"
              "Got Content:\n"
              "Creating directory:\n",
              printedBy([&] {
                  init(config, {"", "", "", "", ""});
              }));
}

TEST(NQ_Config, ContentIsPrintedAsReceived) {
    const CapturedCommands commands;
    NQ_Config config("R");
    EXPECT_EQ("AppID:app1\nAgentID:\nGot Content:QUJD\nCreating directory:R/app1/cfg\n",
              printedBy([&] {
                  init(config, {"app1", "", "cfg", "f", "QUJD", true});
              }));
    EXPECT_EQ("AppID:app1\nAgentID:\nGot Content:two\nlines\n\nCreating directory:R/app1/cfg\n",
              printedBy([&] {
                  init(config, {"app1", "", "cfg", "f", "two\nlines\n"});
              }));
}

TEST(NQ_Config, EveryLineIsFlushedBeforeTheCallReturns) {
    NQ_Config config("R");
    {
        const support::CapturedOutput output;
        init(config, {"", "", "", "", ""});
        EXPECT_EQ("AppID:\nAgentID:\nGot Content:\nCreating directory:\n", output.written());
    }
    const support::CapturedOutput output;
    config.checkConfig();
    EXPECT_EQ("Unable to parse json\nConfiguration NOT VALID\n", output.written());
}

TEST(NQ_Config, TheLinesStandBeforeWhatTheCommandPrints) {
    TempDir root;
    writeFile(root / "app1", ""); // a file in place of a directory
    NQ_Config config(root.path());
    const std::string text = printedBy([&] {
        dup2(STDOUT_FILENO, STDERR_FILENO);
        init(config, {"app1", "", "cfg", "f"});
    });
    EXPECT_THAT(text, testing::MatchesRegex("AppID:app1\nAgentID:\nGot Content:.*\n"
                                            "Creating directory:.*/app1/cfg\nmkdir: .*\n"));
}

// directories -------------------------------------------------------------------------------------

TEST(NQ_Config, InitMakesTheDirectoryWithItsParents) {
    TempDir root;
    NQ_Config config(root.path());
    printedBy([&] { init(config, {"app1", "agentA", "cfg", "agent.json"}); });
    EXPECT_TRUE(support::exists(root / "app1/agents/agentA/cfg"));
    EXPECT_FALSE(support::exists(root / "app1/agents/agentA/cfg/agent.json"));
}

TEST(NQ_Config, InitLeavesADirectoryThatIsThereAlone) {
    Placed first("old");
    first.config.applyConfig();
    NQ_Config again(first.root.path());
    printedBy([&] { init(again, {"app1", "", "cfg", "app.json"}); });
    EXPECT_EQ("old", readFile(first.file));
}

TEST(NQ_Config, TheShellInterpretsTheDirectory) {
    TempDir root;
    NQ_Config config(root.path());
    printedBy([&] { init(config, {"a$((1+1))", "", "cfg", "f"}); });
    EXPECT_TRUE(support::exists(root / "a2/cfg"));
}

// checkConfig -------------------------------------------------------------------------------------

TEST(NQ_Config, JsonIsValid) {
    const CapturedCommands commands;
    NQ_Config config("R");
    for (const char* content : {"{}", "{\"a\":{\"b\":[1,2]}}", "[]", "\"text\""}) {
        printedBy([&] { init(config, {"app1", "", "cfg", "f", content}); });
        bool valid = false;
        EXPECT_EQ("", printedBy([&] { valid = config.checkConfig(); })) << content;
        EXPECT_TRUE(valid) << content;
    }
}

TEST(NQ_Config, WhatIsNotJsonIsNotValid) {
    const CapturedCommands commands;
    NQ_Config config("R");
    for (const char* content : {"", " ", "{", "plain text", "key=value\n"}) {
        printedBy([&] { init(config, {"app1", "", "cfg", "f", content}); });
        bool valid = true;
        // The JSON document prints the first line.
        EXPECT_EQ("Unable to parse json\nConfiguration NOT VALID\n",
                  printedBy([&] { valid = config.checkConfig(); }))
            << content;
        EXPECT_FALSE(valid) << content;
    }
}

TEST(NQ_Config, BeforeInitNothingIsValid) {
    NQ_Config config;
    bool valid = true;
    EXPECT_EQ("Unable to parse json\nConfiguration NOT VALID\n",
              printedBy([&] { valid = config.checkConfig(); }));
    EXPECT_FALSE(valid);
}

TEST(NQ_Config, EncodedContentIsNotDecodedForTheCheck) {
    const CapturedCommands commands;
    NQ_Config config("R");
    const std::string encoded = NQ_Base64::base64_encode("{\"a\":1}");
    printedBy([&] { init(config, {"app1", "", "cfg", "f", encoded, true}); });
    printedBy([&] { EXPECT_FALSE(config.checkConfig()); });
}

// applyConfig -------------------------------------------------------------------------------------

TEST(NQ_Config, PlainContentIsWrittenAsItIs) {
    const std::string content("{\"a\":1}\r\n\0tail", 15);
    Placed placed(content);
    EXPECT_EQ("", printedBy([&] { EXPECT_TRUE(placed.config.applyConfig()); }));
    EXPECT_EQ(content, readFile(placed.file));
}

TEST(NQ_Config, EncodedContentIsWrittenAsItsBytes) {
    std::string bytes;
    for (int i = 0; i < 256; ++i)
        bytes += static_cast<char>(i);
    Placed placed(NQ_Base64::base64_encode(bytes), true);
    EXPECT_EQ("", printedBy([&] { EXPECT_TRUE(placed.config.applyConfig()); }));
    EXPECT_EQ(bytes, readFile(placed.file));
}

TEST(NQ_Config, EncodedTextThatIsNotMarkedAsSuchIsWrittenAsItIs) {
    Placed placed("QUJD");
    placed.config.applyConfig();
    EXPECT_EQ("QUJD", readFile(placed.file));
}

TEST(NQ_Config, InvalidEncodedContentIsWrittenAsTheDecoderReturnsIt) {
    Placed placed("QU?D", true);
    EXPECT_TRUE(placed.config.applyConfig());
    EXPECT_EQ(std::string(3, '\0'), readFile(placed.file));
}

TEST(NQ_Config, EmptyContentMakesAnEmptyFile) {
    for (const bool isBase64 : {false, true}) {
        Placed placed("", isBase64);
        writeFile(placed.file, "old");
        EXPECT_TRUE(placed.config.applyConfig());
        EXPECT_EQ("", readFile(placed.file));
    }
}

TEST(NQ_Config, ALongerFileIsReplacedWhole) {
    for (const bool isBase64 : {false, true}) {
        Placed placed(isBase64 ? "QUJD" : "ABC", isBase64);
        writeFile(placed.file, "something longer");
        EXPECT_TRUE(placed.config.applyConfig());
        EXPECT_EQ("ABC", readFile(placed.file));
    }
}

TEST(NQ_Config, AfterEncodedContentPlainContentIsWrittenAsItIs) {
    Placed placed("QUJD", true);
    placed.config.applyConfig();
    printedBy([&] { init(placed.config, {"app1", "", "cfg", "app.json", "QUJD", false}); });
    placed.config.applyConfig();
    EXPECT_EQ("QUJD", readFile(placed.file));
}

TEST(NQ_Config, AFileThatCannotBeWrittenPassesSilently) {
    for (const bool isBase64 : {false, true}) {
        Placed placed("QUJD", isBase64);
        ASSERT_EQ(0, mkdir(placed.file.c_str(), 0755)); // a directory blocks the superuser, too
        bool result = false;
        std::string errors;
        EXPECT_EQ("", printedBy([&] {
                      errors = support::errorsOf([&] { result = placed.config.applyConfig(); });
                  }));
        EXPECT_EQ("", errors);
        EXPECT_TRUE(result);
    }
}

TEST(NQ_Config, ABareFileNameBecomesADirectoryAndIsNotWritten) {
    const support::ForkedChild child = support::inForkedChild([] {
        TempDir here;
        ASSERT_EQ(0, chdir(here.path().c_str()));
        NQ_Config config;
        printedBy([&] {
            init(config, {"", "", "", "bar.conf", "text"});
            EXPECT_TRUE(config.applyConfig());
        });
        struct stat status = {};
        ASSERT_EQ(0, stat("bar.conf", &status));
        EXPECT_TRUE(S_ISDIR(status.st_mode));
        EXPECT_EQ(0, chdir("/"));
    });
    EXPECT_EQ(0, child.status) << child.output;
}

TEST(NQ_Config, NoFileStaysOpen) {
    Placed plain("text");
    Placed encoded("QUJD", true);
    const auto before = support::openDescriptors();
    plain.config.applyConfig();
    encoded.config.applyConfig();
    EXPECT_THAT(support::openedSince(before), IsEmpty());
}

// scripts -----------------------------------------------------------------------------------------

const Given kAgents = {"app1", "agentA", "cfg", "agent.json"};
const Given kApplications = {"app1", "", "cfg", "app.json"};
const Given kFullPath = {"", "x", "", "/etc/foo/bar.conf"};
const Given kFullPathOnly = {"", "", "", "/etc/foo/bar.conf"};

const char* const kStopScript = "/opt/components/mng/AG_Config/bin/stopAgent.sh";

TEST(NQ_Config, AnAgentIsStoppedByItsScript) {
    expectScripts(kAgents, stop, {std::string(kStopScript) + " agentA"});
}

TEST(NQ_Config, AnAgentIsStoppedWithoutAnApplicationToo) {
    expectScripts(kFullPath, stop, {std::string(kStopScript) + " x"});
}

TEST(NQ_Config, WithoutAnAgentNothingIsStopped) {
    expectScripts(kApplications, stop, {});
    expectScripts(kFullPathOnly, stop, {});
}

TEST(NQ_Config, AnApplicationIsRestartedByItsScript) {
    expectScripts(kApplications, restart, {"R/app1/bin/run.sh restart"});
}

TEST(NQ_Config, OnlyAnApplicationWithoutAnAgentIsRestarted) {
    expectScripts(kAgents, restart, {});
    expectScripts(kFullPath, restart, {});
    expectScripts(kFullPathOnly, restart, {});
}

TEST(NQ_Config, BeforeInitNoScriptRuns) {
    NQ_Config config;
    const CapturedCommands commands;
    EXPECT_TRUE(config.stopAgent());
    config.notifyAppRestart();
    EXPECT_THAT(commands.lines(), IsEmpty());
}

TEST(NQ_Config, TheApplicationsScriptReallyRuns) {
    const bool hadLog = support::exists("/tmp/log.out");
    const support::ForkedChild child = support::inForkedChild([] {
        Placed placed("{}");
        ASSERT_EQ(0, mkdir((placed.root / "app1/bin").c_str(), 0755));
        writeFile(placed.root / "app1/bin/run.sh",
                  "#!/bin/sh\necho \"$0 $*\" > " + (placed.root / "ran") + "\n", 0755);
        placed.config.notifyAppRestart();
        EXPECT_EQ((placed.root / "app1/bin/run.sh") + " restart\n", readFile(placed.root / "ran"));
    });
    if (!hadLog)
        unlink("/tmp/log.out");
    EXPECT_EQ(0, child.status) << child.output;
}

} // namespace
