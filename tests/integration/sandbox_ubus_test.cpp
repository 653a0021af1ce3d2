// The sandbox's `ubus` and `uci` on files of their own: what they print, refuse and write.
#include "RunProgram.h"
#include "TempDir.h"
#include "Waiting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using support::Ran;
using testing::HasSubstr;
using testing::StartsWith;

const char kNetwork[] = "\n"
                        "config interface 'lan'\n"
                        "\toption device 'br-lan'\n"
                        "\toption gateway '10.0.0.1'\n"
                        "\tlist dns '1.1.1.1'\n"
                        "\tlist dns '8.8.8.8'\n"
                        "\n"
                        "config device\n"
                        "\toption name 'br-lan'\n"
                        "\n";

const char kUsageLine[] = "Usage: ubus [<options>] <command> [arguments...]\n";

/// A gateway's package directory with the one package "network".
class SandboxUbus : public testing::Test {
protected:
    SandboxUbus() {
        mkdir(config().c_str(), 0755);
        support::writeFile(config() + "/network", kNetwork);
    }

    std::string config() const { return directory_ / "config"; }
    std::string network() const { return support::readFile(config() + "/network"); }

    void provide(const std::string& package, const std::string& content) const {
        support::writeFile(config() + "/" + package, content);
    }

    Ran tool(const std::string& name, std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), std::string(TAVO_SANDBOX_BIN) + "/" + name);
        return support::runProgram(arguments, {"TAVO_UCI_CONFIG_DIR=" + config(),
                                               "TAVO_UCI_PENDING_DIR=" + directory_ / "pending"});
    }
    Ran call(const std::string& method, const std::string& json) const {
        return tool("ubus", {"call", "uci", method, json});
    }
    Ran uci(std::vector<std::string> arguments) const { return tool("uci", arguments); }

    /// The file of the package network after a commit.
    std::string committed() const {
        expectSilent(uci({"commit", "network"}));
        return network();
    }

    static void expectSilent(const Ran& ran) {
        EXPECT_EQ(0, ran.status);
        EXPECT_EQ("", ran.out);
        EXPECT_EQ("", ran.err);
    }

    /// A refusal: status and message as given, nothing on standard output, nothing pending.
    void expectRefused(const std::string& method, const std::string& json, int status,
                       const std::string& text) const {
        const Ran ran = call(method, json);
        EXPECT_EQ(status, ran.status) << json;
        EXPECT_EQ("", ran.out) << json;
        EXPECT_EQ("Command failed: ubus call uci " + method + " " + json + " (" + text + ")\n",
                  ran.err.substr(0, ran.err.find(kUsageLine)));
        EXPECT_EQ(status == 254, ran.err.find(kUsageLine) != std::string::npos) << ran.err;
        EXPECT_EQ("", uci({"changes"}).out) << json;
    }
    void expectNotFound(const std::string& method, const std::string& json) const {
        expectRefused(method, json, 252, "Not found");
    }
    void expectInvalid(const std::string& method, const std::string& json) const {
        expectRefused(method, json, 254, "Invalid argument");
    }

    support::TempDir directory_;
};

// --- get ------------------------------------------------------------------------------------------

TEST_F(SandboxUbus, GetPrintsASectionInFileOrder) {
    const Ran ran = call("get", R"({ "config":"network","section":"lan"})");
    EXPECT_EQ(0, ran.status);
    EXPECT_EQ("", ran.err);
    EXPECT_EQ("{\n"
              "\t\"values\": {\n"
              "\t\t\".anonymous\": false,\n"
              "\t\t\".type\": \"interface\",\n"
              "\t\t\".name\": \"lan\",\n"
              "\t\t\"device\": \"br-lan\",\n"
              "\t\t\"gateway\": \"10.0.0.1\",\n"
              "\t\t\"dns\": [\n"
              "\t\t\t\"1.1.1.1\",\n"
              "\t\t\t\"8.8.8.8\"\n"
              "\t\t]\n"
              "\t}\n"
              "}\n",
              ran.out);
}

