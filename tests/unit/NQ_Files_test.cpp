// The types FileWriter and NQ_Files.

#include <kvr/api/file/NQ_Files.h>

#include "CapturedOutput.h"
#include "Descriptors.h"
#include "TempDir.h"

#include <memory>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

namespace {

using kvr::api::file::FileWriter;
using kvr::api::file::NQ_Files;
using support::openDescriptors;
using support::readFile;
using support::TempDir;
using support::writeFile;

TEST(FileWriter, JoinsChainedWrites) {
    const TempDir directory;
    {
        FileWriter writer(directory / "file");
        writer << "ab"
               << "cd";
    }
    EXPECT_EQ("abcd", readFile(directory / "file"));
}

TEST(FileWriter, ReturnsItself) {
    const TempDir directory;
    FileWriter writer(directory / "file");
    EXPECT_EQ(&writer, &(writer << "text"));
}

TEST(FileWriter, WritesBytesUnchanged) {
    const TempDir directory;
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte)
        bytes += static_cast<char>(byte);
    bytes += "\r\n\n";
    { FileWriter(directory / "file") << bytes << "" << bytes; }
    EXPECT_EQ(bytes + bytes, readFile(directory / "file"));
}

TEST(FileWriter, ReplacesAnEarlierContent) {
    const TempDir directory;
    writeFile(directory / "file", "much longer than what follows");
    { FileWriter(directory / "file") << "short"; }
    EXPECT_EQ("short", readFile(directory / "file"));
}

TEST(FileWriter, EmptiesTheFileImmediately) {
    const TempDir directory;
    writeFile(directory / "file", "earlier");
    const FileWriter writer(directory / "file");
    EXPECT_EQ("", readFile(directory / "file"));
}

TEST(FileWriter, CompletesAndClosesTheFileAtTheEndOfItsScope) {
    const TempDir directory;
    const auto before = openDescriptors();
    const std::string text(1000001, 't');
    {
        FileWriter writer(directory / "file");
        writer << text;
        EXPECT_EQ(1u, support::openedSince(before).size());
    }
    EXPECT_EQ(text, readFile(directory / "file"));
    EXPECT_EQ(before, openDescriptors());
}

TEST(FileWriter, FailsSilently) {
    const TempDir directory;
    std::string printed;
    const std::string errors = support::errorsOf([&] {
        printed = support::printedBy([&] {
            FileWriter(directory / "none/file") << "nowhere"
                                                << "at all";
            FileWriter(directory.path()) << "nowhere";
            FileWriter("/dev/full") << "nowhere" << std::string(100000, 'x');
        });
    });
    EXPECT_EQ("", printed);
    EXPECT_EQ("", errors);
    EXPECT_FALSE(support::exists(directory / "none"));
}

TEST(FileWriter, CannotBeCopied) {
    EXPECT_FALSE(std::is_copy_constructible<FileWriter>::value);
    EXPECT_FALSE(std::is_copy_assignable<FileWriter>::value);
}

TEST(NQ_Files, HoldsThreeTextsThatAreEmptyAtFirst) {
    const auto files = std::make_unique<NQ_Files>();
    EXPECT_EQ("", files->first);
    EXPECT_EQ("", files->second);
    EXPECT_EQ("", files->third);
    files->third = "text";
    EXPECT_EQ("text", NQ_Files(*files).third);
}

} // namespace
