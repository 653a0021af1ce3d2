#include <kvr/api/sys/NQ_System.h>

#include "CapturedCommands.h"
#include "CapturedOutput.h"
#include "CapturedSyslog.h"
#include "Descriptors.h"
#include "FakePrograms.h"
#include "ForkedChild.h"
#include "PrivateMounts.h"
#include "ScriptedCalls.h"
#include "TempDir.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

/// What readlink() answers while it lives, as if links could be of any length. One at a time.
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

int flockError = 0; // with which flock() fails when it is not 0

} // namespace

// In front of the C library's, for the library under test as well.
extern "C" {

ssize_t readlink(const char* path, char* buffer, std::size_t size) noexcept {
    if (FakeLink::current != nullptr)
        return FakeLink::current->read(path, buffer, size);
    return reinterpret_cast<ssize_t (*)(const char*, char*, std::size_t)>(
        dlsym(RTLD_NEXT, "readlink"))(path, buffer, size);
}

int flock(int descriptor, int operation) noexcept {
    if (flockError != 0) {
        errno = flockError;
        return -1;
    }
    return reinterpret_cast<int (*)(int, int)>(dlsym(RTLD_NEXT, "flock"))(descriptor, operation);
}
}

namespace {

using kvr::api::sys::NQ_System;
using support::CapturedCommands;
using support::CapturedSyslog;
using support::FakePrograms;
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

/// Runs `body` in a forked copy, since what it sets up lives as long as a process.
void inFreshProcess(const std::function<void()>& body) {
    const support::ForkedChild child = inForkedChild(body);
    EXPECT_EQ(0, child.status) << child.output;
}

/// The same where the logger gets used: the file that it makes goes.
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
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
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
    EXPECT_EQ(-1, NQ_System::sendSIG2Proc(child, SIGTERM)); // it has been waited for
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

/// A program's name that no other process has, and its lock file, which goes at the end.
class Program {
public:
    ~Program() { unlink(lockFile.c_str()); }

    const std::string name = "tavo-test-" + std::to_string(getpid());
    const std::string lockFile = "/tmp/" + name + ".pid";

private:
    FakeLink link_{"/usr/bin/" + name};
};

/// Another process that holds the lock of `file` while it lives.
class OtherHolder {
public:
    explicit OtherHolder(const std::string& file) {
        descriptor_ = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        EXPECT_EQ(0, flock(descriptor_, LOCK_EX | LOCK_NB));
        child_ = fork();
        if (child_ == 0) {
            for (;;)
                pause();
        }
        close(descriptor_); // the child's copy holds on to the lock
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
                  "/tmp/" + program.name + ".pid"); // the name of this very program
        EXPECT_EQ(FD_CLOEXEC, fcntl(*opened.begin(), F_GETFD));
        EXPECT_EQ(O_RDWR, fcntl(*opened.begin(), F_GETFL) & O_ACCMODE);
    });
}

