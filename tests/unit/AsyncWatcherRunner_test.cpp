#include <kvr/api/AsyncWatcherRunner.h>

#include "CapturedOutput.h"
#include "Descriptors.h"
#include "HeldThreads.h"
#include "Interposed.h"
#include "LoopPasses.h"
#include "TempDir.h"
#include "Threads.h"
#include "Waiting.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <fstream>
#include <functional>
#include <future>
#include <mutex>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <vector>

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using std::chrono::steady_clock;
using support::eventually;
using support::HeldThreads;
using support::interposedPoll;
using support::LoopPasses;
using support::openDescriptors;
using support::openedSince;
using support::Stub;
using support::TempDir;
using support::writeFile;
using testing::IsEmpty;

static_assert(!std::is_polymorphic<AsyncWatcherRunner>::value, "it has no virtual operation");

/// What the callbacks received on the runner's thread.
struct Arrivals {
    std::mutex guard;
    std::vector<std::string> names;    // guarded by the mutex
    std::set<std::thread::id> threads; // guarded by the mutex
    std::function<void()> action;

    static void note(const Watcher&, const std::string& name, unsigned int, void* context) {
        auto* const self = static_cast<Arrivals*>(context);
        {
            const std::lock_guard<std::mutex> lock(self->guard);
            self->names.push_back(name);
            self->threads.insert(std::this_thread::get_id());
        }
        if (self->action)
            self->action();
    }

    std::size_t count() {
        const std::lock_guard<std::mutex> lock(guard);
        return names.size();
    }

    bool reach(std::size_t wanted) {
        return eventually([&] { return count() >= wanted; }, std::chrono::seconds(30));
    }
};

class AsyncWatcherRunnerTest : public testing::Test {
protected:
    void watchDirectory() {
        runner.watcher().attachWatcher(
            Watcher(directory.path(), IN_CREATE | IN_DELETE, Arrivals::note, &arrivals));
    }

    TempDir directory;
    Arrivals arrivals;
    AsyncWatcherRunner runner;
};

TEST_F(AsyncWatcherRunnerTest, IsIdleAtFirst) {
    HeldThreads threads;
    EXPECT_FALSE(runner.isRunning());
    EXPECT_EQ(0, threads.made());
    EXPECT_EQ(&runner.watcher(), &runner.watcher());
}

TEST_F(AsyncWatcherRunnerTest, StopWithoutAStartDoesNothing) {
    HeldThreads threads;
    runner.stopWatcher();
    EXPECT_FALSE(runner.isRunning());
    EXPECT_EQ(0, threads.made());
    EXPECT_TRUE(threads.joinsReach(0));
}

TEST_F(AsyncWatcherRunnerTest, CallsBackOnASeparateThread) {
    LoopPasses loop;
    watchDirectory();
    runner.startWatcher();
    EXPECT_TRUE(runner.isRunning());
    writeFile(directory / "a", "");
    EXPECT_TRUE(arrivals.reach(1));
    runner.stopWatcher();
    EXPECT_FALSE(runner.isRunning());
    EXPECT_EQ(1u, arrivals.threads.size());
    EXPECT_EQ(0u, arrivals.threads.count(std::this_thread::get_id()));
    EXPECT_EQ(std::vector<std::string>{"a"}, arrivals.names);
}

TEST_F(AsyncWatcherRunnerTest, SecondStartMakesNoSecondThread) {
    HeldThreads threads;
    LoopPasses loop;
    watchDirectory();
    runner.startWatcher();
    runner.startWatcher();
    EXPECT_TRUE(runner.isRunning());
    EXPECT_EQ(1, threads.made());
    ASSERT_TRUE(loop.wait());
    runner.stopWatcher();
    EXPECT_EQ(1, threads.made());
}

TEST_F(AsyncWatcherRunnerTest, CanBeStartedAndStoppedAgain) {
    HeldThreads threads;
    LoopPasses loop;
    watchDirectory();
    for (int round = 1; round <= 3; ++round) {
        runner.startWatcher();
        EXPECT_TRUE(runner.isRunning());
        EXPECT_EQ(round, threads.made());
        ASSERT_TRUE(loop.wait());
        writeFile(directory / "f" + std::to_string(round), "");
        EXPECT_TRUE(arrivals.reach(static_cast<std::size_t>(round)));
        runner.stopWatcher();
        EXPECT_FALSE(runner.isRunning());
        runner.stopWatcher(); // idle already: does nothing
    }
    EXPECT_EQ(3, threads.made());
    const int passes = loop.count();
    writeFile(directory / "late", "");
    EXPECT_EQ(passes, loop.count());
    EXPECT_EQ(3u, arrivals.count());
}

TEST_F(AsyncWatcherRunnerTest, IsRunningBeforeTheThreadReachesItsLoop) {
    HeldThreads threads;
    LoopPasses loop;
    threads.hold();
    runner.startWatcher();
    EXPECT_TRUE(runner.isRunning());
    EXPECT_EQ(0, loop.count());
    threads.release();
    ASSERT_TRUE(loop.wait());
    runner.stopWatcher();
}

