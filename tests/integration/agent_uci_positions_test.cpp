// Anonymous sections: uci.apply and uci.get with positions such as @rule[0].

#include "AgentInSandbox.h"

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::AgentInSandbox;
using support::apply;
using support::failed;
using support::invalidParams;
using support::request;
using support::result;
using support::writeFile;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// Two anonymous rules, as in a firewall's configuration.
constexpr char kRules[] = "\nconfig rule\n\toption name 'first'\n\toption target 'ACCEPT'\n\n"
                          "config rule\n\toption name 'second'\n\tlist proto 'tcp'\n"
                          "\tlist proto 'udp'\n\n";

/// Writes the rules to a gateway's package "rules".
void writeRules(const AgentInSandbox& agent) { writeFile(agent.file("/etc/config/rules"), kRules); }

/// Returns the generated name of the rule at `position`.
std::string nameOf(AgentInSandbox& agent, const std::string& position) {
    const std::string answer =
        agent.call(request("uci.get", R"({"config":"rules","section":")" + position + "\"}"));
    const std::string before = "\"name\":\"";
    const std::size_t begin = answer.find(before) + before.size();
    return answer.substr(begin, answer.find('"', begin) - begin);
}

std::string deletion(const std::string& section, const std::string& expect) {
    return apply(R"({"config":"rules","section":")" + section + R"(","values":{})" +
                 (expect.empty() ? "" : ",\"expect\":" + expect) + "}");
}

TEST(tavo_agent_uci_apply, DeletesNoAnonymousSectionByItsGeneratedName) {
    AgentInSandbox agent;
    writeRules(agent);
    const std::string name = nameOf(agent, "@rule[0]");
    ASSERT_THAT(name, testing::MatchesRegex("cfg01[0-9a-f]{4}"));
    const std::string refused =
        invalidParams("section \\\"" + name +
                      "\\\" is anonymous, and the next one inherits its name: delete it as "
                      "\\\"@rule[INDEX]\\\", with \\\"expect\\\"");
    EXPECT_EQ(refused, agent.call(deletion(name, "")));
    EXPECT_EQ(refused, agent.call(deletion(name, R"({"name":"first","target":"ACCEPT"})")));
    EXPECT_EQ(kRules, agent.read("/etc/config/rules"));
    EXPECT_THAT(agent.commands(), IsEmpty());
}

TEST(tavo_agent_uci_apply, SetsAnAnonymousSectionByItsGeneratedNameAndByItsPosition) {
    AgentInSandbox agent;
    writeRules(agent);
    EXPECT_THAT(agent.call(apply(R"({"config":"rules","section":")" + nameOf(agent, "@rule[0]") +
                                 R"(","values":{"target":"DROP"}})")),
                HasSubstr(R"("existed":true,"exists":true,)"
                          R"("values":{"name":"first","target":"DROP"})"));
    EXPECT_EQ(result(R"({"config":"rules","section":"@rule[-1]","existed":true,"exists":true,)"
                     R"("values":{"name":"second","target":"REJECT"},"restarted":false})"),
              agent.call(apply(R"({"config":"rules","section":"@rule[-1]",)"
                               R"("values":{"proto":"","target":"REJECT"}})")));
    EXPECT_EQ("\nconfig rule\n\toption name 'first'\n\toption target 'DROP'\n\n"
              "config rule\n\toption name 'second'\n\toption target 'REJECT'\n\n",
              agent.read("/etc/config/rules"));
}

TEST(tavo_agent_uci_apply, CreatesNoSectionAtAPosition) {
    AgentInSandbox agent;
    writeRules(agent);
    EXPECT_EQ(failed("rules/@rule[2] does not exist"),
              agent.call(apply(R"({"config":"rules","section":"@rule[2]","type":"rule",)"
                               R"("values":{"target":"DROP"}})")));
    EXPECT_THAT(agent.commands(), IsEmpty());
}

TEST(tavo_agent_uci_apply, DeletesASectionAtAPositionOnceOnly) {
    AgentInSandbox agent;
    writeRules(agent);
    const std::string first = deletion("@rule[0]", R"({"target":"ACCEPT","name":"first"})");
    EXPECT_EQ(result(R"({"config":"rules","section":"@rule[0]","existed":true,"exists":false,)"
                     R"("restarted":false})"),
              agent.call(first));
    EXPECT_EQ("\nconfig rule\n\toption name 'second'\n\tlist proto 'tcp'\n"
              "\tlist proto 'udp'\n\n",
              agent.read("/etc/config/rules"));
    // The same request again would delete the next section, now at that position.
    EXPECT_EQ(failed("rules/@rule[0] is not as expected: target, name, proto"), agent.call(first));
    EXPECT_EQ(1u, agent.commands().size());
}

