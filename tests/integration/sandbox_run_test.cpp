// The sandbox's runner: what a program finds inside, and that the host does not change.
#include "RunProgram.h"
#include "TempDir.h"
#include "Waiting.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <poll.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::Ran;
using support::RunningProgram;
using testing::AnyOf;
using testing::HasSubstr;
using testing::StartsWith;

using Arguments = std::vector<std::string>;

const Arguments kAsNobody = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
const Arguments kTryNamespaces = {"unshare", "--user", "--map-root-user", "--mount", "true"};

std::string reason(int error) { return std::strerror(error); }

Arguments operator+(Arguments first, const Arguments& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// Returns the host's entries and mounts where the gateway has its directories, with modification
/// times. Other mounts may change, because other tests run concurrently.
std::string hostState() {
    return support::runProgram({"sh", "-c",
                                "ls -lA --time-style=full-iso /etc /opt /mnt /etc/init.d; "
                                "awk '$5 ~ /^.(etc|opt|mnt|tmp|run.lock|var.lock)$/ || /[.]host/' "
                                "/proc/self/mountinfo"})
        .out;
}

/// A program in the foreground of its own terminal.
class Terminal {
public:
    explicit Terminal(const Arguments& arguments) {
        pid_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
        if (pid_ == 0) {
            // Without echo, because the echo of a key and its effect could arrive in either order.
            termios settings{};
            tcgetattr(STDIN_FILENO, &settings);
            settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
            tcsetattr(STDIN_FILENO, TCSANOW, &settings);
            setenv("TAVO_BUILD_DIR", TAVO_BUILD_DIR, 1);
            std::vector<char*> argv;
            for (const std::string& argument : arguments)
                argv.push_back(const_cast<char*>(argument.c_str()));
            argv.push_back(nullptr);
            execvp(argv[0], argv.data());
            _exit(127);
        }
    }
    ~Terminal() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        close(terminal_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    void type(const std::string& keys) const {
        EXPECT_EQ(static_cast<ssize_t>(keys.size()), write(terminal_, keys.data(), keys.size()));
    }
    bool waitFor(const std::string& expected) {
        while (text_.find(expected) == std::string::npos) {
            pollfd waiting{terminal_, POLLIN, 0};
            if (poll(&waiting, 1, 30000) <= 0 || !readSome())
                return false;
        }
        return true;
    }
    /// Reads to the end and returns the exit status.
    int wait() {
        while (readSome())
            continue;
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WEXITSTATUS(status);
    }
    const std::string& text() const { return text_; }

private:
    bool readSome() {
        char piece[512];
        const ssize_t got = read(terminal_, piece, sizeof piece);
        if (got <= 0)
            return false;
        text_.append(piece, static_cast<std::size_t>(got));
        return true;
    }

    int terminal_ = -1;
    pid_t pid_;
    std::string text_;
};

/// Runs programs in the sandbox, and checks after each test that the host is unchanged.
class SandboxRun : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0 && support::runProgram(kTryNamespaces).status != 0)
            GTEST_SKIP() << "this user may not make namespaces";
        before_ = hostState();
    }
    void TearDown() override {
        if (!IsSkipped()) {
            EXPECT_EQ(before_, hostState());
        }
    }

    static Arguments sandbox(const Arguments& arguments) {
        return Arguments{TAVO_SANDBOX_RUN} + arguments;
    }
    static Ran run(const Arguments& arguments, const std::string& input = "") {
        return support::runProgram(sandbox(arguments), {"TAVO_BUILD_DIR=" TAVO_BUILD_DIR}, input);
    }
    static Ran shell(const std::string& script, const std::string& input = "") {
        return run({"sh", "-c", script}, input);
    }

private:
    std::string before_;
};

// --- the program as a process --------------------------------------------------------------------

