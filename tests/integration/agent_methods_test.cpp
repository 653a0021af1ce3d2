// The effects of the agent's methods on a gateway, and their refusals. agent_uci_test.cpp tests the
// configuration methods.

#include "AgentInSandbox.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::AgentInSandbox;
using support::exists;
using support::failed;
using support::invalidParams;
using support::request;
using support::result;
using support::writeFile;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

// process.run

std::string run(const std::string& params) { return request("process.run", params); }

std::string script(const std::string& commandLine) {
    return run(R"({"command":"sh","arguments":["-c",")" + commandLine + "\"]}");
}

TEST(tavo_agent_process_run, AnswersOutputAndBothReadingsOfTheStatus) {
    AgentInSandbox agent({"--allow", "sh"});
    EXPECT_EQ(result(R"({"output":"out\nerr\n","truncated":false,"raw_status":768,)"
                     R"("exit_code":3,"signal":null})"),
              agent.call(script("echo out; echo err >&2; exit 3")));
    EXPECT_EQ(result(R"({"output":"","truncated":false,"raw_status":9,)"
                     R"("exit_code":null,"signal":9})"),
              agent.call(script("kill -KILL $$")));
}

TEST(tavo_agent_process_run, ReportsTheStatusAlsoWhenItsParentIgnoredSigchld) {
    AgentInSandbox agent("exec env --ignore-signal=CHLD \"$@\"", {"--allow", "sh"});
    EXPECT_THAT(agent.call(script("exit 3")), HasSubstr(R"("raw_status":768,"exit_code":3)"));
}

