// tavo-rpc with the agent, and with servers that misbehave.

#include "AgentInSandbox.h"
#include "CLibrary.h"
#include "TempDir.h"
#include "Waiting.h"

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <thread>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::error;
using support::ProgramResult;
using support::readFile;
using support::request;
using support::result;
using support::runInSandbox;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char kTry[] = "Try 'tavo-rpc --help' for more information.\n";

std::string notFound(const std::string& id) {
    return error(id, -32601, "Method not found", "there is no method \\\"none\\\"") + "\n";
}

/// Runs a shell script beside an agent that has the name "agent" and may run sh. The script's
/// directory holds the requests 1.json and 2.json ("none"), describe.json and notification.json.
/// The file "out" there receives the agent's standard output.
ProgramResult besideAgent(const std::string& script) {
    return runInSandbox(
        {"sh", "-c",
         "mkdir /tmp/tavo-test-work && cd /tmp/tavo-test-work || exit 99\n"
         "echo '" +
             request("none", "{}", 1) +
             "' >1.json\n"
             "echo '" +
             request("none", "{}", 2) +
             "' >2.json\n"
             "echo '" +
             request("system.describe", "{}", 3) +
             "' >describe.json\n"
             "echo '{\"jsonrpc\":\"2.0\",\"method\":\"none\"}' >notification.json\n" TAVO_AGENT
             " --allow sh agent >out 2>err & agent=$!\n"
             "until grep -qs 'Waiting for a connection' err; do kill -0 $agent && sleep 0.02 || "
             "exit 99; done\n" +
             script + "\nstatus=$?\nkill $agent\nwait $agent\nexit $status\n"});
}

/// The same for a command line of tavo-rpc.
ProgramResult rpc(const std::string& arguments) { return besideAgent(TAVO_RPC " " + arguments); }

TEST(tavo_rpc, PrintsTheResponseToEachRequest) {
    const ProgramResult ran = rpc("agent describe.json - <describe.json");
    EXPECT_EQ(0, ran.status);
    EXPECT_THAT(ran.out,
                testing::MatchesRegex("(\\{\"jsonrpc\":\"2.0\",\"id\":3,\"result\":.*\\}\n){2}"));
    EXPECT_EQ("", ran.err);
}

TEST(tavo_rpc, ReportsAnErrorResponseByItsStatusAndSendsTheRest) {
    const ProgramResult ran = rpc("agent 1.json describe.json 2.json");
    EXPECT_EQ(1, ran.status);
    EXPECT_THAT(ran.out, StartsWith(notFound("1") + "{\"jsonrpc\":\"2.0\",\"id\":3,\"result\":"));
    EXPECT_THAT(ran.out, testing::EndsWith("\n" + notFound("2")));
    EXPECT_EQ("", ran.err);
}

TEST(tavo_rpc, AddsOnlyTheAnswerMemberToARequest) {
    const ProgramResult ran = besideAgent(
        "printf ' \\n{ \"id\" : 1e400, \"jsonrpc\":\"2.0\", \"method\":\"none\"}' |" TAVO_RPC
        " agent; cat /tmp/log.out | sed -n 2p");
    EXPECT_EQ(notFound("1e400") + "INFO: tavo-agent: request 1e400 none (65 bytes)\n", ran.out);
}

TEST(tavo_rpc, WaitsForNoResponseToANotification) {
    const ProgramResult ran = rpc("--timeout 86400 agent notification.json");
    EXPECT_EQ(0, ran.status);
    EXPECT_EQ("", ran.out + ran.err);
}

TEST(tavo_rpc, KeepsARequestsOwnAnswerMember) {
    const ProgramResult ran = besideAgent(
        R"(echo '{"jsonrpc":"2.0","id":1,"method":"none","answer":false}' >quiet.json; )"
        R"(echo '{"jsonrpc":"2.0","id":2,"method":"none","answer":true}' >loud.json; )" TAVO_RPC
        " --timeout 86400 agent quiet.json loud.json; echo $?; grep -o '2 none (.*' /tmp/log.out");
    EXPECT_EQ(notFound("2") + "1\n2 none (55 bytes)\n", ran.out); // the length is unchanged
}

TEST(tavo_rpc, SendsNothingWhenOneTextCannotAskForAnAnswer) {
    const auto expectRefusal = [](const std::string& text, const std::string& why) {
        const ProgramResult ran =
            besideAgent("printf '" + text + "' >x; " TAVO_RPC " agent 1.json x; echo $?; cat out");
        EXPECT_EQ("1\n", ran.out) << text;
        EXPECT_EQ("tavo-rpc: x: " + why + " (--no-answer sends it nevertheless)\n", ran.err);
    };
    expectRefusal("{\"id\":1", "Parse error: unexpected end of data at byte 7");
    expectRefusal("[]", "Invalid Request: batches are not supported");
    expectRefusal("7", "Invalid Request: not an object");
    expectRefusal("{\"id\":\"\\377\"}", "Parse error: not UTF-8");
    expectRefusal("{\"id\":{}}", "Invalid Request: \"id\" must be a string, a number or null");
}