TEST_F(SandboxUbus, GetOfAPackageNestsSectionsWithTheirIndex) {
    provide("two", "config a 'x'\n\toption k 'v'\nconfig b 'y'\n");
    EXPECT_EQ("{\n"
              "\t\"values\": {\n"
              "\t\t\"x\": {\n"
              "\t\t\t\".anonymous\": false,\n"
              "\t\t\t\".type\": \"a\",\n"
              "\t\t\t\".name\": \"x\",\n"
              "\t\t\t\".index\": 0,\n"
              "\t\t\t\"k\": \"v\"\n"
              "\t\t},\n"
              "\t\t\"y\": {\n"
              "\t\t\t\".anonymous\": false,\n"
              "\t\t\t\".type\": \"b\",\n"
              "\t\t\t\".name\": \"y\",\n"
              "\t\t\t\".index\": 1\n"
              "\t\t}\n"
              "\t}\n"
              "}\n",
              call("get", R"({"config":"two"})").out);
}

TEST_F(SandboxUbus, GetNamesAnonymousSections) {
    const Ran package = call("get", R"({"config":"network"})");
    const std::size_t name = package.out.find("\"cfg02");
    ASSERT_NE(std::string::npos, name) << package.out;
    const std::string section = package.out.substr(name + 1, 9);
    EXPECT_THAT(call("get", R"({"config":"network","section":")" + section + R"("})").out,
                StartsWith("{\n\t\"values\": {\n\t\t\".anonymous\": true,\n\t\t\".type\": "
                           "\"device\",\n\t\t\".name\": \"" +
                           section + "\",\n\t\t\"name\": \"br-lan\"\n"));
}

TEST_F(SandboxUbus, GetOfASingleOptionPrintsItsValue) {
    EXPECT_EQ("{\n\t\"value\": \"br-lan\"\n}\n",
              call("get", R"({"config":"network","section":"lan","option":"device"})").out);
    EXPECT_EQ("{\n\t\"value\": [\n\t\t\"1.1.1.1\",\n\t\t\"8.8.8.8\"\n\t]\n}\n",
              call("get", R"({"config":"network","section":"lan","option":"dns"})").out);
    expectSilent(call("get", R"({"config":"network","section":"lan","option":"none"})"));
}

TEST_F(SandboxUbus, GetEscapesValuesAsTheBusToolDoes) {
    provide("odd", "config a 'x'\n\toption k '/\"\\\x01\tz\n'\n");
    EXPECT_THAT(call("get", R"({"config":"odd","section":"x","option":"k"})").out,
                testing::StrEq("{\n\t\"value\": \"\\/\\\"\\\\\\u0001\\tz\\n\"\n}\n"));
}

TEST_F(SandboxUbus, GetOfAMissingSectionIsSilent) {
    expectSilent(call("get", R"({ "config":"network","section":"guest"})"));
    expectSilent(call("get", R"({ "config":"network","section":""})"));
}

TEST_F(SandboxUbus, GetOfAMissingPackageIsNotFound) {
    const Ran ran = call("get", R"({ "config":"nopkg","section":"lan"})");
    EXPECT_EQ(252, ran.status);
    EXPECT_EQ("", ran.out);
    EXPECT_EQ("Command failed: ubus call uci get { \"config\":\"nopkg\",\"section\":\"lan\"} "
              "(Not found)\n",
              ran.err);
}

TEST_F(SandboxUbus, GetSeesPendingChanges) {
    expectSilent(call("set", R"({"config":"network","section":"lan","values":{"mtu":1400}})"));
    EXPECT_THAT(call("get", R"({"config":"network","section":"lan"})").out,
                HasSubstr("\t\t\"mtu\": \"1400\"\n"));
    EXPECT_EQ(kNetwork, network());
}

