// The agent's JSON-RPC, outputs and command line. agent_methods_test.cpp tests its methods,
// agent_end_test.cpp its end.

#include "AgentInSandbox.h"
#include "CLibrary.h"
#include "Waiting.h"

#include <csignal>
#include <cstdint>

#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::AgentInSandbox;
using support::Client;
using support::error;
using support::invalidParams;
using support::request;
using support::result;
using support::runInSandbox;
using testing::HasSubstr;

std::string parseError(const std::string& data) {
    return error("null", -32700, "Parse error", data);
}

std::string invalidRequest(const std::string& data, const std::string& id = "null") {
    return error(id, -32600, "Invalid Request", data);
}

unsigned modeOf(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777u : 0;
}

const std::string kDescribe = request("system.describe", "{}");

// Requests

TEST(tavo_agent, DescribesAllItsMethods) {
    AgentInSandbox agent;
    const std::string response =
        agent.call(R"({"jsonrpc":"2.0","id":"a","method":"system.describe"})");
    const auto described = [](const std::string& name, const std::string& description) {
        return "{\"name\":\"" + name + "\",\"description\":\"" + description + "\"}";
    };
    EXPECT_EQ(
        "{\"jsonrpc\":\"2.0\",\"id\":\"a\",\"result\":{\"methods\":[" +
            described("system.describe", "lists all methods with their descriptions") + "," +
            described("uci.get", "reads a section of the configuration: config, section") + "," +
            described("uci.apply",
                      "changes, creates or deletes (\\\"values\\\": {}) a section of "
                      "the configuration: config, section, type, values, expect, restart") +
            "," +
            described("config.place",
                      "places a file for an application or one of its agents: application, agent, "
                      "directory, file, content, base64, restart") +
            "," + described("process.run", "runs one of the allowed programs: command, arguments") +
            "," +
            described("system.info",
                      "reports the agent's name and directory, serial number, modem, "
                      "companion applications and serial port of the gateway") +
            "," +
            described("gpio.get", "reads a signal: name (out0, bin0, bin1, temperature, voltage)") +
            "," +
            described("gpio.set", "sets a signal: name (led_sim, led_wan, led_usr, led_pwr, out0), "
                                  "value (0 or 1)") +
            "]}}",
        response);
}

TEST(tavo_agent, GivesBackTheIdAsItWasSent) {
    AgentInSandbox agent;
    for (const char* id :
         {"1", "-7", "1.50", "null", "\"\"", "\"a\\nb\\\"\\u00e4\"", "9007199254740993"}) {
        const std::string message =
            std::string("{\"jsonrpc\":\"2.0\",\"id\":") + id + ",\"method\":\"none\"}";
        // json-c writes characters that need no escape unescaped.
        const std::string expected =
            std::string(id) == "\"a\\nb\\\"\\u00e4\"" ? "\"a\\nb\\\"\xC3\xA4\"" : id;
        EXPECT_EQ(error(expected, -32601, "Method not found", "there is no method \\\"none\\\""),
                  agent.call(message));
    }
}

TEST(tavo_agent, RefusesAnIdThatCouldNotBeGivenBack) {
    AgentInSandbox agent;
    for (const char* id : {"{}", "[1]", "true", "99999999999999999999", "-99999999999999999999"})
        EXPECT_EQ(invalidRequest("\\\"id\\\" must be a string, a number or null"),
                  agent.call(std::string("{\"jsonrpc\":\"2.0\",\"id\":") + id +
                             ",\"method\":\"system.describe\"}"))
            << id;
}

TEST(tavo_agent, AnswersNoNotification) {
    AgentInSandbox agent({"--allow", "sh"});
    EXPECT_TRUE(agent.isUnanswered(
        R"({"jsonrpc":"2.0","method":"process.run",)"
        R"("params":{"command":"sh","arguments":["-c","echo >/tmp/tavo-test-was_here"]}})"));
    EXPECT_TRUE(support::exists(agent.file("/tmp/tavo-test-was_here")));
    EXPECT_TRUE(agent.isUnanswered(R"({"jsonrpc":"2.0","method":"none"})"));
    EXPECT_TRUE(agent.isUnanswered(R"({"jsonrpc":"2.0","method":"system.describe","params":[]})"));
}

