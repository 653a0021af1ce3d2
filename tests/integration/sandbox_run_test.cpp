// The sandbox's runner: what a program finds inside, and that the host does not change.

#include "RunProgram.h"
#include "SandboxRun.h"
#include "TempDir.h"
#include "Waiting.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::operator+;
using support::Arguments;
using support::kAsNobody;
using support::kTryNamespaces;
using support::ProgramResult;
using support::RunningProgram;
using support::SandboxRun;
using testing::AnyOf;
using testing::HasSubstr;
using testing::StartsWith;

std::string reason(int error) { return std::strerror(error); }

// --- the program as a process --------------------------------------------------------------------

TEST_F(SandboxRun, PassesTheExitStatusOn) {
    EXPECT_EQ(0, run({"true"}).status);
    EXPECT_EQ(7, shell("exit 7").status);
    EXPECT_EQ(128 + SIGSEGV, shell("kill -SEGV $$").status);
    EXPECT_EQ(127, run({"no-such-program"}).status);
    EXPECT_EQ(126, run({"/etc/passwd"}).status);
}

TEST_F(SandboxRun, PassesInputOutputAndErrorsThrough) {
    const ProgramResult ran = shell("cat; echo wrong >&2", "some input\n");
    EXPECT_EQ("some input\n", ran.out);
    EXPECT_EQ("wrong\n", ran.err);
}

TEST_F(SandboxRun, PassesArgumentsUnchanged) {
    EXPECT_EQ("[a b][][$x'\"][-n][--root]",
              run({"printf", "[%s]", "a b", "", "$x'\"", "-n", "--root"}).out);
}

TEST_F(SandboxRun, IsReplacedByTheProgram) {
    RunningProgram program(sandbox({"sh", "-c", "echo $$"}), {"TAVO_BUILD_DIR=" TAVO_BUILD_DIR});
    const std::string pid = std::to_string(program.pid());
    EXPECT_EQ(pid + "\n", program.wait().out);
}

TEST_F(SandboxRun, PassesSignalsToTheProgram) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        RunningProgram program(sandbox({"sh", "-c",
                                        "trap 'echo caught; exit 5' INT TERM HUP; echo ready; "
                                        "while :; do sleep 0.02; done"}),
                               {"TAVO_BUILD_DIR=" TAVO_BUILD_DIR});
        ASSERT_TRUE(support::eventually([&] { return program.outSoFar() == "ready\n"; }));
        kill(program.pid(), signal);
        const ProgramResult ran = program.wait();
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

TEST_F(SandboxRun, RefusesWrongCommandLines) {
    for (const Arguments& arguments :
         {Arguments{}, Arguments{"--unknown", "true"}, Arguments{"--root"}}) {
        const ProgramResult ran = run(arguments);
        EXPECT_EQ(2, ran.status);
        EXPECT_EQ("", ran.out);
        EXPECT_THAT(ran.err, StartsWith("Usage: sandbox/run "));
    }
    EXPECT_THAT(run({"--help"}).out, StartsWith("Usage: sandbox/run "));
}

TEST_F(SandboxRun, NamesTheMissingBuild) {
    const support::TempDir empty;
    const ProgramResult ran =
        support::runProgram(sandbox({"true"}), {"TAVO_BUILD_DIR=" + empty.path()});
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

TEST_F(SandboxRun, ServiceScriptsRecordTheirArguments) {
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
    const ProgramResult all = run({"fw_printenv"});
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

TEST_F(SandboxRun, HasASeparateLockDirectory) {
    if (!support::exists("/var/lock"))
        GTEST_SKIP() << "this machine has no /var/lock";
    EXPECT_EQ("", shell("ls -A /var/lock; echo x > /var/lock/tavo-test-file").out);
    EXPECT_FALSE(support::exists("/var/lock/tavo-test-file"));
}

TEST_F(SandboxRun, StaysInTheWorkingDirectoryUnderItsOwnName) {
    const support::TempDir directory; // under /tmp, which the sandbox replaces
    support::writeFile(directory / "input", "from outside\n");
    const ProgramResult ran = support::runProgram(
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

TEST_F(SandboxRun, RunsInsideAnotherSandbox) {
    const ProgramResult ran = run({TAVO_SANDBOX_RUN, "uci", "get", "network.lan"});
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

// --- an ordinary user ----------------------------------------------------------------------------

TEST_F(SandboxRun, WorksForAnOrdinaryUser) {
    if (geteuid() != 0)
        GTEST_SKIP() << "this user is an ordinary one: the other tests cover it";
    if (support::runProgram(kAsNobody + kTryNamespaces).status != 0)
        GTEST_SKIP() << "user namespaces are off";
    if (support::runProgram(kAsNobody + Arguments{"test", "-x", TAVO_BUILD_DIR "/sandbox/bin/ubus"})
            .status != 0)
        GTEST_SKIP() << "other users may not read " TAVO_BUILD_DIR;
    const support::TempDir directory;
    ASSERT_EQ(0, chmod(directory.path().c_str(), 0777));
    const ProgramResult ran = support::runProgram(
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