// --- refusals of the tool itself ------------------------------------------------------------------

TEST_F(SandboxUbus, InvalidArgumentIsFollowedByTheUsage) {
    const Ran ran = call("get", "{}");
    EXPECT_EQ(254, ran.status);
    EXPECT_THAT(ran.err, StartsWith(std::string("Command failed: ubus call uci get {} (Invalid "
                                                "argument)\n") +
                                    kUsageLine));
}

TEST_F(SandboxUbus, ConfigMustBeAPackageName) {
    expectInvalid("get", R"({"config":"../network"})");
    expectInvalid("get", R"({"config":""})");
    expectInvalid("get", R"({"config":5})");
    expectInvalid("set", R"({"config":"a b","section":"lan","values":{"a":"b"}})");
    provide("my-pkg_1", "config a 'x'\n");
    EXPECT_EQ(0, call("get", R"({"config":"my-pkg_1"})").status);
}

TEST_F(SandboxUbus, UnknownMethodIsNotFoundByItsName) {
    expectRefused("frob", "{}", 253, "Method not found");
}

TEST_F(SandboxUbus, ArgumentThatIsNoJsonObjectIsNotParsed) {
    expectRefused("get", "{broken", 244, "Parsing message data failed");
    expectRefused("get", "", 244, "Parsing message data failed");
    expectRefused("get", "[ 1 ]", 244, "Parsing message data failed");
}

TEST_F(SandboxUbus, UnknownObjectFailsInTheOlderForm) {
    const Ran ran = tool("ubus", {"call", "nodaemon", "get", "{}"});
    EXPECT_EQ(4, ran.status);
    EXPECT_EQ("", ran.out);
    EXPECT_EQ("Command failed: Not found\n", ran.err);
}

TEST_F(SandboxUbus, WithoutAGatewayThereIsNoBus) {
    const Ran ran =
        support::runProgram({std::string(TAVO_SANDBOX_BIN) + "/ubus", "call", "uci", "get", "{}"},
                            {"TAVO_UCI_CONFIG_DIR=" + directory_ / "none"});
    EXPECT_EQ(255, ran.status);
    EXPECT_EQ("", ran.out);
    EXPECT_EQ("Failed to connect to ubus\n", ran.err);
}

TEST_F(SandboxUbus, OtherCommandsAreAnsweredWithTheUsage) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{}, std::vector<std::string>{"frob"}}) {
        const Ran ran = tool("ubus", arguments);
        EXPECT_EQ(254, ran.status);
        EXPECT_EQ("", ran.out);
        EXPECT_THAT(ran.err, StartsWith(kUsageLine));
    }
}

TEST_F(SandboxUbus, CallNeedsObjectAndMethod) {
    const Ran ran = tool("ubus", {"call", "uci"});
    EXPECT_EQ(254, ran.status);
    EXPECT_THAT(ran.err, StartsWith("Command failed: ubus call uci (Invalid argument)\n"));
}

TEST_F(SandboxUbus, BrokenPackageFileIsAnUnknownError) {
    provide("broken", "option before 'any section'\n");
    expectRefused("get", R"({"config":"broken"})", 247, "Unknown error");
}

// --- add ------------------------------------------------------------------------------------------

TEST_F(SandboxUbus, AddMakesASection) {
    const Ran ran = call("add", R"({ "config": "network", "name": "guest", "type": "interface" })");
    EXPECT_EQ(0, ran.status);
    EXPECT_EQ("{\n\t\"section\": \"guest\"\n}\n", ran.out);
    EXPECT_EQ("", ran.err);
    EXPECT_EQ(kNetwork, network());
    EXPECT_EQ(kNetwork + std::string("config interface 'guest'\n\n"), committed());
}

