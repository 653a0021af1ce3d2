// The sandbox's `uci`, and how both tools read and write files.

#include "SandboxTools.h"
#include "Waiting.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::ProgramResult;
using testing::HasSubstr;
using testing::StartsWith;

using SandboxUci = support::SandboxUbus;

// --- uci -----------------------------------------------------------------------------------------

TEST_F(SandboxUci, CommitWithoutAPendingChangeDoesNotTouchTheFile) {
    provide("network", "config   interface lan # kept as it is\n");
    struct stat before {};
    ASSERT_EQ(0, stat((config() + "/network").c_str(), &before));
    expectSilent(uci({"commit", "network"}));
    struct stat after {};
    ASSERT_EQ(0, stat((config() + "/network").c_str(), &after));
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
    EXPECT_EQ("config   interface lan # kept as it is\n", network());
}

TEST_F(SandboxUci, CommitKeepsTheFilesModeAndLeavesNothingElse) {
    ASSERT_EQ(0, chmod((config() + "/network").c_str(), 0600));
    expectSilent(call("set", R"({"config":"network","section":"lan","values":{"a":"b"}})"));
    committed();
    struct stat after {};
    ASSERT_EQ(0, stat((config() + "/network").c_str(), &after));
    EXPECT_EQ(0600U, after.st_mode & 07777U);
    EXPECT_EQ("network\n", support::runProgram({"ls", "-A", config()}).out);
    EXPECT_EQ("", support::readFile(directory_ / "pending/network"));
}

TEST_F(SandboxUci, CommitWithoutANameWritesEveryPackage) {
    provide("other", "config a 'x'\n");
    expectSilent(call("set", R"({"config":"network","section":"lan","values":{"a":"b"}})"));
    expectSilent(call("set", R"({"config":"other","section":"x","values":{"a":"b"}})"));
    expectSilent(uci({"commit"}));
    EXPECT_THAT(network(), HasSubstr("\toption a 'b'\n"));
    EXPECT_EQ("\nconfig a 'x'\n\toption a 'b'\n\n", support::readFile(config() + "/other"));
    EXPECT_EQ("", uci({"changes"}).out);
}

TEST_F(SandboxUci, CommitOfOnePackageLeavesTheOthersPending) {
    provide("other", "config a 'x'\n");
    expectSilent(call("set", R"({"config":"other","section":"x","values":{"a":"b"}})"));
    expectSilent(uci({"commit", "network"}));
    EXPECT_EQ("config a 'x'\n", support::readFile(config() + "/other"));
    EXPECT_EQ("other.x.a='b'\n", uci({"changes"}).out);
}

TEST_F(SandboxUci, CommitOfAMissingPackageIsAnError) {
    const ProgramResult ran = uci({"commit", "nopkg"});
    EXPECT_EQ(1, ran.status);
    EXPECT_EQ("", ran.out);
    EXPECT_EQ("uci: Entry not found\n", ran.err);
    EXPECT_EQ("", uci({"-q", "commit", "nopkg"}).err);
}

