// FileSystemWatcher with the real kernel, in new directories.

#include <kvr/api/FileSystemWatcher.h>

#include "CapturedOutput.h"
#include "Descriptors.h"
#include "PrivateMounts.h"
#include "ScriptedInotify.h"
#include "TempDir.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::errorsOf;
using support::openDescriptors;
using support::openedSince;
using support::printedBy;
using support::readFile;
using support::TempDir;
using support::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::has_virtual_destructor<FileSystemWatcher>::value, "applications derive from it");
static_assert(!std::is_polymorphic<Watcher>::value, "a plain value");
static_assert(!std::is_copy_constructible<FileSystemWatcher>::value, "it owns a descriptor");

/// What the callbacks received, as "name mask" with the mask in hexadecimal.
struct Events {
    std::vector<std::string> seen;

    static void note(const Watcher&, const std::string& name, unsigned int mask, void* context) {
        std::ostringstream line;
        line << name << ' ' << std::hex << mask;
        static_cast<Events*>(context)->seen.push_back(line.str());
    }

    /// For watches on a file itself: their events have no name.
    static void noteMask(const Watcher&, const std::string&, unsigned int mask, void* context) {
        std::ostringstream line;
        line << std::hex << mask;
        static_cast<Events*>(context)->seen.push_back(line.str());
    }

    Watcher of(const std::string& path, unsigned int mask) {
        return Watcher(path, mask, note, this);
    }
    Watcher ofItself(const std::string& path, unsigned int mask) {
        return Watcher(path, mask, noteMask, this);
    }

    std::vector<std::string> taken() {
        std::vector<std::string> result;
        result.swap(seen);
        return result;
    }
};

/// Runs the loop until the kernel has no more events. Earlier events are queued already, so the
/// loop need not wait.
void drain(FileSystemWatcher& watcher) {
    bool stop = false;
    InotifyCalls calls;
    calls.poll = [&](pollfd* polled, nfds_t count, int) {
        const int ready = kernelPoll(polled, count, 0);
        stop = ready <= 0;
        return ready;
    };
    const ScriptedInotify scripted(calls);
    watcher.run(stop);
}

void makeDirectory(const std::string& path) {
    ASSERT_EQ(0, mkdir(path.c_str(), 0755)) << path << ": " << std::strerror(errno);
}

void moveTo(const std::string& from, const std::string& to) {
    ASSERT_EQ(0, std::rename(from.c_str(), to.c_str())) << from << ": " << std::strerror(errno);
}

void removePath(const std::string& path) {
    ASSERT_EQ(0, std::remove(path.c_str())) << path << ": " << std::strerror(errno);
}

/// Creates and removes a file, which causes two events.
void touchAndRemove(const std::string& path) {
    const int file = open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    ASSERT_NE(-1, file) << path;
    close(file);
    ASSERT_EQ(0, unlink(path.c_str()));
}

int maxQueuedEvents() {
    int limit = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
    return limit;
}

class FileSystemWatcherTest : public testing::Test {
protected:
    TempDir directory;
    FileSystemWatcher watcher;
    Events events;
};

} // namespace

TEST(Watcher, KeepsWhatItIsGiven) {
    int context = 0;
    const Watcher registration("/some/path", 0x80000001u, Events::note, &context);
    EXPECT_EQ("/some/path", registration.path);
    EXPECT_EQ(0x80000001u, registration.mask);
    EXPECT_EQ(&Events::note, registration.callback);
    EXPECT_EQ(&context, registration.context);
}

TEST(Watcher, EqualityLooksAtThePathAlone) {
    int context = 0;
    const Watcher a("/a", IN_CREATE, Events::note, &context);
    EXPECT_TRUE(a == Watcher("/a", IN_DELETE, nullptr, nullptr));
    EXPECT_FALSE(a == Watcher("/b", IN_CREATE, Events::note, &context));
    EXPECT_FALSE(a == Watcher("/a/", IN_CREATE, Events::note, &context));
    EXPECT_FALSE(a == Watcher(std::string("/a\0", 3), IN_CREATE, Events::note, &context));
}