TEST_F(SandboxUbus, AddOfAnExistingNameChangesOnlyTheType) {
    EXPECT_EQ("{\n\t\"section\": \"lan\"\n}\n",
              call("add", R"({"config":"network","name":"lan","type":"alias"})").out);
    std::string expected = kNetwork;
    expected.replace(expected.find("interface"), 9, "alias");
    EXPECT_EQ(expected, committed());
}

TEST_F(SandboxUbus, AddOfAnEqualSectionChangesNothing) {
    EXPECT_EQ(0, call("add", R"({"config":"network","name":"lan","type":"interface"})").status);
    EXPECT_EQ("", uci({"changes"}).out);
}

TEST_F(SandboxUbus, AddWithoutATypeIsInvalid) {
    expectInvalid("add", R"({ "config": "network", "name": "guest" })");
    expectInvalid("add", R"({"config":"network","name":"guest","type":""})");
    expectInvalid("add", R"({"config":"network","name":"guest","type":"a b"})");
    expectInvalid("add", R"({"config":"network","name":"guest","type":null})");
}

TEST_F(SandboxUbus, AddAcceptsADashInTypesOnly) {
    expectInvalid("add", R"({"config":"network","name":"my-guest","type":"interface"})");
    expectInvalid("add", R"({"config":"network","name":"","type":"interface"})");
    EXPECT_EQ(0, call("add", R"({"config":"network","name":"r_0","type":"wifi-device"})").status);
    EXPECT_EQ(kNetwork + std::string("config wifi-device 'r_0'\n\n"), committed());
}

TEST_F(SandboxUbus, AddWithoutANameMakesAnAnonymousSection) {
    const Ran ran = call("add", R"({"config":"network","type":"route"})");
    EXPECT_EQ(0, ran.status);
    EXPECT_THAT(ran.out, testing::MatchesRegex("\\{\n\t\"section\": \"cfg03[0-9a-f]{4}\"\n\\}\n"));
    const std::string name = ran.out.substr(ran.out.find("cfg"), 9);
    expectSilent(call("set", R"({"config":"network","section":")" + name +
                                 R"(","values":{"target":"0.0.0.0"}})"));
    EXPECT_EQ(kNetwork + std::string("config route\n\toption target '0.0.0.0'\n\n"), committed());
}

TEST_F(SandboxUbus, AddTwoAnonymousSectionsGivesTwoNames) {
    const std::string first = call("add", R"({"config":"network","type":"route"})").out;
    EXPECT_NE(first, call("add", R"({"config":"network","type":"route"})").out);
    EXPECT_EQ(kNetwork + std::string("config route\n\nconfig route\n\n"), committed());
}

TEST_F(SandboxUbus, AddStoresValuesGivenWithIt) {
    EXPECT_EQ(0, call("add", R"({"config":"network","name":"g","type":"interface",)"
                             R"("values":{"proto":"dhcp","dns":["9.9.9.9"]}})")
                     .status);
    EXPECT_EQ(
        kNetwork +
            std::string("config interface 'g'\n\toption proto 'dhcp'\n\tlist dns '9.9.9.9'\n\n"),
        committed());
}

TEST_F(SandboxUbus, AddToAMissingPackageIsNotFound) {
    expectNotFound("add", R"({"config":"nopkg","name":"a","type":"b"})");
}

// --- set ------------------------------------------------------------------------------------------

TEST_F(SandboxUbus, SetReplacesValuesInPlaceAndAppendsNewOnes) {
    expectSilent(call("set", R"({"config":"network","section":"lan","type":"ignored",)"
                             R"("values":{"mtu":"1400","device":"br0"}})"));
    EXPECT_EQ("\n"
              "config interface 'lan'\n"
              "\toption device 'br0'\n"
              "\toption gateway '10.0.0.1'\n"
              "\tlist dns '1.1.1.1'\n"
              "\tlist dns '8.8.8.8'\n"
              "\toption mtu '1400'\n"
              "\n"
              "config device\n"
              "\toption name 'br-lan'\n"
              "\n",
              committed());
}

