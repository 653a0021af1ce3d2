// How the tests start processes. A test that is killed (by its time limit, for example) must leave
// no process behind.

#include "RunProgram.h"

#include "ForkedChild.h"

#include <csignal>
#include <functional>
#include <string>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

/// Forks a copy of this process, which starts another process by `start`. Kills the copy once that
/// process has written a byte to its descriptor. Returns whether that process ends soon after.
bool endsWhatIsStartedBy(const std::function<void(int)>& start) {
    int alive[2]; // the writing end stays open while one of the two processes runs
    EXPECT_EQ(0, pipe(alive));
    const pid_t copy = fork();
    if (copy == 0) {
        start(alive[1]);
        pause();
    }
    close(alive[1]);
    char started = 0;
    EXPECT_EQ(1, read(alive[0], &started, 1));
    kill(copy, SIGKILL);
    EXPECT_EQ(copy, waitpid(copy, nullptr, 0));
    pollfd ended = {alive[0], POLLIN, 0};
    const bool soon = poll(&ended, 1, 10000) == 1 && read(alive[0], &started, 1) == 0;
    close(alive[0]);
    return soon;
}

TEST(RunningProgram, EndsWithTheProcessThatStartedIt) {
    EXPECT_TRUE(endsWhatIsStartedBy([](int descriptor) {
        static support::RunningProgram program(
            {"sh", "-c", "echo >/proc/self/fd/" + std::to_string(descriptor) + "; exec sleep 20"});
    }));
}

TEST(ForkedChild, EndsWithTheProcessThatForkedIt) {
    EXPECT_TRUE(endsWhatIsStartedBy([](int descriptor) {
        const pid_t parent = getpid();
        if (fork() == 0) {
            support::endWithParent(parent);
            (void)!write(descriptor, "\n", 1);
            sleep(20);
            _exit(0);
        }
    }));
}

} // namespace
