// The programs of docs/recipes.md behave as the page describes.

#include "Broker.h"
#include "PrivateMounts.h"
#include "RunProgram.h"
#include "SocketFile.h"
#include "TempDir.h"
#include "Waiting.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::eventually;
using support::ProgramResult;
using support::RunningProgram;
using support::runProgram;
using support::TempDir;
using testing::EndsWith;
using testing::HasSubstr;

std::string program(const std::string& name) { return std::string(TAVO_RECIPES) + "/" + name; }

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

/// The recipe that ends the loop of a socket server; the test holds a pipe to its standard input.
class RecipeEndSocketLoop : public testing::Test {
protected:
    RecipeEndSocketLoop() : pipe_(directory_ / "pipe") {
        mkfifo(pipe_.c_str(), 0600);
        running_ = std::make_unique<RunningProgram>(std::vector<std::string>{
            "sh", "-c", "exec \"$0\" <\"$1\"", program("end_socket_loop"), pipe_});
        input_.open(pipe_);
    }

    bool prints(const std::string& text) {
        return eventually([&] { return holds(running_->outSoFar(), text); });
    }

    int statusAfterALine() {
        input_ << std::endl;
        return running_->wait().status;
    }

    const support::SocketFile file_{"recipe"};

private:
    TempDir directory_;
    std::string pipe_;
    std::unique_ptr<RunningProgram> running_;
    std::ofstream input_;
};

TEST(RecipeEndCleanly, EndsOnSigtermAfterItsWorkAndStartsProgramsWithoutBlockedSignals) {
    const TempDir directory;
    RunningProgram running({program("end_cleanly"), directory.path()});
    ASSERT_TRUE(eventually([&] { return holds(running.outSoFar(), "SigBlk"); }));
    // A reported entry proves that the watcher's loop runs. A stop before that could have no
    // effect.
    int entry = 0;
    ASSERT_TRUE(eventually([&] {
        support::writeFile(directory / std::to_string(++entry), "");
        return holds(running.outSoFar(), "new in ");
    }));
    kill(running.pid(), SIGTERM);
    const ProgramResult ran = running.wait();
    EXPECT_EQ(0, ran.status) << ran.err;
    EXPECT_THAT(ran.out, HasSubstr("SigBlk:\t0000000000000000\n"));
    EXPECT_THAT(ran.out, EndsWith("ended\n"));
}

TEST_F(RecipeEndSocketLoop, EndsWhileNoClientIsThere) {
    ASSERT_TRUE(prints("Waiting for a connection..."));
    EXPECT_EQ(0, statusAfterALine());
}

TEST_F(RecipeEndSocketLoop, EndsWhileASilentClientIsConnected) {
    ASSERT_TRUE(prints("Waiting for a connection..."));
    const int client = file_.connect();
    ASSERT_NE(-1, client);
    ASSERT_TRUE(prints("Connected."));
    EXPECT_EQ(0, statusAfterALine());
    close(client);
}

TEST(RecipeSurviveAbsence, NoReadingIsLostWhenTheBrokerIsAbsentInBetween) {
    support::Broker broker;
    broker.start();
    broker.createSession("recipes", "recipe/reading");
    RunningProgram running({program("survive_absence"), std::to_string(broker.port())});
    ASSERT_EQ(1u, broker.receive("recipe/reading", 1).size()); // it publishes
    broker.stop();
    broker.start();
    const ProgramResult ran = running.wait();
    EXPECT_EQ(0, ran.status) << ran.err;
    EXPECT_EQ("0 readings are left\n", ran.out);
    // A reading may arrive twice.
    const std::vector<std::string> received = broker.receiveQueued("recipes", "recipe/reading", 40);
    const std::set<std::string> different(received.begin(), received.end());
    EXPECT_EQ(20u, different.size());
}

TEST(RecipeLogSize, TheLogIsEmptiedWhenItIsLarge) {
    support::inPrivateMounts({"/tmp"}, [] {
        EXPECT_EQ(0, runProgram({program("log_size")}).status);
        const std::string log = support::readFile("/tmp/log.out");
        EXPECT_LT(log.size(), 4200u);
        EXPECT_EQ(0u, log.find("INFO: the log was emptied\n"));
    });
}

TEST(RecipeJsonNumbers, AreBuiltAndReadInAllSizes) {
    EXPECT_EQ("{ \"count\": 7, \"bytes\": 5000000000, \"half\": 0.5, \"tenth\": 0.1, "
              "\"valid\": true }\n7 0.5 5000000000\n",
              runProgram({program("json_numbers")}).out);
}

TEST(RecipeLineChannel, AnswersItsCommandsAndEndsOnQuit) {
    const ProgramResult ran = runProgram({program("line_channel")}, {}, "uptime\nuptime\nquit\n");
    EXPECT_EQ(0, ran.status) << ran.err;
    EXPECT_EQ(0u, ran.out.find("uptime\n"));
    EXPECT_THAT(ran.out, EndsWith("\nquit\n"));
    EXPECT_EQ(5, std::count(ran.out.begin(), ran.out.end(), '\n')); // "quit" has no answer
}

} // namespace
