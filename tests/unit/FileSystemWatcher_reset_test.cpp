// Watches that FileSystemWatcher loses and restores, with the real kernel.

#include <kvr/api/FileSystemWatcher.h>

#include "CapturedOutput.h"
#include "FileSystemWatcherFixture.h"
#include "PrivateMounts.h"
#include "TempDir.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>

#include <sys/inotify.h>
#include <sys/mount.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::drain;
using support::makeDirectory;
using support::printedBy;
using support::RecordedEvents;
using support::removePath;
using support::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;

using FileSystemWatcher_reset = support::FileSystemWatcherFixture;

TEST_F(FileSystemWatcher_reset, DirectoryDeletedAndMadeAgainIsWatchedAgain) {
    const std::string path = directory / "watched";
    makeDirectory(path);
    watcher.attachWatcher(events.watcherOn(path, IN_CREATE));
    removePath(path);
    makeDirectory(path); // before the loop reads the deletion's event
    drain(watcher);
    writeFile(path + "/file", "");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("file 100"));
}

TEST_F(FileSystemWatcher_reset, DirectoryMadeAgainTooLateIsFoundByTheNextReset) {
    const std::string path = directory / "watched";
    const std::string other = directory / "other";
    makeDirectory(path);
    makeDirectory(other);
    watcher.attachWatcher(events.watcherOn(path, IN_CREATE));
    watcher.attachWatcher(events.watcherOn(other, IN_DELETE));
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

TEST_F(FileSystemWatcher_reset, DeletionItselfIsReportedBeforeTheReset) {
    const std::string path = directory / "file";
    writeFile(path, "");
    watcher.attachWatcher(events.watcherOnFile(path, IN_DELETE_SELF));
    removePath(path);
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("400")); // IN_IGNORED is not forwarded
}

TEST_F(FileSystemWatcher_reset, OneShotWatchIsRenewedByTheReset) {
    watcher.attachWatcher(events.watcherOn(directory.path(), IN_CREATE | IN_ONESHOT));
    writeFile(directory / "a", "");
    writeFile(directory / "lost", "");
    drain(watcher);
    writeFile(directory / "b", "");
    drain(watcher);
    EXPECT_THAT(events.seen, ElementsAre("a 100", "b 100"));
}

TEST_F(FileSystemWatcher_reset, UnmountIsReportedAndTheDirectoryBelowWatchedOn) {
    support::inPrivateMounts({directory.path()}, [&] {
        const std::string path = directory / "mountpoint";
        makeDirectory(path);
        ASSERT_EQ(0, mount("tavo-test", path.c_str(), "tmpfs", 0, "")) << std::strerror(errno);
        FileSystemWatcher inside;
        inside.attachWatcher(events.watcherOn(path, IN_CREATE));
        writeFile(path + "/above", "");
        drain(inside);
        ASSERT_THAT(events.take(), ElementsAre("above 100"));
        ASSERT_EQ(0, umount(path.c_str())) << std::strerror(errno);
        drain(inside);
        ASSERT_EQ(1u, events.seen.size()); // the event has no name
        EXPECT_THAT(events.take()[0], testing::EndsWith("2000"));
        writeFile(path + "/below", "");
        drain(inside);
        EXPECT_THAT(events.seen, ElementsAre("below 100"));
    });
}

TEST_F(FileSystemWatcher_reset, WatchRemovedThroughOnePathIsRestoredForTheOther) {
    writeFile(directory / "file", "");
    ASSERT_EQ(0, link((directory / "file").c_str(), (directory / "same").c_str()));
    RecordedEvents same;
    watcher.attachWatcher(events.watcherOnFile(directory / "file", IN_MODIFY));
    watcher.attachWatcher(same.watcherOnFile(directory / "same", IN_MODIFY));
    watcher.detachWatcher(directory / "file"); // the kernel has one watch for both paths
    drain(watcher);                            // the loop sees here that it was removed
    std::ofstream(directory / "file") << "text";
    drain(watcher);
    EXPECT_THAT(events.seen, IsEmpty());
    EXPECT_THAT(same.seen, ElementsAre("2"));
}

} // namespace
