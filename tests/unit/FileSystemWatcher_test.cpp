// Registrations and events of FileSystemWatcher, with the real kernel, in new directories.

#include <kvr/api/FileSystemWatcher.h>

#include "CapturedOutput.h"
#include "Descriptors.h"
#include "FileSystemWatcherFixture.h"
#include "TempDir.h"

#include <fstream>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <sys/inotify.h>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::drain;
using support::makeDirectory;
using support::moveTo;
using support::openDescriptors;
using support::openedSince;
using support::printedBy;
using support::RecordedEvents;
using support::removePath;
using support::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::has_virtual_destructor<FileSystemWatcher>::value, "applications derive from it");
static_assert(!std::is_polymorphic<Watcher>::value, "a plain value");
static_assert(!std::is_copy_constructible<FileSystemWatcher>::value, "it owns a descriptor");

using FileSystemWatcher_events = support::FileSystemWatcherFixture;

TEST(Watcher, KeepsWhatItIsGiven) {
    int context = 0;
    const Watcher registration("/some/path", 0x80000001u, RecordedEvents::recordEvent, &context);
    EXPECT_EQ("/some/path", registration.path);
    EXPECT_EQ(0x80000001u, registration.mask);
    EXPECT_EQ(&RecordedEvents::recordEvent, registration.callback);
    EXPECT_EQ(&context, registration.context);
}

TEST(Watcher, EqualityComparesThePathOnly) {
    int context = 0;
    const Watcher a("/a", IN_CREATE, RecordedEvents::recordEvent, &context);
    EXPECT_TRUE(a == Watcher("/a", IN_DELETE, nullptr, nullptr));
    EXPECT_FALSE(a == Watcher("/b", IN_CREATE, RecordedEvents::recordEvent, &context));
    EXPECT_FALSE(a == Watcher("/a/", IN_CREATE, RecordedEvents::recordEvent, &context));
    EXPECT_FALSE(a ==
                 Watcher(std::string("/a\0", 3), IN_CREATE, RecordedEvents::recordEvent, &context));
}

TEST(Watcher, InequalityIsTheOpposite) {
    int context = 0;
    const Watcher a("/a", IN_CREATE, RecordedEvents::recordEvent, &context);
    EXPECT_FALSE(a != Watcher("/a", IN_DELETE, nullptr, nullptr));
    EXPECT_TRUE(a != Watcher("/b", IN_CREATE, RecordedEvents::recordEvent, &context));
    EXPECT_FALSE(std::make_pair(1, a) != std::make_pair(1, Watcher("/a", 0, nullptr, nullptr)));
    EXPECT_TRUE(std::make_pair(1, a) != std::make_pair(2, a));
}

TEST_F(FileSystemWatcher_events, ReportsCreatedAndDeletedEntries) {
    watcher.attachWatcher(events.watcherOn(directory.path(), IN_CREATE | IN_DELETE));
    writeFile(directory / "file", "");
    makeDirectory(directory / "sub");
    removePath(directory / "file");
    removePath(directory / "sub");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("file 100", "sub 40000100", "file 200", "sub 40000200"));
}

TEST_F(FileSystemWatcher_events, ReportsMovedEntries) {
    makeDirectory(directory / "from");
    makeDirectory(directory / "to");
    writeFile(directory / "from/old", "");
    RecordedEvents target;
    watcher.attachWatcher(events.watcherOn(directory / "from", IN_MOVED_FROM | IN_MOVED_TO));
    watcher.attachWatcher(target.watcherOn(directory / "to", IN_MOVED_FROM | IN_MOVED_TO));
    moveTo(directory / "from/old", directory / "to/new");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("old 40"));
    EXPECT_THAT(target.seen, ElementsAre("new 80"));
}

TEST_F(FileSystemWatcher_events, ReportsModifiedEntries) {
    writeFile(directory / "file", "");
    watcher.attachWatcher(
        events.watcherOn(directory.path(), IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB));
    std::ofstream(directory / "file") << "changed";
    ASSERT_EQ(0, chmod((directory / "file").c_str(), 0600));
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("file 2", "file 8", "file 4"));
}

TEST_F(FileSystemWatcher_events, ReportsOnlyWhatTheMaskSelects) {
    watcher.attachWatcher(events.watcherOn(directory.path(), IN_DELETE));
    writeFile(directory / "file", "text");
    removePath(directory / "file");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("file 200"));
}

TEST_F(FileSystemWatcher_events, ReportsEventsOfAWatchedFileItself) {
    writeFile(directory / "file", "");
    watcher.attachWatcher(events.watcherOnFile(directory / "file", IN_MODIFY | IN_OPEN));
    std::ofstream(directory / "file", std::ios::app) << "more";
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("20", "2"));
}

