// The example dds_node, observed by a participant in another process.
#include "CLibrary.h"
#include "DdsPeer.h"
#include "RunProgram.h"

#include <cstdlib>
#include <string>
#include <vector>

#include <signal.h>

#include <gtest/gtest.h>

namespace {

using support::DdsPeer;
using support::ProgramResult;
using support::RunningProgram;

const char kTryHelp[] = "Try 'dds_node --help' for more information.\n";

void expectUsageError(const std::vector<std::string>& arguments, const std::string& problem) {
    std::vector<std::string> command = {TAVO_DDS_NODE};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const ProgramResult ran = support::runProgram(command);
    EXPECT_EQ(2, ran.status);
    EXPECT_EQ("", ran.out);
    EXPECT_EQ("dds_node: " + problem + "\n" + kTryHelp, ran.err);
}

void expectCleanEndOn(int signal, const std::string& role, const std::string& participant) {
    const support::ReservedDomain domain;
    DdsPeer peer;
    RunningProgram node({TAVO_DDS_NODE, role});
    const std::string id = peer.expectArrival(participant);
    kill(node.pid(), signal);
    const ProgramResult ran = node.wait();
    EXPECT_EQ(0, ran.status);
    EXPECT_EQ("running as " + role + "\nstopped\n", ran.out);
    EXPECT_EQ("", ran.err);
    peer.expectDeparture(id);
}

TEST(dds_node, ServerJoinsAndLeavesOnSigterm) { expectCleanEndOn(SIGTERM, "server", "isServer"); }

TEST(dds_node, ClientJoinsAndLeavesOnSigint) { expectCleanEndOn(SIGINT, "client", "isClient"); }

TEST(dds_node, LocalOptionJoinsTheDomainGivenWhateverTheEnvironmentSays) {
    const support::ReservedDomain domain;
    DdsPeer peer;
    RunningProgram node({TAVO_DDS_NODE, "--local", std::to_string(domain.id()), "server"},
                        {"CYCLONEDDS_URI=<no settings>"});
    peer.expectArrival("isServer");
    kill(node.pid(), SIGTERM);
    EXPECT_EQ(0, node.wait().status);
}

TEST(dds_node, FailedStartIsReportedWithStatusOne) {
    support::ReservedDomain domain;
    domain.useInterface("nosuchif0");
    const ProgramResult ran = support::runProgram({TAVO_DDS_NODE, "server"});
    EXPECT_EQ(1, ran.status);
    EXPECT_EQ("", ran.out);
    const std::string end = "\ndds_node: the DDS RMI runtime did not start\n";
    ASSERT_GT(ran.err.size(), end.size());
    EXPECT_EQ(end, ran.err.substr(ran.err.size() - end.size()));
}

TEST(dds_node, WrongUseIsStatusTwo) {
    expectUsageError({}, "one role is needed: client or server");
    expectUsageError({"client", "server"}, "one role is needed: client or server");
    expectUsageError({"broker"}, "the role is neither client nor server");
    expectUsageError({"--fast", "client"}, support::unknownOption("fast"));
    for (const char* domain : {"231", "-1", "", "7a", "9999"})
        expectUsageError({std::string("--local=") + domain, "client"},
                         "the DOMAIN is not a number from 0 to 230");
}

TEST(dds_node, HelpIsPrintedWithStatusZero) {
    const ProgramResult ran = support::runProgram({TAVO_DDS_NODE, "--help"});
    EXPECT_EQ(0, ran.status);
    EXPECT_EQ("Usage: dds_node ", ran.out.substr(0, 16));
    EXPECT_EQ("", ran.err);
}

} // namespace
