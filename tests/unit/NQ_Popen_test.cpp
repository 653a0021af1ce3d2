#include <kvr/api/file/NQ_Files.h>

#include "CapturedOutput.h"
#include "Descriptors.h"
#include "FakePrograms.h"
#include "ScriptedCalls.h"
#include "TempDir.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::file::NQ_Popen;
using support::Call;
using support::openDescriptors;
using support::readFile;
using support::ScriptedCall;
using support::TempDir;
using testing::ElementsAre;
using testing::Eq;
using testing::ExitedWithCode;
using testing::IsEmpty;

constexpr int kUntouched = -77;

/// Whether a child is left that nobody has waited for.
bool hasChildren() { return waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD; }

/// `bytes` as a file, for a program to print: shells cannot write every byte.
class Text {
public:
    explicit Text(const std::string& bytes) { support::writeFile(path(), bytes); }
    std::string path() const { return directory_ / "text"; }

private:
    TempDir directory_;
};

std::string shell(const std::string& script, int& status) {
    return NQ_Popen::execute("sh", {"-c", script}, status);
}

// execute ------------------------------------------------------------------------------------------

TEST(NQ_Popen, ExecuteMergesBothOutputsInWritingOrder) {
    int status = kUntouched;
    EXPECT_EQ("out\nerr\nout again\n",
              shell("echo out; echo err >&2; echo out again; exit 3", status));
    EXPECT_EQ(3 << 8, status);
}

TEST(NQ_Popen, ExecuteGivesTheRawWaitStatus) {
    int status = kUntouched;
    EXPECT_EQ("", shell("exit 0", status));
    EXPECT_EQ(0, status);
    shell("exit 1", status);
    EXPECT_EQ(256, status);
    shell("exit 255", status);
    EXPECT_EQ(65280, status);
}

TEST(NQ_Popen, ExecuteGivesTheSignalThatKilledTheChild) {
    int status = kUntouched;
    EXPECT_EQ("before\n", shell("echo before; kill -9 $$", status));
    EXPECT_EQ(SIGKILL, status);
    shell("kill -TERM $$", status);
    EXPECT_EQ(SIGTERM, status);
}

TEST(NQ_Popen, ExecuteWithoutAStatusDropsIt) {
    EXPECT_EQ("text\n", NQ_Popen::execute("sh", {"-c", "echo text; exit 9"}));
}

TEST(NQ_Popen, ExecuteWaitsForAChildThatHasClosedItsOutput) {
    int status = kUntouched;
    EXPECT_EQ("", shell("exec >&- 2>&-; sleep 0.1; exit 5", status));
    EXPECT_EQ(5 << 8, status);
}

TEST(NQ_Popen, ExecuteJoinsLongLinesUnchanged) {
    const std::string output = std::string(600, 'x') + "\n" + std::string(254, 'y') + "\n\nend";
    EXPECT_EQ(output, NQ_Popen::execute("cat", {Text(output).path()}));
}

TEST(NQ_Popen, ExecuteReturnsOutputOfAnySize) {
    std::string output;
    for (int line = 0; line < 50000; ++line)
        output += "line " + std::to_string(line) + "\n";
    EXPECT_EQ(output, NQ_Popen::execute("cat", {Text(output).path()}));
}

TEST(NQ_Popen, ExecuteReadsPiecesOf254BytesEachUpToANul) {
    // The first piece is 100 a, the NUL and 153 b; the second the other 47.
    const std::string output = std::string(100, 'a') + '\0' + std::string(200, 'b');
    EXPECT_EQ(std::string(100, 'a') + std::string(47, 'b'),
              NQ_Popen::execute("cat", {Text(output).path()}));
    EXPECT_EQ("xz", NQ_Popen::execute("cat", {Text(std::string("x\0y\nz", 5)).path()}));
}

TEST(NQ_Popen, ExecuteLooksTheProgramUpAlongThePath) {
    support::FakePrograms bin;
    bin.add("tavo-greet", "echo \"hello $1\"; exit 4");
    int status = kUntouched;
    EXPECT_EQ("hello you\n", NQ_Popen::execute("tavo-greet", {"you"}, status));
    EXPECT_EQ(4 << 8, status);
    EXPECT_EQ("hello path\n", NQ_Popen::execute(bin.directory() + "/tavo-greet", {"path"}));
}

