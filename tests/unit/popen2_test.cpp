#include <kvr/api/file/NQ_Files.h>

#include "CapturedOutput.h"
#include "Descriptors.h"
#include "ScriptedCalls.h"
#include "TempDir.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::Call;
using support::openDescriptors;
using support::readFile;
using support::ScriptedCall;
using support::TempDir;
using testing::ElementsAre;
using testing::Eq;
using testing::ExitedWithCode;

constexpr int kUntouched = -77;

std::string readAll(std::FILE* stream) {
    std::string text;
    for (int byte; (byte = std::fgetc(stream)) != EOF;)
        text += static_cast<char>(byte);
    return text;
}

TEST(popen2, ReadsBothOutputsWithTypeR) {
    int pid = kUntouched;
    std::FILE* const stream = popen2("sh", {"-c", "echo $$; echo error >&2; exit 7"}, "r", pid);
    ASSERT_NE(nullptr, stream);
    EXPECT_LT(0, pid);
    EXPECT_EQ(std::to_string(pid) + "\nerror\n", readAll(stream));
    EXPECT_EQ(7 << 8, pclose2(stream, pid));
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)) << "no child is left";
}

TEST(popen2, FeedsTheStandardInputWithAnyOtherType) {
    const TempDir directory;
    for (const char* type : {"w", "", "R", "rw", "read", "a"}) {
        const auto before = openDescriptors();
        int pid = kUntouched;
        std::FILE* const stream =
            popen2("sh", {"-c", "cat > " + directory / "fed" + "; exit 8"}, type, pid);
        ASSERT_NE(nullptr, stream) << type;
        EXPECT_LT(0, pid);
        std::fputs("fed by ", stream);
        std::fputs(type, stream);
        EXPECT_EQ(8 << 8, pclose2(stream, pid)) << "closing ends the input of '" << type << "'";
        EXPECT_EQ(std::string("fed by ") + type, readFile(directory / "fed"));
        EXPECT_EQ(before, openDescriptors());
    }
}

TEST(popen2, KeepsTheCallersOutputsWithTypeW) {
    int status = kUntouched;
    const std::string printed = support::printedBy([&] {
        int pid = kUntouched;
        std::FILE* const stream = popen2("cat", {}, "w", pid);
        std::fputs("through", stream);
        status = pclose2(stream, pid);
    });
    EXPECT_EQ("through", printed);
    EXPECT_EQ(0, status);
}

TEST(popen2, PassesOnlyTheCommandWithoutArguments) {
    const TempDir directory;
    int pid = kUntouched;
    std::FILE* const stream =
        popen2("sh", {}, "w", pid); // a shell without arguments reads commands
    ASSERT_NE(nullptr, stream);
    std::fprintf(stream, "tr '\\0' '|' < /proc/$$/cmdline > %s\n", (directory / "line").c_str());
    EXPECT_EQ(0, pclose2(stream, pid));
    EXPECT_EQ("sh|", readFile(directory / "line"));
}

TEST(popen2, HoldsOneDescriptorThatChildrenInherit) {
    const auto before = openDescriptors();
    int pid = kUntouched;
    std::FILE* const stream = popen2("sh", {"-c", "exit 0"}, "r", pid);
    ASSERT_NE(nullptr, stream);
    EXPECT_THAT(support::openedSince(before), ElementsAre(fileno(stream)));
    EXPECT_EQ(0, fcntl(fileno(stream), F_GETFD) & FD_CLOEXEC);
    pclose2(stream, pid);
    EXPECT_EQ(before, openDescriptors());
}

TEST(popen2, GivesTheChildThePipeAsItsTwoOutputsOnly) {
    int pid = kUntouched;
    std::FILE* const stream =
        popen2("sh",
               {"-c", "pipe=$(readlink /proc/$$/fd/2)\n"
                      "for fd in /proc/$$/fd/*; do\n"
                      "    if [ \"$(readlink $fd)\" = \"$pipe\" ]; then echo ${fd##*/}; fi\n"
                      "done"},
               "r", pid);
    ASSERT_NE(nullptr, stream);
    EXPECT_EQ("1\n2\n", readAll(stream));
    EXPECT_EQ(0, pclose2(stream, pid));
}

TEST(popen2, GivesTheChildThePipeAsItsInputOnlyWithTypeW) {
    const TempDir directory;
    int pid = kUntouched;
    std::FILE* const stream = popen2("sh", {}, "w", pid);
    ASSERT_NE(nullptr, stream);
    std::fprintf(stream,
                 "pipe=$(readlink /proc/$$/fd/0)\n"
                 "for fd in /proc/$$/fd/*; do\n"
                 "    if [ \"$(readlink $fd)\" = \"$pipe\" ]; then echo ${fd##*/}; fi\n"
                 "done > %s\n",
                 (directory / "held").c_str());
    EXPECT_EQ(0, pclose2(stream, pid));
    EXPECT_EQ("0\n", readFile(directory / "held"));
}

TEST(popen2, ReportsABrokenPipeWhenTheProgramHasEnded) {
    std::signal(SIGPIPE, SIG_IGN);
    int pid = kUntouched;
    std::FILE* const stream = popen2("true", {}, "w", pid);
    ASSERT_NE(nullptr, stream);
    siginfo_t ended = {};
    ASSERT_EQ(0, waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOWAIT));
    // No reading end is left, not even in this process.
    errno = 0;
    EXPECT_EQ(-1, write(fileno(stream), "text", 4));
    EXPECT_EQ(EPIPE, errno);
    EXPECT_EQ(0, pclose2(stream, pid));
    std::signal(SIGPIPE, SIG_DFL);
}

