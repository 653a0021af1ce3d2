// The examples telemetry, file_watch and usb_media, run as users run them.

#include "Broker.h"
#include "CLibrary.h"
#include "FakePrograms.h"
#include "RunProgram.h"
#include "TempDir.h"
#include "Waiting.h"

#include <csignal>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::Broker;
using support::eventually;
using support::FakePrograms;
using support::ProgramResult;
using support::RunningProgram;
using support::runProgram;
using support::TempDir;
using support::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

bool says(const RunningProgram& program, const std::string& text) {
    return eventually([&] { return program.outSoFar().find(text) != std::string::npos; });
}

ProgramResult end(RunningProgram& program, int signal = SIGTERM) {
    kill(program.pid(), signal);
    return program.wait();
}

void expectUsage(const std::string& path, const std::string& name,
                 const std::vector<std::string>& arguments, const std::string& problem) {
    std::vector<std::string> command = {path};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const ProgramResult ran = runProgram(command);
    EXPECT_EQ(2, ran.status);
    EXPECT_EQ("", ran.out);
    EXPECT_EQ(name + ": " + problem + "\nTry '" + name + " --help' for more information.\n",
              ran.err);
}

void expectHelp(const std::string& path, const std::string& name) {
    const ProgramResult ran = runProgram({path, "--help"});
    EXPECT_EQ(0, ran.status);
    EXPECT_THAT(ran.out, StartsWith("Usage: " + name + " "));
    EXPECT_EQ("", ran.err);
}

TEST(telemetry, PrintsItsHelpAndRefusesUnknownOptions) {
    const std::string path = TAVO_TELEMETRY;
    expectHelp(path, "telemetry");
    expectUsage(path, "telemetry", {"extra"}, "unknown argument 'extra'");
    expectUsage(path, "telemetry", {"--fast"}, support::unknownOption("fast"));
    expectUsage(path, "telemetry", {"--broker", ":1883"}, "--broker takes HOST or HOST:PORT");
    expectUsage(path, "telemetry", {"--broker", "h:0"}, "--broker takes HOST or HOST:PORT");
    expectUsage(path, "telemetry", {"--broker", "h:99999"}, "--broker takes HOST or HOST:PORT");
    expectUsage(path, "telemetry", {"--topic", "a/#"}, "the topic is empty or has a wildcard");
}

TEST(telemetry, PublishesTheBoardsReadingsAndLightsTheLed) {
    const Broker broker("allow_anonymous true\nqueue_qos0_messages true\n");
    broker.createSession("watcher", "board/#");
    TempDir root;
    RunningProgram telemetry({TAVO_SANDBOX_RUN, "--root", root / "root", TAVO_TELEMETRY, "--broker",
                              "127.0.0.1:" + std::to_string(broker.port()), "--topic", "board"},
                             {std::string("TAVO_BUILD_DIR=") + TAVO_BUILD_DIR});
    EXPECT_THAT(broker.receiveQueued("watcher", "board/#", 5),
                ElementsAre("board/state 1 0 online", "board/temperature 0 0 41",
                            "board/voltage 0 0 12050", "board/bin0 0 0 0", "board/bin1 0 0 0"));
    const std::string state = root / "root/tmp/gpio.state";
    EXPECT_TRUE(eventually([&] {
        return support::exists(state) &&
               support::readFile(state).find("led_wan 1\n") != std::string::npos;
    }));
    EXPECT_EQ(0, end(telemetry).status);
    EXPECT_THAT(support::readFile(state), HasSubstr("led_wan 0\n"));
    EXPECT_THAT(broker.receive("board/state", 1), ElementsAre("board/state 1 1 offline"));
}

TEST(telemetry, LedIsOffWhileTheBrokerIsAway) {
    Broker broker;
    TempDir root;
    RunningProgram telemetry({TAVO_SANDBOX_RUN, "--root", root / "root", TAVO_TELEMETRY, "--broker",
                              "127.0.0.1:" + std::to_string(broker.port()), "--topic", "board"},
                             {std::string("TAVO_BUILD_DIR=") + TAVO_BUILD_DIR});
    const std::string state = root / "root/tmp/gpio.state";
    const auto ledIs = [&](const std::string& value) {
        return eventually([&] {
            return support::exists(state) &&
                   support::readFile(state).find("led_wan " + value + "\n") != std::string::npos;
        });
    };
    ASSERT_TRUE(ledIs("1"));
    broker.stop();
    EXPECT_TRUE(ledIs("0"));
    broker.start();
    EXPECT_TRUE(ledIs("1"));
    // An input that changes later appears in the readings.
    support::writeFile(state, "bin0 1\nbin1 0\ntemperature 41\nvoltage 12050\nled_wan 1\n");
    EXPECT_TRUE(eventually([&] {
        return broker.receive("board/bin0", 1) == std::vector<std::string>{"board/bin0 0 0 1"};
    }));
    EXPECT_EQ(0, end(telemetry).status);
    EXPECT_TRUE(ledIs("0"));
}

