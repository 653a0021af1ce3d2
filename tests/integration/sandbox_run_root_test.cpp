// The sandbox's runner with a root directory that it keeps (--root).

#include "RunProgram.h"
#include "SandboxRun.h"
#include "TempDir.h"
#include "Waiting.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include <poll.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::operator+;
using support::Arguments;
using support::ProgramResult;
using support::RunningProgram;
using support::SandboxRun;
using testing::HasSubstr;

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
    const ProgramResult ran =
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
        const ProgramResult ran = program.wait();
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
    const ProgramResult ran = support::runProgram(
        command + Arguments{TAVO_SANDBOX_RUN, "--inside-of", "1", TAVO_BUILD_DIR "/sandbox/bin",
                            root(), "/", "echo", "started"});
    EXPECT_EQ(125, ran.status);
    EXPECT_EQ("", ran.out + ran.err);
    EXPECT_FALSE(support::exists(root()));
}

TEST_F(SandboxRunRoot, BelongsToOneRunAtATime) {
    RunningProgram first(sandbox(withRoot({"sh", "-c", "echo ready; exec sleep 60"})),
                         {"TAVO_BUILD_DIR=" TAVO_BUILD_DIR});
    ASSERT_TRUE(support::eventually([&] { return first.outSoFar() == "ready\n"; }));
    const ProgramResult second = run(withRoot({"true"}));
    EXPECT_EQ(125, second.status);
    EXPECT_EQ("sandbox: " + root() + " is in use by another run\n", second.err);
    kill(first.pid(), SIGTERM);
    EXPECT_EQ(128 + SIGTERM, first.wait().status);
}

} // namespace