TEST(Watcher, InequalityIsTheOpposite) {
    int context = 0;
    const Watcher a("/a", IN_CREATE, Events::note, &context);
    EXPECT_FALSE(a != Watcher("/a", IN_DELETE, nullptr, nullptr));
    EXPECT_TRUE(a != Watcher("/b", IN_CREATE, Events::note, &context));
    EXPECT_FALSE(std::make_pair(1, a) != std::make_pair(1, Watcher("/a", 0, nullptr, nullptr)));
    EXPECT_TRUE(std::make_pair(1, a) != std::make_pair(2, a));
}

TEST_F(FileSystemWatcherTest, ReportsCreatedAndDeletedEntries) {
    watcher.attachWatcher(events.of(directory.path(), IN_CREATE | IN_DELETE));
    writeFile(directory / "file", "");
    makeDirectory(directory / "sub");
    removePath(directory / "file");
    removePath(directory / "sub");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("file 100", "sub 40000100", "file 200", "sub 40000200"));
}

TEST_F(FileSystemWatcherTest, ReportsMovedEntries) {
    makeDirectory(directory / "from");
    makeDirectory(directory / "to");
    writeFile(directory / "from/old", "");
    Events target;
    watcher.attachWatcher(events.of(directory / "from", IN_MOVED_FROM | IN_MOVED_TO));
    watcher.attachWatcher(target.of(directory / "to", IN_MOVED_FROM | IN_MOVED_TO));
    moveTo(directory / "from/old", directory / "to/new");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("old 40"));
    EXPECT_THAT(target.seen, ElementsAre("new 80"));
}

TEST_F(FileSystemWatcherTest, ReportsModifiedEntries) {
    writeFile(directory / "file", "");
    watcher.attachWatcher(events.of(directory.path(), IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB));
    std::ofstream(directory / "file") << "changed";
    ASSERT_EQ(0, chmod((directory / "file").c_str(), 0600));
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("file 2", "file 8", "file 4"));
}

TEST_F(FileSystemWatcherTest, ReportsOnlyWhatTheMaskSelects) {
    watcher.attachWatcher(events.of(directory.path(), IN_DELETE));
    writeFile(directory / "file", "text");
    removePath(directory / "file");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("file 200"));
}

TEST_F(FileSystemWatcherTest, ReportsEventsOfAWatchedFileItself) {
    writeFile(directory / "file", "");
    watcher.attachWatcher(events.ofItself(directory / "file", IN_MODIFY | IN_OPEN));
    std::ofstream(directory / "file", std::ios::app) << "more";
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("20", "2"));
}

TEST_F(FileSystemWatcherTest, ReportsNamesOfEveryLength) {
    watcher.attachWatcher(events.of(directory.path(), IN_CREATE));
    std::vector<std::string> expected;
    for (std::size_t length = 1; length <= 255; ++length) {
        const std::string name(length, static_cast<char>('a' + length % 26));
        writeFile(directory / name, "");
        expected.push_back(name + " 100");
    }
    drain(watcher);
    EXPECT_EQ(expected, events.seen);
}

TEST_F(FileSystemWatcherTest, MissingPathIsPrintedAndNotRegistered) {
    const std::string path = directory / "missing";
    EXPECT_EQ("Couldn't add watch to " + path + " ERROR: No such file or directory\n",
              printedBy([&] { watcher.attachWatcher(events.of(path, IN_CREATE)); }));
    EXPECT_FALSE(watcher.watcherExists(path));
}

TEST_F(FileSystemWatcherTest, EmptyMaskIsPrintedAndNotRegistered) {
    EXPECT_EQ("Couldn't add watch to " + directory.path() + " ERROR: Invalid argument\n",
              printedBy([&] { watcher.attachWatcher(events.of(directory.path(), 0)); }));
    EXPECT_FALSE(watcher.watcherExists(directory.path()));
}

