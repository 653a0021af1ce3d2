// More events than the kernel queues, and a device that is plugged in and unplugged repeatedly.

#include <kvr/api/FileSystemWatcher.h>
#include <kvr/api/NQ_AutoMount.h>

#include "CapturedOutput.h"
#include "Descriptors.h"
#include "RemovableDevice.h"
#include "TempDir.h"
#include "Threads.h"
#include "Waiting.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

using support::eventually;
using support::TempDir;

void report(const std::string& what) { std::cout << "fault: " << what << std::endl; }

long mostQueued() {
    long most = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most;
    return most;
}

/// A watcher whose first callback waits for `release`, so that the kernel's queue fills.
class SlowWatcher {
public:
    explicit SlowWatcher(const std::string& directory) {
        watcher.attachWatcher(Watcher(directory, IN_CREATE | IN_DELETE, noteEvent, this));
    }
    ~SlowWatcher() {
        release = true;
        stop_ = true;
        thread_.join();
    }

    void start() {
        thread_ = std::thread([this] { watcher.run(stop_); });
    }

    FileSystemWatcher watcher;
    std::atomic<long> events{0};
    std::atomic<bool> holding{false};
    std::atomic<bool> release{false};
    std::atomic<bool> last{false};

private:
    static void noteEvent(const Watcher&, const std::string& name, unsigned int, void* context) {
        auto* const self = static_cast<SlowWatcher*>(context);
        if (++self->events == 1) {
            self->holding = true;
            while (!self->release)
                std::this_thread::yield();
        }
        self->last = name == "last";
    }

    bool stop_ = false;
    std::thread thread_;
};

/// Causes events of which no two neighbours are equal, because the kernel merges equal ones.
void makeEvents(const std::string& directory, long count) {
    const std::string name = directory + "/file";
    for (long i = 0; i < count; i += 2) {
        close(open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        (void)unlink(name.c_str());
    }
}

} // namespace

TEST(InotifyOverflow, QueuedEventsArriveTheRestIsLostAndTheWatchContinues) {
    const TempDir directory;
    SlowWatcher slow(directory.path());
    slow.start();
    support::writeFile(directory / "first", "");
    ASSERT_TRUE(eventually([&] { return slow.holding.load(); }));
    const long made = mostQueued() + 2000;
    makeEvents(directory.path(), made);
    slow.release = true;
    // The kernel's overflow record comes last, and no registration has its watch number.
    EXPECT_TRUE(eventually([&] { return slow.events == 1 + mostQueued(); })) << slow.events;
    support::writeFile(directory / "last", "");
    EXPECT_TRUE(eventually([&] { return slow.last.load(); }));
    EXPECT_EQ(2 + mostQueued(), slow.events);
    report("inotify overflow: " + std::to_string(made) + " events made while a callback waited, " +
           std::to_string(slow.events - 2) + " of them delivered, the next one after that too");
}

namespace {

struct Notices {
    std::atomic<int> overflows{0};
    std::atomic<int> others{0};
};

void noteNotice(const Watcher&, const std::string&, unsigned int mask, void* context) {
    auto* const notices = static_cast<Notices*>(context);
    ++(mask == IN_Q_OVERFLOW ? notices->overflows : notices->others);
}

} // namespace

TEST(InotifyOverflow, EntryWhoseFileIsGoneReceivesTheKernelsNotice) {
    const TempDir directory;
    const TempDir other;
    support::writeFile(other / "gone", "");
    Notices notices;
    SlowWatcher slow(directory.path());
    slow.watcher.attachWatcher(Watcher(other / "gone", IN_MODIFY, noteNotice, &notices));
    (void)unlink((other / "gone").c_str()); // the rebuild leaves this entry with -1
    bool once = false;
    std::thread ending([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        once = true;
    });
    slow.watcher.run(once);
    ending.join();
    slow.start();
    support::writeFile(directory / "first", "");
    ASSERT_TRUE(eventually([&] { return slow.holding.load(); }));
    makeEvents(directory.path(), mostQueued() + 100);
    slow.release = true;
    EXPECT_TRUE(eventually([&] { return notices.overflows == 1; }));
    EXPECT_EQ(0, notices.others);
    report("inotify overflow: an entry whose path is gone is called once, with IN_Q_OVERFLOW");
}

TEST(PlugCycles, AllFiveHundredAreMountedAndUnmounted) {
    if (geteuid() != 0)
        GTEST_SKIP() << "mounting needs root";
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr))
        GTEST_SKIP() << "no mount namespace: " << std::strerror(errno);
    support::RemovableDevice device;
    if (!device.problem().empty())
        GTEST_SKIP() << "no block device here: " << device.problem();
    const TempDir directory;
    const std::string mountPoint = directory / "media";
    device.plugIn();
    (void)mkdir(mountPoint.c_str(), 0755);
    if (mount(device.node().c_str(), mountPoint.c_str(), "ext2", 0, "") != 0)
        GTEST_SKIP() << "this machine does not mount: " << std::strerror(errno);
    (void)umount(mountPoint.c_str());
    device.unplug();

    constexpr int kCycles = 500;
    std::atomic<int> inserted{0};
    std::atomic<int> ejected{0};
    int readable = 0;
    std::set<int> before;
    std::size_t threads = 0;
    std::string printed;
    {
        const support::CapturedOutput output;
        kvr::api::AutoMount autoMount(
            device.name(), mountPoint, [&] { ++inserted; }, [&] { ++ejected; });
        before = support::openDescriptors();
        threads = support::threadsOfThisProcess();
        for (int cycle = 1; cycle <= kCycles && testing::Test::HasFailure() == false; ++cycle) {
            device.plugIn();
            EXPECT_TRUE(eventually([&] { return inserted == cycle; })) << cycle;
            readable += support::exists(mountPoint + "/hello");
            device.unplug();
            EXPECT_TRUE(eventually([&] { return ejected == cycle; })) << cycle;
            readable -= support::exists(mountPoint + "/hello");
        }
        EXPECT_TRUE(support::openedSince(before).empty());
        EXPECT_EQ(threads, support::threadsOfThisProcess());
        EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)); // no child is left
        printed = output.text();
    }
    EXPECT_EQ(kCycles, inserted);
    EXPECT_EQ(kCycles, ejected);
    EXPECT_EQ(kCycles, readable);
    const auto times = [&](const std::string& line) {
        int count = 0;
        for (std::size_t at = 0; (at = printed.find(line, at)) != std::string::npos;
             at += line.size())
            ++count;
        return count;
    };
    // Deliberate: the spelling "HAPPNED" is part of the printed text.
    EXPECT_EQ(kCycles,
              times("SOMETHING HAPPNED: " + device.name() + "\nWHAT: 256\nRunning: mount " +
                    device.node() + " " + mountPoint + "\n"));
    EXPECT_EQ(2 * kCycles, times("Running: "));
    EXPECT_EQ(kCycles, times("SOMETHING HAPPNED: " + device.name() +
                             "\nWHAT: 512\nRunning: umount " + mountPoint + "\n"));
    report("plugging: 500 cycles, " + std::to_string(inserted) + " mounted, " +
           std::to_string(ejected) + " unmounted, no descriptor, thread or child left");
}
