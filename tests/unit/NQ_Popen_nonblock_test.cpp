#include <kvr/api/file/NQ_Files.h>

#include "Descriptors.h"
#include "HeldThreads.h"
#include "ScriptedCalls.h"
#include "TempDir.h"
#include "Waiting.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
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
using support::HeldThreads;
using support::openDescriptors;
using support::ScriptedCall;
using support::TempDir;
using testing::Each;
using testing::ElementsAre;
using testing::Eq;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::KilledBySignal;

/// The callbacks of one run, in order: "start", each piece, "exit STATUS".
class Progress {
public:
    std::function<void(int)> onStart() {
        return [this](int child) {
            pid = child;
            add("start");
        };
    }
    std::function<void(const std::string&)> onOutput() {
        return [this](const std::string& piece) { add(piece); };
    }
    std::function<void(int)> onExit() {
        return [this](int status) {
            add("exit " + std::to_string(status));
            ended.set_value();
        };
    }

    /// Waits for onExit. After that, the members below may be read.
    void wait() {
        ASSERT_EQ(std::future_status::ready, ended.get_future().wait_for(std::chrono::seconds(20)));
    }

    int pid = 0;
    std::vector<std::string> events;
    std::vector<std::thread::id> threads;

private:
    void add(const std::string& event) {
        events.push_back(event);
        threads.push_back(std::this_thread::get_id());
    }

    std::promise<void> ended;
};

/// Waits while another thread ends the process.
[[noreturn]] void waitForTheProcessToEnd() {
    support::eventually([] { return false; }, std::chrono::seconds(20));
    _exit(99);
}

TEST(NQ_Popen, ExecuteNonblockReportsStartOutputAndExitInOrder) {
    Progress run;
    NQ_Popen::executeNonblock("sh", {"-c", "echo $$; echo error >&2; printf end; exit 3"},
                              run.onOutput(), run.onExit(), run.onStart());
    run.wait();
    EXPECT_THAT(run.events,
                ElementsAre("start", std::to_string(run.pid) + "\n", "error\n", "end", "exit 768"));
}

TEST(NQ_Popen, ExecuteNonblockRunsAllCallbacksOnOneSeparateThread) {
    Progress run;
    NQ_Popen::executeNonblock("echo", {"text"}, run.onOutput(), run.onExit(), run.onStart());
    run.wait();
    ASSERT_EQ(3u, run.threads.size());
    EXPECT_NE(std::this_thread::get_id(), run.threads[0]);
    EXPECT_THAT(run.threads, Each(Eq(run.threads[0])));
}

TEST(NQ_Popen, ExecuteNonblockCutsLongLinesIntoPiecesOf254Bytes) {
    const TempDir directory;
    support::writeFile(directory / "text", std::string(600, 'x') + "\n" + std::string(254, 'y') +
                                               "\n" + std::string(253, 'z') + "\nno newline");
    Progress run;
    NQ_Popen::executeNonblock("cat", {directory / "text"}, run.onOutput(), run.onExit());
    run.wait();
    EXPECT_THAT(run.events, ElementsAre(std::string(254, 'x'), std::string(254, 'x'),
                                        std::string(92, 'x') + "\n", std::string(254, 'y'), "\n",
                                        std::string(253, 'z') + "\n", "no newline", "exit 0"));
}

TEST(NQ_Popen, ExecuteNonblockReportsEachPieceUpToANul) {
    Progress run;
    NQ_Popen::executeNonblock("printf", {"a\\0b\\n\\0\\nc"}, run.onOutput(), run.onExit());
    run.wait();
    EXPECT_THAT(run.events, ElementsAre("a", "", "c", "exit 0"));
}

TEST(NQ_Popen, ExecuteNonblockReportsTheRawWaitStatus) {
    Progress run;
    NQ_Popen::executeNonblock("sh", {"-c", "kill -9 $$"}, run.onOutput(), run.onExit());
    run.wait();
    EXPECT_THAT(run.events, ElementsAre("exit 9"));
}

