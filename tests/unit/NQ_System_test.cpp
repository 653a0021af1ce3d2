// NQ_System and its own process: scripts, signals, the program's name and its single instance.
// NQ_System_device_test.cpp tests the device.

#include <kvr/api/sys/NQ_System.h>

#include "CLibrary.h"
#include "CapturedCommands.h"
#include "CapturedOutput.h"
#include "CapturedSyslog.h"
#include "Descriptors.h"
#include "ForkedChild.h"
#include "Interposed.h"
#include "PrivateMounts.h"
#include "TempDir.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

/// Sets the result of readlink() while an object exists. The target may have any length. Only one
/// object at a time.
class FakeLink {
public:
    explicit FakeLink(std::string target) : target_(std::move(target)) { current = this; }
    ~FakeLink() { current = nullptr; }
    FakeLink(const FakeLink&) = delete;
    FakeLink& operator=(const FakeLink&) = delete;

    ssize_t read(const std::string& path, char* buffer, std::size_t size) {
        asked = path;
        offered = size;
        if (target_.empty()) {
            errno = EACCES;
            return -1;
        }
        return static_cast<ssize_t>(target_.copy(buffer, size));
    }

    std::string asked;
    std::size_t offered = 0;
    static FakeLink* current;

private:
    std::string target_;
};

FakeLink* FakeLink::current = nullptr;

int flockError = 0; // the error of flock(), or 0 for success

} // namespace

// These replace the C library's functions, also for the library under test.
extern "C" {

ssize_t readlink(const char* path, char* buffer, std::size_t size) C_LIBRARY_NOEXCEPT {
    if (FakeLink::current != nullptr)
        return FakeLink::current->read(path, buffer, size);
    return support::next<decltype(readlink)>("readlink")(path, buffer, size);
}

int flock(int descriptor, int operation) C_LIBRARY_NOEXCEPT {
    if (flockError != 0) {
        errno = flockError;
        return -1;
    }
    return support::next<decltype(flock)>("flock")(descriptor, operation);
}
}

namespace {

using kvr::api::sys::NQ_System;
using support::CapturedCommands;
using support::CapturedSyslog;
using support::inForkedChild;
using support::inPrivateMounts;
using support::openDescriptors;
using support::openedSince;
using support::printedBy;
using support::TempDir;
using support::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// Runs `body` in a forked copy, because its effects last as long as the process.
void inFreshProcess(const std::function<void()>& body) {
    const support::ForkedChild child = inForkedChild(body);
    EXPECT_EQ(0, child.status) << child.output;
}

/// The same for code that uses the logger. Removes the log file afterwards.
void withLogger(const std::function<void()>& body) {
    const bool hadLog = support::exists("/tmp/log.out");
    inFreshProcess(body);
    if (!hadLog)
        unlink("/tmp/log.out");
}

// runScript ---------------------------------------------------------------------------------------

TEST(NQ_System, AScriptIsLoggedAndRun) {
    withLogger([] {
        const CapturedSyslog log;
        const CapturedCommands commands;
        EXPECT_EQ("", printedBy([] { EXPECT_EQ(0, NQ_System::runScript("/x/run.sh restart")); }));
        EXPECT_THAT(log.lines(), ElementsAre("<6> Executing...", "<6> /x/run.sh restart"));
        EXPECT_THAT(commands.lines(), ElementsAre("/x/run.sh restart"));
    });
}

TEST(NQ_System, AScriptIsLoggedBeforeItRuns) {
    withLogger([] {
        const CapturedSyslog log;
        CapturedCommands commands;
        std::vector<std::string> loggedByThen;
        commands.beforeEach([&] { loggedByThen = log.lines(); });
        NQ_System::runScript("exit 0");
        EXPECT_THAT(loggedByThen, ElementsAre("<6> Executing...", "<6> exit 0"));
    });
}

TEST(NQ_System, TheResultOfSystemIsReturnedUnchanged) {
    withLogger([] {
        for (const int result : {-1, 0, 9, 768}) {
            const CapturedCommands commands(CapturedCommands::runNothing, result);
            EXPECT_EQ(result, NQ_System::runScript("true"));
        }
        EXPECT_EQ(7 << 8, NQ_System::runScript("exit 7"));
        EXPECT_EQ(SIGTERM, NQ_System::runScript("kill -TERM $$"));
    });
}

TEST(NQ_System, TheShellInterpretsAScript) {
    withLogger([] {
        EXPECT_EQ("a b\n3\n", printedBy([] { NQ_System::runScript("echo 'a b'; echo $((1+2))"); }));
    });
}

TEST(NQ_System, APercentSignIsInterpretedByTheLogButNotByTheShell) {
    withLogger([] {
        const CapturedSyslog log;
        const CapturedCommands commands;
        NQ_System::runScript("echo 100%%");
        ASSERT_THAT(log.records(), SizeIs(2));
        EXPECT_EQ("echo 100%", log.records()[1].text);
        EXPECT_EQ("echo 100%%", log.records()[1].format);
        EXPECT_THAT(commands.lines(), ElementsAre("echo 100%%"));
    });
}

TEST(NQ_System, WithoutALoggerNoScriptRuns) {
    inPrivateMounts({"/tmp"}, [] {
        ASSERT_EQ(0, mkdir("/tmp/log.out", 0755));
        const CapturedSyslog log;
        const CapturedCommands commands;
        EXPECT_THROW(NQ_System::runScript("true"), std::runtime_error);
        EXPECT_THAT(log.lines(), IsEmpty());
        EXPECT_THAT(commands.lines(), IsEmpty());
    });
}

// sendSIG2Proc ------------------------------------------------------------------------------------

TEST(NQ_System, ASignalReachesAProcess) {
    const pid_t parent = getpid();
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        support::endWithParent(parent);
        for (;;)
            pause();
    }
    EXPECT_EQ(0, NQ_System::sendSIG2Proc(child, 0));
    EXPECT_EQ(0, NQ_System::sendSIG2Proc(child, SIGTERM));
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(SIGTERM, WTERMSIG(status));