TEST_F(SandboxUci, CommitWritesAQuoteBetweenQuotesAndReadsItBack) {
    expectSilent(
        call("set", R"({"config":"network","section":"lan","values":{"a":"it's\n'two'"}})"));
    EXPECT_THAT(committed(), HasSubstr("\toption a 'it'\\''s\n'\\''two'\\'''\n"));
    EXPECT_EQ("it's\n'two'\n", uci({"get", "network.lan.a"}).out);
}

TEST_F(SandboxUci, ShowGetAndChangesPrintTheUsualForms) {
    EXPECT_EQ("network.lan=interface\n"
              "network.lan.device='br-lan'\n"
              "network.lan.gateway='10.0.0.1'\n"
              "network.lan.dns='1.1.1.1' '8.8.8.8'\n",
              uci({"show", "network.lan"}).out);
    EXPECT_EQ("network.lan.device='br-lan'\n", uci({"show", "network.lan.device"}).out);
    EXPECT_EQ("1.1.1.1 8.8.8.8\n", uci({"get", "network.lan.dns"}).out);
    EXPECT_EQ("interface\n", uci({"get", "network.lan"}).out);
    for (const char* missing : {"network.lan.no", "network.no", "no.lan.dns"}) {
        const ProgramResult ran = uci({"get", missing});
        EXPECT_EQ(1, ran.status) << missing;
        EXPECT_EQ("uci: Entry not found\n", ran.err) << missing;
    }
    EXPECT_EQ(0, call("add", R"({"config":"network","name":"g","type":"interface"})").status);
    expectSilent(call("set", R"({"config":"network","section":"lan",)"
                             R"("values":{"dns":["9.9.9.9"],"gateway":"","mtu":1}})"));
    expectSilent(call("delete", R"({"config":"network","section":"g"})"));
    EXPECT_EQ("network.g='interface'\n"
              "-network.lan.dns\n"
              "network.lan.dns+='9.9.9.9'\n"
              "-network.lan.gateway\n"
              "network.lan.mtu='1'\n"
              "-network.g\n",
              uci({"changes"}).out);
}

TEST_F(SandboxUci, UnknownUciCommandIsAnsweredWithTheUsage) {
    const std::vector<std::pair<std::vector<std::string>, int>> calls = {
        {{}, 0},
        {{"help"}, 0},
        {{"-Z"}, 0},
        {{"nosuch"}, 255},
        {{"get"}, 255},
        {{"commit", "a", "b"}, 255},
        {{"add", "network"}, 255}};
    for (const auto& [arguments, status] : calls) {
        const ProgramResult ran = uci(arguments);
        EXPECT_EQ(status, ran.status);
        EXPECT_EQ("", ran.out);
        EXPECT_THAT(ran.err, HasSubstr("Usage: uci [<options>] <command> [<arguments>]\n"));
    }
}

TEST_F(SandboxUci, SimultaneousChangesAreAllKept) {
    std::vector<std::unique_ptr<support::RunningProgram>> writers;
    for (int i = 0; i < 12; ++i)
        writers.push_back(std::make_unique<support::RunningProgram>(
            std::vector<std::string>{"ubus", "call", "uci", "set",
                                     R"({"config":"network","section":"lan","values":{"o)" +
                                         std::to_string(i) + R"(":"v"}})"},
            environment()));
    for (const auto& writer : writers)
        EXPECT_EQ(0, writer->wait().status);
    const std::string text = committed();
    for (int i = 0; i < 12; ++i)
        EXPECT_THAT(text, HasSubstr("\toption o" + std::to_string(i) + " 'v'\n"));
}

