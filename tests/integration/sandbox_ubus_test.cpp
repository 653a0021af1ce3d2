// The sandbox's `ubus` on its own files: what it prints, refuses and changes.

#include "SandboxTools.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::kNetwork;
using support::kUsageLine;
using support::ProgramResult;
using support::SandboxUbus;
using testing::HasSubstr;
using testing::StartsWith;

// --- get -----------------------------------------------------------------------------------------

TEST_F(SandboxUbus, GetPrintsASectionInFileOrder) {
    const ProgramResult ran = call("get", R"({ "config":"network","section":"lan"})");
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
    const ProgramResult package = call("get", R"({"config":"network"})");
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
                testing::StrEq("{\n\t\"value\": \"/\\\"\\\\\\u0001\\tz\\n\"\n}\n"));
}

TEST_F(SandboxUbus, GetOfAMissingSectionIsSilent) {
    expectSilent(call("get", R"({ "config":"network","section":"guest"})"));
    expectSilent(call("get", R"({ "config":"network","section":""})"));
}

TEST_F(SandboxUbus, GetOfAMissingPackageIsNotFound) {
    const ProgramResult ran = call("get", R"({ "config":"nopkg","section":"lan"})");
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

// --- refusals of the tool itself -----------------------------------------------------------------

TEST_F(SandboxUbus, InvalidArgumentIsFollowedByTheUsage) {
    const ProgramResult ran = call("get", "{}");
    EXPECT_EQ(254, ran.status);
    EXPECT_THAT(ran.err, StartsWith(std::string("Command failed: ubus call uci get {} (Invalid "
                                                "argument)\n") +
                                    kUsageLine));
}

TEST_F(SandboxUbus, ConfigMustBeAPackageName) {
    expectInvalid("get", R"({"config":""})");
    expectInvalid("get", R"({"config":5})");
    expectInvalid("set", R"({"config":"a b","section":"lan","values":{"a":"b"}})");
    for (const char* name : {"my-pkg_1", "odd+name"}) {
        provide(name, "config a 'x'\n");
        EXPECT_EQ(0, call("get", R"({"config":")" + std::string(name) + R"("})").status);
    }
}

TEST_F(SandboxUbus, PathsAreNotAcceptedAsPackageNames) {
    for (const char* path : {"../config/network", "./network", "/etc/config/network", "x/y"})
        expectNotFound("get", R"({"config":")" + std::string(path) + R"("})");
}

TEST_F(SandboxUbus, UnknownMethodIsNotFoundByItsName) {
    expectRefused("nosuch", "{}", 253, "Method not found");
}

TEST_F(SandboxUbus, ArgumentThatIsNoJsonObjectIsNotParsed) {
    expectRefused("get", "{broken", 244, "Parsing message data failed");
    expectRefused("get", "", 244, "Parsing message data failed");
    expectRefused("get", "[ 1 ]", 244, "Parsing message data failed");
}

TEST_F(SandboxUbus, UnknownObjectFailsInTheOlderForm) {
    const ProgramResult ran = tool("ubus", {"call", "nodaemon", "get", "{}"});
    EXPECT_EQ(4, ran.status);
    EXPECT_EQ("", ran.out);
    EXPECT_EQ("Command failed: Not found\n", ran.err);
}

TEST_F(SandboxUbus, WithoutAGatewayThereIsNoBus) {
    const ProgramResult ran =
        support::runProgram({std::string(TAVO_SANDBOX_BIN) + "/ubus", "call", "uci", "get", "{}"},
                            {"TAVO_UCI_CONFIG_DIR=" + directory_ / "none"});
    EXPECT_EQ(255, ran.status);
    EXPECT_EQ("", ran.out);
    EXPECT_EQ("Failed to connect to ubus\n", ran.err);
}

TEST_F(SandboxUbus, WrongUsageOfTheToolIsAnsweredWithTheUsage) {
    const std::vector<std::pair<std::vector<std::string>, int>> calls = {
        {{}, 1},
        {{"-Z", "call"}, 1},
        {{"nosuch"}, 254},
        {{"call", "uci"}, 254},
        {{"call", "uci", "get", "{}", "{}"}, 254}};
    for (const auto& [arguments, status] : calls) {
        const ProgramResult ran = tool("ubus", arguments);
        EXPECT_EQ(status, ran.status);
        EXPECT_EQ("", ran.out);
        EXPECT_THAT(ran.err, HasSubstr(kUsageLine));
        EXPECT_THAT(ran.err, testing::Not(HasSubstr("Command failed")));
    }
}

TEST_F(SandboxUbus, SimplifiedOutputIsOneLineAndHasNoMessages) {
    const std::vector<std::string> get = {"-S", "call", "uci", "get"};
    const auto withMessage = [&](const char* message) {
        std::vector<std::string> arguments = get;
        arguments.emplace_back(message);
        return tool("ubus", arguments);
    };
    EXPECT_EQ(
        "{\"values\":{\".anonymous\":false,\".type\":\"interface\",\".name\":\"lan\","
        "\"device\":\"br-lan\",\"gateway\":\"10.0.0.1\",\"dns\":[\"1.1.1.1\",\"8.8.8.8\"]}}\n",
        withMessage(R"({"config":"network","section":"lan"})").out);
    const ProgramResult missing = withMessage(R"({"config":"nopkg"})");
    EXPECT_EQ(4, missing.status);
    EXPECT_EQ("", missing.out + missing.err);
}

TEST_F(SandboxUbus, MessageIsReadBeforeTheObjectIsLookedUp) {
    const ProgramResult ran = tool("ubus", {"call", "nodaemon", "get", "{broken"});
    EXPECT_EQ(244, ran.status);
    EXPECT_EQ("Command failed: ubus call nodaemon get {broken (Parsing message data failed)\n",
              ran.err);
}

TEST_F(SandboxUbus, BrokenPackageFileIsAnUnknownError) {
    provide("broken", "option before 'any section'\n");
    expectRefused("get", R"({"config":"broken"})", 247, "Unknown error");
}

// --- add -----------------------------------------------------------------------------------------

TEST_F(SandboxUbus, AddMakesASection) {
    const ProgramResult ran =
        call("add", R"({ "config": "network", "name": "guest", "type": "interface" })");
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
    const ProgramResult ran = call("add", R"({"config":"network","type":"route"})");
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

// --- set -----------------------------------------------------------------------------------------

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
    EXPECT_THAT(committed(), HasSubstr("\toption a '4294967289'\n\toption b '1'\n\toption c '0'\n"
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

// --- delete --------------------------------------------------------------------------------------

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

} // namespace
