#include <kvr/api/file/NQ_Files.h>

#include "CapturedOutput.h"
#include "Descriptors.h"
#include "FakePrograms.h"
#include "LargestAllocation.h"
#include "ScriptedCalls.h"
#include "TempDir.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
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

constexpr int kUntouched = -77;

/// Returns whether an unreaped child is left.
bool hasChildren() { return waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD; }

/// A file with these `bytes`, for a program to print: shells cannot write every byte.
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

// execute -----------------------------------------------------------------------------------------

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
    // The first piece is 100 times a, the NUL and 153 times b; the second is the other 47.
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

TEST(NQ_Popen, ExecuteLeavesNeitherBehindWhenTheOutputDoesNotFitIntoMemory) {
    const auto before = openDescriptors();
    int status = kUntouched;
    {
        const support::LargestAllocation limit(64 * 1024);
        EXPECT_THROW(shell("head -c 200000 /dev/zero | tr '\\0' 'x'; exit 3", status),
                     std::bad_alloc);
    }
    EXPECT_EQ(before, openDescriptors());
    EXPECT_FALSE(hasChildren());
    EXPECT_NE(kUntouched, status); // the child's status after its output was closed
}

// Programs that cannot be executed ----------------------------------------------------------------

TEST(NQ_Popen, AProgramThatDoesNotExistSaysSoInTheOutput) {
    int status = kUntouched;
    EXPECT_EQ("execvp: No such file or directory\n",
              NQ_Popen::execute("/no/such/program", {"argument"}, status));
    EXPECT_EQ(127 << 8, status);

    const TempDir directory; // an unreadable directory in PATH would cause another error
    const std::string path = std::getenv("PATH");
    setenv("PATH", directory.path().c_str(), 1);
    EXPECT_EQ("execvp: No such file or directory\n",
              NQ_Popen::execute("tavo-no-such-program", {}, status));
    setenv("PATH", path.c_str(), 1);
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

/// Appends to a file without buffering, so that lines from all copies of the process appear.
void appendLine(const std::string& path, const std::string& line) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    const std::string text = line + "\n";
    ASSERT_EQ(static_cast<ssize_t>(text.size()), write(file, text.data(), text.size()));
    close(file);
}

std::string recordPath;

struct RecordedDestruction {
    ~RecordedDestruction() { appendLine(recordPath, "destroyed"); }
};

TEST(NQ_Popen, AFailedExecutionContinuesOneProcessOnly) {
    const TempDir directory;
    recordPath = directory / "notes";
    EXPECT_EXIT(
        {
            static const RecordedDestruction global;
            std::atexit([] { appendLine(recordPath, "exit handler"); });
            {
                const RecordedDestruction local;
                NQ_Popen::execute("/no/such/program", {});
                appendLine(recordPath, "continued");
            }
            std::exit(6);
        },
        ExitedWithCode(6), Eq(""));
    EXPECT_EQ("continued\ndestroyed\nexit handler\ndestroyed\n", readFile(recordPath));
}

// When calls fail ---------------------------------------------------------------------------------

TEST(NQ_Popen, AFailingForkEndsTheProcessByExit) {
    EXPECT_EXIT(
        {
            const ScriptedCall fails(Call::fork, EAGAIN);
            std::atexit([] { std::fputs("exit handler\n", stderr); });
            NQ_Popen::execute("true", {});
        },
        ExitedWithCode(1), Eq("fork: Resource temporarily unavailable\nexit handler\n"));
}

TEST(NQ_Popen, WaitingContinuesAfterAnInterruption) {
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

// Interrupted reading -----------------------------------------------------------------------------

std::string interruptedPath;

extern "C" void noteInterruption(int) {
    const int file = open(interruptedPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    close(file);
}

/// Lets SIGUSR1 interrupt calls while an object exists. The script below waits until this process
/// sleeps, which happens only while reading. It then sends the signal and prints only after the
/// handler has run. No output can therefore precede the interruption.
class Interruption {
public:
    Interruption() {
        interruptedPath = directory_ / "interrupted";
        struct sigaction action = {};
        action.sa_handler = noteInterruption; // without SA_RESTART
        sigaction(SIGUSR1, &action, &before_);
    }
    ~Interruption() { sigaction(SIGUSR1, &before_, nullptr); }
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    std::string script() const {
        return "trap '' PIPE\n"
               "until grep -q '^State:.S' /proc/$PPID/status; do :; done\n"
               "kill -USR1 $PPID\n"
               "until [ -e " +
               interruptedPath +
               " ]; do :; done\n"
               "echo text 2> /dev/null\n"
               "exit 3\n";
    }
    bool happened() const { return support::exists(interruptedPath); }

private:
    TempDir directory_;
    struct sigaction before_ = {};
};

TEST(NQ_Popen, ExecuteEndsTheOutputAtAnInterruptedRead) {
    const Interruption interruption;
    int status = kUntouched;
    EXPECT_EQ("", shell(interruption.script(), status));
    EXPECT_EQ(3 << 8, status) << "the child is awaited nevertheless";
    EXPECT_TRUE(interruption.happened());
}

TEST(NQ_Popen, ExecuteInsecureKeepsReadingAfterAnInterruptedRead) {
    const Interruption interruption;
    int status = kUntouched;
    EXPECT_EQ("text\n", NQ_Popen::executeInsecure(interruption.script(), status));
    EXPECT_EQ(3, status);
    EXPECT_TRUE(interruption.happened());
}

// executeInsecure ---------------------------------------------------------------------------------

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
    for (const std::size_t length : {0u, 1u, 126u, 127u, 128u, 254u, 255u, 100000u}) {
        for (const char* end : {"", "\n", "\n\nlast", "\nlast\n"}) {
            const std::string output = std::string(length, 'x') + end;
            EXPECT_EQ(output, NQ_Popen::executeInsecure("cat " + Text(output).path()));
        }
    }
}

TEST(NQ_Popen, ExecuteInsecureReadsPiecesOf127BytesEachUpToANul) {
    // The first piece is 100 times a, the NUL and 26 times b; the second is the other 174, in two
    // reads.
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

} // namespace