TEST_F(FileSystemWatcherTest, KnowsRegisteredPathsByTheirExactText) {
    EXPECT_FALSE(watcher.watcherExists(directory.path()));
    EXPECT_EQ("",
              printedBy([&] { watcher.attachWatcher(events.of(directory.path(), IN_CREATE)); }));
    EXPECT_TRUE(watcher.watcherExists(directory.path()));
    EXPECT_FALSE(watcher.watcherExists(directory.path() + "/"));
    EXPECT_FALSE(watcher.watcherExists(""));
    watcher.detachWatcher(directory.path());
    EXPECT_FALSE(watcher.watcherExists(directory.path()));
}

TEST_F(FileSystemWatcherTest, PathAttachedTwiceCallsBothInOrder) {
    std::vector<std::string> order;
    const auto first = [](const Watcher&, const std::string& name, unsigned int, void* context) {
        static_cast<std::vector<std::string>*>(context)->push_back("first " + name);
    };
    const auto second = [](const Watcher&, const std::string& name, unsigned int, void* context) {
        static_cast<std::vector<std::string>*>(context)->push_back("second " + name);
    };
    watcher.attachWatcher(Watcher(directory.path(), IN_CREATE, first, &order));
    watcher.attachWatcher(Watcher(directory.path(), IN_CREATE, second, &order));
    writeFile(directory / "a", "");
    writeFile(directory / "b", "");
    drain(watcher);
    EXPECT_THAT(order, ElementsAre("first a", "second a", "first b", "second b"));
}

TEST_F(FileSystemWatcherTest, DetachingAPathAttachedTwiceEndsBoth) {
    for (int i = 0; i < 2; ++i)
        watcher.attachWatcher(events.of(directory.path(), IN_CREATE));
    watcher.detachWatcher(directory.path());
    EXPECT_FALSE(watcher.watcherExists(directory.path()));
    writeFile(directory / "a", "");
    drain(watcher);
    EXPECT_THAT(events.seen, IsEmpty());
}

TEST_F(FileSystemWatcherTest, DetachingByRegistrationLooksAtThePathAlone) {
    watcher.attachWatcher(events.of(directory.path(), IN_CREATE));
    watcher.detachWatcher(Watcher("/elsewhere", IN_CREATE, Events::note, &events));
    EXPECT_TRUE(watcher.watcherExists(directory.path()));
    watcher.detachWatcher(Watcher(directory.path(), IN_ACCESS, nullptr, nullptr));
    EXPECT_FALSE(watcher.watcherExists(directory.path()));
}

TEST_F(FileSystemWatcherTest, DetachedPathCanBeAttachedAgain) {
    watcher.attachWatcher(events.of(directory.path(), IN_CREATE));
    watcher.detachWatcher(directory.path());
    watcher.attachWatcher(events.of(directory.path(), IN_CREATE));
    writeFile(directory / "a", "");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("a 100"));
}

TEST_F(FileSystemWatcherTest, PathWhoseDirectoryWasReplacedIsWatchedTwiceUnderTwoNumbers) {
    const std::string path = directory / "watched";
    Events replaced;
    makeDirectory(path);
    watcher.attachWatcher(events.of(path, IN_CREATE));
    moveTo(path, directory / "aside");
    makeDirectory(path);
    watcher.attachWatcher(replaced.of(path, IN_CREATE));
    watcher.detachWatcher(path); // the first only
    EXPECT_TRUE(watcher.watcherExists(path));
    writeFile(directory / "aside/old", "");
    writeFile(path + "/new", "");
    drain(watcher);
    EXPECT_THAT(events.seen, IsEmpty());
    EXPECT_THAT(replaced.seen, ElementsAre("new 100"));
}

TEST_F(FileSystemWatcherTest, WatchRemovedThroughOnePathIsRestoredForTheOther) {
    writeFile(directory / "file", "");
    ASSERT_EQ(0, link((directory / "file").c_str(), (directory / "same").c_str()));
    Events same;
    watcher.attachWatcher(events.ofItself(directory / "file", IN_MODIFY));
    watcher.attachWatcher(same.ofItself(directory / "same", IN_MODIFY));
    watcher.detachWatcher(directory / "file"); // the kernel has one watch for both paths
    drain(watcher);                            // the loop sees here that it was removed
    std::ofstream(directory / "file") << "text";
    drain(watcher);
    EXPECT_THAT(events.seen, IsEmpty());
    EXPECT_THAT(same.seen, ElementsAre("2"));
}