TEST(tavo_agent, RefusesTextThatIsNoJson) {
    AgentInSandbox agent;
    EXPECT_EQ(parseError("unexpected end of data at byte 9"), agent.call("{\"id\": 1,"));
    EXPECT_EQ(parseError("unexpected character at byte 0"), agent.call("hello"));
    EXPECT_EQ(parseError("unexpected end of data at byte 1"), agent.call(" "));
    EXPECT_EQ(parseError("unexpected character at byte 6"), agent.call("{\"id\":'a'}"));
    EXPECT_EQ(parseError("quoted object property name expected at byte 1"), agent.call("{/**/}"));
}

TEST(tavo_agent, RefusesWhatOnlyALenientParserAccepts) {
    AgentInSandbox agent;
    const std::string head = R"({"jsonrpc":"2.0","method":"none","id":)";
    const auto refusedAt = [&](std::size_t offset) {
        return parseError("unexpected character at byte " + std::to_string(head.size() + offset));
    };
    for (const char* id : {"NaN", "Infinity"})
        EXPECT_EQ(refusedAt(0), agent.call(head + id + "}"));
    EXPECT_EQ(refusedAt(1), agent.call(head + "-Infinity}"));
    EXPECT_EQ(refusedAt(1), agent.call(head + "1.}"));
    EXPECT_EQ(refusedAt(1), agent.call(head + "1.e5}"));
    EXPECT_EQ(refusedAt(2), agent.call(head + "\"a\tb\"}"));
    EXPECT_EQ(refusedAt(2), agent.call(head + "1,'a':2}"));
    EXPECT_EQ(refusedAt(12), agent.call(head + "\"\\\"'N.\",\"a\":NaN}"));
    // All of this is valid inside strings, and e and E inside numbers.
    for (const char* id : {"\"'NaN 1. Infinity'\"", "\"\\\\\\\"'\"", "1e5", "1.0E-5"})
        EXPECT_THAT(agent.call(head + id + "}"),
                    HasSubstr(std::string("\"id\":") + id + ",\"error\":{\"code\":-32601"));
}

TEST(tavo_agent, RefusesWhatFollowsTheRequest) {
    AgentInSandbox agent;
    EXPECT_THAT(agent.call(kDescribe + kDescribe), HasSubstr("\"code\":-32700"));
    EXPECT_THAT(agent.call(kDescribe + " ]"), HasSubstr("\"code\":-32700"));
    EXPECT_THAT(agent.call("\n\t " + kDescribe + " \r\n"), HasSubstr("\"result\":"));
}

TEST(tavo_agent, RefusesTextThatIsNotUtf8) {
    AgentInSandbox agent;
    for (const char* bytes :
         {"\xFF", "\x80", "\xC3", "\xC0\xAF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF",
          "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xE2\x82", "\xC3("})
        EXPECT_EQ(parseError("not UTF-8"), agent.call(std::string("{\"id\":\"") + bytes + "\"}"));
}

TEST(tavo_agent, AcceptsEveryCharacterOfUnicode) {
    AgentInSandbox agent;
    const std::string id =
        "\"\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEF\xBF\xBF\xF0\x90\x80\x80"
        "\xF4\x8F\xBF\xBF\"";
    EXPECT_THAT(agent.call("{\"jsonrpc\":\"2.0\",\"id\":" + id + ",\"method\":\"none\"}"),
                HasSubstr("\"id\":" + id + ",\"error\""));
}

TEST(tavo_agent, RefusesZeroBytes) {
    AgentInSandbox agent;
    const std::string expected = parseError("contains zero bytes, or did not arrive in one piece");
    EXPECT_EQ(expected, agent.call(kDescribe + std::string(1, '\0')));
    EXPECT_EQ(expected, agent.call(std::string("{\0}", 3)));
}

