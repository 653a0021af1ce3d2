// uci.apply: what it changes, what it refuses, and how it detects a change without effect.

#include "AgentInSandbox.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::AgentInSandbox;
using support::apply;
using support::exists;
using support::failed;
using support::invalidParams;
using support::result;
using support::writeFile;
using testing::HasSubstr;
using testing::Not;

TEST(tavo_agent_uci_apply, ChangesAndDropsOptionsAndRestartsTheService) {
    AgentInSandbox agent;
    EXPECT_EQ(
        result(R"({"config":"network","section":"lan","existed":true,"exists":true,"values":{)"
               R"("device":"br-lan","proto":"static","ipaddr":"192.168.7.1",)"
               R"("netmask":"255.255.255.0","ip6assign":"60","dns":["1.1.1.1","8.8.8.8"]},)"
               R"("restarted":true})"),
        agent.call(apply(R"({"config":"network","section":"lan","type":"interface",)"
                         R"("values":{"ipaddr":"192.168.7.1","gateway":""},"restart":true})")));
    EXPECT_THAT(agent.read("/etc/config/network"), HasSubstr("\toption ipaddr '192.168.7.1'\n"));
    EXPECT_THAT(agent.read("/etc/config/network"), Not(HasSubstr("gateway")));
    EXPECT_EQ("network restart\n", agent.read("/tmp/init.d.log"));
}

TEST(tavo_agent_uci_apply, GivesTheLibraryNothingButTheCheckedParts) {
    AgentInSandbox agent;
    agent.call(apply("{ \"restart\" : true, \"values\" : { \"ipaddr\" : \"10.0.0.1\" },\n"
                     " \"section\" : \"lan\", \"config\" : \"network\" }"));
    EXPECT_THAT(agent.commands(),
                testing::ElementsAre(R"(ubus call uci set '{"config":"network","section":"lan",)"
                                     R"("values":{"ipaddr":"10.0.0.1"}}'; uci commit network)",
                                     "/etc/init.d/network restart"));
}

TEST(tavo_agent_uci_apply, CreatesAndDeletesASection) {
    AgentInSandbox agent;
    const std::string before = agent.read("/etc/config/network");
    const std::string guest =
        R"({"config":"network","section":"guest","type":"interface",)"
        R"("values":{"proto":"static","dns":["1.1.1.1","9.9.9.9"],"note":"a \"b\" $c `d` \\ ä"}})";
    EXPECT_EQ(result(R"({"config":"network","section":"guest","existed":false,"exists":true,)"
                     R"("values":{"proto":"static","dns":["1.1.1.1","9.9.9.9"],)"
                     R"("note":"a \"b\" $c `d` \\ ä"},"restarted":false})"),
              agent.call(apply(guest)));
    EXPECT_EQ(before + "config interface 'guest'\n\toption proto 'static'\n"
                       "\tlist dns '1.1.1.1'\n\tlist dns '9.9.9.9'\n"
                       "\toption note 'a \"b\" $c `d` \\ ä'\n\n",
              agent.read("/etc/config/network"));
    EXPECT_EQ(result(R"({"config":"network","section":"guest","existed":true,"exists":false,)"
                     R"("restarted":false})"),
              agent.call(apply(R"({"config":"network","section":"guest","values":{}})")));
    EXPECT_EQ(before, agent.read("/etc/config/network"));
    EXPECT_FALSE(exists(agent.file("/tmp/init.d.log")));
}

TEST(tavo_agent_uci_apply, RestartsTheServicesOfDhcpAndNtp) {
    AgentInSandbox agent;
    agent.call(
        apply(R"({"config":"dhcp","section":"lan","values":{"limit":"50"},"restart":true})"));
    agent.call(
        apply(R"({"config":"system","section":"ntp","values":{"enabled":"0"},"restart":true})"));
    EXPECT_EQ("dnsmasq restart\nsysntpd restart\n", agent.read("/tmp/init.d.log"));
}