TEST(NQ_Popen, ExecuteNonblockReportsFailedWaiting) {
    const ScriptedCall waiting(Call::waitpid, ECHILD);
    Progress run;
    NQ_Popen::executeNonblock("true", {}, run.onOutput(), run.onExit(), run.onStart());
    run.wait();
    EXPECT_THAT(run.events, ElementsAre("start", "exit -1"));
    EXPECT_EQ(run.pid, wait(nullptr)) << "the child is left for us";
}

TEST(NQ_Popen, ExecuteNonblockReturnsWhileTheProgramStillRuns) {
    const TempDir directory;
    ASSERT_EQ(0, mkfifo((directory / "gate").c_str(), 0600));
    Progress run;
    NQ_Popen::executeNonblock("cat", {directory / "gate"}, run.onOutput(), run.onExit());
    // The program waits for this writer. A call that waited for the program would deadlock.
    const int gate = open((directory / "gate").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(5, write(gate, "open\n", 5));
    close(gate);
    run.wait();
    EXPECT_THAT(run.events, ElementsAre("open\n", "exit 0"));
}

TEST(NQ_Popen, ExecuteNonblockDeliversOutputWhileTheProgramRuns) {
    const TempDir directory;
    ASSERT_EQ(0, mkfifo((directory / "gate").c_str(), 0600));
    std::promise<void> firstPiece;
    std::promise<int> exited;
    NQ_Popen::executeNonblock(
        "sh", {"-c", "echo first; read line < " + directory / "gate"},
        [&](const std::string&) { firstPiece.set_value(); },
        [&](int status) { exited.set_value(status); });
    ASSERT_EQ(std::future_status::ready,
              firstPiece.get_future().wait_for(std::chrono::seconds(20)));
    const int gate = open((directory / "gate").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(1, write(gate, "\n", 1));
    close(gate);
    auto status = exited.get_future();
    ASSERT_EQ(std::future_status::ready, status.wait_for(std::chrono::seconds(20)));
    EXPECT_EQ(0, status.get());
}

TEST(NQ_Popen, ExecuteNonblockCopiesItsArguments) {
    Progress run;
    {
        std::string command = "printf";
        std::vector<std::string> args = {"%s", "original"};
        auto onOutput = run.onOutput();
        auto onExit = run.onExit();
        NQ_Popen::executeNonblock(command, args, onOutput, onExit, nullptr);
        command = "false";
        args.clear();
        EXPECT_TRUE(onOutput) << "the caller keeps its own";
        onOutput = nullptr;
        onExit = nullptr;
    }
    run.wait();
    EXPECT_THAT(run.events, ElementsAre("original", "exit 0"));
}

TEST(NQ_Popen, ExecuteNonblockRunsSeveralProgramsConcurrently) {
    // Each program reads what the next one writes, so none can end before all run.
    const TempDir directory;
    std::vector<Progress> runs(3);
    for (const char* name : {"0", "1", "2"})
        ASSERT_EQ(0, mkfifo((directory / name).c_str(), 0600));
    const auto relay = [&](const std::string& from, const std::string& to) {
        return std::vector<std::string>{"-c", "cat " + directory / from + " > " + directory / to};
    };
    NQ_Popen::executeNonblock("sh", relay("0", "1"), runs[0].onOutput(), runs[0].onExit());
    NQ_Popen::executeNonblock("sh", relay("1", "2"), runs[1].onOutput(), runs[1].onExit());
    NQ_Popen::executeNonblock("cat", {directory / "2"}, runs[2].onOutput(), runs[2].onExit());
    const int first = open((directory / "0").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(5, write(first, "baton", 5));
    close(first);
    for (Progress& run : runs)
        run.wait();
    EXPECT_THAT(runs[2].events, ElementsAre("baton", "exit 0"));
}

TEST(NQ_Popen, ExecuteNonblockStartsTheProgramOnItsThread) {
    HeldThreads threads;
    threads.hold();
    Progress run;
    NQ_Popen::executeNonblock("echo", {"text"}, run.onOutput(), run.onExit(), run.onStart());
    EXPECT_EQ(1, threads.made());
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)) << "the caller starts nothing";
    EXPECT_THAT(run.events, IsEmpty());
    threads.release();
    run.wait();
    EXPECT_THAT(run.events, ElementsAre("start", "text\n", "exit 0"));
}

TEST(NQ_Popen, ExecuteNonblockThrowsWhenNoThreadCanBeMade) {
    HeldThreads threads;
    threads.refuse(true);
    Progress run;
    EXPECT_THROW(NQ_Popen::executeNonblock("echo", {"text"}, run.onOutput(), run.onExit()),
                 std::system_error);
    EXPECT_THAT(run.events, IsEmpty());
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)) << "nothing was started";
}

