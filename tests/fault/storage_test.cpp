// A full disk and a read-only disk: a small file system over a directory, in each test's own mount
// namespace.
//
// No class reports a failed write. The tests check the content on the disk afterwards: always the
// beginning of the text, and nothing else.

#include <kvr/api/com/NQ_Sockets.h>
#include <kvr/api/crypto/NQ_Crypto.h>
#include <kvr/api/data/NQ_JSON.h>
#include <kvr/api/file/NQ_Files.h>
#include <kvr/api/log/NQ_Logger.h>
#include <kvr/api/mng/NQ_Config.h>
#include <kvr/api/sys/NQ_System.h>

#include "CapturedOutput.h"
#include "ForkedChild.h"
#include "PrivateMounts.h"
#include "TempDir.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>

#include <sys/mount.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

using kvr::api::file::FileWriter;
using kvr::api::file::NQ_FileUtils;
using kvr::api::log::NQ_Logger;
using kvr::api::mng::NQ_Config;
using support::exists;
using support::inPrivateMounts;
using support::readFile;
using support::writeFile;

constexpr std::size_t kRoom = 65536; // the size of the small disk, in whole pages

/// Returns a text whose content shows where it was cut.
std::string numbers(std::size_t size) {
    std::string text;
    for (int i = 0; text.size() < size; ++i)
        text += std::to_string(i) + ' ';
    text.resize(size);
    return text;
}

void remount(unsigned long flags, const std::string& options = "") {
    ASSERT_EQ(0, mount(nullptr, "/tmp", nullptr, MS_REMOUNT | flags, options.c_str()))
        << std::strerror(errno);
}

void makeSmall() { remount(0, "size=" + std::to_string(kRoom)); }
void makeReadOnly() { remount(MS_RDONLY); }

void logLine(int number) {
    NQ_Logger::instance()->log("line " + std::to_string(number), NQ_Logger::kLogLevelInfo);
}

std::string linesUpTo(int count) {
    std::string text;
    for (int i = 0; i < count; ++i)
        text += "INFO: line " + std::to_string(i) + "\n";
    return text;
}

/// Prints a line for the table of all faults.
void report(const std::string& what) { std::cout << "fault: " << what << std::endl; }

} // namespace

TEST(FullDisk, LoggerKeepsTheLinesThatFitAndLosesTheRestSilently) {
    inPrivateMounts({"/tmp"}, [] {
        makeSmall();
        constexpr int kLines = 10000; // far more than fit
        for (int i = 0; i < kLines; ++i)
            logLine(i);
        const std::string kept = readFile(NQ_Logger::kLogFileName);
        EXPECT_EQ(kRoom, kept.size());
        EXPECT_EQ(linesUpTo(kLines).substr(0, kRoom), kept);
        // The stream stays failed: it loses later lines even when there is space again.
        remount(0, "size=1m");
        logLine(kLines);
        EXPECT_EQ(kept, readFile(NQ_Logger::kLogFileName));
        report("full disk: NQ_Logger: " + std::to_string(kept.size()) + " of " +
               std::to_string(linesUpTo(kLines).size()) +
               " bytes kept, nothing thrown, later lines lost");
    });
}

TEST(FullDisk, WriterKeepsTheBeginning) {
    inPrivateMounts({"/tmp"}, [] {
        makeSmall();
        const std::string text = numbers(2 * kRoom);
        FileWriter("/tmp/file") << text;
        EXPECT_EQ(text.substr(0, kRoom), readFile("/tmp/file"));
        report("full disk: FileWriter: the first " + std::to_string(readFile("/tmp/file").size()) +
               " of " + std::to_string(text.size()) + " bytes written, nothing thrown");
    });
}

TEST(FullDisk, PlacingEmptiesTheOldFileAndWritesTheBeginning) {
    inPrivateMounts({"/tmp"}, [] {
        for (const bool isBase64 : {false, true}) {
            remount(0, "size=1m");
            std::filesystem::create_directories("/tmp/app/cfg");
            const std::string text = numbers(2 * kRoom);
            const std::string content =
                isBase64 ? kvr::api::crypto::NQ_Base64::base64_encode(text) : text;
            NQ_Config config("/tmp");
            support::printedBy([&] { config.init("app", "", "cfg", "file", content, isBase64); });
            writeFile("/tmp/app/cfg/file", "the old content");
            makeSmall();
            EXPECT_TRUE(config.applyConfig()); // reports success as always
            EXPECT_EQ(text.substr(0, kRoom), readFile("/tmp/app/cfg/file"));
            std::filesystem::remove_all("/tmp/app");
        }
        report("full disk: NQ_Config::applyConfig: true; the old file is gone, the new one is cut");
    });
}

TEST(FullDisk, PlacingWithoutAnyRoomLeavesAnEmptyFile) {
    inPrivateMounts({"/tmp"}, [] {
        makeSmall();
        NQ_Config config("/tmp");
        support::printedBy(
            [&] { config.init("app", "", "cfg", "file", "the new content", false); });
        writeFile("/tmp/rest", numbers(kRoom));
        EXPECT_TRUE(config.applyConfig());
        EXPECT_EQ("", readFile("/tmp/app/cfg/file"));
    });
}

