#include <kvr/api/file/NQ_Files.h>

#include "CapturedOutput.h"
#include "Descriptors.h"
#include "Interposed.h"
#include "TempDir.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {
bool typesAreUnknown = false;

template <class Entry>
Entry* nextEntry(const char* name, DIR* directory) {
    Entry* const entry = support::next<Entry*(DIR*)>(name)(directory);
    if (entry != nullptr && typesAreUnknown)
        entry->d_type = DT_UNKNOWN;
    return entry;
}

/// One call of sendfile(). It transfers at most four bytes while Transfers are recorded.
struct Transfer {
    int to;
    int from;
    bool hasOffset;
    std::size_t size;
    int toFlags;
    int fromFlags;
};
std::vector<Transfer>* transfers = nullptr;

template <class Offset>
ssize_t transfer(const char* name, int to, int from, Offset* offset, std::size_t size) {
    const auto next = support::next<ssize_t(int, int, Offset*, std::size_t)>(name);
    if (transfers == nullptr)
        return next(to, from, offset, size);
    transfers->push_back(
        {to, from, offset != nullptr, size, fcntl(to, F_GETFL), fcntl(from, F_GETFL)});
    return next(to, from, offset, std::min<std::size_t>(size, 4));
}
} // namespace

// Some file systems do not report the type of an entry. A test can make any file system behave so.
extern "C" dirent* readdir(DIR* directory) { return nextEntry<dirent>("readdir", directory); }
#ifdef __GLIBC__
extern "C" dirent64* readdir64(DIR* directory) {
    return nextEntry<dirent64>("readdir64", directory);
}
#endif

// The kernel transfers less than requested only for files too large for a test.
extern "C" ssize_t sendfile(int to, int from, off_t* offset, std::size_t size) {
    return transfer("sendfile", to, from, offset, size);
}
#ifdef __GLIBC__
extern "C" ssize_t sendfile64(int to, int from, off64_t* offset, std::size_t size) {
    return transfer("sendfile64", to, from, offset, size);
}
#endif

namespace {

using kvr::api::file::NQ_FileUtils;
using support::interposedClose;
using support::openDescriptors;
using support::readFile;
using support::TempDir;
using support::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

using Paths = std::vector<std::string>;

unsigned permissionsOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(0, stat(path.c_str(), &status)) << path;
    return status.st_mode & 07777u;
}

/// Sets the file mode creation mask for a scope.
class Umask {
public:
    explicit Umask(mode_t mask) : before_(umask(mask)) {}
    ~Umask() { umask(before_); }
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

private:
    mode_t before_;
};

// getFilesFromDir ---------------------------------------------------------------------------------

/// The files a and b, and the directory d with the file c.
class Tree {
public:
    Tree() {
        writeFile(top / "a", "");
        writeFile(top / "b", "");
        EXPECT_EQ(0, mkdir((top / "d").c_str(), 0755));
        writeFile(top / "d/c", "");
    }
    const std::string& path() const { return top.path(); }
    TempDir top;
};

TEST(NQ_FileUtils, ListsSubdirectoriesLikeFilesWhenFlat) {
    const Tree tree;
    const Paths expected = {tree.top / "a", tree.top / "b", tree.top / "d"};
    EXPECT_THAT(NQ_FileUtils::getFilesFromDir(tree.path()),
                testing::UnorderedElementsAreArray(expected));
    EXPECT_THAT(NQ_FileUtils::getFilesFromDir(tree.path(), false),
                testing::UnorderedElementsAreArray(expected));
}

TEST(NQ_FileUtils, ReplacesSubdirectoriesByTheirContentWhenRecursive) {
    const Tree tree;
    const Paths expected = {tree.top / "a", tree.top / "b", tree.top / "d/c"};
    EXPECT_THAT(NQ_FileUtils::getFilesFromDir(tree.path(), true),
                testing::UnorderedElementsAreArray(expected));
    EXPECT_THAT(NQ_FileUtils::getFilesFromDirRecursive(tree.path()),
                testing::UnorderedElementsAreArray(expected));
}