TEST_F(SandboxRun, PassesTheExitStatusOn) {
    EXPECT_EQ(0, run({"true"}).status);
    EXPECT_EQ(7, shell("exit 7").status);
    EXPECT_EQ(128 + SIGSEGV, shell("kill -SEGV $$").status);
    EXPECT_EQ(127, run({"no-such-program"}).status);
    EXPECT_EQ(126, run({"/etc/passwd"}).status);
}

TEST_F(SandboxRun, PassesInputOutputAndErrorsThrough) {
    const Ran ran = shell("cat; echo wrong >&2", "some input\n");
    EXPECT_EQ("some input\n", ran.out);
    EXPECT_EQ("wrong\n", ran.err);
}

TEST_F(SandboxRun, PassesArgumentsUnchanged) {
    EXPECT_EQ("[a b][][$x'\"][-n][--root]",
              run({"printf", "[%s]", "a b", "", "$x'\"", "-n", "--root"}).out);
}

TEST_F(SandboxRun, BecomesTheProgram) {
    RunningProgram program(sandbox({"sh", "-c", "echo $$"}), {"TAVO_BUILD_DIR=" TAVO_BUILD_DIR});
    const std::string pid = std::to_string(program.pid());
    EXPECT_EQ(pid + "\n", program.wait().out);
}

TEST_F(SandboxRun, HandsSignalsToTheProgram) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        RunningProgram program(sandbox({"sh", "-c",
                                        "trap 'echo caught; exit 5' INT TERM HUP; echo ready; "
                                        "while :; do sleep 0.02; done"}),
                               {"TAVO_BUILD_DIR=" TAVO_BUILD_DIR});
        ASSERT_TRUE(support::eventually([&] { return program.outSoFar() == "ready\n"; }));
        kill(program.pid(), signal);
        const Ran ran = program.wait();
        EXPECT_EQ(5, ran.status) << signal;
        EXPECT_EQ("ready\ncaught\n", ran.out) << signal;
    }
}

TEST_F(SandboxRun, LeavesNothingWhenItIsInterrupted) {
    for (const int signal : {SIGINT, SIGTERM, SIGKILL}) {
        RunningProgram program(
            sandbox({"sh", "-c", "echo x > /etc/tavo-test; echo ready; exec sleep 60"}),
            {"TAVO_BUILD_DIR=" TAVO_BUILD_DIR});
        ASSERT_TRUE(support::eventually([&] { return program.outSoFar() == "ready\n"; }));
        kill(program.pid(), signal);
        EXPECT_EQ(128 + signal, program.wait().status);
        EXPECT_FALSE(support::exists("/etc/tavo-test"));
    }
}

TEST_F(SandboxRun, RefusesCallsItDoesNotUnderstand) {
    for (const Arguments& arguments :
         {Arguments{}, Arguments{"--frob", "true"}, Arguments{"--root"}}) {
        const Ran ran = run(arguments);
        EXPECT_EQ(2, ran.status);
        EXPECT_EQ("", ran.out);
        EXPECT_THAT(ran.err, StartsWith("Usage: sandbox/run "));
    }
    EXPECT_THAT(run({"--help"}).out, StartsWith("Usage: sandbox/run "));
}

TEST_F(SandboxRun, SaysWhichBuildItMisses) {
    const support::TempDir empty;
    const Ran ran = support::runProgram(sandbox({"true"}), {"TAVO_BUILD_DIR=" + empty.path()});
    EXPECT_EQ(125, ran.status);
    EXPECT_THAT(ran.err, StartsWith("sandbox: no sandbox/bin in " + empty.path()));
}

// --- the gateway inside --------------------------------------------------------------------------

TEST_F(SandboxRun, HoldsAGatewaysConfiguration) {
    EXPECT_EQ("dhcp\ndropbear\nfirewall\nnetwork\nsystem\nwireless\n", shell("ls /etc/config").out);
    EXPECT_EQ(
        "192.168.1.1\nserver\n0.pool.example.net 1.pool.example.net\n",
        shell("uci get network.lan.ipaddr; uci get dhcp.lan.dhcpv4; uci get system.ntp.server")
            .out);
    EXPECT_EQ("",
              shell("for each in /etc/config/*; do uci show ${each##*/} > /dev/null; done").err);
}

