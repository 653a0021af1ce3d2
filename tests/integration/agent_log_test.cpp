// The agent and the gateway's log: which files it refuses, and how it limits their size.

#include "AgentInSandbox.h"

#include <csignal>
#include <string>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::AgentInSandbox;
using support::Client;
using support::ProgramResult;
using support::request;
using support::runInSandbox;
using testing::EndsWith;
using testing::StartsWith;

const std::string kServing = "INFO: tavo-agent: serving /tmp/socketDDS/agent\n";

/// Runs the shell commands `before`, then the agent, which must fail.
ProgramResult startAfter(const std::string& before) {
    return runInSandbox({"sh", "-c", before + "; exec \"$@\"", "sh", TAVO_AGENT, "agent"});
}

void expectRefusal(const std::string& before, const std::string& why) {
    const ProgramResult ran = startAfter(before);
    EXPECT_EQ(1, ran.status) << before;
    EXPECT_EQ("tavo-agent: " + why + "\n", ran.err) << before;
}

TEST(tavo_agent_log_file, IsRefusedWhenOpeningItCouldBlock) {
    expectRefusal("mkfifo /tmp/log.out", "/tmp/log.out is not a regular file");
    expectRefusal("mkfifo /tmp/f; ln -s f /tmp/log.out", "/tmp/log.out is not a regular file");
    expectRefusal("mkdir /tmp/log.out", "/tmp/log.out is not a regular file");
}

TEST(tavo_agent_log_file, IsRefusedWhenAnotherUserMayHaveLinkedIt) {
    expectRefusal("echo >/tmp/a; ln /tmp/a /tmp/log.out", "/tmp/log.out is a hard link");
    const std::string foreign = "ln -s a /tmp/log.out; chown -h 12345 /tmp/log.out";
    if (runInSandbox({"sh", "-c", foreign}).status != 0)
        GTEST_SKIP() << "links of another user's take root";
    expectRefusal(foreign, "/tmp/log.out is another user's symbolic link");
    expectRefusal("mkfifo /tmp/a; " + foreign, "/tmp/log.out is another user's symbolic link");
}

TEST(tavo_agent_log_file, MayBeALinkOfItsOwnUser) {
    AgentInSandbox toNew("ln -s elsewhere /tmp/log.out; exec \"$@\"", {});
    EXPECT_EQ(kServing, toNew.read("/tmp/elsewhere"));
    AgentInSandbox toNothing("ln -s /dev/null /tmp/log.out; exec \"$@\"", {"--log-limit", "4096"});
    EXPECT_THAT(toNothing.call(request("none", "{}")), testing::HasSubstr("-32601"));
}

TEST(tavo_agent_log_file, MayBelongToAnotherUser) {
    const std::string foreign = "echo first >/tmp/log.out && chown 12345 /tmp/log.out";
    if (runInSandbox({"sh", "-c", foreign}).status != 0)
        GTEST_SKIP() << "files of another user take root";
    // Some kernels protect files in world-writable directories and refuse this.
    if (runInSandbox({"sh", "-c", foreign + " && echo >>/tmp/log.out"}).status != 0)
        GTEST_SKIP() << "fs.protected_regular forbids to open them";
    AgentInSandbox agent(foreign + "; exec \"$@\"", {});
    EXPECT_EQ("first\n" + kServing, agent.log());
}

// 5000 lines of 12 bytes, more than any limit below.
const std::string kFill = "seq -f 'line %06.0f' 5000 >/tmp/log.out; ";

std::string lines(int first, int last) {
    std::string text;
    for (int i = first; i <= last; ++i)
        text += "line " + std::string(6 - std::to_string(i).size(), '0') + std::to_string(i) + "\n";
    return text;
}

const std::string kCut = "INFO: tavo-agent: earlier lines are in /tmp/log.out.1\n";

TEST(tavo_agent_log_file, IsCutToHalfItsLimitInWholeLines) {
    // The agent's line has 47 bytes. 4091 bytes hold it and exactly 337 lines of 12 bytes.
    for (const auto& [limit, kept] : {std::pair("8182", 337), std::pair("8180", 336)}) {
        AgentInSandbox agent(kFill + "exec \"$@\"", {"--log-limit", limit});
        EXPECT_EQ(kCut, agent.log());
        EXPECT_EQ(lines(5000 - kept + 1, 5000) + kServing, agent.read("/tmp/log.out.1"));
    }
}

TEST(tavo_agent_log_file, StaysAsItIsUpToItsLimit) {
    // 60000 bytes plus the agent's line.
    const std::string limit = std::to_string(60000 + kServing.size());
    AgentInSandbox agent(kFill + "exec \"$@\"", {"--log-limit", limit});
    EXPECT_EQ(lines(1, 5000) + kServing, agent.log());
    agent.call(request("none", "{}"));
    EXPECT_TRUE(support::exists(agent.file("/tmp/log.out.1")));
}

TEST(tavo_agent_log_file, IsCutInPlaceForProgramsThatHaveItOpen) {
    AgentInSandbox agent(kFill + "exec 3>>/tmp/log.out; exec \"$@\"",
                         {"--log-limit", "8192", "--allow", "sh"});
    EXPECT_EQ(kCut, agent.log());
    // The agent's programs inherit the shell's descriptor.
    agent.call(request("process.run", R"({"command":"sh","arguments":["-c","echo later >&3"]})"));
    EXPECT_THAT(agent.log(), StartsWith(kCut + "INFO: tavo-agent: request 1 process.run "));
    EXPECT_THAT(agent.log(), EndsWith("bytes)\nlater\nINFO: tavo-agent: request 1 process.run: "
                                      "done\n"));
    agent.end(SIGTERM);
}

TEST(tavo_agent_log_file, IsCutAgainAndAgain) {
    AgentInSandbox agent({"--log-limit", "4096"});
    Client client(agent.socketPath());
    for (int id = 1; id <= 400; ++id)
        ASSERT_TRUE(client.send(request("none", "{}", id)));
    ASSERT_TRUE(agent.waitForResponses(400));
    agent.end(SIGTERM);
    EXPECT_LE(agent.log().size(), 4096u);
    EXPECT_LE(agent.read("/tmp/log.out.1").size(), 2048u);
    EXPECT_GE(agent.read("/tmp/log.out.1").size(), 2048u - 200u);
    EXPECT_THAT(agent.log(), StartsWith(kCut));
    EXPECT_THAT(agent.log(), EndsWith("ended by SIGTERM\n"));
}

TEST(tavo_agent_log_file, ReplacesAnExistingFileByItsCopy) {
    AgentInSandbox agent("echo keep >/tmp/target; ln -s target /tmp/log.out.1; " + kFill +
                             "exec \"$@\"",
                         {"--log-limit", "8192"});
    EXPECT_EQ(kCut, agent.log());
    EXPECT_EQ("keep\n", agent.read("/tmp/target"));
    struct stat status = {};
    ASSERT_EQ(0, lstat(agent.file("/tmp/log.out.1").c_str(), &status));
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_EQ(0644u, status.st_mode & 07777u);
}

TEST(tavo_agent_log_file, IsCutAlsoWithoutACopy) {
    AgentInSandbox agent("mkdir /tmp/log.out.1; " + kFill + "exec \"$@\"", {"--log-limit", "8192"});
    EXPECT_EQ("ERROR: tavo-agent: earlier lines are lost: /tmp/log.out.1: File exists\n",
              agent.log());
}

} // namespace