TEST(NQ_FileUtils, WalksEveryLevel) {
    const TempDir top;
    std::string path = top.path();
    for (int level = 0; level < 20; ++level) {
        path += "/d";
        ASSERT_EQ(0, mkdir(path.c_str(), 0755));
    }
    writeFile(path + "/deep", "");
    writeFile(top / "d/shallow", "");
    EXPECT_THAT(NQ_FileUtils::getFilesFromDirRecursive(top.path()),
                UnorderedElementsAre(path + "/deep", top / "d/shallow"));
}

TEST(NQ_FileUtils, KeepsTheOrderOfTheDirectory) {
    const TempDir top;
    for (const char* name : {"zebra", "ant", "Mouse", "bee", "9", "cow", ".hidden", "ox"})
        writeFile(top / name, "");
    Paths expected;
    for (const auto& entry : std::filesystem::directory_iterator(top.path()))
        expected.push_back(entry.path());
    ASSERT_EQ(8u, expected.size());
    EXPECT_EQ(expected, NQ_FileUtils::getFilesFromDir(top.path()));
    EXPECT_EQ(expected, NQ_FileUtils::getFilesFromDirRecursive(top.path()));
}

TEST(NQ_FileUtils, PutsTheContentOfASubdirectoryInItsPlace) {
    const TempDir top;
    for (const char* name : {"a", "e", "g"})
        writeFile(top / name, "");
    for (const char* name : {"b", "f"}) {
        ASSERT_EQ(0, mkdir((top / name).c_str(), 0755));
        writeFile(top / name + "/x", "");
    }
    Paths expected = NQ_FileUtils::getFilesFromDir(top.path());
    for (std::string& path : expected) {
        if (path == top / "b" || path == top / "f")
            path += "/x";
    }
    EXPECT_EQ(expected, NQ_FileUtils::getFilesFromDirRecursive(top.path()));
}

TEST(NQ_FileUtils, KeepsATrailingSlash) {
    const Tree tree;
    EXPECT_THAT(
        NQ_FileUtils::getFilesFromDir(tree.path() + "/"),
        UnorderedElementsAre(tree.path() + "//a", tree.path() + "//b", tree.path() + "//d"));
    EXPECT_THAT(
        NQ_FileUtils::getFilesFromDirRecursive(tree.path() + "/"),
        UnorderedElementsAre(tree.path() + "//a", tree.path() + "//b", tree.path() + "//d/c"));
}

TEST(NQ_FileUtils, ListsNamesThatBeginWithDots) {
    const TempDir top;
    for (const char* name : {".x", "...", "..x"})
        writeFile(top / name, "");
    EXPECT_THAT(NQ_FileUtils::getFilesFromDirRecursive(top.path()),
                UnorderedElementsAre(top / ".x", top / "...", top / "..x"));
}

TEST(NQ_FileUtils, ListsLinksAndNeverFollowsThem) {
    const Tree tree;
    const Tree other;
    ASSERT_EQ(0, symlink(other.path().c_str(), (tree.top / "d/other").c_str()));
    ASSERT_EQ(0, symlink("d", (tree.top / "link").c_str()));
    ASSERT_EQ(0, symlink("/no/such/target", (tree.top / "broken").c_str()));
    EXPECT_THAT(NQ_FileUtils::getFilesFromDirRecursive(tree.path()),
                UnorderedElementsAre(tree.top / "a", tree.top / "b", tree.top / "d/c",
                                     tree.top / "d/other", tree.top / "link", tree.top / "broken"));
}

TEST(NQ_FileUtils, ListsWhateverIsNotADirectory) {
    const TempDir top;
    ASSERT_EQ(0, mkfifo((top / "fifo").c_str(), 0600));
    EXPECT_THAT(NQ_FileUtils::getFilesFromDirRecursive(top.path()), ElementsAre(top / "fifo"));
}