TEST(tavo_agent_uci_apply, ComparesEveryOptionBeforeItDeletesASection) {
    AgentInSandbox agent;
    writeRules(agent);
    EXPECT_EQ(invalidParams("deleting \\\"@rule[1]\\\" needs \\\"expect\\\" with the section's "
                            "options: another section may have moved to this position"),
              agent.call(deletion("@rule[1]", "")));
    const std::vector<std::pair<std::string, std::string>> expectations = {
        {R"({})", "name, proto"},
        {R"({"name":"second"})", "proto"},
        {R"({"name":"second","proto":["udp","tcp"]})", "proto"},
        {R"({"name":"second","proto":["tcp"]})", "proto"},
        {R"({"name":"second","proto":"tcp"})", "proto"},
        {R"({"name":"Second","proto":["tcp","udp"]})", "name"},
        {R"({"name":"second","proto":["tcp","udp"],"a":"1"})", "a"},
    };
    for (const auto& [expect, differing] : expectations)
        EXPECT_EQ(failed("rules/@rule[1] is not as expected: " + differing),
                  agent.call(deletion("@rule[1]", expect)))
            << expect;
    EXPECT_EQ(failed("rules/@rule[2] does not exist"), agent.call(deletion("@rule[2]", "{}")));
    EXPECT_EQ(kRules, agent.read("/etc/config/rules"));
    EXPECT_THAT(agent.call(deletion("@rule[1]", R"({"name":"second","proto":["tcp","udp"]})")),
                HasSubstr("\"exists\":false"));
}

TEST(tavo_agent_uci_apply, ComparesASingleQuoteInASectionThatItDeletes) {
    AgentInSandbox agent;
    writeFile(agent.file("/etc/config/rules"), "\nconfig rule\n\toption name 'Bob'\\''s rule'\n\n");
    EXPECT_THAT(agent.call(deletion("@rule[0]", R"({"name":"Bob's rule"})")),
                HasSubstr("\"exists\":false"));
    EXPECT_THAT(agent.read("/etc/config/rules"), Not(HasSubstr("rule")));
}

TEST(tavo_agent_uci_apply, ReportsWhenASectionAtAPositionStillExists) {
    AgentInSandbox agent("PATH=/tmp/tavo-test-bin:$PATH exec \"$@\"", {});
    writeRules(agent);
    support::runProgram({"mkdir", agent.file("/tmp/tavo-test-bin")});
    writeFile(agent.file("/tmp/tavo-test-bin/ubus"),
              "#!/bin/sh\nPATH=${PATH#*:}\n[ \"$3\" = delete ] || exec ubus \"$@\"\n", 0755);
    EXPECT_EQ(failed("rules/@rule[0] could not be deleted"),
              agent.call(deletion("@rule[0]", R"({"name":"first","target":"ACCEPT"})")));
}

TEST(tavo_agent_uci_get, ReadsASectionByItsNameAndByItsPosition) {
    AgentInSandbox agent;
    writeRules(agent);
    EXPECT_EQ(result(R"({"config":"dhcp","section":"wan","exists":true,"name":"wan",)"
                     R"("type":"dhcp","anonymous":false,)"
                     R"("values":{"interface":"wan","ignore":"1"}})"),
              agent.call(request("uci.get", R"({"config":"dhcp","section":"wan"})")));
    EXPECT_THAT(agent.call(request("uci.get", R"({"config":"rules","section":"@rule[-1]"})")),
                testing::MatchesRegex(
                    R"(.*"section":"@rule\[-1\]","exists":true,"name":"cfg02[0-9a-f]{4}",)"
                    R"("type":"rule","anonymous":true,)"
                    R"("values":\{"name":"second","proto":\["tcp","udp"\]\}\}\})"));
    EXPECT_EQ(result(R"({"config":"rules","section":"@rule[2]","exists":false})"),
              agent.call(request("uci.get", R"({"config":"rules","section":"@rule[2]"})")));
    EXPECT_EQ(failed("the configuration cannot be read: Command failed: ubus call uci get { "
                     "\\\"config\\\":\\\"nothing\\\",\\\"section\\\":\\\"lan\\\"} (Not found)"),
              agent.call(request("uci.get", R"({"config":"nothing","section":"lan"})")));
    EXPECT_EQ(invalidParams("there is no parameter \\\"values\\\""),
              agent.call(request("uci.get", R"({"config":"a","section":"b","values":{}})")));
}

} // namespace