TEST(tavo_rpc, SendsAnyBytesAsTheyAreWhenItAsksForNoAnswer) {
    const ProgramResult ran =
        besideAgent("printf '{\"id\":' >x; " TAVO_RPC
                    " --no-answer agent 1.json x 2.json && echo sent $?\n" TAVO_RPC
                    " agent describe.json >/dev/null; head -n 3 out");
    EXPECT_EQ("sent 0\n" + notFound("1") +
                  error("null", -32700, "Parse error", "unexpected end of data at byte 6") + "\n" +
                  notFound("2"),
              ran.out);
}

TEST(tavo_rpc, GivesUpWhenNoResponseComesInTime) {
    const ProgramResult ran = besideAgent(
        R"(echo '{"jsonrpc":"2.0","id":1,"method":"process.run","params":{"command":"sh",)"
        R"("arguments":["-c","read x <fifo"]}}' >slow.json; mkfifo fifo; )" TAVO_RPC
        " --timeout 1 agent slow.json; echo $?; echo >fifo");
    EXPECT_EQ("2\n", ran.out);
    EXPECT_EQ("tavo-rpc: slow.json: no answer came in time\n", ran.err);
}

/// A server in its own gateway directory, on the socket "server".
class Server {
public:
    Server() : directory_(root_ / "tmp/socketDDS") {
        support::runProgram({"mkdir", "-p", directory_});
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        const std::string path = directory_ + "/server";
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("cannot serve " + path);
    }
    ~Server() {
        if (thread_.joinable())
            thread_.join();
        close(listener_);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    void listen(int backlog) { ::listen(listener_, backlog); }
    /// Serves one client: after one read, calls `serve` with its descriptor.
    void serveOnce(const std::function<void(int)>& serve) {
        listen(1);
        thread_ = std::thread([this, serve] {
            const int client = accept(listener_, nullptr, nullptr);
            char request[4096];
            if (recv(client, request, sizeof request, 0) > 0)
                serve(client);
            close(client);
        });
    }
    /// Sends the server a request from inside its gateway.
    ProgramResult call() const {
        return support::runProgram({TAVO_SANDBOX_RUN, "--root", root_.path(), "sh", "-c",
                                    R"(echo '{"jsonrpc":"2.0","id":1,"method":"a"}' | )" TAVO_RPC
                                    " --timeout 1 server"},
                                   {std::string("TAVO_BUILD_DIR=") + TAVO_BUILD});
    }

private:
    support::TempDir root_;
    std::string directory_;
    int listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::thread thread_;
};

/// Returns a message with its length in front, as sent on a connection.
std::string framed(const std::string& text) {
    const auto length = static_cast<std::uint32_t>(text.size());
    return std::string(reinterpret_cast<const char*>(&length), sizeof length) + text;
}

TEST(tavo_rpc, PutsAnAnswerInPiecesTogether) {
    const std::string answer = result("\"" + std::string(10000, 'x') + "\"");
    Server server;
    server.serveOnce([&](int client) {
        for (const char byte : framed(answer))
            send(client, &byte, 1, MSG_NOSIGNAL);
    });
    const ProgramResult ran = server.call();
    EXPECT_EQ(0, ran.status);
    EXPECT_EQ(answer + "\n", ran.out);
}

TEST(tavo_rpc, ReportsWhenTheServerClosesTheConnection) {
    for (const std::string& sent :
         {std::string(), std::string("\x10\0", 2), framed("{\"jsonrpc\"").substr(0, 9)}) {
        Server server;
        server.serveOnce([&](int client) { send(client, sent.data(), sent.size(), MSG_NOSIGNAL); });
        const ProgramResult ran = server.call();
        EXPECT_EQ(2, ran.status);
        EXPECT_EQ(
            "tavo-rpc: standard input: the server has closed the connection without an answer\n",
            ran.err);
        EXPECT_EQ("", ran.out);
    }
}

TEST(tavo_rpc, TreatsAnAnswerThatIsNoResultAsAnError) {
    for (const char* answer : {"[]", "no JSON", "{\"error\":{}}"}) {
        Server server;
        server.serveOnce([&](int client) {
            const std::string bytes = framed(answer);
            send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        });
        const ProgramResult ran = server.call();
        EXPECT_EQ(1, ran.status);
        EXPECT_EQ(std::string(answer) + "\n", ran.out);
    }
}

TEST(tavo_rpc, ReportsWhenNobodyListens) {
    Server server;
    const ProgramResult ran = server.call();
    EXPECT_EQ(1, ran.status);
    EXPECT_EQ("tavo-rpc: /tmp/socketDDS/server: Connection refused\n", ran.err);
}

TEST(tavo_rpc, DoesNotWaitForEverForAServerThatIsBusy) {
    Server server;
    server.listen(0);
    ASSERT_EQ("tavo-rpc: standard input: no answer came in time\n",
              server.call().err); // this request stays in the queue
    const ProgramResult ran = server.call();
    EXPECT_EQ(2, ran.status);
    EXPECT_EQ("tavo-rpc: /tmp/socketDDS/server: the server accepts no further connections\n",
              ran.err);
}

TEST(tavo_rpc, SendsNothingToAnotherUsersServer) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can run a server as another user";
    Server server;
    ASSERT_EQ(0, seteuid(12345)); // the caller of listen() counts as the server's user
    server.listen(1);
    ASSERT_EQ(0, seteuid(0));
    const ProgramResult ran = server.call();
    EXPECT_EQ(1, ran.status);
    EXPECT_EQ("tavo-rpc: /tmp/socketDDS/server is served by another user\n", ran.err);
}