TEST(telemetry, EndsWhileItWaitsForABroker) {
    const support::Listener listener; // accepts the connection, but never responds like a broker
    RunningProgram telemetry(
        {TAVO_TELEMETRY, "--broker", "127.0.0.1:" + std::to_string(listener.port())});
    ASSERT_TRUE(listener.waitForClient());
    const ProgramResult ran = end(telemetry, SIGINT);
    EXPECT_EQ(0, ran.status);
    EXPECT_EQ("", ran.out + ran.err);
}

TEST(file_watch, PrintsItsHelpAndRefusesUnknownOptions) {
    const std::string path = TAVO_FILE_WATCH;
    expectHelp(path, "file_watch");
    expectUsage(path, "file_watch", {}, "at least one PATH is needed");
    expectUsage(path, "file_watch", {"--fast"}, support::unknownOption("fast"));
}

TEST(file_watch, ReportsAPathThatCannotBeWatched) {
    const ProgramResult ran = runProgram({TAVO_FILE_WATCH, "/nowhere"});
    EXPECT_EQ(1, ran.status);
    EXPECT_EQ("Couldn't add watch to /nowhere ERROR: No such file or directory\n", ran.out);
}

TEST(file_watch, PrintsWhatHappens) {
    TempDir directory;
    RunningProgram watch({TAVO_FILE_WATCH, directory.path()});
    ASSERT_TRUE(says(watch, "watching\n"));
    writeFile(directory / "a", "content");
    ASSERT_EQ(0, rename((directory / "a").c_str(), (directory / "b").c_str()));
    ASSERT_EQ(0, unlink((directory / "b").c_str()));
    const std::string path = directory.path();
    EXPECT_TRUE(says(watch, "deleted"));
    const ProgramResult ran = end(watch);
    EXPECT_EQ(0, ran.status);
    EXPECT_EQ("watching\n"
              "created " +
                  path +
                  " a\n"
                  "written " +
                  path +
                  " a\n"
                  "moved-away " +
                  path +
                  " a\n"
                  "moved-here " +
                  path +
                  " b\n"
                  "deleted " +
                  path + " b\n",
              ran.out);
    EXPECT_EQ("", ran.err);
}

TEST(usb_media, PrintsItsHelpAndRefusesUnknownOptions) {
    const std::string path = TAVO_USB_MEDIA;
    expectHelp(path, "usb_media");
    expectUsage(path, "usb_media", {"sda1"}, "a DEVICE and a DIRECTORY are needed");
    expectUsage(path, "usb_media", {"/dev/sda1", "/mnt"},
                "the DEVICE must be a plain name, such as sda1");
    expectUsage(
        path, "usb_media", {"sda1", "/mnt; reboot"},
        "the DIRECTORY may contain only letters, digits and /_.-, and must not begin with -");
}

TEST(usb_media, ReportsADirectoryThatCannotBeMade) {
    const ProgramResult ran = runProgram({TAVO_USB_MEDIA, "sda1", "/nowhere/below"});
    EXPECT_EQ(1, ran.status);
    EXPECT_EQ("usb_media: Error creating directory '/nowhere/below'\n", ran.err);
}

TEST(usb_media, ListsTheMediumAndUnmountsItAtTheEnd) {
    FakePrograms programs;
    programs.add("mount");
    programs.add("umount");
    TempDir directory;
    writeFile(directory / "song", "la");
    // A node that always exists and is readable. The fake programs above ensure that nothing is
    // mounted.
    RunningProgram media({TAVO_USB_MEDIA, "null", directory.path()});
    ASSERT_TRUE(says(media, "usb_media: " + directory / "song" + "\n"));
    const ProgramResult ran = end(media);
    EXPECT_EQ(0, ran.status);
    // These lines must appear in this order; lines about other nodes under /dev may appear between
    // them.
    std::size_t at = 0;
    for (const std::string& line :
         {std::string("usb_media: null is mounted\n"), "usb_media: " + directory / "song" + "\n",
          std::string("~AutoMount()\n"), "Running: umount " + directory.path() + "\n",
          std::string("usb_media: null is unmounted\n")}) {
        at = ran.out.find(line, at);
        ASSERT_NE(std::string::npos, at) << line << "is missing in:\n" << ran.out;
    }
    EXPECT_THAT(programs.calls(), ElementsAre("mount [/dev/null] [" + directory.path() + "]",
                                              "umount [" + directory.path() + "]"));
}

} // namespace