TEST(NQ_System, TheLockFileIsEmptyAndForEverybody) {
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

TEST(NQ_System, UnderAnotherNameItIsAnotherProgram) {
    // The link tells the new name of a program's file that is renamed while it runs.
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
        // That was no lock: the next call takes it.
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

// presence ----------------------------------------------------------------------------------------

std::vector<bool> companions() {
    return {NQ_System::hasModbus2MqttApp(), NQ_System::hasVexlor2RedApp(),
            NQ_System::hasVexlorApp(), NQ_System::hasNodeRedApp()};
}

TEST(NQ_System, ACompanionIsThereWhenItsDirectoryIs) {
    inPrivateMounts({"/opt"}, [] {
        EXPECT_THAT(companions(), ElementsAre(false, false, false, false));
        ASSERT_EQ(0, mkdir("/opt/apps", 0755));
        EXPECT_THAT(companions(), ElementsAre(false, false, false, false));
        const std::vector<std::string> paths = {"/opt/apps/ZEQ", "/opt/apps/VEXLORTORED",
                                                "/opt/apps/Vexlor", "/opt/apps/NodeRED"};
        for (std::size_t i = 0; i < paths.size(); ++i) {
            std::vector<bool> expected(4, false);
            expected[i] = true;
            ASSERT_EQ(0, mkdir(paths[i].c_str(), 0755));
            EXPECT_EQ(expected, companions()) << paths[i];
            ASSERT_EQ(0, rmdir(paths[i].c_str()));
            writeFile(paths[i], "a file counts too");
            EXPECT_EQ(expected, companions()) << paths[i];
            ASSERT_EQ(0, unlink(paths[i].c_str()));
        }
    });
}

TEST(NQ_System, AModemIsThereWhenItsNodeIs) {
    inPrivateMounts({"/dev"}, [] {
        EXPECT_FALSE(NQ_System::hasCellularModem());
        writeFile("/dev/cdc-wdm1", "");
        EXPECT_FALSE(NQ_System::hasCellularModem());
        writeFile("/dev/cdc-wdm0", "");
        EXPECT_TRUE(NQ_System::hasCellularModem());
    });
}

TEST(NQ_System, WhatIsThereButCannotBeOpenedDoesNotCount) {
    // A socket's node exists for everybody and opens for nobody.
    inPrivateMounts({"/dev", "/opt"}, [] {
        ASSERT_EQ(0, mknod("/dev/cdc-wdm0", S_IFSOCK | 0666, 0));
        EXPECT_FALSE(NQ_System::hasCellularModem());
        for (const char* directory : {"/opt/apps", "/opt/apps/ZEQ", "/opt/apps/ZEQ/cfg"})
            ASSERT_EQ(0, mkdir(directory, 0755));
        for (const char* path : {"/opt/apps/VEXLORTORED", "/opt/apps/Vexlor", "/opt/apps/NodeRED",
                                 "/opt/apps/ZEQ/cfg/ZEQ.json"})
            ASSERT_EQ(0, mknod(path, S_IFSOCK | 0666, 0));
        EXPECT_THAT(companions(), ElementsAre(true, false, false, false));
        EXPECT_EQ("", printedBy([] { EXPECT_EQ("1", NQ_System::getPortId()); }));
    });
}

TEST(NQ_System, LookingForThingsLeavesNothingOpen) {
    inPrivateMounts({"/opt"}, [] {
        ASSERT_EQ(0, mkdir("/opt/apps", 0755));
        ASSERT_EQ(0, mkdir("/opt/apps/ZEQ", 0755));
        const auto before = openDescriptors();
        EXPECT_EQ("", printedBy([] { companions(); }));
        NQ_System::hasCellularModem();
        NQ_System::getPortId();
        EXPECT_THAT(openedSince(before), IsEmpty());
    });
}

// getProcIdByName ---------------------------------------------------------------------------------

int idPrintedAs(const std::string& script, const std::string& name = "agent") {
    FakePrograms programs;
    programs.add("pidof", script);
    return NQ_System::getProcIdByName(name);
}

TEST(NQ_System, ThePrintedNumberIsTheProcess) {
    EXPECT_EQ(4711, idPrintedAs("echo 4711"));
    EXPECT_EQ(12, idPrintedAs("echo '12 34'"));
    EXPECT_EQ(12, idPrintedAs("echo 12; echo 34"));
    EXPECT_EQ(77, idPrintedAs("printf '  77'"));
    EXPECT_EQ(12, idPrintedAs("echo 012"));
    EXPECT_EQ(4711, idPrintedAs("echo 4711; exit 1"));
}

TEST(NQ_System, WithoutANumberThereIsNoProcess) {
    EXPECT_EQ(0, idPrintedAs("exit 1"));
    EXPECT_EQ(0, idPrintedAs("echo none"));
    EXPECT_EQ(0, idPrintedAs("echo 4711 >&2"));
}

TEST(NQ_System, ThePreviousAnswerIsForgotten) {
    EXPECT_EQ(4711, idPrintedAs("echo 4711"));
    EXPECT_EQ(0, idPrintedAs("exit 1"));
}

TEST(NQ_System, OnlyTheFirst511BytesOfTheLineCount) {
    EXPECT_EQ(1, idPrintedAs("printf '%510s12\\n' ''"));
}

TEST(NQ_System, AnIdIsReadAsAnUnsignedLongAndNarrowedToAnInt) {
    EXPECT_EQ(std::numeric_limits<int>::min() + 5, idPrintedAs("echo 2147483653"));
    const bool isLong = sizeof(long) == 8; // else the number saturates
    EXPECT_EQ(isLong ? 5 : -1, idPrintedAs("echo 4294967301"));
    EXPECT_EQ(isLong ? 5 : -1, idPrintedAs("echo 9223372036854775813"));
}

TEST(NQ_System, PidofIsAskedForASingleProcess) {
    FakePrograms programs;
    programs.add("pidof", "echo 1");
    NQ_System::getProcIdByName("agent");
    EXPECT_THAT(programs.calls(), ElementsAre("pidof [-s] [agent]"));
}

TEST(NQ_System, TheShellInterpretsTheName) {
    FakePrograms programs;
    programs.add("pidof");
    EXPECT_EQ(42, NQ_System::getProcIdByName("'a b' c; echo 42"));
    EXPECT_THAT(programs.calls(), ElementsAre("pidof [-s] [a b] [c]"));
}

TEST(NQ_System, WithoutAShellThereIsNoProcess) {
    const support::ScriptedCall popen(support::Call::popen, ENOMEM);
    EXPECT_EQ(0, NQ_System::getProcIdByName("agent"));
    EXPECT_EQ(1, popen.count());
}

TEST(NQ_System, AskingForAProcessLeavesNothingOpen) {
    const auto before = openDescriptors();
    idPrintedAs("echo 1");
    EXPECT_THAT(openedSince(before), IsEmpty());
    errno = 0;
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)); // nor a child that has ended
    EXPECT_EQ(ECHILD, errno);
}