TEST_F(SandboxRun, HoldsItsPackagesAsACommitWritesThem) {
    EXPECT_EQ(
        "",
        shell("cp -r /etc/config /etc/before; for each in /etc/config/*; do "
              "package=${each##*/}; "
              "ubus call uci add '{\"config\":\"'$package'\",\"type\":\"t\",\"name\":\"n\"}' >&-; "
              "ubus call uci delete '{\"config\":\"'$package'\",\"section\":\"n\"}'; "
              "uci commit $package; done; diff -r /etc/before /etc/config")
            .out);
}

TEST_F(SandboxRun, FindsTheSimulatedToolsFirst) {
    const std::string bin = support::runProgram({"realpath", TAVO_BUILD_DIR "/sandbox/bin"}).out;
    EXPECT_EQ(bin.substr(0, bin.size() - 1) + "/ubus\n", shell("command -v ubus").out);
    EXPECT_EQ(bin.substr(0, bin.size() - 1) + "/uci\n", shell("command -v uci").out);
}

TEST_F(SandboxRun, ServiceScriptsNoteWhatTheyWereAsked) {
    EXPECT_EQ("network restart\n"
              "dnsmasq restart\n"
              "sysntpd restart\n"
              "system reload now\n"
              "stopAgent.sh agent1\n"
              "ZEQ/bin/run.sh restart\n"
              "NodeRED/bin/run.sh stop\n",
              shell("/etc/init.d/network restart; /etc/init.d/dnsmasq restart; "
                    "/etc/init.d/sysntpd restart; /etc/init.d/system reload now; "
                    "/opt/components/mng/AG_Config/bin/stopAgent.sh agent1; "
                    "/opt/apps/ZEQ/bin/run.sh restart; /opt/apps/NodeRED/bin/run.sh stop; "
                    "cat /tmp/init.d.log")
                  .out);
}

TEST_F(SandboxRun, BootEnvironmentIsReadByTheRealTool) {
    if (shell("command -v fw_printenv").status != 0)
        GTEST_SKIP() << "fw_printenv is not installed";
    EXPECT_EQ("sn=GW0123456789\n", run({"fw_printenv", "sn"}).out);
    const Ran all = run({"fw_printenv"});
    EXPECT_EQ(0, all.status);
    EXPECT_EQ("", all.err); // the tool would report a wrong checksum here
    EXPECT_THAT(all.out, HasSubstr("ethaddr=02:00:5e:10:20:30\n"));
    EXPECT_EQ("sn=changed\n", shell("fw_setenv sn changed; fw_printenv sn").out);
}

// --- the host inside -----------------------------------------------------------------------------

TEST_F(SandboxRun, KeepsTheHostsOwnConfiguration) {
    EXPECT_EQ(support::readFile("/etc/passwd"), run({"cat", "/etc/passwd"}).out);
    EXPECT_EQ(support::runProgram({"cat", "/etc/os-release"}).out,
              run({"cat", "/etc/os-release"}).out);
    EXPECT_EQ("", shell("ls /etc > /dev/null; for each in /etc/*; do "
                        "[ -e $each ] || [ ! -e /opt/.host$each ] || echo $each; done")
                      .out);
}

TEST_F(SandboxRun, DoesNotLetTheHostsConfigurationBeWritten) {
    const std::string before = support::readFile("/etc/passwd");
    EXPECT_NE(0, shell("echo x >> /etc/passwd").status);
    EXPECT_EQ(before, support::readFile("/etc/passwd"));
}

