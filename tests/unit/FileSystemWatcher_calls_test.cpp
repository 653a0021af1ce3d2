// The order of FileSystemWatcher's system calls, and its reactions to errors that the real kernel
// does not produce on request.

#include <kvr/api/FileSystemWatcher.h>

#include "CapturedOutput.h"
#include "FakeInotify.h"
#include "FileSystemWatcherFixture.h"

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
using support::FakeInotify;
using support::printedBy;
using support::record;
using support::RecordedEvents;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(FileSystemWatcher_calls, MakesAndClosesOneInstance) {
    FakeInotify kernel;
    { FileSystemWatcher watcher; }
    EXPECT_THAT(kernel.calls(), ElementsAre("init = 1000", "close 1000"));
}

TEST(FileSystemWatcher_calls, RemovesEveryWatchInListOrderWhenDestroyed) {
    FakeInotify kernel;
    RecordedEvents events;
    {
        FileSystemWatcher watcher;
        for (const char* path : {"/a", "/b", "/a"})
            watcher.attachWatcher(events.watcherOn(path));
        (void)kernel.calls();
    }
    EXPECT_THAT(kernel.calls(),
                ElementsAre("remove 1000 1", "remove 1000 2", "remove 1000 1", "close 1000"));
}

TEST(FileSystemWatcher_calls, PassesPathAndMaskUnchanged) {
    FakeInotify kernel;
    FileSystemWatcher watcher;
    RecordedEvents events;
    (void)kernel.calls();
    watcher.attachWatcher(
        Watcher("rel/../path//", 0xf2345678u, RecordedEvents::recordEvent, &events));
    watcher.attachWatcher(Watcher("", 0, RecordedEvents::recordEvent, &events));
    EXPECT_THAT(kernel.calls(),
                ElementsAre("add 1000 rel/../path// f2345678 = 1", "add 1000  0 = 2"));
}

TEST(FileSystemWatcher_calls, FailingInstanceIsReportedOnStandardErrorOnly) {
    FakeInotify kernel;
    kernel.initFails = true;
    std::string printed;
    const std::string errors =
        errorsOf([&] { printed = printedBy([] { FileSystemWatcher watcher; }); });
    EXPECT_EQ(std::string("Couldn't initialize inotify: ") + std::strerror(EMFILE) + "\n", errors);
    EXPECT_EQ("", printed);
    EXPECT_THAT(kernel.calls(), ElementsAre("init = -1", "close -1"));
}

TEST(FileSystemWatcher_calls, WithoutAnInstanceNothingAttachesAndTheLoopWaits) {
    FakeInotify kernel;
    kernel.initFails = true;
    std::unique_ptr<FileSystemWatcher> watcher;
    (void)errorsOf([&] { watcher = std::make_unique<FileSystemWatcher>(); });
    RecordedEvents events;
    EXPECT_EQ(std::string("Couldn't add watch to /a ERROR: ") + std::strerror(EBADF) + "\n",
              printedBy([&] { watcher->attachWatcher(events.watcherOn("/a")); }));
    EXPECT_FALSE(watcher->watcherExists("/a"));
    (void)kernel.calls();
    kernel.pollResults = {0, 0};
    EXPECT_EQ("", printedBy([&] { kernel.serve(*watcher); }));
    EXPECT_THAT(kernel.calls(), ElementsAre("poll -1 events 1 count 1 timeout 500",
                                            "poll -1 events 1 count 1 timeout 500"));
}

TEST(FileSystemWatcher_calls, RefusedWatchIsPrintedAndNotListed) {
    FakeInotify kernel;
    kernel.numbers = {{"/full", -1}};
    kernel.addError = ENOSPC;
    FileSystemWatcher watcher;
    RecordedEvents events;
    (void)kernel.calls();
    EXPECT_EQ("Couldn't add watch to /full ERROR: No space left on device\n",
              printedBy([&] { watcher.attachWatcher(events.watcherOn("/full")); }));
    EXPECT_FALSE(watcher.watcherExists("/full"));
    watcher.resetState(); // would add the watch again
    EXPECT_THAT(kernel.calls(),
                ElementsAre("add 1000 /full 300 = -1", "close 1000", "init = 1001"));
}

TEST(FileSystemWatcher_calls, PollsItsInstanceForHalfASecondPerPass) {
    FakeInotify kernel;
    FileSystemWatcher watcher;
    (void)kernel.calls();
    kernel.pollResults = {0};
    kernel.serve(watcher);
    static_assert(POLLIN == 1, "the line below holds its number");
    EXPECT_THAT(kernel.calls(), ElementsAre("poll 1000 events 1 count 1 timeout 500"));
}

TEST(FileSystemWatcher_calls, IdleAndInterruptedPollsAreNoEvents) {
    FakeInotify kernel;
    FileSystemWatcher watcher;
    (void)kernel.calls();
    kernel.pollResults = {0, -1, 0};
    EXPECT_EQ("", printedBy([&] { kernel.serve(watcher); }));
    EXPECT_THAT(kernel.calls(), ElementsAre("poll 1000 events 1 count 1 timeout 500",
                                            "poll 1000 events 1 count 1 timeout 500",
                                            "poll 1000 events 1 count 1 timeout 500"));
}

TEST(FileSystemWatcher_calls, FlagThatIsSetAlreadyMakesNoPass) {
    FakeInotify kernel;
    FileSystemWatcher watcher;
    (void)kernel.calls();
    bool stop = true;
    watcher.run(stop);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST(FileSystemWatcher_calls, FailedReadIsPrintedAndTheLoopContinues) {
    FakeInotify kernel;
    FileSystemWatcher watcher;
    RecordedEvents events;
    watcher.attachWatcher(events.watcherOn("/a"));
    kernel.reads = {FakeInotify::kReadFails, FakeInotify::kReadFails,
                    record(1, IN_CREATE, "still")};
    EXPECT_EQ("read: -1\nread: -1\n", printedBy([&] { kernel.serve(watcher); }));
    EXPECT_THAT(events.seen, ElementsAre("still 100"));
}

TEST(FileSystemWatcher_calls, LinesArePrintedImmediately) {
    FakeInotify kernel;
    kernel.numbers = {{"/missing", -1}};
    kernel.reads = {FakeInotify::kReadFails};
    FileSystemWatcher watcher;
    RecordedEvents events;
    std::string afterAttaching;
    std::string afterReading;
    {
        const CapturedOutput output;
        watcher.attachWatcher(events.watcherOn("/missing"));
        afterAttaching = output.written();
        kernel.serve(watcher);
        afterReading = output.written();
    }
    EXPECT_EQ("Couldn't add watch to /missing ERROR: No such file or directory\n", afterAttaching);
    EXPECT_EQ(afterAttaching + "read: -1\n", afterReading);
}

TEST(FileSystemWatcher_calls, EmptyReadIsIgnored) {
    FakeInotify kernel;
    FileSystemWatcher watcher;
    RecordedEvents events;
    watcher.attachWatcher(events.watcherOn("/a"));
    kernel.reads = {"", record(1, IN_CREATE, "next")};
    EXPECT_EQ("", printedBy([&] { kernel.serve(watcher); }));
    EXPECT_THAT(events.seen, ElementsAre("next 100"));
}

} // namespace
