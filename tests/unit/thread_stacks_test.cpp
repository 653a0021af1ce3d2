// How much stack the library needs on the threads that run callbacks. The rest of a small stack
// (128 KiB with musl) is left for the callbacks. docs/porting.md has the table.

#include <kvr/api/AsyncWatcherRunner.h>
#include <kvr/api/NQ_AutoMount.h>
#include <kvr/api/file/NQ_Files.h>

#include "AutoMountFixture.h"
#include "CLibrary.h"
#include "CapturedOutput.h"
#include "FakePrograms.h"
#include "Interposed.h"
#include "LoopPasses.h"
#include "PrivateMounts.h"
#include "TempDir.h"
#include "Waiting.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include <pthread.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

constexpr std::size_t kLimit = 16 * 1024;
constexpr std::size_t kStackSize = 512 * 1024;
constexpr unsigned char kPaint = 0xA5;

/// One thread on a painted stack: bytes that are no longer painted were used. The stack stays
/// mapped until the process ends, because nothing reports the end of a detached thread.
struct MeasuredThread {
    void* (*body)(void*);
    void* argument;
    unsigned char* stack;
    unsigned char* begin; // top of what the body uses; the C library's data is above
};

struct Measurement {
    std::atomic<std::size_t> thread; // bytes used by the last thread that ended
    std::atomic<std::size_t>
        forkedChild; // bytes used by a forked copy of such a thread, in the child process
    std::atomic<int> threadsEnded;
};

/// In memory shared with forked copies, which record their own use.
Measurement& measurement() {
    static Measurement* const shared =
        new (mmap(nullptr, sizeof(Measurement), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                  -1, 0)) Measurement();
    return *shared;
}

thread_local const MeasuredThread* self = nullptr;

std::size_t usedOf(const MeasuredThread& thread) {
    const unsigned char* const lowest =
        std::find_if(thread.stack, thread.begin, [](unsigned char byte) { return byte != kPaint; });
    return static_cast<std::size_t>(thread.begin - lowest);
}

void* run(void* context) {
    auto* const thread = static_cast<MeasuredThread*>(context);
    thread->begin = static_cast<unsigned char*>(__builtin_frame_address(0));
    self = thread;
    void* const result = thread->body(thread->argument);
    measurement().thread = usedOf(*thread);
    ++measurement().threadsEnded;
    return result;
}

} // namespace

extern "C" {

int pthread_create(pthread_t* thread, const pthread_attr_t*, void* (*body)(void*),
                   void* argument) C_LIBRARY_NOEXCEPT {
    void* const stack = mmap(nullptr, kStackSize, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    std::memset(stack, kPaint, kStackSize);
    auto* const measured =
        new MeasuredThread{body, argument, static_cast<unsigned char*>(stack), nullptr};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, stack, kStackSize);
    const int result = support::next<decltype(pthread_create)>("pthread_create")(
        thread, &attributes, run, measured);
    pthread_attr_destroy(&attributes);
    return result;
}

// A forked copy of a measured thread ends here when it cannot execute the program.
void _exit(int status) {
    if (self != nullptr)
        measurement().forkedChild = usedOf(*self);
    support::next<decltype(_exit)>("_exit")(status);
    __builtin_unreachable();
}
}

namespace {

using kvr::api::AutoMount;
using kvr::api::file::NQ_Popen;
using support::eventually;
using support::kDevice;
using support::kNode;

void expectBelowLimit(const char* what, std::size_t used) {
    std::printf("%s: %zu bytes of stack\n", what, used);
    EXPECT_LT(used, kLimit) << what;
    EXPECT_GT(used, 100u) << what << ": nothing was measured";
}

void execute(const std::string& program) {
    const int ended = measurement().threadsEnded;
    NQ_Popen::executeNonblock(
        program, {"-c", "echo one; echo two"}, [](const std::string&) {}, [](int) {}, [](int) {});
    ASSERT_TRUE(eventually([&] { return measurement().threadsEnded > ended; }));
}

TEST(ThreadStacks, ExecuteNonblockLeavesItsCallbacksMostOfTheStack) {
    execute("sh");
    expectBelowLimit("executeNonblock", measurement().thread);
}

TEST(ThreadStacks, ProgramThatCannotBeExecutedNeedsLittleStack) {
    const std::string errors = support::errorsOf([] { execute("no-such-program"); });
    expectBelowLimit("executeNonblock, program not found", measurement().thread);
    expectBelowLimit("executeNonblock, program not found, in the child", measurement().forkedChild);
}

TEST(ThreadStacks, WatcherLeavesItsCallbacksMostOfTheStack) {
    const support::TempDir directory;
    support::LoopPasses loop;
    std::atomic<int> events{0};
    AsyncWatcherRunner runner;
    runner.watcher().attachWatcher(Watcher(
        directory.path(), IN_CREATE | IN_DELETE,
        [](const Watcher&, const std::string&, unsigned int, void* count) {
            ++*static_cast<std::atomic<int>*>(count);
        },
        &events));
    runner.startWatcher();
    support::writeFile(directory / "file", "");
    ASSERT_TRUE(eventually([&] { return events == 1; }));
    // A watched directory that vanishes makes the watcher rebuild all watches.
    ASSERT_EQ(0, std::remove((directory / "file").c_str()));
    ASSERT_EQ(0, rmdir(directory.path().c_str()));
    ASSERT_TRUE(eventually([&] { return events == 2; }));
    ASSERT_TRUE(loop.wait());
    runner.stopWatcher();
    expectBelowLimit("AsyncWatcherRunner", measurement().thread);
}

TEST(ThreadStacks, AutoMountLeavesItsCallbacksMostOfTheStack) {
    support::inPrivateMounts({"/dev"}, [] {
        const support::TempDir directory;
        support::FakePrograms programs;
        programs.add("mount");
        programs.add("umount");
        support::LoopPasses loop;
        std::atomic<int> inserted{0};
        std::atomic<int> ejected{0};
        (void)support::printedBy([&] {
            const AutoMount object(
                kDevice, directory.path(), [&] { ++inserted; }, [&] { ++ejected; });
            ASSERT_TRUE(loop.wait());
            support::writeFile(kNode, "");
            ASSERT_TRUE(eventually([&] { return inserted == 1; }));
            ASSERT_EQ(0, std::remove(kNode.c_str()));
            ASSERT_TRUE(eventually([&] { return ejected == 1; }));
        });
        expectBelowLimit("AutoMount", measurement().thread);
    });
}

} // namespace