TEST_F(SandboxUbus, SetOfEqualValuesLeavesNothingToCommit) {
    const std::string text = "config interface lan # written by hand\n\toption device br-lan\n";
    provide("network", text);
    expectSilent(
        call("set", R"({"config":"network","section":"lan","values":{"device":"br-lan"}})"));
    EXPECT_EQ("", uci({"changes"}).out);
    EXPECT_EQ(text, committed());
}

TEST_F(SandboxUbus, SetStoresIntegersAndBooleansAsText) {
    expectSilent(call("set", R"({"config":"network","section":"lan",)"
                             R"("values":{"a":-7,"b":true,"c":false,"d":4294967296}})"));
    EXPECT_THAT(committed(), HasSubstr("\toption a '-7'\n\toption b '1'\n\toption c '0'\n"
                                       "\toption d '4294967296'\n"));
}

TEST_F(SandboxUbus, SetOfAnArrayMakesAListAtTheEnd) {
    expectSilent(call("set", R"({"config":"network","section":"lan",)"
                             R"("values":{"device":["a",2,true]}})"));
    EXPECT_THAT(committed(), HasSubstr("config interface 'lan'\n"
                                       "\toption gateway '10.0.0.1'\n"
                                       "\tlist dns '1.1.1.1'\n"
                                       "\tlist dns '8.8.8.8'\n"
                                       "\tlist device 'a'\n"
                                       "\tlist device '2'\n"
                                       "\tlist device '1'\n"
                                       "\n"));
}

TEST_F(SandboxUbus, SetOfAnEqualArrayMovesTheListToTheEnd) {
    provide("two", "config a 'x'\n\tlist l '1'\n\toption o '2'\n");
    expectSilent(call("set", R"({"config":"two","section":"x","values":{"l":["1"]}})"));
    expectSilent(uci({"commit"}));
    EXPECT_EQ("\nconfig a 'x'\n\toption o '2'\n\tlist l '1'\n\n",
              support::readFile(config() + "/two"));
}

TEST_F(SandboxUbus, SetOfATextReplacesAList) {
    expectSilent(call("set", R"({"config":"network","section":"lan","values":{"dns":"1.1.1.1"}})"));
    EXPECT_THAT(committed(),
                HasSubstr("\toption gateway '10.0.0.1'\n\toption dns '1.1.1.1'\n\nconfig device"));
}

TEST_F(SandboxUbus, SetOfAnEmptyTextDeletesTheOption) {
    expectSilent(call("set", R"({"config":"network","section":"lan",)"
                             R"("values":{"gateway":"","dns":"","never":"","mtu":"1"}})"));
    EXPECT_THAT(committed(), StartsWith("\nconfig interface 'lan'\n"
                                        "\toption device 'br-lan'\n"
                                        "\toption mtu '1'\n"
                                        "\n"));
}

TEST_F(SandboxUbus, SetOfAMissingSectionIsNotFoundAlsoWithAType) {
    expectNotFound("set", R"({"config":"network","section":"guest","values":{"a":"b"}})");
    expectNotFound(
        "set", R"({"config":"network","section":"guest","type":"interface","values":{"a":"b"}})");
    expectNotFound("set", R"({"config":"nopkg","section":"lan","values":{"a":"b"}})");
}

TEST_F(SandboxUbus, SetWithNoValuesIsNotFound) {
    expectNotFound("set", R"({"config":"network","section":"lan","values":{}})");
}

TEST_F(SandboxUbus, SetNeedsAnObjectOfValues) {
    expectInvalid("set", R"({"config":"network","section":"lan"})");
    expectInvalid("set", R"({"config":"network","section":"lan","values":"a"})");
    expectInvalid("set", R"({"config":"network","section":"lan","values":["a"]})");
    expectInvalid("set", R"({"config":"network","values":{"a":"b"}})");
}