// get_uboot_env_setting ---------------------------------------------------------------------------

std::string settingPrintedAs(const std::string& script) {
    FakePrograms programs;
    programs.add("fw_printenv", script);
    return NQ_System::get_uboot_env_setting("sn");
}

std::string outOfRangeText(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::out_of_range& error) {
        return error.what();
    }
    return "no std::out_of_range";
}

TEST(NQ_System, TheSettingIsWhatFollowsTheEqualsSign) {
    EXPECT_EQ("ABC123", settingPrintedAs("echo sn=ABC123"));
    EXPECT_EQ(" a b ", settingPrintedAs("echo 'sn= a b '"));
    EXPECT_EQ("ABC123", settingPrintedAs("printf sn=ABC123"));
    EXPECT_EQ("ABC123", settingPrintedAs("echo sn=ABC123; exit 1"));
}

TEST(NQ_System, ASettingIsCutAtAnEqualsSignOfItsOwn) {
    EXPECT_EQ("b", settingPrintedAs("echo a=b=c"));
    EXPECT_EQ("", settingPrintedAs("echo a==c"));
}

TEST(NQ_System, EveryNewlineIsRemovedFromASetting) {
    EXPECT_EQ("one two", settingPrintedAs("printf 'sn=one\\n two\\n\\n'"));
    EXPECT_EQ("A\rB", settingPrintedAs("printf 'sn=A\\rB\\n'"));
}

TEST(NQ_System, AnEmptySettingIsEmpty) { EXPECT_EQ("", settingPrintedAs("echo sn=")); }

TEST(NQ_System, MessagesOfTheToolBelongToItsOutput) {
    EXPECT_EQ("ABC123", settingPrintedAs("echo 'Warning: bad' >&2; echo sn=ABC123"));
    EXPECT_EQ("1 (bad)sn", settingPrintedAs("echo 'code=1 (bad)' >&2; echo sn=ABC123"));
}

TEST(NQ_System, TheToolIsAskedWithoutAShell) {
    FakePrograms programs;
    programs.add("fw_printenv", "echo x=y");
    EXPECT_EQ("y", NQ_System::get_uboot_env_setting("a b;c $d"));
    EXPECT_THAT(programs.calls(), ElementsAre("fw_printenv [a b;c $d]"));
}

TEST(NQ_System, TheSerialNumberIsTheSettingSn) {
    FakePrograms programs;
    programs.add("fw_printenv", "echo sn=ABC123");
    EXPECT_EQ("ABC123", NQ_System::getDeviceSerialNumber());
    EXPECT_THAT(programs.calls(), ElementsAre("fw_printenv [sn]"));
}

TEST(NQ_System, OutputWithoutAnEqualsSignIsOutOfRange) {
    EXPECT_EQ("vector::_M_range_check: __n (which is 1) >= this->size() (which is 1)",
              outOfRangeText([] { settingPrintedAs("echo '## Error: not defined' >&2; exit 1"); }));
    EXPECT_EQ("vector::_M_range_check: __n (which is 1) >= this->size() (which is 1)",
              outOfRangeText([] { settingPrintedAs("printf ="); }));
    EXPECT_EQ("vector::_M_range_check: __n (which is 1) >= this->size() (which is 0)",
              outOfRangeText([] { settingPrintedAs(""); }));
}