TEST(tavo_agent_uci_apply, RefusesASingleQuoteAnywhere) {
    AgentInSandbox agent;
    const std::string quoted = invalidParams("single quotes are not accepted");
    const std::string shell = "'; echo >/tmp/tavo-test-broken_in; echo '";
    for (const std::string& params : {
             R"({"config":"network","section":"lan","values":{"ipaddr":")" + shell + "\"}}",
             R"({"config":"network","section":"lan","values":{"ipaddr":["a",")" + shell + "\"]}}",
             R"({"config":"network","section":"lan","values":{")" + shell + R"(":"a"}})",
             R"({"config":"network","section":")" + shell + R"(","values":{}})",
             R"({"config":")" + shell + R"(","section":"lan","values":{}})",
             R"({"config":"network","section":"lan","type":")" + shell + R"(","values":{}})",
             std::string(
                 R"({"config":"network","section":"lan","values":{"ipaddr":"\u0027; reboot"}})"),
             std::string(R"({"config":"network","section":"lan","values":{"a":{"b":"'"}}})"),
         })
        EXPECT_EQ(quoted, agent.call(apply(params))) << params;
    EXPECT_THAT(agent.commands(), testing::IsEmpty());
    EXPECT_FALSE(exists(agent.file("/tmp/tavo-test-broken_in")));
}

TEST(tavo_agent_uci_apply, RefusesBadNames) {
    AgentInSandbox agent;
    const auto bad = [](const std::string& parameter) {
        return invalidParams(
            "\\\"" + parameter +
            "\\\" may contain only letters, digits, _ and any of -, and must not be "
            "empty or begin with -");
    };
    const auto withSection = [](const std::string& name) {
        return apply(R"({"config":"network","section":")" + name + R"(","values":{}})");
    };
    const std::string badSection =
        invalidParams("\\\"section\\\" must be letters, digits and _, or @TYPE[INDEX]");
    for (const char* name : {"", "a b", "a;b", "../x", "a/b", "@x[0]", "$(x)", "ä", "-c", "a\\n",
                             "a\\\"", "a|b", "a&", "a.b", "*"}) {
        const std::string text = std::string("\"") + name + "\"";
        EXPECT_EQ(bad("config"),
                  agent.call(apply("{\"config\":" + text + R"(,"section":"lan","values":{}})")));
        if (name[0] != '@') {
            EXPECT_EQ(badSection, agent.call(withSection(name)));
        }
        EXPECT_EQ(bad("type"), agent.call(apply(R"({"config":"network","section":"lan","type":)" +
                                                text + R"(,"values":{}})")));
    }
    // The tools can neither create nor set a section with such a name.
    for (const char* name : {"guest-net", "@", "@[0]", "@rule", "@rule[", "@rule[]", "@rule[-]",
                             "@rule[0", "@rule[0]x", "@rule[+1]", "@rule[1 ]", "@rule[0][1]",
                             "@r;x[0]", "@rule[$x]", "@rule[1234567]", "rule[0]"})
        EXPECT_EQ(badSection, agent.call(withSection(name))) << name;
    EXPECT_EQ(invalidParams("an option's name may contain only letters, digits and _"),
              agent.call(apply(R"({"config":"network","section":"lan","values":{"a-b":"c"}})")));
    EXPECT_THAT(agent.commands(), testing::IsEmpty());
}