TEST(FullDisk, CopyKeepsTheBeginningAndReturnsWhatClosingDoes) {
    inPrivateMounts({"/tmp"}, [] {
        const std::string text = numbers(kRoom);
        writeFile("/tmp/from", text);
        remount(0, "size=" + std::to_string(kRoom + kRoom / 2));
        EXPECT_EQ(0, NQ_FileUtils::Linux_Copy("/tmp/from", "/tmp/to"));
        EXPECT_EQ(text.substr(0, kRoom / 2), readFile("/tmp/to"));
        writeFile("/tmp/to", "an older file");
        EXPECT_EQ(0, NQ_FileUtils::Linux_Copy("/tmp/from", "/tmp/to"));
        EXPECT_EQ(text.substr(0, kRoom / 2), readFile("/tmp/to"));
        report("full disk: NQ_FileUtils::Linux_Copy: 0; the first " +
               std::to_string(readFile("/tmp/to").size()) + " of " + std::to_string(text.size()) +
               " bytes copied");
    });
}

TEST(ReadOnlyDisk, LoggerThrowsUntilItCanBeWrittenTo) {
    inPrivateMounts({"/tmp"}, [] {
        makeReadOnly();
        for (int i = 0; i < 2; ++i) {
            try {
                NQ_Logger::instance();
                ADD_FAILURE() << "the logger is there";
            } catch (const std::runtime_error& error) {
                EXPECT_STREQ("Unable to initialize the NQ_Logger!", error.what());
            }
        }
        EXPECT_THROW(kvr::api::sys::NQ_System::runScript("true"), std::runtime_error);
        remount(0);
        logLine(0);
        EXPECT_EQ(linesUpTo(1), readFile(NQ_Logger::kLogFileName));
        report("read-only disk: NQ_Logger::instance: throws each time, works once writable");
    });
}

TEST(ReadOnlyDisk, WriterAndPlacingAndCopyChangeNothing) {
    inPrivateMounts({"/tmp"}, [] {
        writeFile("/tmp/file", "old");
        writeFile("/tmp/from", "new");
        NQ_Config config;
        support::printedBy([&] { config.init("", "", "", "/tmp/file", "new", false); });
        makeReadOnly();
        FileWriter("/tmp/file") << "new";
        EXPECT_EQ("old", readFile("/tmp/file"));
        EXPECT_TRUE(config.applyConfig());
        EXPECT_EQ("old", readFile("/tmp/file"));
        EXPECT_EQ(-1, NQ_FileUtils::Linux_Copy("/tmp/from", "/tmp/file"));
        EXPECT_EQ("old", readFile("/tmp/file"));
        EXPECT_EQ(-1, NQ_FileUtils::Linux_Copy("/tmp/from", "/tmp/to"));
        EXPECT_FALSE(exists("/tmp/to"));
        report("read-only disk: FileWriter, NQ_Config, Linux_Copy (-1): the old file stays whole");
    });
}

TEST(ReadOnlyDisk, PlacingMakesNoDirectory) {
    inPrivateMounts({"/tmp"}, [] {
        makeReadOnly();
        const support::ForkedChild child = support::inForkedChild([] {
            dup2(STDOUT_FILENO, STDERR_FILENO);
            NQ_Config config("/tmp");
            config.init("app", "", "cfg", "file", "content", false);
            EXPECT_TRUE(config.applyConfig());
        });
        EXPECT_EQ(0, child.status);
        const std::string words =
            "AppID:app\nAgentID:\nGot Content:content\nCreating directory:/tmp/app/cfg\n";
        EXPECT_EQ(words, child.output.substr(0, words.size()));
        EXPECT_NE(std::string::npos, child.output.find("Read-only file system")); // mkdir's message
        EXPECT_FALSE(exists("/tmp/app"));
    });
}

TEST(ReadOnlyDisk, ServerEndsTheProcess) {
    inPrivateMounts({"/tmp"}, [] {
        std::filesystem::create_directory("/tmp/socketDDS");
        makeReadOnly();
        const support::ForkedChild child = support::inForkedChild([] {
            dup2(STDOUT_FILENO, STDERR_FILENO);
            const kvr::api::com::NQ_Sockets server("server");
        });
        EXPECT_EQ(256, child.status);
        EXPECT_EQ("bind: Read-only file system\n", child.output);
        report("read-only disk: NQ_Sockets(): \"bind: Read-only file system\", exit status 1");
    });
}

TEST(ReadOnlyDisk, ProgramIsReportedAsNotRunning) {
    inPrivateMounts({"/tmp"}, [] {
        makeReadOnly();
        EXPECT_FALSE(kvr::api::sys::NQ_System::appAlreadyRunning());
        report("read-only disk: NQ_System::appAlreadyRunning: false");
    });
}
