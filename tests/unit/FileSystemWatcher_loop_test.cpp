// The loop of FileSystemWatcher and its callbacks, with the real kernel.

#include <kvr/api/FileSystemWatcher.h>

#include "CapturedOutput.h"
#include "FileSystemWatcherFixture.h"
#include "Interposed.h"
#include "TempDir.h"

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/inotify.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::drain;
using support::interposedPoll;
using support::makeDirectory;
using support::maxQueuedEvents;
using support::printedBy;
using support::RecordedEvents;
using support::removePath;
using support::Stub;
using support::touchAndRemove;
using support::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;

using FileSystemWatcher_loop = support::FileSystemWatcherFixture;

TEST_F(FileSystemWatcher_loop, BurstOfTenThousandLosesNothing) {
    constexpr int kEvents = 10000;
    if (maxQueuedEvents() < kEvents)
        GTEST_SKIP() << "this machine queues only " << maxQueuedEvents() << " events";
    watcher.attachWatcher(events.watcherOn(directory.path(), IN_CREATE | IN_DELETE));
    std::vector<std::string> expected;
    for (int i = 0; i < kEvents / 2; ++i) {
        const std::string name = "f" + std::to_string(i);
        touchAndRemove(directory / name);
        expected.push_back(name + " 100");
        expected.push_back(name + " 200");
    }
    drain(watcher);
    EXPECT_EQ(expected, events.seen);
}

TEST_F(FileSystemWatcher_loop, OverflowIsReportedOnlyToEntriesWithoutAWatch) {
    const int limit = maxQueuedEvents();
    if (limit <= 0 || limit > 200000)
        GTEST_SKIP() << "a queue of " << limit << " events is too long to fill";
    RecordedEvents gone;
    makeDirectory(directory / "gone");
    makeDirectory(directory / "kept");
    watcher.attachWatcher(gone.watcherOnFile(directory / "gone", IN_CREATE));
    watcher.attachWatcher(events.watcherOn(directory / "kept", IN_CREATE | IN_DELETE));
    removePath(directory / "gone");
    drain(watcher); // the entry now has the number -1

    for (int i = 0; i < limit / 2 + 10; ++i)
        touchAndRemove(directory / "kept/f" + std::to_string(i));
    drain(watcher);
    EXPECT_EQ(static_cast<std::size_t>(limit), events.seen.size());
    EXPECT_EQ("f0 100", events.seen.front());
    EXPECT_THAT(gone.seen, ElementsAre("4000"));

    (void)events.take();
    writeFile(directory / "kept/after", "");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("after 100"));
}

TEST_F(FileSystemWatcher_loop, OverflowIsSilentWhileEveryEntryHasAWatch) {
    const int limit = maxQueuedEvents();
    if (limit <= 0 || limit > 200000)
        GTEST_SKIP() << "a queue of " << limit << " events is too long to fill";
    watcher.attachWatcher(events.watcherOn(directory.path(), IN_CREATE | IN_DELETE));
    for (int i = 0; i < limit / 2 + 10; ++i)
        touchAndRemove(directory / "f" + std::to_string(i));
    EXPECT_EQ("", printedBy([&] { drain(watcher); }));
    EXPECT_EQ(static_cast<std::size_t>(limit), events.seen.size());
}

TEST_F(FileSystemWatcher_loop, CallbackMayAttachAndDetach) {
    struct CallbackData {
        FileSystemWatcher* watcher;
        std::string path;
        RecordedEvents events;
    } data = {&watcher, directory / "sub", {}};
    makeDirectory(data.path);
    const auto follow = [](const Watcher& self, const std::string&, unsigned int, void* context) {
        auto* const what = static_cast<CallbackData*>(context);
        const std::string own = self.path; // the first change invalidates `self`
        what->watcher->attachWatcher(what->events.watcherOn(what->path, IN_CREATE));
        what->watcher->detachWatcher(own);
    };
    watcher.attachWatcher(Watcher(directory.path(), IN_CREATE, follow, &data));
    writeFile(directory / "a", "");
    drain(watcher);
    EXPECT_FALSE(watcher.watcherExists(directory.path()));
    EXPECT_TRUE(watcher.watcherExists(data.path));
    writeFile(directory / "b", "");
    writeFile(data.path + "/c", "");
    drain(watcher);
    EXPECT_THAT(data.events.seen, ElementsAre("c 100"));
}

TEST_F(FileSystemWatcher_loop, FlagSetBeforehandReturnsImmediately) {
    watcher.attachWatcher(events.watcherOn(directory.path(), IN_CREATE));
    writeFile(directory / "a", "");
    bool stop = true;
    watcher.run(stop);
    EXPECT_THAT(events.seen, IsEmpty());
}

TEST_F(FileSystemWatcher_loop, LoopSeesItsFlagWithinOnePass) {
    using std::chrono::steady_clock;
    int passes = 0;
    const Stub polling(interposedPoll, [&](pollfd* polled, nfds_t count, int timeout) {
        if (++passes == 2)
            watcher.stop(); // as another thread would while the loop waits
        return interposedPoll.real(polled, count, timeout);
    });
    const auto start = steady_clock::now();
    watcher.run();
    const auto elapsed = steady_clock::now() - start;
    EXPECT_EQ(2, passes);
    EXPECT_GE(elapsed, std::chrono::milliseconds(990));
    EXPECT_LT(elapsed, std::chrono::seconds(5));
}