TEST_F(SandboxRun, NewFilesInEtcOptAndTmpStayInside) {
    EXPECT_EQ(0,
              shell("for each in /etc /opt /tmp /etc/config /opt/apps; do "
                    "echo x > $each/tavo-test-file && [ -e $each/tavo-test-file ] || exit 1; done")
                  .status);
    for (const char* directory : {"/etc", "/opt", "/tmp"})
        EXPECT_FALSE(support::exists(std::string(directory) + "/tavo-test-file"));
}

TEST_F(SandboxRun, LockDirectoryIsItsOwn) {
    if (!support::exists("/var/lock"))
        GTEST_SKIP() << "this machine has no /var/lock";
    EXPECT_EQ("", shell("ls -A /var/lock; echo x > /var/lock/tavo-test-file").out);
    EXPECT_FALSE(support::exists("/var/lock/tavo-test-file"));
}

TEST_F(SandboxRun, StaysInTheWorkingDirectoryUnderItsOwnName) {
    const support::TempDir directory; // under /tmp, which the sandbox replaces
    support::writeFile(directory / "input", "from outside\n");
    const Ran ran = support::runProgram(
        {"sh", "-c", R"(cd "$1" && exec "$2" sh -c 'pwd -P; cat input; echo back > output')", "sh",
         directory.path(), TAVO_SANDBOX_RUN},
        {"TAVO_BUILD_DIR=" TAVO_BUILD_DIR});
    EXPECT_EQ(directory.path() + "\nfrom outside\n", ran.out);
    EXPECT_EQ("back\n", support::readFile(directory / "output"));
}

TEST_F(SandboxRun, ReachesTreesUnderTmpByTheirNames) {
    const support::TempDir directory;
    EXPECT_EQ(0, run({"sh", "-c", "echo x > \"$1\"", "sh", directory / "output"}).status);
    EXPECT_EQ("x\n", support::readFile(directory / "output"));
}

TEST_F(SandboxRun, RunsAProgramThatLiesUnderTmp) {
    const support::TempDir directory;
    support::writeFile(directory / "program", "#!/bin/sh\nreadlink -f \"$0\"\n", 0755);
    EXPECT_EQ(directory / "program\n", run({directory / "program"}).out);
}

TEST_F(SandboxRun, DoesNotShowTheHostsLockFilesAndLogs) {
    const std::string lock = "/tmp/tavo-test-" + std::to_string(getpid()) + ".pid";
    support::writeFile(lock, "");
    EXPECT_EQ("", shell("ls -d " + lock + " /tmp/log.out /tmp/socketDDS 2>/dev/null").out);
    unlink(lock.c_str());
}

TEST_F(SandboxRun, WorksInsideItself) {
    const Ran ran = run({TAVO_SANDBOX_RUN, "uci", "get", "network.lan"});
    EXPECT_EQ("interface\n", ran.out);
    EXPECT_EQ(0, ran.status) << ran.err;
}

// --- GPIO ----------------------------------------------------------------------------------------

TEST_F(SandboxRun, GpioReadsSignalsFromTheStateFile) {
    EXPECT_EQ("41\n12050\n0\n0\n0\n",
              run({TAVO_GPIO_PROBE, "temperature", "voltage", "bin0", "bin1", "out0"}).out);
    EXPECT_EQ("1\n7\n-1\n", shell("printf 'bin0 1\\nbin1 7\\n' > /tmp/gpio.state; " TAVO_GPIO_PROBE
                                  " bin0 bin1 temperature")
                                .out);
}

TEST_F(SandboxRun, GpioWritesSignalsIntoTheStateFile) {
    EXPECT_EQ("0\n0\n0\n0\n0\n1\n"
              "led_sim 1\nled_wan 2\nled_usr 3\nled_pwr 0\nout0 1\nbin0 0\nbin1 0\n"
              "temperature 41\nvoltage 12050\n",
              shell(TAVO_GPIO_PROBE " led_sim=1 led_wan=2 led_usr=3 led_pwr=0 out0=1 out0; "
                                    "grep -v '^#' /tmp/gpio.state")
                  .out);
}