TEST(NQ_Popen, ExecutePassesArgumentsUnchanged) {
    support::FakePrograms bin;
    bin.add("tavo-arguments");
    NQ_Popen::execute("tavo-arguments", {"two words", "'single' \"double\"", "$HOME `date` *", "",
                                         "a;b|c>d", "\\n", "gr\xc3\xbc\xc3\x9f"});
    EXPECT_THAT(bin.calls(),
                ElementsAre("tavo-arguments [two words] ['single' \"double\"] [$HOME `date` *] [] "
                            "[a;b|c>d] [\\n] [gr\xc3\xbc\xc3\x9f]"));
}

TEST(NQ_Popen, ExecutePassesTheCommandItselfAsArgumentZero) {
    const std::string script = "tr '\\0' '|' < /proc/$$/cmdline";
    EXPECT_EQ("sh|-c|" + script + "|", NQ_Popen::execute("sh", {"-c", script}));
    EXPECT_EQ("/bin/sh|-c|" + script + "|", NQ_Popen::execute("/bin/sh", {"-c", script}));
}

TEST(NQ_Popen, ExecuteWithoutArgumentsPassesOnlyTheCommand) {
    support::FakePrograms bin;
    bin.add("tavo-alone", "echo $#");
    EXPECT_EQ("0\n", NQ_Popen::execute("tavo-alone", {}));
}

TEST(NQ_Popen, ExecuteLeavesNoDescriptorAndNoChildBehind) {
    const auto before = openDescriptors();
    int status = kUntouched;
    shell("echo text; exit 1", status);
    NQ_Popen::execute("/no/such/program", {});
    EXPECT_EQ(before, openDescriptors());
    EXPECT_FALSE(hasChildren());
}

// Programs that cannot be executed -----------------------------------------------------------------

TEST(NQ_Popen, AProgramThatDoesNotExistSaysSoInTheOutput) {
    int status = kUntouched;
    EXPECT_EQ("execvp: No such file or directory\n",
              NQ_Popen::execute("/no/such/program", {"argument"}, status));
    EXPECT_EQ(127 << 8, status);
    EXPECT_EQ("execvp: No such file or directory\n",
              NQ_Popen::execute("tavo-no-such-program", {}, status));
    EXPECT_EQ(127 << 8, status);
}

TEST(NQ_Popen, AFileThatIsNoProgramSaysSoInTheOutput) {
    int status = kUntouched;
    EXPECT_EQ("execvp: Permission denied\n",
              NQ_Popen::execute(Text("no program").path(), {}, status));
    EXPECT_EQ(127 << 8, status);
}

TEST(NQ_Popen, AFailedExecutionWritesTheCallersBuffersOnce) {
    const TempDir directory;
    std::FILE* const file = std::fopen((directory / "file").c_str(), "w");
    ASSERT_NE(nullptr, file);
    std::ofstream stream(directory / "stream");
    std::fputs("buffered;", file);
    stream << "buffered;";
    NQ_Popen::execute("/no/such/program", {});
    std::fputs("done", file);
    stream << "done";
    std::fclose(file);
    stream.close();
    EXPECT_EQ("buffered;done", readFile(directory / "file"));
    EXPECT_EQ("buffered;done", readFile(directory / "stream"));
}

/// Appends to a file at once, so that the lines of all copies of the process are seen.
void note(const std::string& path, const std::string& line) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    const std::string text = line + "\n";
    ASSERT_EQ(static_cast<ssize_t>(text.size()), write(file, text.data(), text.size()));
    close(file);
}

std::string notesPath;

struct Farewell {
    ~Farewell() { note(notesPath, "destroyed"); }
};

TEST(NQ_Popen, AFailedExecutionContinuesOneProcessOnly) {
    const TempDir directory;
    notesPath = directory / "notes";
    EXPECT_EXIT(
        {
            static const Farewell farewell;
            std::atexit([] { note(notesPath, "exit handler"); });
            {
                const Farewell local;
                NQ_Popen::execute("/no/such/program", {});
                note(notesPath, "continued");
            }
            std::exit(6);
        },
        ExitedWithCode(6), Eq(""));
    EXPECT_EQ("continued\ndestroyed\nexit handler\ndestroyed\n", readFile(notesPath));
}

