// What the agent's methods do to a gateway, and what they refuse.

#include "AgentInSandbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

using support::exists;
using support::writeFile;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

std::string failed(const std::string& data) { return error("1", -32000, "Failed", data); }

// uci.apply

std::string apply(const std::string& params) { return request("uci.apply", params); }

/// The library's command lines so far.
std::vector<std::string> commands(const AgentInSandbox& agent) {
    std::vector<std::string> lines;
    std::istringstream errors(agent.errors());
    for (std::string line; std::getline(errors, line);)
        if (line.rfind("Calling: ", 0) == 0)
            lines.push_back(line.substr(9));
    return lines;
}

TEST(UciApply, ChangesAndDropsOptionsAndRestartsTheService) {
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

TEST(UciApply, GivesTheLibraryNothingButTheCheckedParts) {
    AgentInSandbox agent;
    agent.call(apply("{ \"restart\" : true, \"values\" : { \"ipaddr\" : \"10.0.0.1\" },\n"
                     " \"section\" : \"lan\", \"config\" : \"network\" }"));
    EXPECT_THAT(commands(agent),
                testing::ElementsAre(R"(ubus call uci set '{"config":"network","section":"lan",)"
                                     R"("values":{"ipaddr":"10.0.0.1"}}'; uci commit network)",
                                     "/etc/init.d/network restart"));
}

TEST(UciApply, CreatesAndDeletesASection) {
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

TEST(UciApply, RestartsTheServicesOfDhcpAndNtp) {
    AgentInSandbox agent;
    agent.call(
        apply(R"({"config":"dhcp","section":"lan","values":{"limit":"50"},"restart":true})"));
    agent.call(
        apply(R"({"config":"system","section":"ntp","values":{"enabled":"0"},"restart":true})"));
    EXPECT_EQ("dnsmasq restart\nsysntpd restart\n", agent.read("/tmp/init.d.log"));
}

TEST(UciApply, RefusesASingleQuoteAnywhere) {
    AgentInSandbox agent;
    const std::string quoted = invalidParams("single quotes are not accepted");
    const std::string shell = "'; echo >/tmp/broken_in; echo '";
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
    EXPECT_THAT(commands(agent), testing::IsEmpty());
    EXPECT_FALSE(exists(agent.file("/tmp/broken_in")));
}

TEST(UciApply, RefusesBadNames) {
    AgentInSandbox agent;
    const auto bad = [](const std::string& parameter) {
        return invalidParams("\\\"" + parameter +
                             "\\\" may hold only letters, digits, _ and any of -, and must not be "
                             "empty or begin with -");
    };
    for (const char* name : {"", "a b", "a;b", "../x", "a/b", "@x[0]", "$(x)", "ä", "-c", "a\\n",
                             "a\\\"", "a|b", "a&", "a.b", "*"}) {
        const std::string text = std::string("\"") + name + "\"";
        EXPECT_EQ(bad("config"),
                  agent.call(apply("{\"config\":" + text + R"(,"section":"lan","values":{}})")));
        EXPECT_EQ(bad("section"), agent.call(apply(R"({"config":"network","section":)" + text +
                                                   R"(,"values":{}})")));
        EXPECT_EQ(bad("type"), agent.call(apply(R"({"config":"network","section":"lan","type":)" +
                                                text + R"(,"values":{}})")));
    }
    EXPECT_EQ(invalidParams("an option's name may hold only letters, digits and _"),
              agent.call(apply(R"({"config":"network","section":"lan","values":{"a-b":"c"}})")));
    EXPECT_THAT(commands(agent), testing::IsEmpty());
}

TEST(UciApply, RefusesMissingAndWronglyTypedParameters) {
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
        expectRefusal(
            std::string(R"({"config":"a","section":"b","values":{"mtu":)") + value + "}}",
            "option \\\"mtu\\\" must be a string or an array of strings that is not empty");
    for (const char* value : {"null", "1", "\"yes\""})
        expectRefusal(std::string(R"({"config":"a","section":"b","values":{},"restart":)") + value +
                          "}",
                      "\\\"restart\\\" must be true or false");
    expectRefusal(R"({"config":"a","section":"b","values":{},"restrat":true})",
                  "there is no parameter \\\"restrat\\\"");
    expectRefusal(R"({"config":"a","section":"b","values":{"c":")" + std::string(64 * 1024, 'x') +
                      "\"}}",
                  "the section is longer than 65536 bytes");
    EXPECT_THAT(commands(agent), testing::IsEmpty());
}

TEST(UciApply, SaysWhatTheToolSaysWhenThereIsNoSuchPackage) {
    AgentInSandbox agent;
    EXPECT_EQ(failed("the configuration cannot be read: Command failed: ubus call uci get { "
                     "\\\"config\\\":\\\"nothing\\\",\\\"section\\\":\\\"lan\\\"} (Not found)"),
              agent.call(apply(
                  R"({"config":"nothing","section":"lan","values":{"a":"b"},"restart":true})")));
    EXPECT_THAT(commands(agent), testing::IsEmpty());
}

TEST(UciApply, TellsWhenNothingCameOfIt) {
    AgentInSandbox agent;
    EXPECT_EQ(failed("network/guest does not exist and could not be created"),
              agent.call(apply(R"({"config":"network","section":"guest",)"
                               R"("values":{"proto":"static"},"restart":true})")));
    // The tools' file can no longer be replaced, so that nothing is taken over.
    support::runProgram({"rm", agent.file("/etc/config/wireless")});
    EXPECT_THAT(agent.call(apply(R"({"config":"wireless","section":"radio0",)"
                                 R"("values":{"channel":"6"},"restart":true})")),
                HasSubstr("\"code\":-32000"));
    EXPECT_FALSE(exists(agent.file("/tmp/init.d.log"))) << "a service was restarted all the same";
}

TEST(UciApply, NamesTheOptionsThatWereNotTakenOver) {
    AgentInSandbox agent("PATH=/tmp/bin:$PATH exec \"$@\"", {});
    // A service that answers every read with the same section and takes no change.
    support::runProgram({"mkdir", agent.file("/tmp/bin")});
    writeFile(agent.file("/tmp/bin/ubus"),
              "#!/bin/sh\n[ \"$3\" != get ] || echo '{\"values\":{\".type\":\"x\",\"a\":\"1\","
              "\"b\":\"1\",\"d\":[\"1\"]}}'\n",
              0755);
    EXPECT_EQ(failed("network/lan did not take over: b, c, d, a"),
              agent.call(apply(R"({"config":"network","section":"lan","restart":true,"values":)"
                               R"({"b":"2","c":"1","d":["1","2"],"a":""}})")));
    EXPECT_EQ(failed("network/lan could not be deleted"),
              agent.call(apply(R"({"config":"network","section":"lan","values":{}})")));
    EXPECT_FALSE(exists(agent.file("/tmp/init.d.log")));
}

TEST(UciApply, LetsServicesBeginWithNoSignalBlocked) {
    AgentInSandbox agent;
    // The C library's own signals, 32 and up, are none of our business.
    writeFile(
        agent.file("/etc/init.d/custom"),
        "#!/bin/sh\numask >/tmp/began\n"
        "sed -n 's/^\\(Sig[BI].*:\\).*\\(.......\\)$/\\1 \\2/p' /proc/self/status >>/tmp/began\n",
        0755);
    writeFile(agent.file("/etc/config/custom"), "config thing 'one'\n\toption a '1'\n");
    agent.call(apply(R"({"config":"custom","section":"one","values":{"a":"2"},"restart":true})"));
    EXPECT_EQ("0022\nSigBlk: 0000000\nSigIgn: 0000000\n", agent.read("/tmp/began"));
}

// process.run

std::string run(const std::string& params) { return request("process.run", params); }

std::string script(const std::string& commandLine) {
    return run(R"({"command":"sh","arguments":["-c",")" + commandLine + "\"]}");
}