TEST_F(SandboxUci, ReadersWaitForACommitToBeDone) {
    const std::vector<std::vector<std::string>> readers = {
        {"ubus", "call", "uci", "get", R"({"config":"network"})"},
        {"uci", "show"},
        {"uci", "get", "network.lan.dns"},
        {"uci", "changes"}};
    for (const std::vector<std::string>& reader : readers) {
        const int lock = open(config().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ASSERT_EQ(0, flock(lock, LOCK_EX)); // as a commit does
        support::RunningProgram program(reader, environment());
        const std::string waiting = " -> FLOCK  ADVISORY  WRITE " + std::to_string(program.pid());
        EXPECT_TRUE(support::eventually([&] {
            return support::readFile("/proc/locks").find(waiting + " ") != std::string::npos;
        })) << reader[1];
        close(lock);
        EXPECT_EQ(0, program.wait().status);
    }
}

// --- reading -------------------------------------------------------------------------------------

TEST_F(SandboxUci, ReaderTakesEveryWayOfQuoting) {
    provide("forms", "package forms\n"
                     "# a comment\n"
                     "config interface lan # another\n"
                     "  option bare word\n"
                     "\toption cut word#comment\n"
                     "\toption single 'two words'\n"
                     "\toption 'double' \"two \\\"words\\\" # kept\"\n"
                     "\toption joined one'two'\"three\"\n"
                     "\toption escaped a\\ b\n"
                     "\toption continued one\\\ntwo\n"
                     "\toption e ''\n"
                     "\toption after '1'\r\n"
                     "\n"
                     "config \"wifi-device\" 'radio'");
    EXPECT_EQ("forms.lan=interface\n"
              "forms.lan.bare='word'\n"
              "forms.lan.cut='word'\n"
              "forms.lan.single='two words'\n"
              "forms.lan.double='two \"words\" # kept'\n"
              "forms.lan.joined='onetwothree'\n"
              "forms.lan.escaped='a b'\n"
              "forms.lan.continued='onetwo'\n"
              "forms.lan.after='1'\n"
              "forms.radio=wifi-device\n",
              uci({"show", "forms"}).out);
}

TEST_F(SandboxUci, ReaderMakesAListOfAnOptionThatIsAlsoListed) {
    provide("mixed", "config a 'x'\n\toption k '1'\n\tlist k '2'\n\tlist l ''\n\tlist l '3'\n"
                     "\toption l '4'\n");
    EXPECT_EQ("{\n\t\"value\": [\n\t\t\"1\",\n\t\t\"2\"\n\t]\n}\n",
              call("get", R"({"config":"mixed","section":"x","option":"k"})").out);
    EXPECT_EQ("mixed.x.l='4'\n", uci({"show", "mixed.x.l"}).out);
}

TEST_F(SandboxUci, ReaderMergesASectionThatBearsAGeneratedName) {
    provide("one", "config route\n");
    const std::string show = uci({"-X", "show", "one"}).out;
    const std::string name = show.substr(4, 9);
    EXPECT_EQ("one." + name + "=route\n", show);
    provide("one", "config route\nconfig route '" + name + "'\n\toption k 'v'\n");
    EXPECT_EQ("one.@route[0]=route\none.@route[0].k='v'\n", uci({"show", "one"}).out);
}

TEST_F(SandboxUci, ReaderMergesSectionsOfOneName) {
    provide("twice", "config a 'x'\n\toption k '1'\n\toption l '1'\n\tlist m '1'\n"
                     "config b 'y'\n"
                     "config a 'x'\n\toption k '2'\n\tlist m '2'\n\toption n '3'\n");
    EXPECT_EQ("twice.x=a\n"
              "twice.x.k='2'\n"
              "twice.x.l='1'\n"
              "twice.x.m='1' '2'\n"
              "twice.x.n='3'\n"
              "twice.y=b\n",
              uci({"show", "twice"}).out);
}

TEST_F(SandboxUci, ReaderReportsWhereAFileIsBroken) {
    const std::vector<std::pair<std::string, std::string>> files = {
        {"config a 'x'\nfrob\n", "invalid command) at line 2, byte 0"},
        {"config a 'x'\n  nosuch k v\n", "invalid command) at line 2, byte 2"},
        {"config\n", "invalid command) at line 1, byte 0"},
        {"config", "config without name) at line 0, byte 0"},
        {"config \n", "insufficient arguments) at line 1, byte 8"},
        {"config a b c\n", "too many arguments) at line 1, byte 13"},
        {"config 'a b'\n", "invalid character in type field) at line 1, byte 13"},
        {"config a 'x-y'\n", "invalid character in name field) at line 1, byte 15"},
        {"package a'b\n'\n", "invalid character in name field) at line 2, byte 14"},
        {"config a\n\toption 'k-l' 'v'\n", "invalid character in name field) at line 2, byte 14"},
        {"config a\n\toption '' 'v'\n", "insufficient arguments) at line 2, byte 11"},
        {"config a\n\tlist", "option without name) at line 1, byte 1"},
        {"option k 'v'\n", "option/list command found before the first section) at line 1, byte 0"},
        {"config a 'x'\n\n\toption k 'v\n", "EOF with unterminated ') at line 3, byte 13"},
        {"config a 'x'\n\toption k \"v", "EOF with unterminated \") at line 1, byte 12"},
        {"config a x\n\toption k 'v' ;\n", "invalid command) at line 2, byte 15"},
        {"config a 'x'\nconfig b 'x'\n",
         "section of different type overwrites prior section with same name) at line 2, byte 13"},
    };
    for (const auto& [content, message] : files) {
        provide("broken", content);
        const ProgramResult ran = uci({"show", "broken"});
        EXPECT_EQ(1, ran.status) << content;
        EXPECT_EQ("uci: Parse error (" + message + "\n", ran.err) << content;
    }
}

} // namespace