TEST(NQ_FileUtils, ListsADirectoryWhoseTypeTheFileSystemDoesNotReport) {
    const Tree tree;
    typesAreUnknown = true;
    const Paths listed = NQ_FileUtils::getFilesFromDirRecursive(tree.path());
    typesAreUnknown = false;
    EXPECT_THAT(listed, UnorderedElementsAre(tree.top / "a", tree.top / "b", tree.top / "d"));
}

TEST(NQ_FileUtils, FindsNothingInAnEmptyDirectory) {
    const TempDir top;
    Paths listed = {"not set"};
    EXPECT_EQ("", support::errorsOf([&] { listed = NQ_FileUtils::getFilesFromDir(top.path()); }));
    EXPECT_THAT(listed, IsEmpty());
}

TEST(NQ_FileUtils, PrintsWhyADirectoryCannotBeRead) {
    const TempDir top;
    writeFile(top / "file", "");
    Paths listed = {"not set"};
    EXPECT_EQ("opendir: Path does not exist or could not be read.: No such file or directory\n",
              support::errorsOf([&] { listed = NQ_FileUtils::getFilesFromDir(top / "none"); }));
    EXPECT_THAT(listed, IsEmpty());
    EXPECT_EQ(
        "opendir: Path does not exist or could not be read.: Not a directory\n",
        support::errorsOf([&] { listed = NQ_FileUtils::getFilesFromDir(top / "file", true); }));
    EXPECT_THAT(listed, IsEmpty());
}

TEST(NQ_FileUtils, ContinuesAfterASubdirectoryThatCannotBeRead) {
    const TempDir top;
    for (const char* name : {"a", "c", "e"})
        writeFile(top / name, "");
    for (const char* name : {"b", "d"}) {
        ASSERT_EQ(0, mkdir((top / name).c_str(), 0755));
        writeFile(top / name + "/unseen", "");
    }
    Paths listed;
    const std::string errors = support::errorsOf([&] {
        // Leaves one free descriptor, which the outer directory uses.
        const int lowest = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(lowest);
        struct rlimit before = {};
        ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
        struct rlimit tight = before;
        tight.rlim_cur = static_cast<rlim_t>(lowest) + 1;
        ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &tight));
        listed = NQ_FileUtils::getFilesFromDirRecursive(top.path());
        ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
    });
    const std::string line = std::string("opendir: Path does not exist or could not be read.: ") +
                             std::strerror(EMFILE) + "\n";
    EXPECT_EQ(line + line, errors);
    EXPECT_THAT(listed, UnorderedElementsAre(top / "a", top / "c", top / "e"));
}

TEST(NQ_FileUtils, ListingClosesEveryDirectory) {
    const Tree tree;
    const auto before = openDescriptors();
    NQ_FileUtils::getFilesFromDirRecursive(tree.path());
    NQ_FileUtils::getFilesFromDir(tree.path());
    EXPECT_EQ(before, openDescriptors());
}

// Linux_Copy --------------------------------------------------------------------------------------

int copy(const std::string& source, const std::string& destination) {
    return NQ_FileUtils::Linux_Copy(source.c_str(), destination.c_str());
}

std::string pattern(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 7 + i / 251);
    return bytes;
}

TEST(NQ_FileUtils, CopiesEveryByteToANewFile) {
    const TempDir directory;
    for (const std::size_t size : {0u, 1u, 10u, 4096u, 3000001u}) {
        writeFile(directory / "source", pattern(size));
        EXPECT_EQ(0, copy(directory / "source", directory / "copy"));
        EXPECT_EQ(pattern(size), readFile(directory / "copy"));
        EXPECT_EQ(pattern(size), readFile(directory / "source"));
        unlink((directory / "copy").c_str());
    }
}

TEST(NQ_FileUtils, ALongerDestinationKeepsItsTail) {
    const TempDir directory;
    writeFile(directory / "source", "0123456789");
    writeFile(directory / "copy", std::string(100, 'x'));
    EXPECT_EQ(0, copy(directory / "source", directory / "copy"));
    EXPECT_EQ("0123456789" + std::string(90, 'x'), readFile(directory / "copy"));
}