TEST(tavo_agent, RefusesDeepNesting) {
    AgentInSandbox agent;
    const auto nested = [](int depth) {
        const auto levels = static_cast<std::size_t>(depth);
        return "{\"a\":" + std::string(levels, '[') + std::string(levels, ']') + "}";
    };
    EXPECT_EQ(invalidRequest("\\\"jsonrpc\\\" must be \\\"2.0\\\""), agent.call(nested(30)));
    EXPECT_EQ(parseError("nested deeper than 32 levels"), agent.call(nested(33)));
    EXPECT_EQ(parseError("nested deeper than 32 levels"), agent.call(nested(10000)));
}

TEST(tavo_agent, RefusesBatchesAndWhatIsNoObject) {
    AgentInSandbox agent;
    EXPECT_EQ(invalidRequest("batches are not supported"), agent.call("[" + kDescribe + "]"));
    EXPECT_EQ(invalidRequest("batches are not supported"), agent.call("[]"));
    for (const char* value : {"1", "\"text\"", "true", "null", "-1.5e3"})
        EXPECT_EQ(invalidRequest("not an object"), agent.call(value));
}

TEST(tavo_agent, RefusesWhatIsNoRequestOfTheStandard) {
    AgentInSandbox agent;
    const std::string version = "\\\"jsonrpc\\\" must be \\\"2.0\\\"";
    const std::string method = "\\\"method\\\" must be a non-empty string";
    const std::string params = "\\\"params\\\" must be an object";
    EXPECT_EQ(invalidRequest(version), agent.call("{}"));
    EXPECT_EQ(invalidRequest(version, "1"), agent.call(R"({"id":1,"method":"system.describe"})"));
    EXPECT_EQ(invalidRequest(version, "1"), agent.call(R"({"jsonrpc":2.0,"id":1,"method":"x"})"));
    for (const char* value : {"null", "7", "\"\"", "{}", "[\"system.describe\"]", "true"})
        EXPECT_EQ(invalidRequest(method, "1"),
                  agent.call(std::string(R"({"jsonrpc":"2.0","id":1,"method":)") + value + "}"));
    EXPECT_EQ(invalidRequest(method), agent.call(R"({"jsonrpc":"2.0"})"));
    for (const char* value : {"null", "1", "\"text\"", "false"})
        EXPECT_EQ(invalidRequest(params, "1"), agent.call(request("system.describe", value)));
}

TEST(tavo_agent, AcceptsParametersByNameOnly) {
    AgentInSandbox agent;
    EXPECT_EQ(invalidParams("\\\"params\\\" must be an object, with parameters by name"),
              agent.call(request("uci.apply", "[\"network\"]")));
    EXPECT_EQ(invalidParams("there is no parameter \\\"verbose\\\""),
              agent.call(request("system.describe", R"({"verbose":true})")));
}

TEST(tavo_agent, RefusesNulCharacters) {
    AgentInSandbox agent;
    const std::string why = "NUL characters are not accepted";
    EXPECT_EQ(invalidParams(why),
              agent.call(request("uci.apply", R"({"config\u0000x":"network"})")));
    EXPECT_EQ(invalidParams(why), agent.call(request("uci.apply", R"({"a":["\\\\\u0000"]})")));
    EXPECT_EQ(invalidRequest(why, "1"), agent.call(request("system.describe\\u0000", "{}")));
    // An escaped backslash and the letters after it are not an escape sequence.
    EXPECT_EQ(invalidParams("there is no parameter \\\"\\\\u0000\\\""),
              agent.call(request("system.describe", R"({"\\u0000":1})")));
}

TEST(tavo_agent, RefusesLongRequests) {
    AgentInSandbox agent;
    const std::string head = R"({"jsonrpc":"2.0","id":1,"method":")";
    const std::string tail = "\"}";
    const auto sized = [&](std::size_t size) {
        return head + std::string(size - head.size() - tail.size(), 'x') + tail;
    };
    EXPECT_THAT(agent.call(sized(128 * 1024)), HasSubstr("\"code\":-32601"));
    EXPECT_EQ(invalidRequest("longer than 131072 bytes"), agent.call(sized(128 * 1024 + 1)));
}

// Broken streams