TEST_F(SandboxRun, GpioSeesAnInputThatChangesWhileTheDeviceIsOpen) {
    EXPECT_EQ("0\n1\n", run({TAVO_GPIO_PROBE, "bin0",
                             "sh:sed -i 's/^bin0 0/bin0 1/' /tmp/gpio.state", "bin0"})
                            .out);
}

TEST_F(SandboxRun, GpioRefusesUnknownRequests) {
    EXPECT_EQ("-1 Invalid argument\n", run({TAVO_GPIO_PROBE, "0x80004299"}).out);
    EXPECT_EQ("-1 Invalid argument\n",
              run({TAVO_GPIO_PROBE, "0x80004205"}).out); // the LEDs are write-only
    EXPECT_EQ("-1 " + reason(ENOTTY) + "\n", run({TAVO_GPIO_PROBE, "0x5401"}).out);
}

TEST_F(SandboxRun, GpioPassesNegativeReadingsAsErrorsLikeADriver) {
    EXPECT_EQ("-1\n0\n-1 " + reason(EIO) + "\n",
              shell("printf 'temperature -5\\nbin0 -5\\n' > /tmp/gpio.state; " TAVO_GPIO_PROBE
                    " temperature bin0 0x80004211")
                  .out);
}

TEST_F(SandboxRun, GpioWithoutAStateFileIsABoardWithoutTheDevice) {
    EXPECT_EQ("-1\n0\n-1\n",
              shell("rm /tmp/gpio.state; " TAVO_GPIO_PROBE " led_wan=1 bin0 voltage").out);
    EXPECT_EQ("No such file or directory\n",
              shell("rm /tmp/gpio.state; " TAVO_GPIO_PROBE " hold").out);
}

TEST_F(SandboxRun, GpioDeviceIsInheritedByOtherPrograms) {
    EXPECT_EQ(reason(0) + "\n41 " + reason(0) + "\n",
              run({TAVO_GPIO_PROBE, "hold", "sh:" TAVO_GPIO_PROBE " 0x80004211"}).out);
}

TEST_F(SandboxRun, GpioLeavesOtherDescriptorsAlone) {
    EXPECT_THAT(run({"bash", "-c", "exec 9<>/dev/null; " TAVO_GPIO_PROBE " 0x80004211"}).out,
                AnyOf("-1 " + reason(ENOTTY) + "\n",
                      "-1 Function not implemented\n")); // an emulator answers before the kernel
}

// --- a root that is kept -------------------------------------------------------------------------

class SandboxRunRoot : public SandboxRun {
protected:
    std::string root() const { return directory_ / "kept root"; }
    Arguments withRoot(const Arguments& command) const {
        return Arguments{"--root", root()} + command;
    }
    /// Returns every name in the root's directories that the sandbox fills with links.
    std::string names() const {
        return support::runProgram(
                   {"ls", "-A", root(), root() + "/etc", root() + "/opt", root() + "/tmp"})
            .out;
    }

    support::TempDir directory_;
};

TEST_F(SandboxRunRoot, KeepsWhatTheProgramDid) {
    const Ran ran =
        run(withRoot({"sh", "-c",
                      "ubus call uci set '{\"config\":\"network\",\"section\":\"lan\",\"values\":"
                      "{\"ipaddr\":\"10.1.1.1\"}}'; uci commit network; echo x > /etc/new; "
                      "/etc/init.d/network restart; echo line > /tmp/log.out; exit 9"}));
    EXPECT_EQ(9, ran.status);
    EXPECT_THAT(support::readFile(root() + "/etc/config/network"),
                HasSubstr("\toption ipaddr '10.1.1.1'\n"));
    EXPECT_EQ("x\n", support::readFile(root() + "/etc/new"));
    EXPECT_EQ("network restart\n", support::readFile(root() + "/tmp/init.d.log"));
    EXPECT_EQ("line\n", support::readFile(root() + "/tmp/log.out"));
}

