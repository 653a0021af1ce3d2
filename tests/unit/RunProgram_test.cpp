// The tests' own means to start processes: nothing may be left of a test that is killed itself, as
// by its time limit.

#include "RunProgram.h"

#include "ForkedChild.h"

#include <csignal>
#include <functional>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

/// Has a copy of this process start another process, which `start` gives, and kills the copy; true
/// when the other one was killed by that, or ended by itself because the copy was gone already.
bool endsWhatIsStartedBy(const std::function<pid_t()>& start) {
    prctl(PR_SET_CHILD_SUBREAPER, 1); // the other one's end is told to this process
    int ends[2];
    EXPECT_EQ(0, pipe(ends));
    const pid_t copy = fork();
    if (copy == 0) {
        const pid_t started = start();
        (void)!write(ends[1], &started, sizeof started);
        pause();
    }
    pid_t started = -1;
    EXPECT_EQ(static_cast<ssize_t>(sizeof started), read(ends[0], &started, sizeof started));
    close(ends[0]);
    close(ends[1]);
    kill(copy, SIGKILL);
    EXPECT_EQ(copy, waitpid(copy, nullptr, 0));
    int status = 0;
    EXPECT_EQ(started, waitpid(started, &status, 0));
    return WIFSIGNALED(status) ? WTERMSIG(status) == SIGKILL : WEXITSTATUS(status) == 127;
}

} // namespace

TEST(RunningProgram, EndsWithTheProcessThatStartedIt) {
    EXPECT_TRUE(endsWhatIsStartedBy([] {
        static support::RunningProgram program({"sleep", "20"});
        return program.pid();
    }));
}

TEST(ForkedChild, EndsWithTheProcessThatForkedIt) {
    EXPECT_TRUE(endsWhatIsStartedBy([] {
        const pid_t parent = getpid();
        const pid_t child = fork();
        if (child == 0) {
            support::endWithParent(parent);
            sleep(20);
            _exit(0);
        }
        return child;
    }));
}
