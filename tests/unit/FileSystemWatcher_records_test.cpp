// How FileSystemWatcher processes the records that it reads, resets included, with a simulated
// kernel.

#include <kvr/api/FileSystemWatcher.h>

#include "CapturedOutput.h"
#include "PlayedKernel.h"

#include <stdexcept>
#include <string>
#include <vector>

#include <sys/inotify.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::errorsOf;
using support::printedBy;
using testing::ElementsAre;
using testing::IsEmpty;

} // namespace

TEST(FileSystemWatcherCalls, RecordsAreDroppedWhenNothingIsAttached) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    (void)kernel.calls();
    kernel.reads = {record(1, IN_CREATE, "x") + record(1, IN_IGNORED) + record(-1, IN_Q_OVERFLOW)};
    EXPECT_EQ("", printedBy([&] { kernel.serve(watcher); }));
    EXPECT_THAT(kernel.calls(),
                ElementsAre("poll 1000 events 1 count 1 timeout 500", "read 1000 4600",
                            "poll 1000 events 1 count 1 timeout 500"));
}

TEST(FileSystemWatcherCalls, WholeMaskReachesTheCallback) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    kernel.reads = {record(1, IN_CREATE | IN_ISDIR, "dir") + record(1, 0xffff7fffu, "all")};
    kernel.serve(watcher);
    EXPECT_THAT(recorder.seen, ElementsAre("dir 40000100", "all ffff7fff"));
}

TEST(FileSystemWatcherCalls, CallbackReceivesTheRegistrationAndItsContext) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    static const Watcher* given;
    static void* context;
    int marker = 0;
    Watcher attached(
        "/a", kMask,
        [](const Watcher& w, const std::string&, unsigned int, void* c) {
            static Watcher copy("", 0, nullptr, nullptr);
            copy = w;
            given = &copy;
            context = c;
        },
        &marker);
    watcher.attachWatcher(attached);
    const auto callback = attached.callback;
    attached = Watcher("changed", 0, nullptr, nullptr); // the watcher has its own copy
    kernel.reads = {record(1, IN_DELETE, "x")};
    kernel.serve(watcher);
    ASSERT_NE(nullptr, given);
    EXPECT_EQ("/a", given->path);
    EXPECT_EQ(kMask, given->mask);
    EXPECT_EQ(callback, given->callback);
    EXPECT_EQ(&marker, given->context);
    EXPECT_EQ(&marker, context);
}

TEST(FileSystemWatcherCalls, RecordsAreServedInOrderAndEntriesInListOrder) {
    PlayedKernel kernel;
    kernel.numbers = {{"/a", 1}, {"/b", 2}, {"/link-to-a", 1}};
    FileSystemWatcher watcher;
    std::vector<std::string> order;
    std::vector<Recorder> recorders(3);
    const char* const paths[] = {"/a", "/b", "/link-to-a"};
    for (std::size_t i = 0; i < 3; ++i) {
        recorders[i].action = [&order, i](const std::string& name) {
            order.push_back(name + std::to_string(i));
        };
        watcher.attachWatcher(recorders[i].of(paths[i]));
    }
    kernel.reads = {record(2, IN_CREATE, "x") + record(1, IN_CREATE, "y"),
                    record(7, IN_CREATE, "nobody's") + record(2, IN_CREATE, "z")};
    kernel.serve(watcher);
    EXPECT_THAT(order, ElementsAre("x1", "y0", "y2", "z1"));
}

TEST(FileSystemWatcherCalls, NameEndsAtItsFirstNul) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    kernel.reads = {rawRecord(1, IN_CREATE, std::string("cut\0here", 8), 16)};
    kernel.serve(watcher);
    EXPECT_THAT(recorder.seen, ElementsAre("cut 100"));
}

TEST(FileSystemWatcherCalls, NameIsNotBoundedByTheRecordsLength) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    // The name has no NUL, so it continues into the next header, which begins with the byte 1.
    kernel.reads = {rawRecord(1, IN_CREATE, std::string(16, 'n'), 16) + record(1, IN_DELETE, "x")};
    kernel.serve(watcher);
    EXPECT_THAT(recorder.seen, ElementsAre(std::string(16, 'n') + "\1 100", "x 200"));
}