TEST(tavo_agent, SurvivesAMessageOfOneMebibyteAndItsRemainder) {
    AgentInSandbox agent;
    {
        Client client(agent.socketPath());
        client.send("\"" + std::string(1 << 20, 'a') + "\""); // may fail part of the way
        ASSERT_TRUE(agent.waitForResponses(1));
        // The server reads the rest as a length of 0x61616161.
        ASSERT_TRUE(agent.waitForErrors("Receiving: 1633771873 bytes\n"
                                        "Some error on kvr::api::com::NQ_Sockets::loop\n"
                                        "std::bad_alloc\n"));
    }
    EXPECT_EQ(invalidRequest("longer than 131072 bytes"), agent.responses()[0]);
    EXPECT_THAT(agent.call(kDescribe), HasSubstr("\"result\":"));
    EXPECT_EQ(2u, agent.responses().size());
}

TEST(tavo_agent, SurvivesTheLargestLength) {
    AgentInSandbox agent;
    Client(agent.socketPath()).sendRaw("\xFF\xFF\xFF\xFFxxxx");
    ASSERT_TRUE(agent.waitForErrors("Receiving: 4294967295 bytes\nSome error on "));
    EXPECT_THAT(agent.call(kDescribe), HasSubstr("\"result\":"));
}

TEST(tavo_agent, ReportsAMessageThatArrivesInTwoPieces) {
    AgentInSandbox agent;
    Client client(agent.socketPath());
    const std::uint32_t length = 60;
    client.sendRaw(std::string(reinterpret_cast<const char*>(&length), 4) +
                   kDescribe.substr(0, 20));
    ASSERT_TRUE(agent.waitForResponses(1));
    EXPECT_EQ(parseError("contains zero bytes, or did not arrive in one piece"),
              agent.responses()[0]);
}

TEST(tavo_agent, AnswersAllMessagesOfAConnectionInOrder) {
    AgentInSandbox agent;
    Client client(agent.socketPath());
    for (int id = 1; id <= 50; ++id)
        ASSERT_TRUE(client.send(request("none", "{}", id)));
    ASSERT_TRUE(agent.waitForResponses(50));
    for (int id = 1; id <= 50; ++id)
        EXPECT_THAT(agent.responses()[static_cast<std::size_t>(id - 1)],
                    HasSubstr("\"id\":" + std::to_string(id) + ","));
}

// Outputs

TEST(tavo_agent, PrintsNothingButResponsesOnStandardOutput) {
    AgentInSandbox agent({"--allow", "echo"});
    agent.call(request("process.run", R"({"command":"echo","arguments":["hello"]})"));
    const support::ProgramResult ran = agent.end(SIGTERM);
    EXPECT_EQ(result(R"({"output":"hello\n","truncated":false,"raw_status":0,"exit_code":0,)"
                     R"("signal":null})") +
                  "\n",
              ran.out);
    EXPECT_THAT(ran.err, HasSubstr("Received:{\"jsonrpc\""));
}

TEST(tavo_agent, LogsEachRequestAndItsOutcome) {
    AgentInSandbox agent;
    agent.call(R"({"jsonrpc":"2.0","id":"a","method":"system.describe"})");
    agent.call(request("none", "{}", 5));
    agent.call(R"({"jsonrpc":"2.0","method":"system.describe"})"
               " x");
    agent.isUnanswered(R"({"jsonrpc":"2.0","method":"system.describe"})");
    agent.end(SIGTERM);
    EXPECT_EQ("INFO: tavo-agent: serving /tmp/socketDDS/agent\n"
              "INFO: tavo-agent: request \"a\" system.describe (53 bytes)\n"
              "INFO: tavo-agent: request \"a\" system.describe: done\n"
              "INFO: tavo-agent: request 5 none (52 bytes)\n"
              "ERROR: tavo-agent: request 5 none: -32601 Method not found: there is no method "
              "\"none\"\n"
              "INFO: tavo-agent: message (46 bytes)\n"
              "ERROR: tavo-agent: message refused: -32700 Parse error: unexpected character at "
              "byte 45\n"
              "INFO: tavo-agent: request without id system.describe (44 bytes)\n"
              "INFO: tavo-agent: request without id system.describe: done\n"
              "INFO: tavo-agent: request 4711 none (55 bytes)\n"
              "ERROR: tavo-agent: request 4711 none: -32601 Method not found: there is no method "
              "\"none\"\n"
              "INFO: tavo-agent: ended by SIGTERM\n",
              agent.log());
}