TEST(tavo_rpc, ReportsWhatItCannotSend) {
    const auto expectFailure = [](const std::string& arguments, const std::string& why) {
        const ProgramResult ran = runInSandbox(
            {"sh", "-c",
             "mkdir /tmp/tavo-test-d; : >/tmp/tavo-test-empty; echo {} >/tmp/tavo-test-a; " TAVO_RPC
             " " +
                 arguments});
        EXPECT_EQ(1, ran.status);
        EXPECT_EQ("tavo-rpc: " + why + "\n", ran.err);
    };
    expectFailure("nobody /tmp/tavo-test-a", "/tmp/socketDDS/nobody: No such file or directory");
    expectFailure("nobody /tmp/tavo-test-missing",
                  "/tmp/tavo-test-missing: No such file or directory");
    expectFailure("nobody /tmp/tavo-test-d", "/tmp/tavo-test-d: Is a directory");
    expectFailure("nobody /tmp/tavo-test-empty",
                  "/tmp/tavo-test-empty: empty (an empty message would end the connection)");
    expectFailure(std::string(100, 'n') + " /tmp/tavo-test-a", "the name is too long for a socket");
    expectFailure("--no-answer nobody /tmp/tavo-test-a",
                  "/tmp/socketDDS/nobody: No such file or directory");
}

TEST(tavo_rpc, SendsNothingToADirectoryThatOthersControl) {
    const auto expectRefusal = [](const std::string& directory, const std::string& why) {
        const ProgramResult ran = runInSandbox(
            {"sh", "-c", "mkdir /tmp/socketDDS; " + directory + "; echo {} | " TAVO_RPC " agent"});
        EXPECT_EQ(1, ran.status);
        EXPECT_EQ("tavo-rpc: /tmp/socketDDS" + why + "\n", ran.err);
    };
    expectRefusal("chmod 0777 /tmp/socketDDS",
                  " can be written to by others and has no sticky bit");
    expectRefusal("chmod 1777 /tmp/socketDDS", "/agent: No such file or directory");
    const std::string foreign = "chown 12345 /tmp/socketDDS";
    if (runInSandbox({"sh", "-c", "mkdir /tmp/socketDDS && " + foreign}).status != 0)
        GTEST_SKIP() << "only root can make another user's directory";
    expectRefusal(foreign, " belongs to another user");
}

TEST(tavo_rpc, WarnsOfMessagesThatMayBeCutAndGivesUpWhenTheServerDoesNotRead) {
    const ProgramResult ran = besideAgent(
        R"(head -c 40000 /dev/zero | tr '\0' ' ' >large; head -c 1048576 /dev/zero | tr '\0' a >huge; )"
        "for f in large huge; do " TAVO_RPC " --no-answer agent $f; echo status $? >&2; done");
    EXPECT_EQ("tavo-rpc: large: 40000 bytes may not arrive in one piece\n"
              "status 0\n"
              "tavo-rpc: huge: 1048576 bytes may not arrive in one piece\n"
              "tavo-rpc: huge: the server does not accept the whole message\n"
              "status 1\n",
              ran.err);
}

TEST(tavo_rpc, PrintsItsHelpAndRefusesWrongCommandLines) {
    EXPECT_THAT(support::runProgram({TAVO_RPC, "--help"}).out,
                StartsWith("Usage: tavo-rpc [OPTION...] NAME [FILE...]\n"));
    const auto expectRefusal = [](std::vector<std::string> arguments, const std::string& why) {
        arguments.insert(arguments.begin(), TAVO_RPC);
        const ProgramResult ran = support::runProgram(arguments);
        EXPECT_EQ(2, ran.status);
        EXPECT_EQ("tavo-rpc: " + why + "\n" + kTry, ran.err);
    };
    expectRefusal({}, "the NAME of the socket is missing");
    expectRefusal({"--fast", "a"}, support::unknownOption("fast"));
    for (const char* seconds : {"", "0", "86401", "1s", "-1", "1.5"})
        expectRefusal({"--timeout", seconds, "a"},
                      "--timeout takes a number of seconds, 1 to 86400");
}

} // namespace
