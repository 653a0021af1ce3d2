// Which registrations detachWatcher() keeps, with the real kernel.

#include <kvr/api/FileSystemWatcher.h>

#include "CapturedOutput.h"
#include "FileSystemWatcherFixture.h"
#include "Interposed.h"
#include "TempDir.h"

#include <deque>
#include <string>

#include <unistd.h>

#include <gtest/gtest.h>

namespace {

using support::drain;
using support::interposedInotifyRmWatch;
using support::makeDirectory;
using support::moveTo;
using support::printedBy;
using support::RecordedEvents;
using support::touchAndRemove;

/// A watcher with registrations whose paths are single letters in a directory.
class Registrations {
public:
    void attach(const std::string& letters) {
        for (const char letter : letters) {
            const std::string path = pathOf(letter);
            if (!support::exists(path))
                makeDirectory(path);
            watcher.attachWatcher(attached.emplace_back().watcherOn(path));
        }
    }

    void detach(const std::string& path) {
        const support::Stub removing(interposedInotifyRmWatch, [this](int descriptor, int watch) {
            ++watchesRemoved;
            return interposedInotifyRmWatch.real(descriptor, watch);
        });
        watcher.detachWatcher(path);
    }

    /// Returns the positions (from 0) of the registrations that are still in the list. A reset
    /// watches the path of each again.
    std::string left() {
        watcher.resetState();
        for (const char letter : {'A', 'B', 'C'}) {
            if (support::exists(pathOf(letter)))
                touchAndRemove(pathOf(letter) + "/file");
        }
        drain(watcher);
        std::string positions;
        for (std::size_t i = 0; i < attached.size(); ++i) {
            if (!attached[i].take().empty())
                positions += std::to_string(i);
        }
        return positions;
    }

    std::string pathOf(char letter) const { return directory / std::string(1, letter); }

    support::TempDir directory;
    FileSystemWatcher watcher;
    std::deque<RecordedEvents> attached;
    int watchesRemoved = 0;
};

/// Attaches these paths and returns what is left after A is detached.
std::string leftWithoutA(const std::string& letters) {
    Registrations registrations;
    registrations.attach(letters);
    registrations.detach(registrations.pathOf('A'));
    return registrations.left();
}

TEST(FileSystemWatcher_detach, RemovesTheOnlyEntryOfThePath) {
    Registrations registrations;
    registrations.attach("ABC");
    registrations.detach(registrations.pathOf('B'));
    EXPECT_EQ(1, registrations.watchesRemoved);
    EXPECT_EQ("02", registrations.left());
}

TEST(FileSystemWatcher_detach, RemovesAllEntriesOfThePathButTheirWatchOnce) {
    Registrations registrations;
    registrations.attach("AAA");
    registrations.detach(registrations.pathOf('A'));
    EXPECT_EQ(1, registrations.watchesRemoved);
    EXPECT_EQ("", registrations.left());
}

TEST(FileSystemWatcher_detach, KeepsSingleEntriesBehindRemovedOnes) {
    EXPECT_EQ("2", leftWithoutA("AAB"));
    EXPECT_EQ("12", leftWithoutA("ABC"));
}

TEST(FileSystemWatcher_detach, RemovesTheSecondOfTwoEqualEntriesThatMovedUp) {
    EXPECT_EQ("2", leftWithoutA("AABB"));
    EXPECT_EQ("1", leftWithoutA("ABB"));
    EXPECT_EQ("1", leftWithoutA("ABBBB"));
}

TEST(FileSystemWatcher_detach, ComparesAllLaterEntriesWithTheOneThatMovedUp) {
    EXPECT_EQ("12", leftWithoutA("ABCB"));
    EXPECT_EQ("123", leftWithoutA("ABCC"));
}

TEST(FileSystemWatcher_detach, KeepsALaterEntryOfThePathOnceAnotherMovedUp) {
    EXPECT_EQ("12", leftWithoutA("ABA"));
    EXPECT_EQ("12", leftWithoutA("ABAB"));
}

TEST(FileSystemWatcher_detach, LeavesEarlierEntriesUnchanged) {
    EXPECT_EQ("02", leftWithoutA("CABB"));
    EXPECT_EQ("01", leftWithoutA("BBA"));
    EXPECT_EQ("013", leftWithoutA("BBAB"));
}

TEST(FileSystemWatcher_detach, KeepsEntriesOfThePathThatHaveAnotherWatch) {
    Registrations registrations;
    const std::string path = registrations.pathOf('A');
    registrations.attach("A");
    moveTo(path, registrations.directory / "aside");
    registrations.attach("ABB"); // this A is a new directory
    registrations.detach(path);
    EXPECT_EQ(1, registrations.watchesRemoved);
    EXPECT_EQ("123", registrations.left());
}

TEST(FileSystemWatcher_detach, KeepsEntriesOfTheWatchThatHaveAnotherPath) {
    Registrations registrations;
    registrations.attach("A");
    ASSERT_EQ(0, symlink("A", registrations.pathOf('B').c_str()));
    registrations.attach("B");
    registrations.detach(registrations.pathOf('A'));
    EXPECT_EQ("1", registrations.left());
}

TEST(FileSystemWatcher_detach, DoesNothingWhenThePathIsUnknown) {
    Registrations registrations;
    registrations.attach("AB");
    EXPECT_EQ("", printedBy([&] {
                  registrations.detach(registrations.pathOf('C'));
                  registrations.detach(registrations.pathOf('A') + "/");
                  registrations.detach("");
              }));
    EXPECT_EQ(0, registrations.watchesRemoved);
    EXPECT_EQ("01", registrations.left());
}

} // namespace