    errno = 0;
    EXPECT_EQ(-1, NQ_System::sendSIG2Proc(child, SIGTERM)); // already reaped
    EXPECT_EQ(ESRCH, errno);
}

TEST(NQ_System, AnUnknownSignalIsRefused) {
    errno = 0;
    EXPECT_EQ(-1, NQ_System::sendSIG2Proc(getpid(), 4711));
    EXPECT_EQ(EINVAL, errno);
}

// do_readlink, getAppName, getAppDir --------------------------------------------------------------

TEST(NQ_System, TheTargetOfALinkIsReadAsItIs) {
    const TempDir directory;
    ASSERT_EQ(0, symlink("../not there/x y", (directory / "link").c_str()));
    EXPECT_EQ("../not there/x y", NQ_System::do_readlink(directory / "link"));
}

TEST(NQ_System, WhatIsNotALinkReadsAsNothing) {
    const TempDir directory;
    writeFile(directory / "file", "text");
    EXPECT_EQ("", NQ_System::do_readlink(directory / "file"));
    EXPECT_EQ("", NQ_System::do_readlink(directory.path()));
    EXPECT_EQ("", NQ_System::do_readlink(directory / "missing"));
    EXPECT_EQ("", NQ_System::do_readlink(""));
}

TEST(NQ_System, TheLongestLinkIsReadWhole) {
    const TempDir directory;
    const std::string target(4095, 'x');
    ASSERT_EQ(0, symlink(target.c_str(), (directory / "link").c_str()));
    EXPECT_EQ(target, NQ_System::do_readlink(directory / "link"));
}

TEST(NQ_System, ALongerTargetIsCutAt4095Bytes) {
    FakeLink link(std::string(4095, 'x') + "yyy");
    EXPECT_EQ(std::string(4095, 'x'), NQ_System::do_readlink("/some/link"));
    EXPECT_EQ("/some/link", link.asked);
    EXPECT_EQ(4095u, link.offered);
}

TEST(NQ_System, NameAndDirectoryAreThePartsOfTheProgramsPath) {
    FakeLink link("/usr/bin/agent");
    EXPECT_EQ("agent", NQ_System::getAppName());
    EXPECT_EQ("/proc/self/exe", link.asked);
    link.asked.clear();
    EXPECT_EQ("/usr/bin", NQ_System::getAppDir());
    EXPECT_EQ("/proc/self/exe", link.asked);
}