TEST(FileSystemWatcherCalls, RecordWithoutANameReadsWhatFollows) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    kernel.numbers["/b"] = 0x00434241; // "ABC" in the next header, on a little-endian machine
    watcher.attachWatcher(recorder.of("/b"));
    kernel.reads = {record(1, IN_MODIFY) + record(0x00434241, IN_MODIFY)};
    kernel.serve(watcher);
    EXPECT_THAT(recorder.seen, ElementsAre("ABC 2", " 2"));
}

TEST(FileSystemWatcherCalls, NameThatFillsTheBufferEndsWithIt) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    const std::string name(kBufferSize - sizeof(inotify_event), 'n');
    kernel.reads = {rawRecord(1, IN_CREATE, name, name.size())};
    kernel.serve(watcher);
    EXPECT_THAT(recorder.seen, ElementsAre(name + " 100"));
}

TEST(FileSystemWatcherCalls, NamelessRecordAtTheBuffersEndHasAnEmptyName) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    const std::size_t filler = kBufferSize - 2 * sizeof(inotify_event);
    kernel.reads = {std::string(kBufferSize, 'j'), // as if left by an earlier iteration
                    rawRecord(9, IN_MODIFY, std::string(filler, 'f'), filler) +
                        record(1, IN_MODIFY)};
    kernel.serve(watcher);
    EXPECT_THAT(recorder.seen, ElementsAre(" 2"));
}

TEST(FileSystemWatcherCalls, DroppedWatchRebuildsEveryWatchOnAFreshInstance) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    for (const char* path : {"/a", "/b", "/a"})
        watcher.attachWatcher(recorder.of(path));
    kernel.numbers = {{"/a", 8}, {"/b", 9}}; // the numbers on the new instance
    kernel.reads = {record(1, IN_IGNORED | IN_ISDIR)};
    (void)kernel.calls();
    EXPECT_EQ("", printedBy([&] { kernel.serve(watcher); }));
    EXPECT_THAT(kernel.calls(),
                ElementsAre("poll 1000 events 1 count 1 timeout 500", "read 1000 4600",
                            "remove 1000 1", "remove 1000 2", "remove 1000 1", "close 1000",
                            "init = 1001", "add 1001 /a 300 = 8", "add 1001 /b 300 = 9",
                            "add 1001 /a 300 = 8", "poll 1001 events 1 count 1 timeout 500"));
    EXPECT_THAT(recorder.seen, IsEmpty());
    kernel.reads = {record(9, IN_CREATE, "b") + record(1, IN_CREATE, "old")};
    kernel.serve(watcher);
    EXPECT_THAT(recorder.seen, ElementsAre("b 100"));
}

TEST(FileSystemWatcherCalls, DroppedWatchOfNobodyIsIgnored) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    kernel.reads = {record(5, IN_IGNORED)};
    (void)kernel.calls();
    kernel.serve(watcher);
    EXPECT_THAT(kernel.calls(),
                ElementsAre("poll 1000 events 1 count 1 timeout 500", "read 1000 4600",
                            "poll 1000 events 1 count 1 timeout 500"));
}