// When calls fail ------------------------------------------------------------------------------------

TEST(NQ_Popen, AFailingForkEndsTheProcessByExit) {
    EXPECT_EXIT(
        {
            const ScriptedCall fails(Call::fork, EAGAIN);
            std::atexit([] { std::fputs("exit handler\n", stderr); });
            NQ_Popen::execute("true", {});
        },
        ExitedWithCode(1), Eq("fork: Resource temporarily unavailable\nexit handler\n"));
}

TEST(NQ_Popen, InterruptedWaitingGoesOn) {
    const ScriptedCall waiting(
        Call::waitpid, [](int number) { return number <= 3 ? EINTR : ScriptedCall::kPassOn; });
    int status = kUntouched;
    EXPECT_EQ("text\n", shell("echo text; exit 2", status));
    EXPECT_EQ(2 << 8, status);
    EXPECT_EQ(4, waiting.count());
}

TEST(NQ_Popen, FailedWaitingGivesMinusOne) {
    int status = kUntouched;
    {
        const ScriptedCall waiting(Call::waitpid, ECHILD);
        EXPECT_EQ("text\n", shell("echo text; exit 2", status));
        EXPECT_EQ(1, waiting.count());
    }
    EXPECT_EQ(-1, status);
    EXPECT_LT(0, wait(nullptr)) << "the child is left for us";
}

TEST(NQ_Popen, IgnoredChildSignalsGiveMinusOne) {
    std::signal(SIGCHLD, SIG_IGN);
    int status = kUntouched;
    EXPECT_EQ("text\n", shell("echo text; exit 2", status));
    EXPECT_EQ(-1, status);
    EXPECT_EQ("text\n", NQ_Popen::executeInsecure("echo text; exit 2", status));
    EXPECT_EQ(255, status);
    std::signal(SIGCHLD, SIG_DFL);
}

TEST(NQ_Popen, WithoutAPipeTheOutputIsEmptyAndTheChildStillAwaited) {
    const auto before = openDescriptors();
    std::string output = "not set";
    int status = kUntouched;
    const std::string printed = support::printedBy([&] {
        const ScriptedCall fails(Call::pipe, EMFILE);
        output = shell("echo text; exit 3", status);
    });
    EXPECT_EQ("", output);
    EXPECT_EQ(3 << 8, status);
    EXPECT_EQ("text\n", printed) << "the child keeps the caller's outputs";
    EXPECT_EQ(before, openDescriptors());
    EXPECT_FALSE(hasChildren());
}

// executeInsecure ------------------------------------------------------------------------------------

TEST(NQ_Popen, ExecuteInsecureGivesTheExitCodeAlone) {
    int status = kUntouched;
    EXPECT_EQ("", NQ_Popen::executeInsecure("exit 3", status));
    EXPECT_EQ(3, status);
    NQ_Popen::executeInsecure("exit 255", status);
    EXPECT_EQ(255, status);
    NQ_Popen::executeInsecure("true", status);
    EXPECT_EQ(0, status);
}

TEST(NQ_Popen, ExecuteInsecureKeepsNoSignalNumber) {
    int status = kUntouched;
    EXPECT_EQ("before\n", NQ_Popen::executeInsecure("echo before; kill -9 $$", status));
    EXPECT_EQ(0, status);
}

TEST(NQ_Popen, ExecuteInsecureWithoutAStatusDropsIt) {
    EXPECT_EQ("text\n", NQ_Popen::executeInsecure("echo text; exit 9"));
}

TEST(NQ_Popen, ExecuteInsecureRunsAShell) {
    int status = kUntouched;
    EXPECT_EQ("a b\nB\n",
              NQ_Popen::executeInsecure("X='a b'; echo \"$X\"; echo b | tr b B 2>&1", status));
    EXPECT_EQ(0, status);
}