TEST(NQ_Popen, ExecuteNonblockNeedsNoStartCallback) {
    Progress run;
    NQ_Popen::executeNonblock("echo", {"text"}, run.onOutput(), run.onExit(),
                              std::function<void(int)>());
    run.wait();
    EXPECT_THAT(run.events, ElementsAre("text\n", "exit 0"));
}

TEST(NQ_Popen, ExecuteNonblockNeedsNoOutputCallbackForASilentProgram) {
    Progress run;
    NQ_Popen::executeNonblock("true", {}, std::function<void(const std::string&)>(), run.onExit());
    run.wait();
    EXPECT_THAT(run.events, ElementsAre("exit 0"));
}

TEST(NQ_Popen, ExecuteNonblockEndsTheProcessByAnEmptyOutputCallback) {
    EXPECT_EXIT(
        {
            NQ_Popen::executeNonblock("echo", {"text"}, std::function<void(const std::string&)>(),
                                      [](int) {});
            waitForTheProcessToEnd();
        },
        KilledBySignal(SIGABRT), HasSubstr("bad_function_call"));
}

TEST(NQ_Popen, ExecuteNonblockEndsTheProcessByAnEmptyExitCallback) {
    EXPECT_EXIT(
        {
            NQ_Popen::executeNonblock(
                "true", {}, [](const std::string&) {}, std::function<void(int)>());
            waitForTheProcessToEnd();
        },
        KilledBySignal(SIGABRT), HasSubstr("bad_function_call"));
}

TEST(NQ_Popen, ExecuteNonblockEndsTheProcessByACallbacksException) {
    EXPECT_EXIT(
        {
            NQ_Popen::executeNonblock(
                "true", {}, [](const std::string&) {},
                [](int) { throw std::runtime_error("from the callback"); });
            waitForTheProcessToEnd();
        },
        KilledBySignal(SIGABRT), HasSubstr("from the callback"));
}

TEST(NQ_Popen, ExecuteNonblockEndsTheProcessWhenForkFails) {
    EXPECT_EXIT(
        {
            const ScriptedCall fails(Call::fork, EAGAIN);
            NQ_Popen::executeNonblock(
                "true", {}, [](const std::string&) {}, [](int) {});
            waitForTheProcessToEnd();
        },
        ExitedWithCode(1), Eq("fork: Resource temporarily unavailable\n"));
}

TEST(NQ_Popen, ExecuteNonblockReportsAProgramThatDoesNotExistOnce) {
    const TempDir directory;
    const std::string log = directory / "log"; // would show writes of the forked copy, too
    const auto note = [&log](char letter) {
        const int file = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        EXPECT_EQ(1, write(file, &letter, 1));
        close(file);
    };
    Progress run;
    const auto onStart = run.onStart();
    const auto onExit = run.onExit();
    NQ_Popen::executeNonblock(
        "/no/such/program", {}, run.onOutput(),
        [&](int status) {
            note('e');
            onExit(status);
        },
        [&](int pid) {
            note('s');
            onStart(pid);
        });
    run.wait();
    EXPECT_LT(0, run.pid);
    EXPECT_THAT(run.events,
                ElementsAre("start", "execvp: No such file or directory\n", "exit 32512"));
    EXPECT_EQ("se", support::readFile(log));
}

TEST(NQ_Popen, ExecuteNonblockLeavesNoDescriptorAndNoChildBehind) {
    const auto before = openDescriptors();
    Progress run;
    NQ_Popen::executeNonblock("echo", {"text"}, run.onOutput(), run.onExit(), run.onStart());
    run.wait();
    EXPECT_EQ(before, openDescriptors());
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));
    EXPECT_EQ(ECHILD, errno);
}

} // namespace