TEST_F(SandboxUbus, SetWithOneValueOfAnotherKindHasNoEffectAtAll) {
    for (const char* value : {"1.5", "null", "{}", R"({"a":"b"})", "[]", "[null]", "[1.5]"})
        expectInvalid("set", std::string(R"({"config":"network","section":"lan",)") +
                                 R"("values":{"gateway":"","mtu":"1","bad":)" + value + "}}");
    EXPECT_EQ(kNetwork, committed());
}

TEST_F(SandboxUbus, SetRefusesOptionNamesOfOtherCharacters) {
    expectInvalid("set", R"({"config":"network","section":"lan","values":{"a-b":"c"}})");
    expectInvalid("set", R"({"config":"network","section":"lan","values":{"":"c"}})");
}

// --- delete ---------------------------------------------------------------------------------------

TEST_F(SandboxUbus, DeleteOfOptionsDropsThoseThatExist) {
    expectSilent(call("delete", R"({ "config": "network", "section": "lan", )"
                                R"("options": [ "gateway", "none", "dns" ] })"));
    EXPECT_THAT(
        committed(),
        StartsWith("\nconfig interface 'lan'\n\toption device 'br-lan'\n\nconfig device\n"));
}

TEST_F(SandboxUbus, DeleteOfOptionsThatDoNotExistIsNotFound) {
    expectNotFound("delete", R"({"config":"network","section":"lan","options":["none","no"]})");
    expectNotFound("delete", R"({"config":"network","section":"lan","options":[ ]})");
    expectNotFound("delete", R"({"config":"network","section":"lan","option":"none"})");
}

TEST_F(SandboxUbus, DeleteOfOneOption) {
    expectSilent(call("delete", R"({"config":"network","section":"lan","option":"dns"})"));
    EXPECT_THAT(committed(), testing::Not(HasSubstr("dns")));
}

TEST_F(SandboxUbus, DeleteOfASectionDropsIt) {
    expectSilent(call("delete", R"({ "config": "network", "section": "lan" })"));
    EXPECT_EQ("\nconfig device\n\toption name 'br-lan'\n\n", committed());
}

TEST_F(SandboxUbus, DeleteOfAMissingSectionOrPackageIsNotFound) {
    expectNotFound("delete", R"({"config":"network","section":"guest"})");
    expectNotFound("delete", R"({"config":"nopkg","section":"lan"})");
    expectInvalid("delete", R"({"config":"network"})");
}

TEST_F(SandboxUbus, AddAfterDeleteStartsWithoutTheOldOptions) {
    expectSilent(call("delete", R"({"config":"network","section":"lan"})"));
    EXPECT_EQ(0, call("add", R"({"config":"network","name":"lan","type":"interface"})").status);
    EXPECT_EQ("\nconfig device\n\toption name 'br-lan'\n\nconfig interface 'lan'\n\n", committed());
}

// --- uci ------------------------------------------------------------------------------------------