TEST(tavo_agent_uci_apply, RefusesMissingAndWronglyTypedParameters) {
    AgentInSandbox agent;
    const auto expectRefusal = [&](const std::string& params, const std::string& why) {
        EXPECT_EQ(invalidParams(why), agent.call(apply(params))) << params;
    };
    expectRefusal(R"({})", "\\\"config\\\" is missing");
    expectRefusal(R"({"config":"network","values":{}})", "\\\"section\\\" is missing");
    expectRefusal(R"({"config":"network","section":"lan"})", "\\\"values\\\" is missing");
    for (const char* value : {"null", "1", "true", "[]", "{}"}) {
        expectRefusal(std::string(R"({"section":"lan","values":{},"config":)") + value + "}",
                      "\\\"config\\\" must be a string");
        expectRefusal(std::string(R"({"config":"a","values":{},"section":)") + value + "}",
                      "\\\"section\\\" must be a string");
        expectRefusal(std::string(R"({"config":"a","section":"b","values":{},"type":)") + value +
                          "}",
                      "\\\"type\\\" must be a string");
    }
    for (const char* value : {"null", "1", "true", "[]", "\"text\""})
        expectRefusal(std::string(R"({"config":"a","section":"b","values":)") + value + "}",
                      "\\\"values\\\" must be an object");
    for (const char* value : {"null", "1", "1.5", "true", "{}", "[]", "[1]", "[null]", "[[\"a\"]]"})
        expectRefusal(std::string(R"({"config":"a","section":"b","values":{"mtu":)") + value + "}}",
                      "option \\\"mtu\\\" must be a string or a non-empty array of strings");
    for (const char* value : {"null", "1", "\"yes\""})
        expectRefusal(std::string(R"({"config":"a","section":"b","values":{},"restart":)") + value +
                          "}",
                      "\\\"restart\\\" must be true or false");
    expectRefusal(R"({"config":"a","section":"b","values":{},"restrat":true})",
                  "there is no parameter \\\"restrat\\\"");
    expectRefusal(R"({"config":"a","section":"b","values":{"c":")" + std::string(64 * 1024, 'x') +
                      "\"}}",
                  "the section is longer than 65536 bytes");
    EXPECT_THAT(agent.commands(), testing::IsEmpty());
}

TEST(tavo_agent_uci_apply, ReportsTheToolsMessageAboutAMissingPackage) {
    AgentInSandbox agent;
    EXPECT_EQ(failed("the configuration cannot be read: Command failed: ubus call uci get { "
                     "\\\"config\\\":\\\"nothing\\\",\\\"section\\\":\\\"lan\\\"} (Not found)"),
              agent.call(apply(
                  R"({"config":"nothing","section":"lan","values":{"a":"b"},"restart":true})")));
    EXPECT_THAT(agent.commands(), testing::IsEmpty());
}

TEST(tavo_agent_uci_apply, ReportsAChangeWithoutEffect) {
    AgentInSandbox agent;
    EXPECT_EQ(failed("network/guest does not exist and could not be created"),
              agent.call(apply(R"({"config":"network","section":"guest",)"
                               R"("values":{"proto":"static"},"restart":true})")));
    // Without its file the package can neither be read nor changed.
    support::runProgram({"rm", agent.file("/etc/config/wireless")});
    EXPECT_THAT(agent.call(apply(R"({"config":"wireless","section":"radio0",)"
                                 R"("values":{"channel":"6"},"restart":true})")),
                HasSubstr("\"code\":-32000"));
    EXPECT_FALSE(exists(agent.file("/tmp/init.d.log"))) << "a service was restarted all the same";
}

TEST(tavo_agent_uci_apply, NamesTheOptionsThatWereNotTakenOver) {
    AgentInSandbox agent("PATH=/tmp/tavo-test-bin:$PATH exec \"$@\"", {});
    // A service that returns the same section for every read and ignores changes.
    support::runProgram({"mkdir", agent.file("/tmp/tavo-test-bin")});
    writeFile(agent.file("/tmp/tavo-test-bin/ubus"),
              "#!/bin/sh\n[ \"$3\" != get ] || echo '{\"values\":{\".type\":\"x\",\"a\":\"1\","
              "\"b\":\"1\",\"d\":[\"1\"]}}'\n",
              0755);
    EXPECT_EQ(failed("network/lan differs from the request: b, c, d, a"),
              agent.call(apply(R"({"config":"network","section":"lan","restart":true,"values":)"
                               R"({"b":"2","c":"1","d":["1","2"],"a":""}})")));
    EXPECT_EQ(failed("network/lan could not be deleted"),
              agent.call(apply(R"({"config":"network","section":"lan","values":{}})")));
    EXPECT_FALSE(exists(agent.file("/tmp/init.d.log")));
}