TEST(NQ_System, TheRunningProgramIsThisTest) {
    EXPECT_EQ("NQ_System_test", NQ_System::getAppName());
    EXPECT_TRUE(support::exists(NQ_System::getAppDir() + "/NQ_System_test"));
    EXPECT_EQ('/', NQ_System::getAppDir().front());
}

TEST(NQ_System, AProgramInTheRootDirectoryHasAnEmptyDirectory) {
    const FakeLink link("/init");
    EXPECT_EQ("init", NQ_System::getAppName());
    EXPECT_EQ("", NQ_System::getAppDir());
}

TEST(NQ_System, AnUnreadableProgramHasNeitherNameNorDirectory) {
    const FakeLink link("");
    EXPECT_EQ("", NQ_System::getAppName());
    EXPECT_EQ("", NQ_System::getAppDir());
}

// appAlreadyRunning -------------------------------------------------------------------------------

/// A program name that no other process has. The destructor removes its lock file.
class Program {
public:
    ~Program() { unlink(lockFile.c_str()); }

    const std::string name = "tavo-test-" + std::to_string(getpid());
    const std::string lockFile = "/tmp/" + name + ".pid";

private:
    FakeLink link_{"/usr/bin/" + name};
};

/// Another process that holds the lock of `file` while the object exists.
class OtherHolder {
public:
    explicit OtherHolder(const std::string& file) {
        descriptor_ = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        EXPECT_EQ(0, flock(descriptor_, LOCK_EX | LOCK_NB));
        const pid_t parent = getpid();
        child_ = fork();
        if (child_ == 0) {
            support::endWithParent(parent);
            for (;;)
                pause();
        }
        close(descriptor_); // the child's copy keeps the lock
    }
    ~OtherHolder() {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    OtherHolder(const OtherHolder&) = delete;
    OtherHolder& operator=(const OtherHolder&) = delete;

private:
    int descriptor_;
    pid_t child_;
};

bool isLocked(const std::string& file) {
    const int descriptor = open(file.c_str(), O_RDWR | O_CLOEXEC);
    const bool locked = flock(descriptor, LOCK_EX | LOCK_NB) != 0;
    close(descriptor);
    return locked;
}

TEST(NQ_System, TheFirstInstanceTakesTheLockAndKeepsIt) {
    inFreshProcess([] {
        const Program program;
        const auto before = openDescriptors();
        EXPECT_EQ("", printedBy([] { EXPECT_FALSE(NQ_System::appAlreadyRunning()); }));
        EXPECT_TRUE(isLocked(program.lockFile));
        const auto opened = openedSince(before);
        ASSERT_THAT(opened, SizeIs(1));
        EXPECT_EQ(program.lockFile,
                  "/tmp/" + program.name + ".pid"); // the name of this program
        EXPECT_EQ(FD_CLOEXEC, fcntl(*opened.begin(), F_GETFD));
        EXPECT_EQ(O_RDWR, fcntl(*opened.begin(), F_GETFL) & O_ACCMODE);
    });
}

TEST(NQ_System, TheLockFileIsEmptyAndWritableForEverybody) {
    inFreshProcess([] {
        const Program program;
        umask(0);
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
        struct stat status = {};
        ASSERT_EQ(0, stat(program.lockFile.c_str(), &status));
        EXPECT_EQ(0, status.st_size);
        EXPECT_EQ(0666u, status.st_mode & 07777u);
    });
}

TEST(NQ_System, ALockFileThatIsThereKeepsItsContent) {
    inFreshProcess([] {
        const Program program;
        writeFile(program.lockFile, "left over");
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
        EXPECT_EQ("left over", support::readFile(program.lockFile));
    });
}

TEST(NQ_System, AskedAgainTheHolderIsStillTheOnlyInstance) {
    inFreshProcess([] {
        const Program program;
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
        EXPECT_TRUE(isLocked(program.lockFile));
    });
}

TEST(NQ_System, WhileAnotherProcessHoldsTheLockItIsRunningAlready) {
    inFreshProcess([] {
        const Program program;
        {
            const OtherHolder other(program.lockFile);
            const auto before = openDescriptors();
            EXPECT_TRUE(NQ_System::appAlreadyRunning());
            EXPECT_TRUE(NQ_System::appAlreadyRunning());
            EXPECT_THAT(openedSince(before), IsEmpty());
        }
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
    });
}

TEST(NQ_System, AForkedChildIsAnotherProcess) {
    inFreshProcess([] {
        const Program program;
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
        inFreshProcess([] { EXPECT_TRUE(NQ_System::appAlreadyRunning()); });
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
    });
}

TEST(NQ_System, ALockFileThatWasRemovedIsCreatedAndLockedAgain) {
    inFreshProcess([] {
        const Program program;
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
        ASSERT_EQ(0, unlink(program.lockFile.c_str()));
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
        EXPECT_TRUE(isLocked(program.lockFile));
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
        inFreshProcess([] { EXPECT_TRUE(NQ_System::appAlreadyRunning()); });
    });
}

TEST(NQ_System, ALockFileThatAnotherProcessCreatedAgainIsFoundLocked) {
    inFreshProcess([] {
        const Program program;
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
        ASSERT_EQ(0, unlink(program.lockFile.c_str()));
        {
            const OtherHolder other(program.lockFile);
            EXPECT_TRUE(NQ_System::appAlreadyRunning());
        }
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
        EXPECT_TRUE(isLocked(program.lockFile));
    });
}

TEST(NQ_System, AForkedChildHoldsOnlyTheLockThatItTookItself) {
    inFreshProcess([] {
        const Program program;
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
        inFreshProcess([&] {
            EXPECT_TRUE(NQ_System::appAlreadyRunning());
            ASSERT_EQ(0, unlink(program.lockFile.c_str()));
            EXPECT_FALSE(NQ_System::appAlreadyRunning());
            EXPECT_FALSE(NQ_System::appAlreadyRunning());
        });
    });
}

TEST(NQ_System, AllThreadsOfTheOnlyProcessMayAskConcurrently) {
    // Under the test's real name, because FakeLink supports only one thread.
    const auto before = openDescriptors();
    std::atomic<int> others{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int call = 0; call < 500; ++call)
                others += NQ_System::appAlreadyRunning() ? 1 : 0;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, others);
    EXPECT_THAT(openedSince(before), SizeIs(1));
    unlink("/tmp/NQ_System_test.pid");
}