TEST(tavo_agent, LogsUntrustedTextOnOneSafeAndShortLine) {
    AgentInSandbox agent;
    agent.call(
        R"({"jsonrpc":"2.0","id":1,"method":"a\nERROR: forged\r\t\u001b[31m%s\u009b\u007f"})");
    agent.call(R"({"jsonrpc":"2.0","id":1,"method":")" + std::string(1000, 'x') + "\"}");
    agent.end(SIGTERM);
    EXPECT_THAT(agent.log(),
                HasSubstr("INFO: tavo-agent: request 1 "
                          "a\\nERROR: forged\\r\\t\\x1b[31m%s\\xc2\\x9b\\x7f (80 bytes)\n"));
    EXPECT_THAT(agent.log(),
                HasSubstr("INFO: tavo-agent: request 1 " + std::string(200, 'x') + "... ("));
}

TEST(tavo_agent, ContinuesWhenNobodyReadsItsResponses) {
    // With exec, so that the agent ends together with the runner.
    AgentInSandbox agent(
        "mkfifo /tmp/tavo-test-out; true </tmp/tavo-test-out & exec \"$@\" >/tmp/tavo-test-out",
        {});
    Client client(agent.socketPath());
    client.send(kDescribe);
    EXPECT_TRUE(support::eventually([&] {
        return agent.log().find("ERROR: tavo-agent: the response could not be written\n") !=
               std::string::npos;
    }));
    client.send(kDescribe);
    const std::string received = "Received:" + kDescribe + "\n";
    EXPECT_TRUE(agent.waitForErrors(received + "Receiving: " + std::to_string(kDescribe.size()) +
                                    " bytes\nReceive result:" + std::to_string(kDescribe.size()) +
                                    "\n" + received));
}

TEST(tavo_agent, ServesWithoutStandardDescriptors) {
    AgentInSandbox agent("exec \"$@\" <&- >&-", {});
    ASSERT_TRUE(Client(agent.socketPath()).send(kDescribe));
    EXPECT_TRUE(support::eventually(
        [&] { return agent.log().find("system.describe: done") != std::string::npos; }));
}

// Access

TEST(tavo_agent, ServesItsOwnerOnly) {
    AgentInSandbox agent({"--allow", "sh"});
    EXPECT_EQ(0700u, modeOf(agent.socketPath()));
    EXPECT_EQ(0700u, modeOf(agent.file("/tmp/socketDDS")));
    // Files that programs create keep their usual access bits.
    agent.call(request(
        "process.run",
        R"({"command":"sh","arguments":["-c","umask 022; echo >/tmp/tavo-test-a; umask"]})"));
    const std::string mask =
        agent.call(request("process.run", R"({"command":"sh","arguments":["-c","umask"]})"));
    EXPECT_THAT(mask, HasSubstr("\"output\":\"0022\\n\""));
    EXPECT_EQ(0644u, modeOf(agent.file("/tmp/log.out")));
}

TEST(tavo_agent, DoesNotServeANameThatAnotherAgentServes) {
    AgentInSandbox agent({"--allow", TAVO_AGENT});
    EXPECT_THAT(
        agent.call(request("process.run", std::string(R"({"command":")") + TAVO_AGENT +
                                              R"(","arguments":["agent"]})")),
        HasSubstr(R"("output":"tavo-agent: another process already serves /tmp/socketDDS/agent\n",)"
                  R"("truncated":false,"raw_status":256,"exit_code":1)"));
    EXPECT_THAT(agent.call(kDescribe), HasSubstr("\"result\":"));
}

// The command line

constexpr char kAgentTry[] = "Try 'tavo-agent --help' for more information.\n";