TEST(ProcessRun, AnswersOutputAndBothReadingsOfTheStatus) {
    AgentInSandbox agent({"--allow", "sh"});
    EXPECT_EQ(result(R"({"output":"out\nerr\n","truncated":false,"raw_status":768,)"
                     R"("exit_code":3,"signal":null})"),
              agent.call(script("echo out; echo err >&2; exit 3")));
    EXPECT_EQ(result(R"({"output":"","truncated":false,"raw_status":9,)"
                     R"("exit_code":null,"signal":9})"),
              agent.call(script("kill -KILL $$")));
}

TEST(ProcessRun, KnowsTheStatusAlsoWhenItsOwnParentIgnoredChildren) {
    AgentInSandbox agent("exec env --ignore-signal=CHLD \"$@\"", {"--allow", "sh"});
    EXPECT_THAT(agent.call(script("exit 3")), HasSubstr(R"("raw_status":768,"exit_code":3)"));
}

TEST(ProcessRun, PassesArgumentsAsTheyAre) {
    AgentInSandbox agent({"--allow", "printf"});
    EXPECT_EQ(result(R"({"output":"[a b]['$x;`y`][]","truncated":false,"raw_status":0,)"
                     R"("exit_code":0,"signal":null})"),
              agent.call(run(R"({"command":"printf","arguments":["[%s]","a b","'$x;`y`",""]})")));
}

TEST(ProcessRun, RunsNothingThatIsNotAllowedByItsVeryName) {
    AgentInSandbox none;
    EXPECT_EQ(invalidParams("program \\\"sh\\\" is not allowed"),
              none.call(script("echo >/tmp/broken_in")));
    AgentInSandbox agent({"--allow", "true", "--allow=/bin/echo"});
    for (const char* command :
         {"sh", "/bin/true", "true ", "./true", "echo", "/bin/../bin/echo", "", "true;sh", "TRUE"})
        EXPECT_EQ(invalidParams(std::string("program \\\"") + command + "\\\" is not allowed"),
                  agent.call(run(std::string(R"({"command":")") + command + "\"}")));
    EXPECT_THAT(agent.call(run(R"({"command":"true"})")), HasSubstr("\"exit_code\":0"));
    EXPECT_THAT(agent.call(run(R"({"command":"/bin/echo"})")), HasSubstr("\"exit_code\":0"));
}

TEST(ProcessRun, RefusesMissingAndWronglyTypedParameters) {
    AgentInSandbox agent({"--allow", "true"});
    EXPECT_EQ(invalidParams("\\\"command\\\" is missing"), agent.call(run("{}")));
    EXPECT_EQ(invalidParams("\\\"command\\\" is missing"),
              agent.call(R"({"jsonrpc":"2.0","id":1,"method":"process.run"})"));
    for (const char* value : {"null", "1", "[\"true\"]", "{}"})
        EXPECT_EQ(invalidParams("\\\"command\\\" must be a string"),
                  agent.call(run(std::string("{\"command\":") + value + "}")));
    for (const char* value : {"null", "1", "\"-c\"", "{}", "[1]", "[\"a\",null]"})
        EXPECT_EQ(invalidParams("\\\"arguments\\\" must be an array of strings"),
                  agent.call(run(std::string(R"({"command":"true","arguments":)") + value + "}")));
}

TEST(ProcessRun, TellsOfAProgramThatIsNotThere) {
    AgentInSandbox agent({"--allow", "no_such_program"});
    EXPECT_EQ(result(R"({"output":"execvp: No such file or directory\n","truncated":false,)"
                     R"("raw_status":32512,"exit_code":127,"signal":null})"),
              agent.call(run(R"({"command":"no_such_program"})")));
}

TEST(ProcessRun, MakesOutputValidText) {
    AgentInSandbox agent({"--allow", "sh"});
    EXPECT_EQ(result("{\"output\":\"a\xEF\xBF\xBD(\xEF\xBF\xBD\xC3\xA4\\u001b\\r\\n\","
                     "\"truncated\":false,\"raw_status\":0,\"exit_code\":0,\"signal\":null}"),
              agent.call(script(R"(printf 'a\\377(\\303ä\\033\\r\\n')")));
}

TEST(ProcessRun, CutsEndlessOutput) {
    AgentInSandbox agent({"--allow", "sh"});
    const std::string response = agent.call(script("yes | head -c 1000000"));
    EXPECT_THAT(response,
                EndsWith(R"(","truncated":true,"raw_status":0,"exit_code":0,"signal":null}})"));
    std::size_t lines = 0;
    for (std::size_t at = 0; (at = response.find("y\\n", at)) != std::string::npos; ++at)
        ++lines;
    EXPECT_EQ(256u * 1024 / 2, lines);
}

TEST(ProcessRun, GivesProgramsNoInput) {
    AgentInSandbox agent("exec \"$@\" </etc/config/network", {"--allow", "cat"});
    EXPECT_THAT(agent.call(run(R"({"command":"cat"})")), HasSubstr(R"("output":"","truncated")"));
}

// config.place

std::string place(const std::string& params) { return request("config.place", params); }

TEST(ConfigPlace, PlacesAnApplicationsFileAndRestartsIt) {
    AgentInSandbox agent;
    EXPECT_EQ(result(R"({"file":"/opt/apps/ZEQ/cfg/ZEQ.json","bytes":14,"agent_stopped":false,)"
                     R"("application_restarted":true})"),
              agent.call(place(R"({"application":"ZEQ","directory":"cfg","file":"ZEQ.json",)"
                               R"("content":"{\"portID\":\"1\"}","restart":true})")));
    EXPECT_EQ("{\"portID\":\"1\"}", agent.read("/opt/apps/ZEQ/cfg/ZEQ.json"));
    EXPECT_EQ("ZEQ/bin/run.sh restart\n", agent.read("/tmp/init.d.log"));
}

TEST(ConfigPlace, PlacesAnAgentsFileAndStopsIt) {
    AgentInSandbox agent;
    EXPECT_EQ(result(R"({"file":"/opt/apps/ZEQ/agents/meter-1/cfg/key.bin","bytes":4,)"
                     R"("agent_stopped":true,"application_restarted":false})"),
              agent.call(
                  place(R"({"application":"ZEQ","agent":"meter-1","directory":"cfg",)"
                        R"("file":"key.bin","content":"AAEC/w==","base64":true,"restart":true})")));
    EXPECT_EQ(std::string("\0\x01\x02\xFF", 4),
              agent.read("/opt/apps/ZEQ/agents/meter-1/cfg/key.bin"));
    EXPECT_EQ("stopAgent.sh meter-1\n", agent.read("/tmp/init.d.log"));
}

TEST(ConfigPlace, RestartsNothingUnasked) {
    AgentInSandbox agent;
    EXPECT_EQ(result(R"({"file":"/opt/apps/ZEQ//notes.txt","bytes":0,"agent_stopped":false,)"
                     R"("application_restarted":false})"),
              agent.call(place(R"({"application":"ZEQ","file":"notes.txt","content":""})")));
    EXPECT_EQ("", agent.read("/opt/apps/ZEQ/notes.txt"));
    EXPECT_FALSE(exists(agent.file("/tmp/init.d.log")));
}

TEST(ConfigPlace, RefusesWhatCouldLeaveTheApplicationOrReachAShell) {
    AgentInSandbox agent;
    const auto with = [](const std::string& parameter, const std::string& value) {
        std::string params = "{";
        for (const char* name : {"application", "agent", "directory", "file"})
            params += std::string("\"") + name + "\":\"" +
                      (name == parameter ? value : std::string("ZEQ")) + "\",";
        return place(params + "\"content\":\"x\"}");
    };
    for (const char* parameter : {"application", "agent", "directory", "file"}) {
        const std::string quoted = std::string("\\\"") + parameter + "\\\"";
        for (const char* value :
             {"", "a/b", "/etc", "a\\\\b", "a b", "a;b", "$(a)", "`a`", "a|b", "a&b", "a>b", "a'b",
              "a\\\"b", "a\\nb", "-a", "*", "a%b", "~", "ä"})
            EXPECT_EQ(invalidParams(quoted + " may hold only letters, digits, _ and any of -., and "
                                             "must not be empty or begin with -"),
                      agent.call(with(parameter, value)))
                << value;
        for (const char* value : {".", "..", "a..b", "..a", "..."})
            EXPECT_EQ(invalidParams(quoted + " must not be . or hold .."),
                      agent.call(with(parameter, value)));
    }
    EXPECT_THAT(agent.errors(), Not(HasSubstr("Creating directory:")));
}

TEST(ConfigPlace, LeavesTheApplicationsProgramsAlone) {
    AgentInSandbox agent;
    EXPECT_EQ(invalidParams("\\\"directory\\\" must not be bin, which holds programs"),
              agent.call(place(R"({"application":"ZEQ","directory":"bin","file":"run.sh",)"
                               R"("content":"reboot"})")));
    EXPECT_THAT(agent.read("/opt/apps/ZEQ/bin/run.sh"), Not(HasSubstr("reboot")));
}

TEST(ConfigPlace, RefusesContentThatIsNotWhatItShouldBe) {
    AgentInSandbox agent;
    const auto expectRefusal = [&](const std::string& rest, const std::string& why) {
        EXPECT_EQ(invalidParams(why),
                  agent.call(place(R"({"application":"ZEQ","directory":"cfg",)" + rest + "}")))
            << rest;
    };
    for (const char* content :
         {"A", "AA", "AAA", "AAA\\n", "A===", "AA=A", "====", "A A=", "AAAA=", "AA-_", "äää="})
        expectRefusal(std::string(R"("file":"a","base64":true,"content":")") + content + "\"",
                      "\\\"content\\\" is not base64");
    expectRefusal(R"("file":"a.json","content":"{\"a\":1")",
                  "\\\"content\\\" is not JSON: unexpected end of data at byte 6");
    expectRefusal(R"("file":"a.json","content":"{\"a\":NaN}")",
                  "\\\"content\\\" is not JSON: unexpected character at byte 5");
    expectRefusal(R"("file":"a.json","content":"")",
                  "\\\"content\\\" is not JSON: unexpected end of data at byte 0");
    expectRefusal(R"("file":"a")", "\\\"content\\\" is missing");
    expectRefusal(R"("file":"a","content":{})", "\\\"content\\\" must be a string");
    expectRefusal(R"("file":"a","content":"","base64":1)", "\\\"base64\\\" must be true or false");
    EXPECT_FALSE(exists(agent.file("/opt/apps/ZEQ/cfg/a")));
}

TEST(ConfigPlace, TellsWhatCannotBePlaced) {
    AgentInSandbox agent;
    EXPECT_EQ(failed("there is no application Vexlor"),
              agent.call(place(R"({"application":"Vexlor","file":"a","content":"x"})")));
    EXPECT_FALSE(exists(agent.file("/opt/apps/Vexlor")));
    // A directory stands where the file should be.
    EXPECT_EQ(
        failed("/opt/apps/ZEQ//cfg could not be written"),
        agent.call(place(R"({"application":"ZEQ","file":"cfg","content":"x","restart":true})")));
    EXPECT_FALSE(exists(agent.file("/tmp/init.d.log")));
}

// system.info

TEST(SystemInfo, TellsAboutTheGateway) {
    AgentInSandbox agent;
    const std::string response = agent.call(request("system.info", "{}"));
    EXPECT_THAT(response,
                testing::StartsWith(
                    R"({"jsonrpc":"2.0","id":1,"result":{"name":"tavo-agent","directory":"/)"));
    EXPECT_THAT(
        response,
        HasSubstr(R"("serial_number":"GW0123456789","cellular_modem":false,"applications":{)"
                  R"("modbus2mqtt":true,"vexlor2red":false,"vexlor":false,"nodered":true},)"
                  R"("port":{"id":"2","name":"RS232"}}})"));
}

TEST(SystemInfo, DoesWithoutABootEnvironmentAndAPortFile) {
    AgentInSandbox agent;
    support::runProgram(
        {"rm", agent.file("/etc/uboot.env"), agent.file("/opt/apps/ZEQ/cfg/ZEQ.json")});
    const std::string response = agent.call(request("system.info", "{}"));
    EXPECT_THAT(response, HasSubstr(R"("serial_number":null,)"));
    EXPECT_THAT(response, HasSubstr(R"("port":{"id":"1","name":"RS485"})"));
}

TEST(SystemInfo, SurvivesAPortFileWithANull) {
    AgentInSandbox agent;
    writeFile(agent.file("/opt/apps/ZEQ/cfg/ZEQ.json"), R"({"portID":null})");
    EXPECT_THAT(agent.call(request("system.info", "{}")), HasSubstr("\"code\":-32603"));
    EXPECT_THAT(agent.call(request("system.describe", "{}")), HasSubstr("\"result\""));
}

// gpio.get, gpio.set

std::string signalValue(const std::string& name, int value) {
    return result("{\"name\":\"" + name + "\",\"value\":" + std::to_string(value) + "}");
}

TEST(Gpio, SetsLedsAndTheOutput) {
    AgentInSandbox agent;
    for (const char* name : {"led_sim", "led_wan", "led_usr", "led_pwr", "out0"})
        for (const int value : {1, 0}) {
            EXPECT_EQ(
                signalValue(name, value),
                agent.call(request("gpio.set", std::string("{\"name\":\"") + name +
                                                   "\",\"value\":" + std::to_string(value) + "}")));
            EXPECT_THAT(agent.read("/tmp/gpio.state"),
                        HasSubstr("\n" + std::string(name) + " " + std::to_string(value) + "\n"));
        }
}

TEST(Gpio, ReadsEverySignal) {
    AgentInSandbox agent;
    const auto get = [&](const std::string& name) {
        return agent.call(request("gpio.get", "{\"name\":\"" + name + "\"}"));
    };
    EXPECT_EQ(signalValue("temperature", 41), get("temperature"));
    EXPECT_EQ(signalValue("voltage", 12050), get("voltage"));
    EXPECT_EQ(signalValue("bin0", 0), get("bin0"));
    agent.call(request("gpio.set", R"({"name":"out0","value":1})"));
    EXPECT_EQ(signalValue("out0", 1), get("out0"));
    support::runProgram({"sed", "-i", "s/^bin1 0/bin1 1/", agent.file("/tmp/gpio.state")});
    EXPECT_EQ(signalValue("bin1", 1), get("bin1"));
    EXPECT_EQ(signalValue("bin0", 0), get("bin0"));
}

TEST(Gpio, RefusesUnknownSignalsAndValues) {
    AgentInSandbox agent;
    const std::string setters =
        "\\\"name\\\" must be one of led_sim, led_wan, led_usr, led_pwr, out0";
    EXPECT_EQ(invalidParams(setters),
              agent.call(request("gpio.set", R"({"name":"bin0","value":1})")));
    EXPECT_EQ(invalidParams("\\\"name\\\" is missing"), agent.call(request("gpio.get", "{}")));
    EXPECT_EQ(invalidParams("\\\"name\\\" must be one of out0, bin0, bin1, temperature, voltage"),
              agent.call(request("gpio.get", R"({"name":"led_wan"})")));
    EXPECT_EQ(invalidParams("\\\"value\\\" is missing"),
              agent.call(request("gpio.set", R"({"name":"out0"})")));
    for (const char* value : {"2", "-1", "null", "\"1\"", "1.0", "true", "4294967297"})
        EXPECT_EQ(invalidParams("\\\"value\\\" must be an integer, 0 to 1"),
                  agent.call(request("gpio.set",
                                     std::string(R"({"name":"out0","value":)") + value + "}")));
}

TEST(Gpio, TellsWhenTheBoardDoesNotAnswer) {
    // Without its state file the simulated board is a board without the device.
    AgentInSandbox agent("export TAVO_GPIO_STATE=/nowhere; exec \"$@\"", {});
    EXPECT_THAT(agent.call(request("gpio.get", R"({"name":"voltage"})")),
                HasSubstr("\"code\":-32000,\"message\":\"Failed\",\"data\":\"voltage: the board "
                          "does not answer: "));
    EXPECT_THAT(agent.call(request("gpio.set", R"({"name":"led_usr","value":1})")),
                HasSubstr("\"data\":\"led_usr: the board does not answer: "));
}

} // namespace