TEST_F(FileSystemWatcherTest, DirectoryDeletedAndMadeAgainIsWatchedAgain) {
    const std::string path = directory / "watched";
    makeDirectory(path);
    watcher.attachWatcher(events.of(path, IN_CREATE));
    removePath(path);
    makeDirectory(path); // before the loop reads the deletion's event
    drain(watcher);
    writeFile(path + "/file", "");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("file 100"));
}

TEST_F(FileSystemWatcherTest, DirectoryMadeAgainTooLateIsFoundByTheNextReset) {
    const std::string path = directory / "watched";
    const std::string other = directory / "other";
    makeDirectory(path);
    makeDirectory(other);
    watcher.attachWatcher(events.of(path, IN_CREATE));
    watcher.attachWatcher(events.of(other, IN_DELETE));
    removePath(path);
    EXPECT_EQ("", printedBy([&] { drain(watcher); }));
    EXPECT_TRUE(watcher.watcherExists(path));

    makeDirectory(path);
    writeFile(path + "/unseen", "");
    drain(watcher);
    EXPECT_THAT(events.seen, IsEmpty());

    removePath(other); // a dropped watch rebuilds all watches
    drain(watcher);
    writeFile(path + "/seen", "");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("seen 100"));
}

TEST_F(FileSystemWatcherTest, DeletionItselfIsReportedBeforeTheReset) {
    const std::string path = directory / "file";
    writeFile(path, "");
    watcher.attachWatcher(events.ofItself(path, IN_DELETE_SELF));
    removePath(path);
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("400")); // IN_IGNORED is not forwarded
}

TEST_F(FileSystemWatcherTest, OneShotWatchIsRenewedByTheReset) {
    watcher.attachWatcher(events.of(directory.path(), IN_CREATE | IN_ONESHOT));
    writeFile(directory / "a", "");
    writeFile(directory / "lost", "");
    drain(watcher);
    writeFile(directory / "b", "");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("a 100", "b 100"));
}

TEST_F(FileSystemWatcherTest, UnmountIsReportedAndTheDirectoryBelowWatchedOn) {
    support::inPrivateMounts({directory.path()}, [&] {
        const std::string path = directory / "mountpoint";
        makeDirectory(path);
        ASSERT_EQ(0, mount("tavo-test", path.c_str(), "tmpfs", 0, "")) << std::strerror(errno);
        FileSystemWatcher inside;
        inside.attachWatcher(events.of(path, IN_CREATE));
        writeFile(path + "/above", "");
        drain(inside);
        ASSERT_THAT(events.taken(), ElementsAre("above 100"));
        ASSERT_EQ(0, umount(path.c_str())) << std::strerror(errno);
        drain(inside);
        ASSERT_EQ(1u, events.seen.size()); // the event has no name
        EXPECT_THAT(events.taken()[0], testing::EndsWith("2000"));
        writeFile(path + "/below", "");
        drain(inside);
        EXPECT_THAT(events.seen, ElementsAre("below 100"));
    });
}

TEST_F(FileSystemWatcherTest, BurstOfTenThousandLosesNothing) {
    constexpr int kEvents = 10000;
    if (maxQueuedEvents() < kEvents)
        GTEST_SKIP() << "this machine queues only " << maxQueuedEvents() << " events";
    watcher.attachWatcher(events.of(directory.path(), IN_CREATE | IN_DELETE));
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

TEST_F(FileSystemWatcherTest, OverflowIsReportedOnlyToEntriesWithoutAWatch) {
    const int limit = maxQueuedEvents();
    if (limit <= 0 || limit > 200000)
        GTEST_SKIP() << "a queue of " << limit << " events is too long to fill";
    Events gone;
    makeDirectory(directory / "gone");
    makeDirectory(directory / "kept");
    watcher.attachWatcher(gone.ofItself(directory / "gone", IN_CREATE));
    watcher.attachWatcher(events.of(directory / "kept", IN_CREATE | IN_DELETE));
    removePath(directory / "gone");
    drain(watcher); // the entry now has the number -1

    for (int i = 0; i < limit / 2 + 10; ++i)
        touchAndRemove(directory / "kept/f" + std::to_string(i));
    drain(watcher);
    EXPECT_EQ(static_cast<std::size_t>(limit), events.seen.size());
    EXPECT_EQ("f0 100", events.seen.front());
    EXPECT_THAT(gone.seen, ElementsAre("4000"));

    (void)events.taken();
    writeFile(directory / "kept/after", "");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("after 100"));
}