TEST_F(FileSystemWatcher_events, ReportsNamesOfEveryLength) {
    watcher.attachWatcher(events.watcherOn(directory.path(), IN_CREATE));
    std::vector<std::string> expected;
    for (std::size_t length = 1; length <= 255; ++length) {
        const std::string name(length, static_cast<char>('a' + length % 26));
        writeFile(directory / name, "");
        expected.push_back(name + " 100");
    }
    drain(watcher);
    EXPECT_EQ(expected, events.seen);
}

TEST_F(FileSystemWatcher_events, MissingPathIsPrintedAndNotRegistered) {
    const std::string path = directory / "missing";
    EXPECT_EQ("Couldn't add watch to " + path + " ERROR: No such file or directory\n",
              printedBy([&] { watcher.attachWatcher(events.watcherOn(path, IN_CREATE)); }));
    EXPECT_FALSE(watcher.watcherExists(path));
}

TEST_F(FileSystemWatcher_events, EmptyMaskIsPrintedAndNotRegistered) {
    EXPECT_EQ("Couldn't add watch to " + directory.path() + " ERROR: Invalid argument\n",
              printedBy([&] { watcher.attachWatcher(events.watcherOn(directory.path(), 0)); }));
    EXPECT_FALSE(watcher.watcherExists(directory.path()));
}

TEST_F(FileSystemWatcher_events, FindsRegisteredPathsByTheirExactText) {
    EXPECT_FALSE(watcher.watcherExists(directory.path()));
    EXPECT_EQ("", printedBy([&] {
                  watcher.attachWatcher(events.watcherOn(directory.path(), IN_CREATE));
              }));
    EXPECT_TRUE(watcher.watcherExists(directory.path()));
    EXPECT_FALSE(watcher.watcherExists(directory.path() + "/"));
    EXPECT_FALSE(watcher.watcherExists(""));
    watcher.detachWatcher(directory.path());
    EXPECT_FALSE(watcher.watcherExists(directory.path()));
}

TEST_F(FileSystemWatcher_events, PathAttachedTwiceCallsBothInOrder) {
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

TEST_F(FileSystemWatcher_events, DetachingAPathAttachedTwiceEndsBoth) {
    for (int i = 0; i < 2; ++i)
        watcher.attachWatcher(events.watcherOn(directory.path(), IN_CREATE));
    watcher.detachWatcher(directory.path());
    EXPECT_FALSE(watcher.watcherExists(directory.path()));
    writeFile(directory / "a", "");
    drain(watcher);
    EXPECT_THAT(events.seen, IsEmpty());
}

TEST_F(FileSystemWatcher_events, DetachingByRegistrationComparesThePathOnly) {
    watcher.attachWatcher(events.watcherOn(directory.path(), IN_CREATE));
    watcher.detachWatcher(Watcher("/elsewhere", IN_CREATE, RecordedEvents::recordEvent, &events));
    EXPECT_TRUE(watcher.watcherExists(directory.path()));
    watcher.detachWatcher(Watcher(directory.path(), IN_ACCESS, nullptr, nullptr));
    EXPECT_FALSE(watcher.watcherExists(directory.path()));
}

TEST_F(FileSystemWatcher_events, DetachedPathCanBeAttachedAgain) {
    watcher.attachWatcher(events.watcherOn(directory.path(), IN_CREATE));
    watcher.detachWatcher(directory.path());
    watcher.attachWatcher(events.watcherOn(directory.path(), IN_CREATE));
    writeFile(directory / "a", "");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("a 100"));
}

TEST_F(FileSystemWatcher_events, PathWhoseDirectoryWasReplacedIsWatchedTwiceUnderTwoNumbers) {
    const std::string path = directory / "watched";
    RecordedEvents replaced;
    makeDirectory(path);
    watcher.attachWatcher(events.watcherOn(path, IN_CREATE));
    moveTo(path, directory / "aside");
    makeDirectory(path);
    watcher.attachWatcher(replaced.watcherOn(path, IN_CREATE));
    watcher.detachWatcher(path); // the first only
    EXPECT_TRUE(watcher.watcherExists(path));
    writeFile(directory / "aside/old", "");
    writeFile(path + "/new", "");
    drain(watcher);
    EXPECT_THAT(events.seen, IsEmpty());
    EXPECT_THAT(replaced.seen, ElementsAre("new 100"));
}

TEST_F(FileSystemWatcher_events, HoldsOneDescriptorAndLeavesNone) {
    const std::set<int> before = openDescriptors();
    const std::string path = directory / "watched";
    makeDirectory(path);
    {
        FileSystemWatcher own;
        EXPECT_EQ(1u, openedSince(before).size());
        own.attachWatcher(events.watcherOn(path, IN_CREATE));
        own.attachWatcher(events.watcherOn(directory.path(), IN_CREATE));
        for (int i = 0; i < 3; ++i)
            own.resetState();
        removePath(path);
        drain(own);
        EXPECT_EQ(1u, openedSince(before).size());
    }
    EXPECT_THAT(openedSince(before), IsEmpty());
}

} // namespace