TEST(NQ_Popen, ExecuteInsecureDoesNotCaptureStandardError) {
    std::string output = "not set";
    const std::string errors =
        support::errorsOf([&] { output = NQ_Popen::executeInsecure("echo only an error >&2"); });
    EXPECT_EQ("", output);
    EXPECT_EQ("only an error\n", errors);
}

TEST(NQ_Popen, ExecuteInsecureOfAnUnknownCommandGivesTheShellsExitCode) {
    int status = kUntouched;
    std::string output = "not set";
    support::errorsOf([&] { output = NQ_Popen::executeInsecure("tavo-no-such-program", status); });
    EXPECT_EQ("", output);
    EXPECT_EQ(127, status);
}

TEST(NQ_Popen, ExecuteInsecureReturnsLinesOfAnyLengthUnchanged) {
    for (const std::size_t length : {0, 1, 126, 127, 128, 254, 255, 100000}) {
        for (const char* end : {"", "\n", "\n\nlast", "\nlast\n"}) {
            const std::string output = std::string(length, 'x') + end;
            EXPECT_EQ(output, NQ_Popen::executeInsecure("cat " + Text(output).path()));
        }
    }
}

TEST(NQ_Popen, ExecuteInsecureReadsPiecesOf127BytesEachUpToANul) {
    // The first piece is 100 a, the NUL and 26 b; the second the other 174, in two reads.
    const std::string output = std::string(100, 'a') + '\0' + std::string(200, 'b');
    EXPECT_EQ(std::string(100, 'a') + std::string(174, 'b'),
              NQ_Popen::executeInsecure("cat " + Text(output).path()));
    EXPECT_EQ("xz", NQ_Popen::executeInsecure("printf 'x\\0y\\nz'"));
}

TEST(NQ_Popen, ExecuteInsecureWithoutAStreamThrowsAndLeavesTheStatus) {
    const ScriptedCall fails(Call::popen, EMFILE);
    int status = kUntouched;
    try {
        NQ_Popen::executeInsecure("true", status);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ("popen() failed!", error.what());
    }
    EXPECT_EQ(kUntouched, status);
    EXPECT_THROW(NQ_Popen::executeInsecure("true"), std::runtime_error);
}

TEST(NQ_Popen, ExecuteInsecureLeavesNoDescriptorAndNoChildBehind) {
    const auto before = openDescriptors();
    NQ_Popen::executeInsecure("echo text; exit 1");
    EXPECT_EQ(before, openDescriptors());
    EXPECT_FALSE(hasChildren());
}

// popen2, pclose2 ------------------------------------------------------------------------------------

std::string readAll(std::FILE* stream) {
    std::string text;
    for (int byte; (byte = std::fgetc(stream)) != EOF;)
        text += static_cast<char>(byte);
    return text;
}

TEST(popen2, ReadsBothOutputsWithTypeR) {
    int pid = kUntouched;
    std::FILE* const stream =
        popen2("sh", {"-c", "echo $$; echo error >&2; cat; exit 7"}, "r", pid);
    ASSERT_NE(nullptr, stream);
    EXPECT_LT(0, pid);
    // Its standard input is the caller's; ctest gives an empty one.
    EXPECT_EQ(std::to_string(pid) + "\nerror\n", readAll(stream));
    EXPECT_EQ(7 << 8, pclose2(stream, pid));
    EXPECT_FALSE(hasChildren());
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

TEST(popen2, EndsTheProcessWhenForkFails) {
    EXPECT_EXIT(
        {
            const ScriptedCall fails(Call::fork, ENOMEM);
            int pid = kUntouched;
            popen2("true", {}, "w", pid);
        },
        ExitedWithCode(1), Eq("fork: Cannot allocate memory\n"));
}

TEST(pclose2, GivesMinusOneForAProcessThatIsNoChild) { EXPECT_EQ(-1, pclose2(nullptr, getpid())); }

TEST(pclose2, ClosesTheStreamBeforeItWaits) {
    // The child ends only when its input does, so a wait before would never return.
    int pid = kUntouched;
    std::FILE* const stream = popen2("cat", {}, "w", pid);
    ASSERT_NE(nullptr, stream);
    EXPECT_EQ(0, pclose2(stream, pid));
}

// convert --------------------------------------------------------------------------------------------

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