TEST(FileSystemWatcherCalls, EntriesBehindTheDroppedOneAreComparedByTheirNewNumbers) {
    PlayedKernel kernel;
    kernel.numbers = {{"/gone", 1}, {"/b", 2}, {"/c", 3}};
    FileSystemWatcher watcher;
    Recorder recorder;
    for (const char* path : {"/gone", "/b", "/c"})
        watcher.attachWatcher(recorder.of(path));
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

TEST(FileSystemWatcherCalls, RecordsBehindAResetAreMatchedByNumberAgainstTheNewOnes) {
    PlayedKernel kernel;
    kernel.numbers = {{"/a", 1}, {"/b", 2}};
    FileSystemWatcher watcher;
    Recorder a;
    Recorder b;
    watcher.attachWatcher(a.of("/a"));
    watcher.attachWatcher(b.of("/b"));
    kernel.numbers = {{"/a", 2}, {"/b", 3}};
    kernel.reads = {record(1, IN_CREATE, "before") + record(1, IN_IGNORED) +
                    record(2, IN_CREATE, "written for b")};
    kernel.serve(watcher);
    EXPECT_THAT(a.seen, ElementsAre("before 100", "written for b 100"));
    EXPECT_THAT(b.seen, IsEmpty());
}

TEST(FileSystemWatcherCalls, EntryThatCouldNotBeRebuiltGetsTheNoticeOfLostEvents) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder gone;
    Recorder kept;
    watcher.attachWatcher(gone.of("/gone"));
    watcher.attachWatcher(kept.of("/kept"));
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

TEST(FileSystemWatcherCalls, ResetWithoutAnInstanceIsSilentAndKeepsTheEntries) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
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

TEST(FileSystemWatcherCalls, StopWithinAPassLetsThePassFinish) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    bool stop = false;
    recorder.action = [&](const std::string&) { stop = true; };
    watcher.attachWatcher(recorder.of("/a"));
    kernel.reads = {record(1, IN_CREATE, "x") + record(1, IN_CREATE, "y"),
                    record(1, IN_CREATE, "unread")};
    (void)kernel.calls();
    watcher.run(stop);
    EXPECT_THAT(recorder.seen, ElementsAre("x 100", "y 100"));
    EXPECT_THAT(kernel.calls(),
                ElementsAre("poll 1000 events 1 count 1 timeout 500", "read 1000 4600"));
}

TEST(FileSystemWatcherCalls, RegistrationMadeByACallbackSeesTheSameRecord) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder first;
    Recorder added;
    first.action = [&](const std::string&) {
        if (!watcher.watcherExists("/b")) {
            for (int i = 0; i < 20; ++i) // moves the list's elements to other memory
                watcher.attachWatcher(added.of("/b"));
        }
    };
    kernel.numbers = {{"/a", 1}, {"/b", 1}};
    watcher.attachWatcher(first.of("/a"));
    kernel.reads = {record(1, IN_CREATE, "x")};
    kernel.serve(watcher);
    EXPECT_THAT(first.seen, ElementsAre("x 100"));
    EXPECT_EQ(20u, added.seen.size());
}

TEST(FileSystemWatcherCalls, EntryThatMovesUpDuringItsRecordIsPassedOver) {
    PlayedKernel kernel;
    kernel.numbers = {{"/p", 1}, {"/q", 1}, {"/r", 1}};
    FileSystemWatcher watcher;
    Recorder p;
    Recorder q;
    Recorder r;
    p.action = [&](const std::string&) { watcher.detachWatcher("/p"); };
    watcher.attachWatcher(p.of("/p"));
    watcher.attachWatcher(q.of("/q"));
    watcher.attachWatcher(r.of("/r"));
    kernel.reads = {record(1, IN_CREATE, "x") + record(1, IN_CREATE, "y")};
    kernel.serve(watcher);
    EXPECT_THAT(p.seen, ElementsAre("x 100"));
    EXPECT_THAT(q.seen, ElementsAre("y 100"));
    EXPECT_THAT(r.seen, ElementsAre("x 100", "y 100"));
}

TEST(FileSystemWatcherCalls, CallbackMayDetachEverything) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    recorder.action = [&](const std::string&) {
        watcher.detachWatcher("/a");
        watcher.detachWatcher("/b");
    };
    watcher.attachWatcher(recorder.of("/a"));
    watcher.attachWatcher(recorder.of("/b"));
    kernel.reads = {record(1, IN_CREATE, "x") + record(2, IN_CREATE, "y")};
    kernel.serve(watcher);
    EXPECT_THAT(recorder.seen, ElementsAre("x 100"));
    EXPECT_FALSE(watcher.watcherExists("/b"));
}

TEST(FileSystemWatcherCalls, ExceptionOfACallbackLeavesTheLoop) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    recorder.action = [](const std::string&) { throw std::runtime_error("from the callback"); };
    watcher.attachWatcher(recorder.of("/a"));
    kernel.reads = {record(1, IN_CREATE, "x")};
    EXPECT_THROW(kernel.serve(watcher), std::runtime_error);
    EXPECT_TRUE(watcher.watcherExists("/a"));
}
