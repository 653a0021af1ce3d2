#include <kvr/api/mng/NQ_UBUS.h>

#include "CapturedCommands.h"
#include "CapturedOutput.h"
#include "FakePrograms.h"
#include "PrivateMounts.h"
#include "TempDir.h"
#include "UciTools.h"

#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::mng::NQ_UBUS;
using support::CapturedCommands;
using support::configured;
using support::kLan;
using support::kUnparsable;
using support::named;
using support::printedBy;
using support::UciTools;
using support::UciToolsWithSection;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// applyConfig with arguments ----------------------------------------------------------------------

TEST(NQ_UBUS, ApplyConfigPrintsAndRunsTheCommandAndACommit) {
    const CapturedCommands commands;
    NQ_UBUS ubus = named("network", "lan");
    bool result = false;
    EXPECT_EQ("Calling: ubus call uci some 'thing'; uci commit network\n",
              printedBy([&] { result = ubus.applyConfig("some 'thing'"); }));
    EXPECT_TRUE(result);
    EXPECT_THAT(commands.lines(), ElementsAre("ubus call uci some 'thing'; uci commit network"));
}

TEST(NQ_UBUS, ApplyConfigRunsItsCommandsInTheShell) {
    const UciTools tools("echo 'from the tool'");
    NQ_UBUS ubus = named("network", "lan");
    EXPECT_EQ("Calling: ubus call uci get '{ \"a b\": 1 }' $((1+1)); uci commit network\n"
              "from the tool\n",
              printedBy([&] { ubus.applyConfig("get '{ \"a b\": 1 }' $((1+1))"); }))
        << "the line is flushed before the command runs";
    EXPECT_THAT(tools.calls(), ElementsAre("ubus [call] [uci] [get] [{ \"a b\": 1 }] [2]",
                                           "uci [commit] [network]"));
}

TEST(NQ_UBUS, FailedCommandsAreNotReported) {
    for (const int status : {-1, 252 << 8, 127 << 8}) {
        const CapturedCommands commands(CapturedCommands::runNothing, status);
        const UciToolsWithSection tools;
        NQ_UBUS ubus = configured(kLan);
        bool all = false;
        printedBy([&] {
            all = ubus.applyConfig("set '{}'") && ubus.applyConfig() && ubus.checkConfig() &&
                  ubus.restartService();
        });
        EXPECT_TRUE(all);
    }
}

TEST(NQ_UBUS, ACommitFollowsAFailedCommand) {
    support::FakePrograms programs;
    programs.add("ubus", "exit 252");
    programs.add("uci");
    NQ_UBUS ubus = named("network", "lan");
    printedBy([&] { ubus.applyConfig("set '{}'"); });
    EXPECT_THAT(programs.calls(),
                ElementsAre("ubus [call] [uci] [set] [{}]", "uci [commit] [network]"));
}

TEST(NQ_UBUS, ASingleQuoteBreaksTheCommandAndIsNotEscaped) {
    const std::string text = R"({"config":"system","section":"main","values":{"hostname":"it's"}})";
    {
        const UciToolsWithSection tools;
        const CapturedCommands commands;
        NQ_UBUS ubus = configured(text);
        printedBy([&] { ubus.applyConfig(); });
        EXPECT_THAT(commands.lines(),
                    ElementsAre("ubus call uci set '" + text + "'; uci commit system"));
    }
    const UciToolsWithSection tools;
    NQ_UBUS ubus = configured(text);
    bool result = false;
    const std::string errors = support::errorsOf([&] {
        EXPECT_EQ("Calling: ubus call uci set '" + text + "'; uci commit system\n",
                  printedBy([&] { result = ubus.applyConfig(); }));
    });
    EXPECT_TRUE(result);
    EXPECT_THAT(errors, Not(IsEmpty())) << "the shell's complaint";
    EXPECT_THAT(tools.calls(),
                ElementsAre(R"(ubus [call] [uci] [get] [{ "config":"system","section":"main"}])"))
        << "neither the set nor the commit runs";
}

// applyConfig -------------------------------------------------------------------------------------

TEST(NQ_UBUS, AMissingSectionIsAddedAndThenSet) {
    const UciTools tools;
    NQ_UBUS ubus = configured(kLan);
    bool result = false;
    // Deliberate: the spelling "does't" is part of the printed text.
    EXPECT_EQ(
        std::string("network/lan does't exist yet, create it!\n"
                    "Calling: ubus call uci add '{ \"config\": \"network\", \"name\": \"lan\", "
                    "\"type\": \"interface\" }'; uci commit network\n"
                    "Calling: ubus call uci set '") +
            kLan + "'; uci commit network\n",
        printedBy([&] { result = ubus.applyConfig(); }));
    EXPECT_TRUE(result);
    EXPECT_THAT(
        tools.calls(),
        ElementsAre(
            R"(ubus [call] [uci] [get] [{ "config":"network","section":"lan"}])",
            R"(ubus [call] [uci] [add] [{ "config": "network", "name": "lan", "type": "interface" }])",
            "uci [commit] [network]", "ubus [call] [uci] [set] [" + std::string(kLan) + "]",
            "uci [commit] [network]"));
}