TEST_F(FileSystemWatcherTest, OverflowIsSilentWhileEveryEntryHasAWatch) {
    const int limit = maxQueuedEvents();
    if (limit <= 0 || limit > 200000)
        GTEST_SKIP() << "a queue of " << limit << " events is too long to fill";
    watcher.attachWatcher(events.of(directory.path(), IN_CREATE | IN_DELETE));
    for (int i = 0; i < limit / 2 + 10; ++i)
        touchAndRemove(directory / "f" + std::to_string(i));
    EXPECT_EQ("", printedBy([&] { drain(watcher); }));
    EXPECT_EQ(static_cast<std::size_t>(limit), events.seen.size());
}

TEST_F(FileSystemWatcherTest, CallbackMayAttachAndDetach) {
    struct Scene {
        FileSystemWatcher* watcher;
        std::string path;
        Events events;
    } scene = {&watcher, directory / "sub", {}};
    makeDirectory(scene.path);
    const auto follow = [](const Watcher& self, const std::string&, unsigned int, void* context) {
        auto* const what = static_cast<Scene*>(context);
        const std::string own = self.path; // the first change invalidates `self`
        what->watcher->attachWatcher(what->events.of(what->path, IN_CREATE));
        what->watcher->detachWatcher(own);
    };
    watcher.attachWatcher(Watcher(directory.path(), IN_CREATE, follow, &scene));
    writeFile(directory / "a", "");
    drain(watcher);
    EXPECT_FALSE(watcher.watcherExists(directory.path()));
    EXPECT_TRUE(watcher.watcherExists(scene.path));
    writeFile(directory / "b", "");
    writeFile(scene.path + "/c", "");
    drain(watcher);
    EXPECT_THAT(scene.events.seen, ElementsAre("c 100"));
}

TEST_F(FileSystemWatcherTest, FlagSetBeforehandReturnsImmediately) {
    watcher.attachWatcher(events.of(directory.path(), IN_CREATE));
    writeFile(directory / "a", "");
    bool stop = true;
    watcher.run(stop);
    EXPECT_THAT(events.seen, IsEmpty());
}

TEST_F(FileSystemWatcherTest, LoopSeesItsFlagWithinOnePass) {
    using std::chrono::steady_clock;
    int passes = 0;
    InotifyCalls calls;
    calls.poll = [&](pollfd* polled, nfds_t count, int timeout) {
        if (++passes == 2)
            watcher.stop(); // as another thread would while the loop waits
        return kernelPoll(polled, count, timeout);
    };
    const ScriptedInotify scripted(calls);
    const auto start = steady_clock::now();
    watcher.run();
    const auto elapsed = steady_clock::now() - start;
    EXPECT_EQ(2, passes);
    EXPECT_GE(elapsed, std::chrono::milliseconds(990));
    EXPECT_LT(elapsed, std::chrono::seconds(5));
}

TEST_F(FileSystemWatcherTest, HoldsOneDescriptorAndLeavesNone) {
    const std::set<int> before = openDescriptors();
    const std::string path = directory / "watched";
    makeDirectory(path);
    {
        FileSystemWatcher own;
        EXPECT_EQ(1u, openedSince(before).size());
        own.attachWatcher(events.of(path, IN_CREATE));
        own.attachWatcher(events.of(directory.path(), IN_CREATE));
        for (int i = 0; i < 3; ++i)
            own.resetState();
        removePath(path);
        drain(own);
        EXPECT_EQ(1u, openedSince(before).size());
    }
    EXPECT_THAT(openedSince(before), IsEmpty());
}