TEST(NQ_System, UnderAnotherNameItIsAnotherProgram) {
    // The link shows the new name when the file of a running program is renamed.
    inFreshProcess([] {
        const std::string name = "tavo-test-" + std::to_string(getpid());
        const std::string lockFile = "/tmp/" + name + "-renamed.pid";
        {
            const FakeLink link("/usr/bin/" + name);
            EXPECT_FALSE(NQ_System::appAlreadyRunning());
        }
        const FakeLink link("/usr/bin/" + name + "-renamed");
        {
            const OtherHolder other(lockFile);
            EXPECT_TRUE(NQ_System::appAlreadyRunning());
        }
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
        EXPECT_TRUE(isLocked(lockFile));
        unlink(lockFile.c_str());
        unlink(("/tmp/" + name + ".pid").c_str());
    });
}

TEST(NQ_System, AnUnreadableProgramLocksTheFileWithoutAName) {
    inPrivateMounts({"/tmp"}, [] {
        const FakeLink link("");
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
        EXPECT_TRUE(isLocked("/tmp/.pid"));
    });
}

TEST(NQ_System, WithoutALockFileNothingIsRunningAlready) {
    inFreshProcess([] {
        const Program program;
        ASSERT_EQ(0, mkdir(program.lockFile.c_str(), 0755));
        const auto before = openDescriptors();
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
        EXPECT_THAT(openedSince(before), IsEmpty());
        rmdir(program.lockFile.c_str());
        // The first call got no lock; this one does.
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
        EXPECT_TRUE(isLocked(program.lockFile));
    });
}

TEST(NQ_System, OnlyALockHeldByAnotherCountsAsRunning) {
    inFreshProcess([] {
        const Program program;
        for (const int error : {EINTR, ENOLCK, EBADF, EINVAL}) {
            flockError = error;
            EXPECT_FALSE(NQ_System::appAlreadyRunning()) << std::strerror(error);
        }
        flockError = EAGAIN;
        EXPECT_TRUE(NQ_System::appAlreadyRunning());
        flockError = 0;
    });
}

} // namespace