TEST(tavo_agent_process_run, PassesArgumentsAsTheyAre) {
    AgentInSandbox agent({"--allow", "printf"});
    EXPECT_EQ(result(R"({"output":"[a b]['$x;`y`][]","truncated":false,"raw_status":0,)"
                     R"("exit_code":0,"signal":null})"),
              agent.call(run(R"({"command":"printf","arguments":["[%s]","a b","'$x;`y`",""]})")));
}

TEST(tavo_agent_process_run, RunsOnlyProgramsThatAreAllowedByTheExactName) {
    AgentInSandbox none;
    EXPECT_EQ(invalidParams("program \\\"sh\\\" is not allowed"),
              none.call(script("echo >/tmp/tavo-test-broken_in")));
    AgentInSandbox agent({"--allow", "true", "--allow=/bin/echo"});
    for (const char* command :
         {"sh", "/bin/true", "true ", "./true", "echo", "/bin/../bin/echo", "", "true;sh", "TRUE"})
        EXPECT_EQ(invalidParams(std::string("program \\\"") + command + "\\\" is not allowed"),
                  agent.call(run(std::string(R"({"command":")") + command + "\"}")));
    EXPECT_THAT(agent.call(run(R"({"command":"true"})")), HasSubstr("\"exit_code\":0"));
    EXPECT_THAT(agent.call(run(R"({"command":"/bin/echo"})")), HasSubstr("\"exit_code\":0"));
}

TEST(tavo_agent_process_run, RefusesMissingAndWronglyTypedParameters) {
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

TEST(tavo_agent_process_run, ReportsAMissingProgram) {
    AgentInSandbox agent({"--allow", "no_such_program"});
    EXPECT_EQ(result(R"({"output":"execvp: No such file or directory\n","truncated":false,)"
                     R"("raw_status":32512,"exit_code":127,"signal":null})"),
              agent.call(run(R"({"command":"no_such_program"})")));
}

TEST(tavo_agent_process_run, MakesOutputValidText) {
    AgentInSandbox agent({"--allow", "sh"});
    EXPECT_EQ(result("{\"output\":\"a\xEF\xBF\xBD(\xEF\xBF\xBD\xC3\xA4\\u001b\\r\\n\","
                     "\"truncated\":false,\"raw_status\":0,\"exit_code\":0,\"signal\":null}"),
              agent.call(script(R"(printf 'a\\377(\\303ä\\033\\r\\n')")));
}

TEST(tavo_agent_process_run, CutsEndlessOutput) {
    AgentInSandbox agent({"--allow", "sh"});
    const std::string response = agent.call(script("yes | head -c 1000000"));
    EXPECT_THAT(response,
                EndsWith(R"(","truncated":true,"raw_status":0,"exit_code":0,"signal":null}})"));
    std::size_t lines = 0;
    for (std::size_t at = 0; (at = response.find("y\\n", at)) != std::string::npos; ++at)
        ++lines;
    EXPECT_EQ(256u * 1024 / 2, lines);
}

TEST(tavo_agent_process_run, GivesProgramsNoInput) {
    AgentInSandbox agent("exec \"$@\" </etc/config/network", {"--allow", "cat"});
    EXPECT_THAT(agent.call(run(R"({"command":"cat"})")), HasSubstr(R"("output":"","truncated")"));
}

// config.place

std::string place(const std::string& params) { return request("config.place", params); }

TEST(tavo_agent_config_place, PlacesAnApplicationsFileAndRestartsIt) {
    AgentInSandbox agent;
    EXPECT_EQ(result(R"({"file":"/opt/apps/ZEQ/cfg/ZEQ.json","bytes":14,"agent_stopped":false,)"
                     R"("application_restarted":true})"),
              agent.call(place(R"({"application":"ZEQ","directory":"cfg","file":"ZEQ.json",)"
                               R"("content":"{\"portID\":\"1\"}","restart":true})")));
    EXPECT_EQ("{\"portID\":\"1\"}", agent.read("/opt/apps/ZEQ/cfg/ZEQ.json"));
    EXPECT_EQ("ZEQ/bin/run.sh restart\n", agent.read("/tmp/init.d.log"));
}

TEST(tavo_agent_config_place, PlacesAnAgentsFileAndStopsIt) {
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

TEST(tavo_agent_config_place, RestartsNothingUnlessRequested) {
    AgentInSandbox agent;
    EXPECT_EQ(result(R"({"file":"/opt/apps/ZEQ//notes.txt","bytes":0,"agent_stopped":false,)"
                     R"("application_restarted":false})"),
              agent.call(place(R"({"application":"ZEQ","file":"notes.txt","content":""})")));
    EXPECT_EQ("", agent.read("/opt/apps/ZEQ/notes.txt"));
    EXPECT_FALSE(exists(agent.file("/tmp/init.d.log")));
}

TEST(tavo_agent_config_place, RefusesWhatCouldLeaveTheApplicationOrReachAShell) {
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
            EXPECT_EQ(invalidParams(quoted +
                                    " may contain only letters, digits, _ and any of -., and "
                                    "must not be empty or begin with -"),
                      agent.call(with(parameter, value)))
                << value;
        for (const char* value : {".", "..", "a..b", "..a", "..."})
            EXPECT_EQ(invalidParams(quoted + " must not be . or contain .."),
                      agent.call(with(parameter, value)));
    }
    EXPECT_THAT(agent.errors(), Not(HasSubstr("Creating directory:")));
}

TEST(tavo_agent_config_place, LeavesTheApplicationsProgramsAlone) {
    AgentInSandbox agent;
    EXPECT_EQ(invalidParams("\\\"directory\\\" must not be bin, which holds programs"),
              agent.call(place(R"({"application":"ZEQ","directory":"bin","file":"run.sh",)"
                               R"("content":"reboot"})")));
    EXPECT_THAT(agent.read("/opt/apps/ZEQ/bin/run.sh"), Not(HasSubstr("reboot")));
}

TEST(tavo_agent_config_place, RefusesContentThatIsNotWhatItShouldBe) {
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

TEST(tavo_agent_config_place, ReportsWhatCannotBePlaced) {
    AgentInSandbox agent;
    EXPECT_EQ(failed("there is no application Vexlor"),
              agent.call(place(R"({"application":"Vexlor","file":"a","content":"x"})")));
    EXPECT_FALSE(exists(agent.file("/opt/apps/Vexlor")));
    // A directory has the file's name.
    EXPECT_EQ(
        failed("/opt/apps/ZEQ//cfg could not be written"),
        agent.call(place(R"({"application":"ZEQ","file":"cfg","content":"x","restart":true})")));
    EXPECT_FALSE(exists(agent.file("/tmp/init.d.log")));
}

// system.info

TEST(tavo_agent_system_info, DescribesTheGateway) {
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

TEST(tavo_agent_system_info, WorksWithoutABootEnvironmentAndAPortFile) {
    AgentInSandbox agent;
    support::runProgram(
        {"rm", agent.file("/etc/uboot.env"), agent.file("/opt/apps/ZEQ/cfg/ZEQ.json")});
    const std::string response = agent.call(request("system.info", "{}"));
    EXPECT_THAT(response, HasSubstr(R"("serial_number":null,)"));
    EXPECT_THAT(response, HasSubstr(R"("port":{"id":"1","name":"RS485"})"));
}

TEST(tavo_agent_system_info, SurvivesAPortFileWithANull) {
    AgentInSandbox agent;
    writeFile(agent.file("/opt/apps/ZEQ/cfg/ZEQ.json"), R"({"portID":null})");
    EXPECT_THAT(agent.call(request("system.info", "{}")), HasSubstr("\"code\":-32603"));
    EXPECT_THAT(agent.call(request("system.describe", "{}")), HasSubstr("\"result\""));
}

// gpio.get, gpio.set

std::string signalValue(const std::string& name, int value) {
    return result("{\"name\":\"" + name + "\",\"value\":" + std::to_string(value) + "}");
}

TEST(tavo_agent_gpio, SetsLedsAndTheOutput) {
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

TEST(tavo_agent_gpio, ReadsEverySignal) {
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

TEST(tavo_agent_gpio, RefusesUnknownSignalsAndValues) {
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

TEST(tavo_agent_gpio, ReportsWhenTheBoardDoesNotAnswer) {
    // Without a state file the simulated board has no device.
    AgentInSandbox agent("export TAVO_GPIO_STATE=/nowhere; exec \"$@\"", {});
    EXPECT_THAT(agent.call(request("gpio.get", R"({"name":"voltage"})")),
                HasSubstr("\"code\":-32000,\"message\":\"Failed\",\"data\":\"voltage: the board "
                          "does not answer: "));
    EXPECT_THAT(agent.call(request("gpio.set", R"({"name":"led_usr","value":1})")),
                HasSubstr("\"data\":\"led_usr: the board does not answer: "));
}

} // namespace