TEST_F(SandboxUbus, CommitWithoutAPendingChangeDoesNotTouchTheFile) {
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

TEST_F(SandboxUbus, CommitKeepsTheFilesModeAndLeavesNothingElse) {
    ASSERT_EQ(0, chmod((config() + "/network").c_str(), 0600));
    expectSilent(call("set", R"({"config":"network","section":"lan","values":{"a":"b"}})"));
    committed();
    struct stat after {};
    ASSERT_EQ(0, stat((config() + "/network").c_str(), &after));
    EXPECT_EQ(0600U, after.st_mode & 07777U);
    EXPECT_EQ("network\n", support::runProgram({"ls", "-A", config()}).out);
    EXPECT_EQ("", support::runProgram({"ls", "-A", directory_ / "pending"}).out);
}

TEST_F(SandboxUbus, CommitWithoutANameWritesEveryPackage) {
    provide("other", "config a 'x'\n");
    expectSilent(call("set", R"({"config":"network","section":"lan","values":{"a":"b"}})"));
    expectSilent(call("set", R"({"config":"other","section":"x","values":{"a":"b"}})"));
    expectSilent(uci({"commit"}));
    EXPECT_THAT(network(), HasSubstr("\toption a 'b'\n"));
    EXPECT_EQ("\nconfig a 'x'\n\toption a 'b'\n\n", support::readFile(config() + "/other"));
    EXPECT_EQ("", uci({"changes"}).out);
}

TEST_F(SandboxUbus, CommitOfOnePackageLeavesTheOthersPending) {
    provide("other", "config a 'x'\n");
    expectSilent(call("set", R"({"config":"other","section":"x","values":{"a":"b"}})"));
    expectSilent(uci({"commit", "network"}));
    EXPECT_EQ("config a 'x'\n", support::readFile(config() + "/other"));
    EXPECT_EQ("other.x.a='b'\n", uci({"changes"}).out);
}

TEST_F(SandboxUbus, CommitOfAMissingPackageIsAnError) {
    const Ran ran = uci({"commit", "nopkg"});
    EXPECT_EQ(1, ran.status);
    EXPECT_EQ("", ran.out);
    EXPECT_EQ("uci: Entry not found\n", ran.err);
    EXPECT_EQ("", uci({"-q", "commit", "nopkg"}).err);
}

TEST_F(SandboxUbus, CommitWritesAQuoteBetweenQuotesAndReadsItBack) {
    expectSilent(
        call("set", R"({"config":"network","section":"lan","values":{"a":"it's\n'two'"}})"));
    EXPECT_THAT(committed(), HasSubstr("\toption a 'it'\\''s\n'\\''two'\\'''\n"));
    EXPECT_EQ("it's\n'two'\n", uci({"get", "network.lan.a"}).out);
}

TEST_F(SandboxUbus, ShowGetAndChangesPrintTheUsualForms) {
    EXPECT_EQ("network.lan=interface\n"
              "network.lan.device='br-lan'\n"
              "network.lan.gateway='10.0.0.1'\n"
              "network.lan.dns='1.1.1.1' '8.8.8.8'\n",
              uci({"show", "network.lan"}).out);
    EXPECT_EQ("network.lan.device='br-lan'\n", uci({"show", "network.lan.device"}).out);
    EXPECT_EQ("1.1.1.1 8.8.8.8\n", uci({"get", "network.lan.dns"}).out);
    EXPECT_EQ("interface\n", uci({"get", "network.lan"}).out);
    for (const char* missing : {"network.lan.no", "network.no", "no.lan.dns"}) {
        const Ran ran = uci({"get", missing});
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

TEST_F(SandboxUbus, UnknownUciCommandIsAnsweredWithTheUsage) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{}, {"frob"}, {"get"}, {"commit", "a", "b"}}) {
        const Ran ran = uci(arguments);
        EXPECT_EQ(255, ran.status);
        EXPECT_THAT(ran.err, StartsWith("Usage: uci "));
    }
}

TEST_F(SandboxUbus, SimultaneousChangesAreAllKept) {
    std::vector<std::unique_ptr<support::RunningProgram>> writers;
    for (int i = 0; i < 12; ++i)
        writers.push_back(std::make_unique<support::RunningProgram>(
            std::vector<std::string>{std::string(TAVO_SANDBOX_BIN) + "/ubus", "call", "uci", "set",
                                     R"({"config":"network","section":"lan","values":{"o)" +
                                         std::to_string(i) + R"(":"v"}})"},
            std::vector<std::string>{"TAVO_UCI_CONFIG_DIR=" + config(),
                                     "TAVO_UCI_PENDING_DIR=" + directory_ / "pending"}));
    for (const auto& writer : writers)
        EXPECT_EQ(0, writer->wait().status);
    const std::string text = committed();
    for (int i = 0; i < 12; ++i)
        EXPECT_THAT(text, HasSubstr("\toption o" + std::to_string(i) + " 'v'\n"));
}

