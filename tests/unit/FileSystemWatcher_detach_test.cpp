// Which registrations detachWatcher() keeps, with watch numbers chosen by the test.

#include <kvr/api/FileSystemWatcher.h>

#include "CapturedOutput.h"
#include "PlayedKernel.h"

#include <set>
#include <string>
#include <vector>

#include <sys/inotify.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::printedBy;
using testing::ElementsAre;
using testing::IsEmpty;

/// Attaches one registration per letter, whose path is the letter, and detaches `detached`. Returns
/// the positions (from 0) of the registrations that are still called. `numbers` are the watch
/// numbers, one per registration.
class Detaching : public testing::Test {
protected:
    std::string left(const std::string& letters, const std::vector<int>& numbers,
                     const std::string& detached) {
        std::vector<Recorder> recorders(letters.size());
        FileSystemWatcher watcher;
        for (std::size_t i = 0; i < letters.size(); ++i) {
            const std::string path(1, letters[i]);
            kernel.numbers[path] = numbers[i];
            watcher.attachWatcher(recorders[i].of(path));
        }
        (void)kernel.calls();
        watcher.detachWatcher(detached);
        callsOfDetach = kernel.calls();

        std::string allRecords;
        for (const int number : std::set<int>(numbers.begin(), numbers.end()))
            allRecords += record(number, IN_CREATE);
        kernel.reads.push_back(allRecords);
        kernel.serve(watcher);
        std::string result;
        for (std::size_t i = 0; i < recorders.size(); ++i) {
            if (!recorders[i].seen.empty())
                result += std::to_string(i);
        }
        return result;
    }

    /// The same; equal paths have equal numbers.
    std::string left(const std::string& letters, const std::string& detached) {
        std::vector<int> numbers;
        for (const char letter : letters)
            numbers.push_back(letter - 'A' + 1);
        return left(letters, numbers, detached);
    }

    PlayedKernel kernel;
    std::vector<std::string> callsOfDetach;
};

} // namespace

TEST_F(Detaching, RemovesTheOnlyEntryOfThePath) {
    EXPECT_EQ("02", left("ABC", "B"));
    EXPECT_THAT(callsOfDetach, ElementsAre("remove 1000 2"));
}

TEST_F(Detaching, RemovesAllEntriesOfThePathButAsksTheKernelOnce) {
    EXPECT_EQ("", left("AAA", "A"));
    EXPECT_THAT(callsOfDetach, ElementsAre("remove 1000 1"));
}

TEST_F(Detaching, KeepsSingleEntriesBehindRemovedOnes) {
    EXPECT_EQ("2", left("AAB", "A"));
    EXPECT_EQ("12", left("ABC", "A"));
}

TEST_F(Detaching, RemovesTheSecondOfTwoEqualEntriesThatMovedUp) {
    EXPECT_EQ("2", left("AABB", "A"));
    EXPECT_EQ("1", left("ABB", "A"));
    EXPECT_EQ("1", left("ABBBB", "A"));
}

TEST_F(Detaching, ComparesAllLaterEntriesWithTheOneThatMovedUp) {
    EXPECT_EQ("12", left("ABCB", "A"));
    EXPECT_EQ("123", left("ABCC", "A"));
}

TEST_F(Detaching, KeepsALaterEntryOfThePathOnceAnotherMovedUp) {
    EXPECT_EQ("12", left("ABA", "A"));
    EXPECT_EQ("12", left("ABAB", "A"));
}

TEST_F(Detaching, LeavesEntriesInFrontAlone) {
    EXPECT_EQ("02", left("CABB", "A"));
    EXPECT_EQ("01", left("BBA", "A"));
    EXPECT_EQ("013", left("BBAB", "A"));
}

TEST_F(Detaching, KeepsEntriesOfThePathThatHaveAnotherNumber) {
    EXPECT_EQ("1", left("AA", {1, 2}, "A"));
    EXPECT_THAT(callsOfDetach, ElementsAre("remove 1000 1"));
    EXPECT_EQ("123", left("AABB", {1, 2, 3, 3}, "A"));
}

TEST_F(Detaching, KeepsEntriesOfTheNumberThatHaveAnotherPath) {
    EXPECT_EQ("1", left("AB", {1, 1}, "A"));
}

TEST_F(Detaching, DoesNothingWhenThePathIsUnknown) {
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ("01", left("AB", "C")); }));
    EXPECT_THAT(callsOfDetach, IsEmpty());
    EXPECT_EQ("01", left("AB", "A/"));
    EXPECT_EQ("01", left("AB", ""));
}
