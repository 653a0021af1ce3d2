// The tests' own means to start processes: nothing may be left of a test that is killed itself, as
// by its time limit.

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

/// Has a copy of this process start another process by `start`, and kills the copy once the other
/// one has written a byte to the descriptor given; true when that one has ended soon after.
bool endsWhatIsStartedBy(const std::function<void(int)>& start) {
    int alive[2]; // the writing end is open as long as one of the two lives
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

} // namespace

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