TEST_F(SandboxUbus, ReadersWaitForACommitToBeDone) {
    ASSERT_EQ(0, mkdir((directory_ / "pending").c_str(), 0755));
    const std::vector<std::vector<std::string>> readers = {
        {"ubus", "call", "uci", "get", R"({"config":"network"})"},
        {"uci", "show"},
        {"uci", "get", "network.lan.dns"},
        {"uci", "changes"}};
    for (std::vector<std::string> reader : readers) {
        reader.front() = std::string(TAVO_SANDBOX_BIN) + "/" + reader.front();
        const int lock = open((directory_ / "pending").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ASSERT_EQ(0, flock(lock, LOCK_EX)); // as a commit does
        support::RunningProgram program(reader, {"TAVO_UCI_CONFIG_DIR=" + config(),
                                                 "TAVO_UCI_PENDING_DIR=" + directory_ / "pending"});
        const std::string waiting = " -> FLOCK  ADVISORY  WRITE " + std::to_string(program.pid());
        EXPECT_TRUE(support::eventually([&] {
            return support::readFile("/proc/locks").find(waiting + " ") != std::string::npos;
        })) << reader[1];
        close(lock);
        EXPECT_EQ(0, program.wait().status);
    }
}

// --- reading --------------------------------------------------------------------------------------

TEST_F(SandboxUbus, ReaderTakesEveryWayOfQuoting) {
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

TEST_F(SandboxUbus, ReaderMakesAListOfAnOptionThatIsAlsoListed) {
    provide("mixed", "config a 'x'\n\toption k '1'\n\tlist k '2'\n\tlist l ''\n\tlist l '3'\n"
                     "\toption l '4'\n");
    EXPECT_EQ("{\n\t\"value\": [\n\t\t\"1\",\n\t\t\"2\"\n\t]\n}\n",
              call("get", R"({"config":"mixed","section":"x","option":"k"})").out);
    EXPECT_EQ("mixed.x.l='4'\n", uci({"show", "mixed.x.l"}).out);
}

TEST_F(SandboxUbus, GeneratedNamesAvoidThoseOfTheFile) {
    provide("one", "config route\n");
    const std::string show = uci({"show", "one"}).out;
    const std::string name = show.substr(4, 9);
    EXPECT_EQ("one." + name + "=route\n", show);
    provide("one", "config route\nconfig route '" + name + "'\n\toption k 'v'\n");
    EXPECT_EQ("v\n", uci({"get", "one." + name + ".k"}).out);
    EXPECT_THAT(uci({"show", "one"}).out, testing::Not(StartsWith("one." + name)));
}

TEST_F(SandboxUbus, ReaderMergesSectionsOfOneName) {
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

TEST_F(SandboxUbus, ReaderSaysWhereAFileIsBroken) {
    const std::vector<std::pair<std::string, std::string>> files = {
        {"config a 'x'\n\toption k\n", "invalid command) at line 2"},
        {"config a 'x'\nfrob\n", "invalid command) at line 2"},
        {"config 'a b'\n", "invalid character in name field) at line 1"},
        {"config a 'x-y'\n", "invalid character in name field) at line 1"},
        {"config a\n\toption 'k-l' 'v'\n", "invalid character in name field) at line 2"},
        {"option k 'v'\n", "option command found before the first section) at line 1"},
        {"config a 'x'\n\n\toption k 'v\n", "unterminated word) at line 4"},
        {"config a 'x'\n\toption k \"v", "unterminated word) at line 2"},
        {"config a 'x'\nconfig b 'x'\n", "section x has another type before) at line 2"},
    };
    for (const auto& [content, message] : files) {
        provide("broken", content);
        const Ran ran = uci({"show", "broken"});
        EXPECT_EQ(1, ran.status) << content;
        EXPECT_EQ("uci: Parse error (" + message + "\n", ran.err) << content;
    }
}

} // namespace