TEST(NQ_System, ASerialNumberThatIsNotSetIsOutOfRange) {
    FakePrograms programs;
    programs.add("fw_printenv", "echo 'not defined'");
    EXPECT_EQ("vector::_M_range_check: __n (which is 1) >= this->size() (which is 1)",
              outOfRangeText([] { NQ_System::getDeviceSerialNumber(); }));
}

TEST(NQ_System, WithoutTheToolTheSettingIsOutOfRange) {
    const TempDir empty;
    const std::string path = getenv("PATH");
    setenv("PATH", empty.path().c_str(), 1);
    EXPECT_THAT(outOfRangeText([] { NQ_System::get_uboot_env_setting("sn"); }),
                testing::StartsWith("vector::_M_range_check: "));
    setenv("PATH", path.c_str(), 1);
}

// getPortId, getPortIdName ------------------------------------------------------------------------

struct Port {
    std::string id;
    std::string name;
    std::string output;

    bool operator==(const Port& other) const {
        return id == other.id && name == other.name && output == other.output;
    }
};

std::ostream& operator<<(std::ostream& out, const Port& port) {
    return out << '"' << port.id << "\" " << port.name << " \"" << port.output << '"';
}

Port configuredPort() {
    Port port;
    port.output = printedBy([&] {
        port.id = NQ_System::getPortId();
        port.name = NQ_System::getPortIdName();
    });
    return port;
}

void withConfiguration(const std::function<void(const std::string& file)>& body) {
    inPrivateMounts({"/opt"}, [&] {
        mkdir("/opt/apps", 0755);
        mkdir("/opt/apps/ZEQ", 0755);
        mkdir("/opt/apps/ZEQ/cfg", 0755);
        body("/opt/apps/ZEQ/cfg/ZEQ.json");
    });
}

TEST(NQ_System, WithoutAConfigurationThePortIsOneAndRs485) {
    inPrivateMounts({"/opt"}, [] { EXPECT_EQ((Port{"1", "RS485", ""}), configuredPort()); });
    withConfiguration([](const std::string&) {
        EXPECT_EQ((Port{"1", "RS485", ""}), configuredPort());
    });
}

TEST(NQ_System, ThePortIsTheConfiguredOne) {
    withConfiguration([](const std::string& file) {
        writeFile(file, "{\"portID\":\"2\"}");
        EXPECT_EQ((Port{"2", "RS232", ""}), configuredPort());
        writeFile(file, "{\"other\":\"2\",\"portID\":\"1\"}\n");
        EXPECT_EQ((Port{"1", "RS485", ""}), configuredPort());
    });
}

TEST(NQ_System, EveryPortButExactlyOneIsRs232) {
    withConfiguration([](const std::string& file) {
        for (const char* id : {"", "0", "01", " 1", "1 ", "11", "RS485"}) {
            writeFile(file, std::string("{\"portID\":\"") + id + "\"}");
            EXPECT_EQ((Port{id, "RS232", ""}), configuredPort());
        }
    });
}

TEST(NQ_System, ANumberCountsAsItsText) {
    withConfiguration([](const std::string& file) {
        writeFile(file, "{\"portID\":1}");
        EXPECT_EQ((Port{"1", "RS485", ""}), configuredPort());
    });
}

TEST(NQ_System, AConfigurationWithoutAPortHasAnEmptyOne) {
    withConfiguration([](const std::string& file) {
        writeFile(file, "{\"port\":\"1\"}");
        EXPECT_EQ((Port{"", "RS232", ""}), configuredPort());
    });
}

TEST(NQ_System, APortThatIsNullIsALogicError) {
    withConfiguration([](const std::string& file) {
        writeFile(file, "{\"portID\":null}");
        EXPECT_THROW(NQ_System::getPortId(), std::logic_error);
        EXPECT_THROW(NQ_System::getPortIdName(), std::logic_error);
    });
}

TEST(NQ_System, ABrokenConfigurationHasAnEmptyPortAndIsReported) {
    withConfiguration([](const std::string& file) {
        writeFile(file, "{\"portID\":");
        EXPECT_EQ((Port{"", "RS232", "Unable to parse json\nUnable to parse json\n"}),
                  configuredPort());
    });
}

} // namespace
