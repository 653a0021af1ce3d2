// The programs of docs/recipes.md behave as the page describes.

#include "Broker.h"
#include "PipedProgram.h"
#include "PrivateMounts.h"
#include "RunProgram.h"
#include "SocketFile.h"
#include "TempDir.h"
#include "Waiting.h"

#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::eventually;
using support::PipedProgram;
using support::ProgramResult;
using support::RunningProgram;
using support::runProgram;
using support::TempDir;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

std::string program(const std::string& name) { return std::string(TAVO_RECIPES) + "/" + name; }

/// The recipe that ends the loop of a socket server when it reads a line.
class RecipeEndSocketLoop : public testing::Test {
protected:
    int statusAfterALine() {
        recipe_.write("\n");
        return recipe_.program().wait().status;
    }

    const support::SocketFile file_{"recipe"};
    PipedProgram recipe_{{program("end_socket_loop")}};
};

TEST(RecipeEndCleanly, EndsOnSigtermAfterItsWorkAndStartsProgramsWithoutBlockedSignals) {
    const TempDir directory;
    RunningProgram running({program("end_cleanly"), directory.path()});
    const auto hasPrinted = [&](const char* text) {
        return running.outSoFar().find(text) != std::string::npos;
    };
    ASSERT_TRUE(eventually([&] { return hasPrinted("SigBlk"); }));
    // A reported entry proves that the watcher's loop runs. A stop before that could have no
    // effect.
    int entry = 0;
    ASSERT_TRUE(eventually([&] {
        support::writeFile(directory / std::to_string(++entry), "");
        return hasPrinted("new in ");
    }));
    kill(running.pid(), SIGTERM);
    const ProgramResult ran = running.wait();
    EXPECT_EQ(0, ran.status) << ran.err;
    EXPECT_THAT(ran.out, HasSubstr("SigBlk:\t0000000000000000\n"));
    EXPECT_THAT(ran.out, EndsWith("ended\n"));
}

TEST_F(RecipeEndSocketLoop, EndsWhileNoClientIsThere) {
    ASSERT_TRUE(recipe_.prints("Waiting for a connection..."));
    EXPECT_EQ(0, statusAfterALine());
}

TEST_F(RecipeEndSocketLoop, EndsWhileASilentClientIsConnected) {
    ASSERT_TRUE(recipe_.prints("Waiting for a connection..."));
    const int client = file_.connect();
    ASSERT_NE(-1, client);
    ASSERT_TRUE(recipe_.prints("Connected."));
    EXPECT_EQ(0, statusAfterALine());
    close(client);
}

TEST(RecipeSurviveAbsence, NoReadingIsLostWhenTheBrokerIsAbsentInBetween) {
    support::Broker broker;
    broker.createSession("recipes", "recipe/reading");
    PipedProgram recipe({program("survive_absence"), std::to_string(broker.port())});
    recipe.write("1\n2\n");
    EXPECT_TRUE(recipe.prints("0 unsent\n0 unsent\n"));
    broker.stop();
    recipe.write("3\n4\n");
    EXPECT_TRUE(recipe.prints("1 unsent\n2 unsent\n"));
    broker.start();
    recipe.write("5\n");
    recipe.hangUp();
    const ProgramResult ran = recipe.program().wait();
    EXPECT_EQ(0, ran.status) << ran.err;
    EXPECT_EQ("0 unsent\n0 unsent\n1 unsent\n2 unsent\n0 unsent\n", ran.out);
    EXPECT_THAT(broker.receiveQueued("recipes", "recipe/reading", 5),
                ElementsAre("recipe/reading 1 0 1", "recipe/reading 1 0 2", "recipe/reading 1 0 3",
                            "recipe/reading 1 0 4", "recipe/reading 1 0 5"));
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
