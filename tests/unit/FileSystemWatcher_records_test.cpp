// How FileSystemWatcher processes records that the real kernel does not produce on request.

#include <kvr/api/FileSystemWatcher.h>

#include "CapturedOutput.h"
#include "FakeInotify.h"
#include "FileSystemWatcherFixture.h"

#include <cstddef>
#include <string>

#include <sys/inotify.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::errorsOf;
using support::FakeInotify;
using support::printedBy;
using support::rawRecord;
using support::record;
using support::RecordedEvents;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t kBufferSize = 4600; // of the library

TEST(FileSystemWatcher_records, RecordsAreDroppedWhenNothingIsAttached) {
    FakeInotify kernel;
    FileSystemWatcher watcher;
    (void)kernel.calls();
    kernel.reads = {record(1, IN_CREATE, "x") + record(1, IN_IGNORED) + record(-1, IN_Q_OVERFLOW)};
    EXPECT_EQ("", printedBy([&] { kernel.serve(watcher); }));
    EXPECT_THAT(kernel.calls(),
                ElementsAre("poll 1000 events 1 count 1 timeout 500", "read 1000 4600",
                            "poll 1000 events 1 count 1 timeout 500"));
}

TEST(FileSystemWatcher_records, WholeMaskReachesTheCallback) {
    FakeInotify kernel;
    FileSystemWatcher watcher;
    RecordedEvents events;
    watcher.attachWatcher(events.watcherOn("/a"));
    kernel.reads = {record(1, IN_CREATE | IN_ISDIR, "dir") + record(1, 0xffff7fffu, "all")};
    kernel.serve(watcher);
    EXPECT_THAT(events.seen, ElementsAre("dir 40000100", "all ffff7fff"));
}

TEST(FileSystemWatcher_records, NameEndsAtItsFirstNul) {
    FakeInotify kernel;
    FileSystemWatcher watcher;
    RecordedEvents events;
    watcher.attachWatcher(events.watcherOn("/a"));
    kernel.reads = {rawRecord(1, IN_CREATE, std::string("cut\0here", 8), 16)};
    kernel.serve(watcher);
    EXPECT_THAT(events.seen, ElementsAre("cut 100"));
}

TEST(FileSystemWatcher_records, NameIsNotBoundedByTheRecordsLength) {
    FakeInotify kernel;
    FileSystemWatcher watcher;
    RecordedEvents events;
    watcher.attachWatcher(events.watcherOn("/a"));
    // The name has no NUL, so it continues into the next header, which begins with the byte 1.
    kernel.reads = {rawRecord(1, IN_CREATE, std::string(16, 'n'), 16) + record(1, IN_DELETE, "x")};
    kernel.serve(watcher);
    EXPECT_THAT(events.seen, ElementsAre(std::string(16, 'n') + "\1 100", "x 200"));
}

TEST(FileSystemWatcher_records, RecordWithoutANameReadsWhatFollows) {
    FakeInotify kernel;
    FileSystemWatcher watcher;
    RecordedEvents events;
    watcher.attachWatcher(events.watcherOn("/a"));
    kernel.numbers["/b"] = 0x00434241; // "ABC" in the next header, on a little-endian machine
    watcher.attachWatcher(events.watcherOn("/b"));
    kernel.reads = {record(1, IN_MODIFY) + record(0x00434241, IN_MODIFY)};
    kernel.serve(watcher);
    EXPECT_THAT(events.seen, ElementsAre("ABC 2", " 2"));
}

TEST(FileSystemWatcher_records, NameThatFillsTheBufferEndsWithIt) {
    FakeInotify kernel;
    FileSystemWatcher watcher;
    RecordedEvents events;
    watcher.attachWatcher(events.watcherOn("/a"));
    const std::string name(kBufferSize - sizeof(inotify_event), 'n');
    kernel.reads = {rawRecord(1, IN_CREATE, name, name.size())};
    kernel.serve(watcher);
    EXPECT_THAT(events.seen, ElementsAre(name + " 100"));
}

TEST(FileSystemWatcher_records, NamelessRecordAtTheBuffersEndHasAnEmptyName) {
    FakeInotify kernel;
    FileSystemWatcher watcher;
    RecordedEvents events;
    watcher.attachWatcher(events.watcherOn("/a"));
    const std::size_t filler = kBufferSize - 2 * sizeof(inotify_event);
    kernel.reads = {std::string(kBufferSize, 'j'), // as if left by an earlier iteration
                    rawRecord(9, IN_MODIFY, std::string(filler, 'f'), filler) +
                        record(1, IN_MODIFY)};
    kernel.serve(watcher);
    EXPECT_THAT(events.seen, ElementsAre(" 2"));
}

TEST(FileSystemWatcher_records, DroppedWatchRebuildsEveryWatchOnAFreshInstance) {
    FakeInotify kernel;
    FileSystemWatcher watcher;
    RecordedEvents events;
    for (const char* path : {"/a", "/b", "/a"})
        watcher.attachWatcher(events.watcherOn(path));
    kernel.numbers = {{"/a", 8}, {"/b", 9}}; // the numbers on the new instance
    kernel.reads = {record(1, IN_IGNORED | IN_ISDIR)};
    (void)kernel.calls();
    EXPECT_EQ("", printedBy([&] { kernel.serve(watcher); }));
    EXPECT_THAT(kernel.calls(),
                ElementsAre("poll 1000 events 1 count 1 timeout 500", "read 1000 4600",
                            "remove 1000 1", "remove 1000 2", "remove 1000 1", "close 1000",
                            "init = 1001", "add 1001 /a 300 = 8", "add 1001 /b 300 = 9",
                            "add 1001 /a 300 = 8", "poll 1001 events 1 count 1 timeout 500"));
    EXPECT_THAT(events.seen, IsEmpty());
    kernel.reads = {record(9, IN_CREATE, "b") + record(1, IN_CREATE, "old")};
    kernel.serve(watcher);
    EXPECT_THAT(events.seen, ElementsAre("b 100"));
}