TEST(NQ_UBUS, AnExistingSectionIsOnlySet) {
    const UciToolsWithSection tools;
    NQ_UBUS ubus = configured(kLan);
    bool result = false;
    EXPECT_EQ("Calling: ubus call uci set '" + std::string(kLan) + "'; uci commit network\n",
              printedBy([&] { result = ubus.applyConfig(); }));
    EXPECT_TRUE(result);
    EXPECT_THAT(tools.calls(),
                ElementsAre(R"(ubus [call] [uci] [get] [{ "config":"network","section":"lan"}])",
                            "ubus [call] [uci] [set] [" + std::string(kLan) + "]",
                            "uci [commit] [network]"));
}

TEST(NQ_UBUS, AnyTextFromGetCountsAsAnExistingSection) {
    for (const char* script : {"echo", "echo 'Command failed: Not found' >&2; exit 4"}) {
        const UciTools tools(script);
        const CapturedCommands commands;
        NQ_UBUS ubus = configured(kLan);
        printedBy([&] { ubus.applyConfig(); });
        EXPECT_THAT(commands.lines(), ElementsAre(StartsWith("ubus call uci set '")));
    }
}

TEST(NQ_UBUS, AToolThatIsNotInstalledCountsAsAnExistingSection) {
    const support::TempDir empty;
    const CapturedCommands commands;
    NQ_UBUS ubus = configured(kLan);
    const std::string path = std::getenv("PATH");
    setenv("PATH", empty.path().c_str(), 1);
    printedBy([&] { ubus.applyConfig(); });
    setenv("PATH", path.c_str(), 1);
    EXPECT_THAT(commands.lines(), ElementsAre(StartsWith("ubus call uci set '")));
}

TEST(NQ_UBUS, TheStatusOfGetIsIgnored) {
    const UciTools tools("exit 252");
    const CapturedCommands commands;
    NQ_UBUS ubus = configured(kLan);
    printedBy([&] { ubus.applyConfig(); });
    EXPECT_THAT(commands.lines(),
                ElementsAre(StartsWith("ubus call uci add '"), StartsWith("ubus call uci set '")));
}

TEST(NQ_UBUS, EmptyValuesDeleteTheWholeSection) {
    const UciTools tools;
    NQ_UBUS ubus = configured(R"({"config":"network","section":"lan","values":{}})");
    bool result = false;
    EXPECT_EQ("Calling: ubus call uci delete '{ \"config\": \"network\", \"section\": \"lan\" }'; "
              "uci commit network\n",
              printedBy([&] { result = ubus.applyConfig(); }));
    EXPECT_TRUE(result);
    EXPECT_THAT(
        tools.calls(),
        ElementsAre(R"(ubus [call] [uci] [delete] [{ "config": "network", "section": "lan" }])",
                    "uci [commit] [network]"))
        << "the section is not read";
}

TEST(NQ_UBUS, AbsentValuesAreAddedAndSet) {
    const UciTools tools;
    const CapturedCommands commands;
    NQ_UBUS ubus = named("network", "lan");
    printedBy([&] { ubus.applyConfig(); });
    EXPECT_THAT(
        commands.lines(),
        ElementsAre(
            R"(ubus call uci add '{ "config": "network", "name": "lan" }'; uci commit network)",
            R"(ubus call uci set '{"config":"network","section":"lan"}'; uci commit network)"));
}

TEST(NQ_UBUS, SetGetsTheWholeTextUnparsed) {
    const std::string text = "{ \"unknown\":[ 1.50 ],  \"config\":\"c\",\"section\":\"s\"} rest";
    const UciToolsWithSection tools;
    const CapturedCommands commands;
    NQ_UBUS ubus = configured(text);
    printedBy([&] { ubus.applyConfig(); });
    EXPECT_THAT(commands.lines(), ElementsAre("ubus call uci set '" + text + "'; uci commit c"));
}

TEST(NQ_UBUS, ApplyConfigChecksNothing) {
    const UciTools tools;
    const CapturedCommands commands;
    NQ_UBUS ubus = configured(kLan);
    printedBy([&] {
        ubus.init("no json");
        ubus.applyConfig();
    });
    EXPECT_THAT(commands.lines(), ElementsAre(StartsWith("ubus call uci add '"),
                                              "ubus call uci set 'no json'; uci commit network"));
}

// checkConfig -------------------------------------------------------------------------------------