TEST_F(AsyncWatcherRunnerTest, StopBeforeTheThreadReachesItsLoopIsLost) {
    HeldThreads threads;
    LoopPasses loop;
    std::promise<void> started;
    std::atomic<bool> returned{false};
    std::thread owner([&] {
        started.get_future().wait();
        runner.stopWatcher();
        returned = true;
    });
    threads.hold();
    runner.startWatcher();
    started.set_value();
    EXPECT_TRUE(threads.joinsReach(1)); // the stop flag is set, and the owner waits
    threads.release();
    EXPECT_TRUE(loop.wait(20)); // the loop has cleared the flag on entry
    EXPECT_FALSE(returned);
    runner.watcher().stop();
    owner.join();
    EXPECT_TRUE(returned);
    EXPECT_FALSE(runner.isRunning());
}

TEST_F(AsyncWatcherRunnerTest, ThreadThatCannotBeMadeIsAnErrorAndLeavesTheRunnerIdle) {
    HeldThreads threads;
    LoopPasses loop;
    threads.refuse(true);
    try {
        runner.startWatcher();
        ADD_FAILURE() << "no exception";
    } catch (const std::system_error& error) {
        EXPECT_EQ(std::errc::resource_unavailable_try_again, error.code());
    }
    EXPECT_FALSE(runner.isRunning());
    runner.stopWatcher();
    threads.refuse(false);
    runner.startWatcher();
    EXPECT_TRUE(runner.isRunning());
    ASSERT_TRUE(loop.wait());
    runner.stopWatcher();
}

TEST_F(AsyncWatcherRunnerTest, StopWaitsForTheCallbackInProgress) {
    LoopPasses loop;
    std::mutex guard;
    std::condition_variable changed;
    bool inCallback = false;
    bool mayReturn = false;
    bool callbackDone = false;
    bool runningInCallback = false;
    arrivals.action = [&] {
        std::unique_lock<std::mutex> lock(guard);
        inCallback = true;
        changed.notify_all();
        changed.wait(lock, [&] { return mayReturn; });
        runningInCallback = runner.isRunning(); // while the owner blocks in stopWatcher()
        callbackDone = true;
    };
    watchDirectory();
    HeldThreads threads;
    runner.startWatcher();
    writeFile(directory / "a", "");
    {
        std::unique_lock<std::mutex> lock(guard);
        changed.wait(lock, [&] { return inCallback; });
    }
    std::thread helper([&] {
        EXPECT_TRUE(threads.joinsReach(1)); // the owner now waits for the loop
        const std::lock_guard<std::mutex> lock(guard);
        mayReturn = true;
        changed.notify_all();
    });
    runner.stopWatcher();
    EXPECT_TRUE(callbackDone);
    EXPECT_TRUE(runningInCallback);
    EXPECT_FALSE(runner.isRunning());
    helper.join();
}

TEST_F(AsyncWatcherRunnerTest, StopTakesOnePassOfHalfASecondAtMost) {
    std::atomic<int> passes{0};
    const Stub polling(interposedPoll, [&](pollfd* polled, nfds_t count, int timeout) {
        ++passes;
        return interposedPoll.real(polled, count, timeout);
    });
    runner.startWatcher();
    ASSERT_TRUE(eventually([&] { return passes > 0; }));
    const auto start = steady_clock::now();
    runner.stopWatcher();
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(3));
    EXPECT_LE(passes, 2);
}

TEST_F(AsyncWatcherRunnerTest, BurstOfTenThousandWhileTheLoopRunsLosesNothing) {
    constexpr int kEvents = 10000;
    int limit = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
    if (limit < kEvents)
        GTEST_SKIP() << "this machine queues only " << limit << " events";
    LoopPasses loop;
    watchDirectory();
    runner.startWatcher();
    ASSERT_TRUE(loop.wait());
    std::vector<std::string> expected;
    for (int i = 0; i < kEvents / 2; ++i) {
        const std::string name = "f" + std::to_string(i);
        const std::string path = directory / name;
        const int file = open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        ASSERT_NE(-1, file) << path;
        close(file);
        ASSERT_EQ(0, unlink(path.c_str()));
        expected.insert(expected.end(), 2, name);
    }
    EXPECT_TRUE(arrivals.reach(kEvents));
    runner.stopWatcher();
    EXPECT_EQ(expected, arrivals.names);
}

TEST_F(AsyncWatcherRunnerTest, LeavesNoDescriptorAndNoThread) {
    LoopPasses loop;
    const std::size_t threads = support::threadsAfterAFirst();
    const std::set<int> before = openDescriptors();
    {
        AsyncWatcherRunner own;
        own.watcher().attachWatcher(
            Watcher(directory.path(), IN_CREATE, Arrivals::note, &arrivals));
        own.startWatcher();
        ASSERT_TRUE(loop.wait());
        EXPECT_EQ(threads + 1, support::threadsOfThisProcess());
        own.stopWatcher();
    }
    EXPECT_THAT(openedSince(before), IsEmpty());
    EXPECT_TRUE(support::threadsFallBackTo(threads));
}

TEST(AsyncWatcherRunnerDeathTest, DestroyingARunningRunnerEndsTheProcess) {
    EXPECT_EXIT(
        {
            AsyncWatcherRunner runner;
            runner.startWatcher();
        },
        testing::KilledBySignal(SIGABRT),
        "terminate called without an active exception|abi: terminating"); // libstdc++, libc++
}

} // namespace