TEST_F(SandboxRunRoot, HoldsNothingOfTheHostAfterwards) {
    EXPECT_EQ(0, run(withRoot({"true"})).status);
    const std::string r = root();
    EXPECT_EQ(r + ":\netc\nopt\ntmp\nvar\n\n" + r +
                  "/etc:\nconfig\nfw_env.config\ninit.d\nuboot.env\n\n" + r +
                  "/opt:\napps\ncomponents\n\n" + r + "/tmp:\ngpio.state\n",
              names());
}

TEST_F(SandboxRunRoot, ContinuesWhereTheLastRunEnded) {
    run(withRoot({"sh", "-c", "echo 'config a b' > /etc/config/mine"}));
    EXPECT_EQ("a\n", run(withRoot({"uci", "get", "mine.b"})).out);
}

TEST_F(SandboxRunRoot, PassesInputAndStatusOfASignalOn) {
    EXPECT_EQ("in\n", run(withRoot({"cat"}), "in\n").out);
    EXPECT_EQ(128 + SIGSEGV, run(withRoot({"sh", "-c", "kill -SEGV $$"})).status);
}

TEST_F(SandboxRunRoot, PassesSignalsOnAndTidiesUp) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        RunningProgram program(
            sandbox(withRoot({"sh", "-c",
                              "trap 'echo caught; exit 5' INT TERM HUP; echo ready; "
                              "while :; do sleep 0.02; done"})),
            {"TAVO_BUILD_DIR=" TAVO_BUILD_DIR});
        ASSERT_TRUE(support::eventually([&] { return program.outSoFar() == "ready\n"; }));
        kill(program.pid(), signal);
        const Ran ran = program.wait();
        EXPECT_EQ(5, ran.status) << signal;
        EXPECT_EQ("ready\ncaught\n", ran.out) << signal;
        EXPECT_EQ("", support::runProgram({"find", root(), "-lname", "/opt/.host/*"}).out);
    }
}

TEST_F(SandboxRunRoot, CtrlCAtATerminalReachesTheProgramOnce) {
    // With a runner that waits for the program, and with one that does not.
    for (const Arguments& options : {Arguments{}, Arguments{"--root", root()}}) {
        Terminal terminal(sandbox(
            options + Arguments{"sh", "-c",
                                "trap 'echo caught' INT; echo ready; while ! [ -e \"$1\" ]; do "
                                "sleep 0.02; done; read line; echo \"got $line\"; exit 3",
                                "sh", directory_ / "go"}));
        ASSERT_TRUE(terminal.waitFor("ready"));
        terminal.type("\x03");
        ASSERT_TRUE(terminal.waitFor("caught"));
        support::writeFile(directory_ / "go", "");
        terminal.type("text\n");
        EXPECT_EQ(3, terminal.wait());
        EXPECT_EQ("ready\r\ncaught\r\ngot text\r\n", terminal.text());
        unlink((directory_ / "go").c_str());
    }
}

TEST_F(SandboxRunRoot, ProgramDiesWithARunnerThatIsKilled) {
    // The program becomes this process's child when its parent ends. Process 1 may not reap it.
    ASSERT_EQ(0, prctl(PR_SET_CHILD_SUBREAPER, 1));
    RunningProgram program(sandbox(withRoot({"sh", "-c", "echo $$; exec sleep 60"})),
                           {"TAVO_BUILD_DIR=" TAVO_BUILD_DIR});
    ASSERT_TRUE(support::eventually([&] { return !program.outSoFar().empty(); }));
    const pid_t inside = std::stoi(program.outSoFar());
    EXPECT_NE(program.pid(), inside);
    kill(program.pid(), SIGKILL);
    EXPECT_EQ(128 + SIGKILL, program.wait().status);
    int status = 0;
    EXPECT_TRUE(support::eventually([&] { return waitpid(inside, &status, WNOHANG) == inside; }));
    EXPECT_EQ(SIGKILL, status);
    // The next run detects and removes the leftovers.
    EXPECT_EQ("interface\n", run(withRoot({"uci", "get", "network.lan"})).out);
    EXPECT_EQ("", support::runProgram({"find", root(), "-lname", "/opt/.host/*"}).out);
}