TEST(NQ_UBUS, CheckConfigPrintsTheFieldsAndDeletesEmptyOptions) {
    const UciTools tools;
    NQ_UBUS ubus = configured(kLan);
    bool result = false;
    EXPECT_EQ("config:network\n"
              "section:lan\n"
              "type:interface\n"
              "values:{ \"ipaddr\": \"192.168.1.1\", \"gateway\": \"\" }\n"
              "ipaddr=192.168.1.1\n"
              "Calling: ubus call uci delete '{ \"config\": \"network\", \"section\": \"lan\", "
              "\"options\": [ \"gateway\" ] }'; uci commit network\n",
              printedBy([&] { result = ubus.checkConfig(); }));
    EXPECT_TRUE(result);
    EXPECT_THAT(
        tools.calls(),
        ElementsAre(
            R"(ubus [call] [uci] [delete] [{ "config": "network", "section": "lan", "options": [ "gateway" ] }])",
            "uci [commit] [network]"));
}

TEST(NQ_UBUS, CheckConfigRunsNothingWhenEveryOptionHasAValue) {
    const UciTools tools;
    const CapturedCommands commands;
    NQ_UBUS ubus = configured(
        R"({"config":"network","section":"lan","values":{"mtu":1400,"auto":true,"dns":["1.1.1.1","8.8.8.8"],"path":"/a"}})");
    bool result = false;
    EXPECT_EQ("config:network\n"
              "section:lan\n"
              "type:\n"
              "values:{ \"mtu\": 1400, \"auto\": true, \"dns\": [ \"1.1.1.1\", \"8.8.8.8\" ], "
              "\"path\": \"\\/a\" }\n"
              "mtu=1400\n"
              "auto=true\n"
              "dns=[ \"1.1.1.1\", \"8.8.8.8\" ]\n"
              "path=/a\n",
              printedBy([&] { result = ubus.checkConfig(); }));
    EXPECT_TRUE(result);
    EXPECT_THAT(commands.lines(), IsEmpty());
    EXPECT_THAT(tools.calls(), IsEmpty());
}

TEST(NQ_UBUS, CheckConfigForgetsTheEmptyOptionsOfAnEarlierText) {
    const CapturedCommands commands;
    NQ_UBUS ubus = configured(R"({"config":"c","section":"s","values":{"a":"","b":""}})");
    printedBy([&] {
        ubus.checkConfig();
        ubus.init(R"({"config":"c","section":"s","values":{"c":"","a":"1"}})");
        ubus.checkConfig();
        ubus.init(R"({"config":"c","section":"s","values":{"a":"1"}})");
        ubus.checkConfig();
    });
    EXPECT_THAT(
        commands.lines(),
        ElementsAre(
            R"(ubus call uci delete '{ "config": "c", "section": "s", "options": [ "a", "b" ] }'; uci commit c)",
            R"(ubus call uci delete '{ "config": "c", "section": "s", "options": [ "c" ] }'; uci commit c)"));
}

TEST(NQ_UBUS, CheckConfigAcceptsEmptyValues) {
    const CapturedCommands commands;
    NQ_UBUS ubus = configured(R"({"config":"c","section":"s","values":{}})");
    bool result = false;
    EXPECT_EQ("config:c\nsection:s\ntype:\nvalues:{ }\n",
              printedBy([&] { result = ubus.checkConfig(); }));
    EXPECT_TRUE(result);
    EXPECT_THAT(commands.lines(), IsEmpty());
}

TEST(NQ_UBUS, CheckConfigAcceptsValuesThatAreNoObject) {
    const CapturedCommands commands;
    const std::string fields = "config:c\nsection:\ntype:\n";
    for (const auto& row : std::vector<std::pair<std::string, std::string>>{
             {R"({"config":"c"})", "values:\n" + std::string(kUnparsable)},
             {R"({"config":"c","values":"text"})", "values:text\n" + std::string(kUnparsable)},
             {R"({"config":"c","values":5})", "values:5\n" + std::string(kUnparsable)},
             {R"({"config":"c","values":[""]})", "values:[ \"\" ]\n"}}) {
        NQ_UBUS ubus = configured(row.first);
        bool result = false;
        EXPECT_EQ(fields + row.second, printedBy([&] { result = ubus.checkConfig(); }));
        EXPECT_TRUE(result);
    }
    EXPECT_THAT(commands.lines(), IsEmpty());
}

TEST(NQ_UBUS, CheckConfigParsesTheTextOfTheValues) {
    const CapturedCommands commands;
    NQ_UBUS ubus = configured(R"({"config":"c","values":"{\"a\":\"\",\"b\":\"1\"}"})");
    EXPECT_EQ("config:c\nsection:\ntype:\nvalues:{\"a\":\"\",\"b\":\"1\"}\nb=1\n"
              "Calling: ubus call uci delete '{ \"config\": \"c\", \"section\": \"\", "
              "\"options\": [ \"a\" ] }'; uci commit c\n",
              printedBy([&] { ubus.checkConfig(); }));
}