TEST(NQ_FileUtils, AShorterDestinationGrows) {
    const TempDir directory;
    writeFile(directory / "source", "0123456789");
    writeFile(directory / "copy", "xy");
    EXPECT_EQ(0, copy(directory / "source", directory / "copy"));
    EXPECT_EQ("0123456789", readFile(directory / "copy"));
}

TEST(NQ_FileUtils, ANewCopyHasMode644AsReducedByTheMask) {
    const TempDir directory;
    writeFile(directory / "source", "text", 0755);
    {
        const Umask none(0);
        copy(directory / "source", directory / "open");
    }
    {
        const Umask strict(077);
        copy(directory / "source", directory / "closed");
    }
    EXPECT_EQ(0644u, permissionsOf(directory / "open"));
    EXPECT_EQ(0600u, permissionsOf(directory / "closed"));
}

TEST(NQ_FileUtils, AnExistingDestinationKeepsItsMode) {
    const TempDir directory;
    writeFile(directory / "source", "text");
    writeFile(directory / "copy", "", 0751);
    EXPECT_EQ(0, copy(directory / "source", directory / "copy"));
    EXPECT_EQ(0751u, permissionsOf(directory / "copy"));
}

TEST(NQ_FileUtils, AMissingSourceIsNotReportedAndTheDestinationIsCreated) {
    const TempDir directory;
    writeFile(directory / "existing", "kept");
    EXPECT_EQ("", support::errorsOf([&] {
                  EXPECT_EQ(0, copy(directory / "none", directory / "existing"));
                  EXPECT_EQ(0, copy(directory / "none", directory / "new"));
              }));
    EXPECT_EQ("kept", readFile(directory / "existing"));
    EXPECT_EQ("", readFile(directory / "new"));
}

TEST(NQ_FileUtils, ADestinationThatCannotBeOpenedGivesMinusOne) {
    const TempDir directory;
    writeFile(directory / "source", "text");
    EXPECT_EQ(-1, copy(directory / "source", directory / "none/copy"));
    EXPECT_EQ(-1, copy(directory / "source", directory.path()));
    EXPECT_EQ(-1, copy(directory / "none", directory / "none/copy"));
}

TEST(NQ_FileUtils, AFailedTransferIsNotReported) {
    const TempDir directory;
    writeFile(directory / "source", "text");
    EXPECT_EQ(0, copy(directory.path(), directory / "copy")) << "a directory cannot be sent";
    EXPECT_EQ("", readFile(directory / "copy"));
    EXPECT_EQ(0, copy(directory / "source", "/dev/full"));
}

TEST(NQ_FileUtils, ATransferIsOneCallAndAPartOfItIsNotContinued) {
    const TempDir directory;
    writeFile(directory / "source", "0123456789");
    std::vector<Transfer> made;
    std::vector<int> closedFiles;
    transfers = &made;
    int result = -1;
    {
        const support::Stub closing(interposedClose, [&](int descriptor) {
            closedFiles.push_back(descriptor);
            return interposedClose.real(descriptor);
        });
        result = copy(directory / "source", directory / "copy");
    }
    transfers = nullptr;
    EXPECT_EQ(0, result);
    EXPECT_EQ("0123", readFile(directory / "copy"));
    ASSERT_EQ(1u, made.size());
    EXPECT_FALSE(made[0].hasOffset);
    EXPECT_EQ(10u, made[0].size);
    EXPECT_EQ(O_WRONLY, made[0].toFlags & O_ACCMODE);
    EXPECT_EQ(O_RDONLY, made[0].fromFlags & O_ACCMODE);
    EXPECT_THAT(closedFiles, ElementsAre(made[0].from, made[0].to));
}

TEST(NQ_FileUtils, CopyingClosesBothFiles) {
    const TempDir directory;
    writeFile(directory / "source", "text");
    const auto before = openDescriptors();
    copy(directory / "source", directory / "copy");
    copy(directory / "source", directory / "none/copy");
    copy(directory / "none", directory / "copy");
    EXPECT_EQ(before, openDescriptors());
}

} // namespace