TEST_F(SandboxRunRoot, ProgramDoesNotStartWhenItsRunnerIsGoneAlready) {
    // As the runner starts it, but with a process id that is not the parent's.
    Arguments command = {"unshare", "--mount"};
    if (support::runProgram(command + Arguments{"true"}).status != 0)
        command = {"unshare", "--user", "--map-root-user", "--mount"};
    const Ran ran = support::runProgram(command + Arguments{TAVO_SANDBOX_RUN, "--inside-of", "1",
                                                            TAVO_BUILD_DIR "/sandbox/bin", root(),
                                                            "/", "echo", "started"});
    EXPECT_EQ(125, ran.status);
    EXPECT_EQ("", ran.out + ran.err);
    EXPECT_FALSE(support::exists(root()));
}

TEST_F(SandboxRunRoot, BelongsToOneRunAtATime) {
    RunningProgram first(sandbox(withRoot({"sh", "-c", "echo ready; exec sleep 60"})),
                         {"TAVO_BUILD_DIR=" TAVO_BUILD_DIR});
    ASSERT_TRUE(support::eventually([&] { return first.outSoFar() == "ready\n"; }));
    const Ran second = run(withRoot({"true"}));
    EXPECT_EQ(125, second.status);
    EXPECT_EQ("sandbox: " + root() + " is in use by another run\n", second.err);
    kill(first.pid(), SIGTERM);
    EXPECT_EQ(128 + SIGTERM, first.wait().status);
}

// --- an ordinary user ----------------------------------------------------------------------------

TEST_F(SandboxRun, WorksForAnOrdinaryUser) {
    if (geteuid() != 0)
        GTEST_SKIP() << "every other case shows it";
    if (support::runProgram(kAsNobody + kTryNamespaces).status != 0)
        GTEST_SKIP() << "user namespaces are off";
    if (support::runProgram(kAsNobody + Arguments{"test", "-x", TAVO_BUILD_DIR "/sandbox/bin/ubus"})
            .status != 0)
        GTEST_SKIP() << "others may not read " TAVO_BUILD_DIR;
    const support::TempDir directory;
    ASSERT_EQ(0, chmod(directory.path().c_str(), 0777));
    const Ran ran = support::runProgram(
        kAsNobody +
            sandbox({"--root", directory / "root", "sh", "-c",
                     "ubus call uci add '{\"config\":\"network\",\"name\":\"g\",\"type\":\"t\"}'; "
                     "uci commit; /etc/init.d/network restart; echo x > /etc/new; fw_printenv sn; "
                     "echo x 2>/dev/null >> /etc/passwd && echo wrote; " TAVO_GPIO_PROBE
                     " led_wan=1; exit 4"}),
        {"TAVO_BUILD_DIR=" TAVO_BUILD_DIR, "HOME=/"});
    EXPECT_EQ(4, ran.status);
    EXPECT_EQ("{\n\t\"section\": \"g\"\n}\nsn=GW0123456789\n0\n", ran.out) << ran.err;
    EXPECT_THAT(support::readFile(directory / "root/etc/config/network"),
                HasSubstr("config t 'g'\n"));
    EXPECT_EQ("network restart\n", support::readFile(directory / "root/tmp/init.d.log"));
    struct stat kept {};
    ASSERT_EQ(0, stat((directory / "root/etc/new").c_str(), &kept));
    EXPECT_EQ(65534U, kept.st_uid);
}

} // namespace