TEST(NQ_UBUS, ANullOptionRaisesALogicErrorInCheckConfig) {
    const CapturedCommands commands;
    NQ_UBUS ubus = configured(R"({"config":"c","values":{"a":"1","b":null}})");
    EXPECT_EQ("config:c\nsection:\ntype:\nvalues:{ \"a\": \"1\", \"b\": null }\na=1\n",
              printedBy([&] { EXPECT_THROW(ubus.checkConfig(), std::logic_error); }));
    EXPECT_THAT(commands.lines(), IsEmpty());
}

TEST(NQ_UBUS, CheckConfigRefusesATextThatDoesNotParse) {
    const CapturedCommands commands;
    for (const char* text : {"", "no json", "{\"config\":"}) {
        NQ_UBUS ubus = configured(kLan);
        printedBy([&] { ubus.init(text); });
        bool result = true;
        EXPECT_EQ("Configuration NOT VALID\n", printedBy([&] { result = ubus.checkConfig(); }));
        EXPECT_FALSE(result);
    }
    EXPECT_THAT(commands.lines(), IsEmpty());
}

TEST(NQ_UBUS, CheckConfigRefusesAnObjectThatWasNeverFilled) {
    NQ_UBUS ubus;
    bool result = true;
    EXPECT_EQ("Configuration NOT VALID\n", printedBy([&] { result = ubus.checkConfig(); }));
    EXPECT_FALSE(result);
}

TEST(NQ_UBUS, EveryLineIsFlushedBeforeTheCallReturns) {
    const CapturedCommands commands;
    const auto flushedBy = [](const std::function<void()>& action) {
        const support::CapturedOutput output;
        action();
        return output.written();
    };
    NQ_UBUS ubus;
    EXPECT_EQ("Configuration NOT VALID\n", flushedBy([&] { ubus.checkConfig(); }));
    ubus = configured(R"({"config":"c","section":"s","values":{}})");
    EXPECT_EQ("config:c\nsection:s\ntype:\nvalues:{ }\n", flushedBy([&] { ubus.checkConfig(); }));
    EXPECT_EQ("Calling: ubus call uci x; uci commit c\n",
              flushedBy([&] { ubus.applyConfig("x"); }));
    EXPECT_EQ("Calling: /etc/init.d/c restart\nRestarting: c...\nService c restarted\n",
              flushedBy([&] { ubus.restartService(); }));
}

// restartService ----------------------------------------------------------------------------------

/// The command and the printed text must name the same service.
void expectRestart(const std::string& config, const std::string& section,
                   const std::string& service) {
    const CapturedCommands commands;
    NQ_UBUS ubus = named(config, section);
    bool result = false;
    EXPECT_EQ("Calling: /etc/init.d/" + service + " restart\nRestarting: " + service +
                  "...\nService " + service + " restarted\n",
              printedBy([&] { result = ubus.restartService(); }));
    EXPECT_TRUE(result);
    EXPECT_THAT(commands.lines(), ElementsAre("/etc/init.d/" + service + " restart"));
}

TEST(NQ_UBUS, APackageRestartsTheServiceOfItsName) {
    expectRestart("network", "lan", "network");
    expectRestart("firewall", "", "firewall");
}

TEST(NQ_UBUS, NtpSectionRestartsSysntpd) {
    expectRestart("system", "ntp", "sysntpd");
    expectRestart("anything", "ntp", "sysntpd");
    expectRestart("dhcp", "ntp", "sysntpd"); // the section is checked first
}

TEST(NQ_UBUS, NtpPackageIsNotSpecial) { expectRestart("ntp", "main", "ntp"); }

TEST(NQ_UBUS, DhcpPackageRestartsDnsmasq) { expectRestart("dhcp", "lan", "dnsmasq"); }

TEST(NQ_UBUS, DhcpSectionIsNotSpecial) { expectRestart("network", "dhcp", "network"); }

TEST(NQ_UBUS, TheServicesScriptRunsBetweenTheLines) {
    support::inPrivateMounts({"/etc/init.d"}, [] {
        support::writeFile("/etc/init.d/network", "#!/bin/sh\necho \"$0 $*\"; exit 7\n", 0755);
        NQ_UBUS ubus = named("network", "lan");
        bool result = false;
        EXPECT_EQ("Calling: /etc/init.d/network restart\n"
                  "Restarting: network...\n"
                  "/etc/init.d/network restart\n"
                  "Service network restarted\n",
                  printedBy([&] { result = ubus.restartService(); }));
        EXPECT_TRUE(result);
    });
}

} // namespace