TEST(tavo_agent, PrintsItsHelp) {
    const support::ProgramResult ran = support::runProgram({TAVO_AGENT, "--help"});
    EXPECT_EQ(0, ran.status);
    EXPECT_THAT(ran.out, testing::StartsWith("Usage: tavo-agent [OPTION...] NAME\n"));
    EXPECT_EQ("", ran.err);
}

TEST(tavo_agent, RefusesWrongCommandLines) {
    const auto expectRefusal = [](std::vector<std::string> arguments, const std::string& why) {
        arguments.insert(arguments.begin(), TAVO_AGENT);
        const support::ProgramResult ran = support::runProgram(arguments);
        EXPECT_EQ(2, ran.status);
        EXPECT_EQ("", ran.out);
        EXPECT_EQ("tavo-agent: " + why + "\n" + kAgentTry, ran.err);
    };
    expectRefusal({}, "the NAME of the socket is missing");
    expectRefusal({"a", "b"}, "only one NAME is allowed");
    expectRefusal({"--allow"}, support::missingArgument("allow"));
    expectRefusal({"--allow", "", "a"}, "--allow needs the name of a program");
    expectRefusal({"--verbose", "a"}, support::unknownOption("verbose"));
    for (const char* seconds : {"", "0", "86401", "1s", "-1", " 1", "99999999999999999999"})
        expectRefusal({"--idle", seconds, "a"}, "--idle takes a number of seconds, 1 to 86400");
    for (const char* broker :
         {"host", "host:", ":1883", "host:0", "host:65536", "host:18x", "a b:1"})
        expectRefusal({"--mqtt", broker, "a"},
                      "'" + std::string(broker) + "' is not a valid HOST:PORT");
    for (const char* name : {"a/b", "..", ".", "a b", "a'", ""})
        expectRefusal({name}, "'" + std::string(name) +
                                  "' is not a valid socket name: use letters, digits, _, - and .");
    for (const char* limit : {"", "4095", "67108865", "999999999", "1M", "-1", "4096.5", "0x10000"})
        expectRefusal({"--log-limit", limit, "a"},
                      "--log-limit takes a number of bytes, 4096 to 67108864");
    expectRefusal({"--", "-a"}, "'-a' is not a valid socket name: use letters, digits, _, - and .");
    expectRefusal({std::string(65, 'n')}, "the name is longer than 64 characters");
}

TEST(tavo_agent, ServesInNoDirectoryThatOthersControl) {
    const auto expectRefusal = [](const std::string& before, const std::string& why) {
        const support::ProgramResult ran =
            runInSandbox({"sh", "-c", before + "; exec \"$@\"", "sh", TAVO_AGENT, "agent"});
        EXPECT_EQ(1, ran.status);
        EXPECT_EQ("", ran.out);
        EXPECT_EQ("tavo-agent: /tmp/socketDDS " + why + "\n", ran.err);
    };
    expectRefusal("echo >/tmp/socketDDS", "is not a directory");
    expectRefusal("mkdir /tmp/tavo-test-a; ln -s a /tmp/socketDDS", "is not a directory");
    for (const char* mode : {"0775", "0757"})
        expectRefusal(std::string("mkdir /tmp/socketDDS; chmod ") + mode + " /tmp/socketDDS",
                      "can be written to by others and has no sticky bit");
    const std::string foreign = "mkdir /tmp/socketDDS; chown 12345 /tmp/socketDDS";
    if (runInSandbox({"sh", "-c", foreign}).status != 0)
        GTEST_SKIP() << "only root can make another user's directory";
    expectRefusal(foreign, "belongs to another user");
    expectRefusal(foreign + "; chmod 1777 /tmp/socketDDS", "belongs to another user");
}

TEST(tavo_agent, ServesInADirectoryWhereOthersReplaceOnlyTheirOwnFiles) {
    for (const char* mode : {"1777", "0755"}) {
        AgentInSandbox agent("mkdir /tmp/socketDDS; chmod " + std::string(mode) +
                                 " /tmp/socketDDS; exec \"$@\"",
                             {});
        EXPECT_THAT(agent.call(kDescribe), HasSubstr("\"result\":"));
    }
}

} // namespace