TEST(tavo_agent_uci_apply, NamesOptionsThatTheToolsDropSilently) {
    AgentInSandbox agent;
    EXPECT_EQ(failed("network/lan differs from the request: note"),
              agent.call(apply(R"({"config":"network","section":"lan",)"
                               R"("values":{"mtu":"1400","note":"bell \u0007"}})")));
    EXPECT_THAT(agent.read("/etc/config/network"), HasSubstr("\toption mtu '1400'\n"));
}

TEST(tavo_agent_uci_apply, LeavesAnotherWritersChangeAndNamesItsOption) {
    AgentInSandbox agent("PATH=/tmp/tavo-test-bin:$PATH exec \"$@\"", {});
    // Another program changes the address after the agent's change and before its check.
    support::runProgram({"mkdir", agent.file("/tmp/tavo-test-bin")});
    writeFile(agent.file("/tmp/tavo-test-bin/ubus"),
              "#!/bin/sh\nPATH=${PATH#*:}\nubus \"$@\"\nresult=$?\n"
              "[ \"$3\" != set ] || ubus call uci set '{\"config\":\"network\","
              "\"section\":\"lan\",\"values\":{\"ipaddr\":\"10.9.9.9\"}}'\nexit $result\n",
              0755);
    EXPECT_EQ(failed("network/lan differs from the request: ipaddr"),
              agent.call(apply(R"({"config":"network","section":"lan","restart":true,"values":)"
                               R"({"ipaddr":"10.0.0.1","netmask":"255.0.0.0"}})")));
    EXPECT_THAT(agent.read("/etc/config/network"), HasSubstr("\toption ipaddr '10.9.9.9'\n"));
    EXPECT_THAT(agent.read("/etc/config/network"), HasSubstr("\toption netmask '255.0.0.0'\n"));
    EXPECT_EQ(1u, agent.commands().size()) << "the change was made again";
    EXPECT_FALSE(exists(agent.file("/tmp/init.d.log")));
}

TEST(tavo_agent_uci_apply, ChangesANamedSectionOnlyWhileItIsAsExpected) {
    AgentInSandbox agent;
    const auto change = [](const std::string& expect) {
        return apply(R"({"config":"dhcp","section":"wan","values":{"ignore":"0"},"expect":)" +
                     expect + "}");
    };
    EXPECT_EQ(failed("dhcp/wan is not as expected: ignore"),
              agent.call(change(R"({"interface":"wan","ignore":"0"})")));
    EXPECT_THAT(agent.commands(), testing::IsEmpty());
    EXPECT_THAT(agent.call(change(R"({"interface":"wan","ignore":"1"})")),
                HasSubstr(R"("values":{"interface":"wan","ignore":"0"})"));
    EXPECT_EQ(failed("dhcp/guest does not exist"),
              agent.call(apply(R"({"config":"dhcp","section":"guest","type":"dhcp","values":)"
                               R"({"ignore":"0"},"expect":{}})")));
}

TEST(tavo_agent_uci_apply, StartsServicesWithNoSignalBlocked) {
    AgentInSandbox agent;
    // Looks at signals 1 to 28 only; those from 32 up belong to the C library.
    writeFile(agent.file("/etc/init.d/custom"),
              "#!/bin/sh\numask >/tmp/tavo-test-began\n"
              "sed -n 's/^\\(Sig[BI].*:\\).*\\(.......\\)$/\\1 \\2/p' /proc/self/status "
              ">>/tmp/tavo-test-began\n",
              0755);
    writeFile(agent.file("/etc/config/custom"), "config thing 'one'\n\toption a '1'\n");
    agent.call(apply(R"({"config":"custom","section":"one","values":{"a":"2"},"restart":true})"));
    EXPECT_EQ("0022\nSigBlk: 0000000\nSigIgn: 0000000\n", agent.read("/tmp/tavo-test-began"));
}

} // namespace