TEST_F(FileSystemWatcher_loop, CallbackReceivesTheRegistrationAndItsContext) {
    struct Received {
        Watcher registration{"", 0, nullptr, nullptr};
        void* context = nullptr;
    } received;
    const Watcher::Callback note = [](const Watcher& registration, const std::string&, unsigned int,
                                      void* context) {
        *static_cast<Received*>(context) = {registration, context};
    };
    Watcher attached(directory.path(), IN_CREATE, note, &received);
    watcher.attachWatcher(attached);
    attached = Watcher("changed", 0, nullptr, nullptr); // the watcher has its own copy
    writeFile(directory / "a", "");
    drain(watcher);
    EXPECT_EQ(directory.path(), received.registration.path);
    EXPECT_EQ(static_cast<unsigned int>(IN_CREATE), received.registration.mask);
    EXPECT_EQ(note, received.registration.callback);
    EXPECT_EQ(&received, received.registration.context);
    EXPECT_EQ(&received, received.context);
}

TEST_F(FileSystemWatcher_loop, EventsAreServedInOrderAndEntriesInListOrder) {
    makeDirectory(directory / "a");
    makeDirectory(directory / "b");
    makeDirectory(directory / "detached");
    ASSERT_EQ(0, symlink("a", (directory / "link-to-a").c_str()));
    std::vector<std::string> order;
    const char* const names[] = {"a", "b", "link-to-a", "detached"};
    RecordedEvents recorded[4];
    for (int i = 0; i < 4; ++i) {
        recorded[i].action = [&order, i](const std::string& name) {
            order.push_back(name + std::to_string(i));
        };
        watcher.attachWatcher(recorded[i].watcherOn(directory / names[i]));
    }
    for (const char* file : {"b/x", "a/y", "detached/nobody's", "b/z"})
        writeFile(directory / file, "");
    watcher.detachWatcher(directory / "detached"); // its event is still queued
    drain(watcher);
    EXPECT_THAT(order, ElementsAre("x1", "y0", "y2", "z1"));
}

TEST_F(FileSystemWatcher_loop, StopWithinAPassLetsThePassFinish) {
    bool stop = false;
    events.action = [&](const std::string& name) {
        stop = true;
        writeFile(directory / ("unread after " + name), "");
    };
    watcher.attachWatcher(events.watcherOn(directory.path()));
    writeFile(directory / "x", "");
    writeFile(directory / "y", "");
    watcher.run(stop);
    EXPECT_THAT(events.seen, ElementsAre("x 100", "y 100"));
}

TEST_F(FileSystemWatcher_loop, EarlierStopIsForgottenByRun) {
    events.action = [&](const std::string&) { watcher.stop(); };
    watcher.attachWatcher(events.watcherOn(directory.path()));
    for (const char* name : {"x", "y"}) {
        watcher.stop();
        writeFile(directory / name, "");
        watcher.run(); // ends because the callback stops it
    }
    EXPECT_THAT(events.seen, ElementsAre("x 100", "y 100"));
}

TEST_F(FileSystemWatcher_loop, RegistrationMadeByACallbackSeesTheSameEvent) {
    const std::string samePath = directory.path() + "/"; // the kernel has one watch for both
    RecordedEvents added;
    events.action = [&](const std::string&) {
        if (!watcher.watcherExists(samePath)) {
            for (int i = 0; i < 20; ++i) // moves the list's elements to other memory
                watcher.attachWatcher(added.watcherOn(samePath));
        }
    };
    watcher.attachWatcher(events.watcherOn(directory.path()));
    writeFile(directory / "x", "");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("x 100"));
    EXPECT_EQ(20u, added.seen.size());
}

TEST_F(FileSystemWatcher_loop, EntryThatMovesUpDuringItsEventIsPassedOver) {
    RecordedEvents second;
    RecordedEvents third;
    events.action = [&](const std::string&) { watcher.detachWatcher(directory.path()); };
    watcher.attachWatcher(events.watcherOn(directory.path()));
    watcher.attachWatcher(
        second.watcherOn(directory.path() + "/")); // the kernel has one watch for all
    watcher.attachWatcher(third.watcherOn(directory.path() + "/."));
    writeFile(directory / "x", "");
    writeFile(directory / "y", "");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("x 100"));
    EXPECT_THAT(second.seen, ElementsAre("y 100"));
    EXPECT_THAT(third.seen, ElementsAre("x 100", "y 100"));
}

TEST_F(FileSystemWatcher_loop, CallbackMayDetachEverything) {
    makeDirectory(directory / "a");
    makeDirectory(directory / "b");
    events.action = [&](const std::string&) {
        watcher.detachWatcher(directory / "a");
        watcher.detachWatcher(directory / "b");
    };
    watcher.attachWatcher(events.watcherOn(directory / "a"));
    watcher.attachWatcher(events.watcherOn(directory / "b"));
    writeFile(directory / "a/x", "");
    writeFile(directory / "b/y", "");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("x 100"));
    EXPECT_FALSE(watcher.watcherExists(directory / "b"));
}

TEST_F(FileSystemWatcher_loop, ExceptionOfACallbackLeavesTheLoop) {
    events.action = [](const std::string&) { throw std::runtime_error("from the callback"); };
    watcher.attachWatcher(events.watcherOn(directory.path()));
    writeFile(directory / "x", "");
    EXPECT_THROW(drain(watcher), std::runtime_error);
    EXPECT_TRUE(watcher.watcherExists(directory.path()));
}

} // namespace
