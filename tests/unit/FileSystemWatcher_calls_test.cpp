// FileSystemWatcher's system calls, and its reactions to their results, with a simulated kernel.
// They show the order of calls, results that a test cannot get from a real kernel, and chosen watch
// numbers. FileSystemWatcher_test.cpp tests with the real kernel.

#include <kvr/api/FileSystemWatcher.h>

#include "CapturedOutput.h"
#include "PlayedKernel.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include <sys/inotify.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::CapturedOutput;
using support::errorsOf;
using support::printedBy;
using testing::ElementsAre;
using testing::IsEmpty;

} // namespace

TEST(FileSystemWatcherCalls, MakesAndClosesOneInstance) {
    PlayedKernel kernel;
    { FileSystemWatcher watcher; }
    EXPECT_THAT(kernel.calls(), ElementsAre("init = 1000", "close 1000"));
}

TEST(FileSystemWatcherCalls, RemovesEveryWatchInListOrderWhenDestroyed) {
    PlayedKernel kernel;
    Recorder recorder;
    {
        FileSystemWatcher watcher;
        for (const char* path : {"/a", "/b", "/a"})
            watcher.attachWatcher(recorder.of(path));
        (void)kernel.calls();
    }
    EXPECT_THAT(kernel.calls(),
                ElementsAre("remove 1000 1", "remove 1000 2", "remove 1000 1", "close 1000"));
}

TEST(FileSystemWatcherCalls, PassesPathAndMaskUnchanged) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    (void)kernel.calls();
    watcher.attachWatcher(Watcher("rel/../path//", 0xf2345678u, Recorder::note, &recorder));
    watcher.attachWatcher(Watcher("", 0, Recorder::note, &recorder));
    EXPECT_THAT(kernel.calls(),
                ElementsAre("add 1000 rel/../path// f2345678 = 1", "add 1000  0 = 2"));
}

TEST(FileSystemWatcherCalls, FailingInstanceIsReportedOnStandardErrorOnly) {
    PlayedKernel kernel;
    kernel.initFails = true;
    std::string printed;
    const std::string errors =
        errorsOf([&] { printed = printedBy([] { FileSystemWatcher watcher; }); });
    EXPECT_EQ(std::string("Couldn't initialize inotify: ") + std::strerror(EMFILE) + "\n", errors);
    EXPECT_EQ("", printed);
    EXPECT_THAT(kernel.calls(), ElementsAre("init = -1", "close -1"));
}

TEST(FileSystemWatcherCalls, WithoutAnInstanceNothingAttachesAndTheLoopWaits) {
    PlayedKernel kernel;
    kernel.initFails = true;
    std::unique_ptr<FileSystemWatcher> watcher;
    (void)errorsOf([&] { watcher = std::make_unique<FileSystemWatcher>(); });
    Recorder recorder;
    EXPECT_EQ(std::string("Couldn't add watch to /a ERROR: ") + std::strerror(EBADF) + "\n",
              printedBy([&] { watcher->attachWatcher(recorder.of("/a")); }));
    EXPECT_FALSE(watcher->watcherExists("/a"));
    (void)kernel.calls();
    kernel.pollAnswers = {0, 0};
    EXPECT_EQ("", printedBy([&] { kernel.serve(*watcher); }));
    EXPECT_THAT(kernel.calls(), ElementsAre("poll -1 events 1 count 1 timeout 500",
                                            "poll -1 events 1 count 1 timeout 500"));
}

TEST(FileSystemWatcherCalls, RefusedWatchIsPrintedAndNotListed) {
    PlayedKernel kernel;
    kernel.numbers = {{"/full", -1}};
    kernel.addError = ENOSPC;
    FileSystemWatcher watcher;
    Recorder recorder;
    (void)kernel.calls();
    EXPECT_EQ("Couldn't add watch to /full ERROR: No space left on device\n",
              printedBy([&] { watcher.attachWatcher(recorder.of("/full")); }));
    EXPECT_FALSE(watcher.watcherExists("/full"));
    watcher.resetState(); // would add the watch again
    EXPECT_THAT(kernel.calls(),
                ElementsAre("add 1000 /full 300 = -1", "close 1000", "init = 1001"));
}

TEST(FileSystemWatcherCalls, PollsItsInstanceForHalfASecondPerPass) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    (void)kernel.calls();
    kernel.pollAnswers = {0};
    kernel.serve(watcher);
    static_assert(POLLIN == 1, "the line below holds its number");
    EXPECT_THAT(kernel.calls(), ElementsAre("poll 1000 events 1 count 1 timeout 500"));
}

TEST(FileSystemWatcherCalls, IdleAndInterruptedPollsAreNoEvents) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    (void)kernel.calls();
    kernel.pollAnswers = {0, -1, 0};
    EXPECT_EQ("", printedBy([&] { kernel.serve(watcher); }));
    EXPECT_THAT(kernel.calls(), ElementsAre("poll 1000 events 1 count 1 timeout 500",
                                            "poll 1000 events 1 count 1 timeout 500",
                                            "poll 1000 events 1 count 1 timeout 500"));
}

TEST(FileSystemWatcherCalls, FlagThatIsSetAlreadyMakesNoPass) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    (void)kernel.calls();
    bool stop = true;
    watcher.run(stop);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST(FileSystemWatcherCalls, EarlierStopIsForgottenByRun) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    recorder.action = [&](const std::string&) { watcher.stop(); };
    watcher.attachWatcher(recorder.of("/a"));
    for (int run = 0; run < 2; ++run) {
        watcher.stop();
        kernel.pollAnswers = {0, 0, 1};
        kernel.reads.push_back(record(1, IN_CREATE, "x"));
        (void)kernel.calls();
        watcher.run(); // ends because the callback stops it
        EXPECT_THAT(kernel.calls(),
                    ElementsAre("poll 1000 events 1 count 1 timeout 500",
                                "poll 1000 events 1 count 1 timeout 500",
                                "poll 1000 events 1 count 1 timeout 500", "read 1000 4600"));
    }
    EXPECT_THAT(recorder.seen, ElementsAre("x 100", "x 100"));
}

TEST(FileSystemWatcherCalls, FailedReadIsPrintedAndTheLoopContinues) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    kernel.reads = {PlayedKernel::kReadFails, PlayedKernel::kReadFails,
                    record(1, IN_CREATE, "still")};
    EXPECT_EQ("read: -1\nread: -1\n", printedBy([&] { kernel.serve(watcher); }));
    EXPECT_THAT(recorder.seen, ElementsAre("still 100"));
}

TEST(FileSystemWatcherCalls, LinesArePrintedImmediately) {
    PlayedKernel kernel;
    kernel.numbers = {{"/missing", -1}};
    kernel.reads = {PlayedKernel::kReadFails};
    FileSystemWatcher watcher;
    Recorder recorder;
    std::string afterAttaching;
    std::string afterReading;
    {
        const CapturedOutput output;
        watcher.attachWatcher(recorder.of("/missing"));
        afterAttaching = output.written();
        kernel.serve(watcher);
        afterReading = output.written();
    }
    EXPECT_EQ("Couldn't add watch to /missing ERROR: No such file or directory\n", afterAttaching);
    EXPECT_EQ(afterAttaching + "read: -1\n", afterReading);
}

TEST(FileSystemWatcherCalls, EmptyReadIsIgnored) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    kernel.reads = {"", record(1, IN_CREATE, "next")};
    EXPECT_EQ("", printedBy([&] { kernel.serve(watcher); }));
    EXPECT_THAT(recorder.seen, ElementsAre("next 100"));
}