TEST(popen2, SeesTheEndOfAnOutputThatTheProgramClosesWhileItRuns) {
    int pid = kUntouched;
    std::FILE* const stream =
        popen2("sh", {"-c", "echo text; exec >&- 2>&-; kill -STOP $$"}, "r", pid);
    ASSERT_NE(nullptr, stream);
    siginfo_t stopped = {};
    EXPECT_EQ(0, waitid(P_PID, static_cast<id_t>(pid), &stopped, WSTOPPED | WNOWAIT));
    // A writing end left open in this process would keep the input from ending.
    EXPECT_EQ(0, fcntl(fileno(stream), F_SETFL, O_NONBLOCK));
    EXPECT_EQ("text\n", readAll(stream));
    EXPECT_TRUE(std::feof(stream) != 0) << "the reading would have waited";
    kill(pid, SIGKILL);
    EXPECT_EQ(SIGKILL, pclose2(stream, pid));
}

TEST(popen2, ReturnsInTheCopyWhoseProgramCannotBeExecuted) {
    for (const char* type : {"r", "w"}) {
        const std::string errors = support::errorsOf([&] {
            int pid = kUntouched;
            std::FILE* const stream = popen2("/no/such/program", {"argument"}, type, pid);
            if (pid == 0)
                _exit(stream == nullptr ? 42 : 43);
            ASSERT_NE(nullptr, stream);
            if (*type == 'r') {
                EXPECT_EQ("execvp: No such file or directory\n", readAll(stream));
            }
            EXPECT_EQ(42 << 8, pclose2(stream, pid));
        });
        EXPECT_EQ(*type == 'r' ? "" : "execvp: No such file or directory\n", errors);
    }
}

TEST(popen2, HasNoStreamWithoutAPipe) {
    for (const char* type : {"r", "w"}) {
        const auto before = openDescriptors();
        const ScriptedCall fails(Call::pipe, EMFILE);
        int pid = kUntouched;
        EXPECT_EQ(nullptr, popen2("sh", {"-c", "exit 5"}, type, pid));
        EXPECT_LT(0, pid);
        EXPECT_EQ(5 << 8, pclose2(nullptr, pid));
        EXPECT_EQ(before, openDescriptors());
    }
}

TEST(popen2, LeavesNothingOpenWhenNoStreamCanBeMade) {
    for (const char* type : {"r", "w"}) {
        const auto before = openDescriptors();
        const ScriptedCall fails(Call::fdopen, ENOMEM);
        int pid = kUntouched;
        EXPECT_EQ(nullptr, popen2("sh", {"-c", "exit 5"}, type, pid));
        EXPECT_LT(0, pid);
        EXPECT_EQ(before, openDescriptors());
        EXPECT_EQ(5 << 8, pclose2(nullptr, pid));
    }
}

TEST(popen2, ReturnsNullInTheForkedCopyWithoutFdopen) {
    // Not every C library's fdopen() rejects a closed descriptor.
    const support::CapturedErrors errors;
    const ScriptedCall opening(Call::fdopen, ScriptedCall::kPassOn);
    int pid = kUntouched;
    std::FILE* const stream = popen2("/no/such/program", {}, "w", pid);
    if (pid == 0)
        _exit(stream == nullptr && opening.count() == 0 ? 42 : 43);
    EXPECT_EQ(42 << 8, pclose2(stream, pid));
}

TEST(popen2, EndsTheProcessWhenForkFails) {
    EXPECT_EXIT(
        {
            const ScriptedCall fails(Call::fork, ENOMEM);
            int pid = kUntouched;
            popen2("true", {}, "w", pid);
        },
        ExitedWithCode(1), Eq(std::string("fork: ") + std::strerror(ENOMEM) + "\n"));
}

TEST(pclose2, GivesMinusOneForAProcessThatIsNoChild) { EXPECT_EQ(-1, pclose2(nullptr, getpid())); }

TEST(pclose2, ClosesTheStreamBeforeItWaits) {
    // The child ends only when its input ends, so waiting first would never return.
    int pid = kUntouched;
    std::FILE* const stream = popen2("cat", {}, "w", pid);
    ASSERT_NE(nullptr, stream);
    EXPECT_EQ(0, pclose2(stream, pid));
}

// convert -----------------------------------------------------------------------------------------

TEST(convert, CopiesTheTextAndItsTerminator) {
    const std::string text = "copied";
    const std::unique_ptr<char[]> copy(convert(text));
    EXPECT_STREQ("copied", copy.get());
    EXPECT_NE(text.c_str(), copy.get());
}

TEST(convert, TerminatesAnEmptyText) {
    const std::unique_ptr<char[]> copy(convert(""));
    EXPECT_EQ('\0', copy[0]);
}

TEST(convert, CopiesEveryByte) {
    const std::string text("a\0b\xff", 4);
    const std::unique_ptr<char[]> copy(convert(text));
    EXPECT_EQ(text + '\0', std::string(copy.get(), 5));
}

} // namespace