TEST(FileSystemWatcher_records, DroppedWatchOfNobodyIsIgnored) {
    FakeInotify kernel;
    FileSystemWatcher watcher;
    RecordedEvents events;
    watcher.attachWatcher(events.watcherOn("/a"));
    kernel.reads = {record(5, IN_IGNORED)};
    (void)kernel.calls();
    kernel.serve(watcher);
    EXPECT_THAT(kernel.calls(),
                ElementsAre("poll 1000 events 1 count 1 timeout 500", "read 1000 4600",
                            "poll 1000 events 1 count 1 timeout 500"));
}

TEST(FileSystemWatcher_records, EntriesBehindTheDroppedOneAreComparedByTheirNewNumbers) {
    FakeInotify kernel;
    kernel.numbers = {{"/gone", 1}, {"/b", 2}, {"/c", 3}};
    FileSystemWatcher watcher;
    RecordedEvents events;
    for (const char* path : {"/gone", "/b", "/c"})
        watcher.attachWatcher(events.watcherOn(path));
    // The new instance counts from 1 again. Now /b has the number in the current record, so it also
    // counts as dropped, and a third instance follows.
    kernel.numbers = {{"/gone", -1}, {"/b", 1}, {"/c", 2}};
    kernel.reads = {record(1, IN_IGNORED)};
    (void)kernel.calls();
    kernel.serve(watcher);
    EXPECT_THAT(kernel.calls(),
                ElementsAre("poll 1000 events 1 count 1 timeout 500", "read 1000 4600",
                            "remove 1000 1", "remove 1000 2", "remove 1000 3", "close 1000",
                            "init = 1001", "add 1001 /gone 300 = -1", "add 1001 /b 300 = 1",
                            "add 1001 /c 300 = 2", "remove 1001 -1", "remove 1001 1",
                            "remove 1001 2", "close 1001", "init = 1002", "add 1002 /gone 300 = -1",
                            "add 1002 /b 300 = 1", "add 1002 /c 300 = 2",
                            "poll 1002 events 1 count 1 timeout 500"));
}

TEST(FileSystemWatcher_records, RecordsBehindAResetAreMatchedByNumberAgainstTheNewOnes) {
    FakeInotify kernel;
    kernel.numbers = {{"/a", 1}, {"/b", 2}};
    FileSystemWatcher watcher;
    RecordedEvents a;
    RecordedEvents b;
    watcher.attachWatcher(a.watcherOn("/a"));
    watcher.attachWatcher(b.watcherOn("/b"));
    kernel.numbers = {{"/a", 2}, {"/b", 3}};
    kernel.reads = {record(1, IN_CREATE, "before") + record(1, IN_IGNORED) +
                    record(2, IN_CREATE, "written for b")};
    kernel.serve(watcher);
    EXPECT_THAT(a.seen, ElementsAre("before 100", "written for b 100"));
    EXPECT_THAT(b.seen, IsEmpty());
}

TEST(FileSystemWatcher_records, EntryThatCouldNotBeRebuiltGetsTheNoticeOfLostEvents) {
    FakeInotify kernel;
    FileSystemWatcher watcher;
    RecordedEvents gone;
    RecordedEvents kept;
    watcher.attachWatcher(gone.watcherOn("/gone"));
    watcher.attachWatcher(kept.watcherOn("/kept"));
    kernel.reads = {record(-1, IN_Q_OVERFLOW)};
    kernel.serve(watcher);
    EXPECT_THAT(gone.seen, IsEmpty());

    kernel.numbers["/gone"] = -1;
    EXPECT_EQ("", printedBy([&] { watcher.resetState(); }));
    EXPECT_TRUE(watcher.watcherExists("/gone"));
    kernel.reads = {record(-1, IN_Q_OVERFLOW)};
    kernel.serve(watcher);
    EXPECT_THAT(gone.seen, ElementsAre(" 4000"));
    EXPECT_THAT(kept.seen, IsEmpty());
}

TEST(FileSystemWatcher_records, ResetWithoutAnInstanceIsSilentAndKeepsTheEntries) {
    FakeInotify kernel;
    FileSystemWatcher watcher;
    RecordedEvents events;
    watcher.attachWatcher(events.watcherOn("/a"));
    kernel.initFails = true;
    (void)kernel.calls();
    std::string printed;
    EXPECT_EQ("", errorsOf([&] { printed = printedBy([&] { watcher.resetState(); }); }));
    EXPECT_EQ("", printed);
    EXPECT_THAT(kernel.calls(),
                ElementsAre("remove 1000 1", "close 1000", "init = -1", "add -1 /a 300 = -1"));
    EXPECT_TRUE(watcher.watcherExists("/a"));
    kernel.initFails = false;
    watcher.resetState();
    EXPECT_THAT(kernel.calls(),
                ElementsAre("remove -1 -1", "close -1", "init = 1001", "add 1001 /a 300 = 1"));
}

} // namespace
