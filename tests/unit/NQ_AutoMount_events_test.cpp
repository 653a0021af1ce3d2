// AutoMount in a private /dev, with mount and umount programs that only record their calls.

#include <kvr/api/NQ_AutoMount.h>

#include "AutoMountFixture.h"
#include "CapturedCommands.h"
#include "CapturedOutput.h"
#include "Descriptors.h"
#include "FakePrograms.h"
#include "Interposed.h"
#include "LoopPasses.h"
#include "PrivateMounts.h"
#include "TempDir.h"
#include "Waiting.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::AutoMount;
using support::callNothing;
using support::CapturedCommands;
using support::CapturedOutput;
using support::errorsOf;
using support::event;
using support::eventually;
using support::FakePrograms;
using support::inPrivateMounts;
using support::interposedInotifyAddWatch;
using support::kDevice;
using support::kNode;
using support::LoopPasses;
using support::NoDeviceEvents;
using support::openDescriptors;
using support::openedSince;
using support::printedBy;
using support::running;
using support::Stub;
using support::TempDir;
using support::writeFile;
using testing::IsEmpty;

void makeNode() { writeFile(kNode, ""); }

void removeNode() { ASSERT_EQ(0, std::remove(kNode.c_str())); }

TEST(AutoMount, WithoutInotifyOnlyADeviceThatIsThereIsMounted) {
    inPrivateMounts({"/dev"}, [] {
        const TempDir directory;
        FakePrograms programs;
        programs.add("mount");
        programs.add("umount");
        makeNode();
        LoopPasses loop;
        const Stub refusing(support::interposedInotifyInit, [] {
            errno = EMFILE;
            return -1;
        });
        std::string printed;
        const std::string errors = errorsOf([&] {
            printed = printedBy([&] {
                const AutoMount object(kDevice, directory.path());
                ASSERT_TRUE(loop.wait());
            });
        });
        EXPECT_EQ(std::string("Couldn't initialize inotify: ") + std::strerror(EMFILE) + "\n",
                  errors);
        EXPECT_EQ("AutoMount(PARS)\n"
                  "Couldn't add watch to /dev ERROR: Bad file descriptor\n" +
                      running("mount " + kNode + " " + directory.path()) +
                      "AutoMount()\n~AutoMount()\n" + running("umount " + directory.path()),
                  printed);
    });
}

TEST(AutoMount, DeviceThatIsThereIsMountedBeforeTheConstructorReturns) {
    inPrivateMounts({"/dev"}, [] {
        const TempDir directory;
        LoopPasses loop;
        FakePrograms programs;
        programs.add("mount", "echo mounting");
        programs.add("umount", "echo unmounting");
        makeNode();
        std::thread::id insertedOn;
        std::thread::id ejectedOn;
        CapturedOutput output;
        {
            const AutoMount object(
                kDevice, directory.path(), [&] { insertedOn = std::this_thread::get_id(); },
                [&] { ejectedOn = std::this_thread::get_id(); });
            EXPECT_EQ(std::this_thread::get_id(), insertedOn);
            EXPECT_EQ(1u, programs.calls().size());
            ASSERT_TRUE(loop.wait());
        }
        EXPECT_EQ(std::this_thread::get_id(), ejectedOn);
        EXPECT_EQ("AutoMount(PARS)\n" + running("mount " + kNode + " " + directory.path()) +
                      "mounting\n~AutoMount()\n" + running("umount " + directory.path()) +
                      "unmounting\n",
                  output.text());
    });
}

TEST(AutoMount, NodeThatCannotBeOpenedCountsAsAbsent) {
    inPrivateMounts({"/dev"}, [] {
        const TempDir directory;
        LoopPasses loop;
        FakePrograms programs;
        programs.add("mount");
        const std::string none = "AutoMount(PARS)\nAutoMount()\n~AutoMount()\n";
        const auto printed = [&] {
            return printedBy([&] {
                const AutoMount object(kDevice, directory.path());
                ASSERT_TRUE(loop.wait());
            });
        };
        ASSERT_EQ(0, symlink("/dev/nowhere", kNode.c_str()));
        EXPECT_EQ(none, printed());
        removeNode();

        // A socket's node exists, but nobody can open it.
        const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        kNode.copy(address.sun_path, sizeof address.sun_path - 1);
        ASSERT_EQ(0, bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address));
        EXPECT_EQ(none, printed());
        close(listener);
        EXPECT_THAT(programs.calls(), IsEmpty());
    });
}

TEST(AutoMount, InitialCheckLeavesNoDescriptor) {
    inPrivateMounts({"/dev"}, [] {
        const TempDir directory;
        LoopPasses loop;
        FakePrograms programs;
        programs.add("mount", "exit 1");
        makeNode();
        const std::set<int> before = openDescriptors();
        std::size_t whileAlive = 0;
        (void)printedBy([&] {
            const AutoMount object(kDevice, directory.path());
            whileAlive = openedSince(before).size();
            ASSERT_TRUE(loop.wait());
        });
        EXPECT_EQ(3u, whileAlive); // the capture's two and inotify's
        EXPECT_THAT(openedSince(before), IsEmpty());
    });
}

TEST(AutoMount, NodesThatComeAndGoAreMountedAndUnmountedOnTheOwnThread) {
    inPrivateMounts({"/dev"}, [] {
        const TempDir directory;
        LoopPasses loop;
        FakePrograms programs;
        programs.add("mount");
        programs.add("umount");
        std::atomic<int> inserted{0};
        std::atomic<int> ejected{0};
        std::atomic<bool> elsewhere{true};
        const std::thread::id own = std::this_thread::get_id();
        const auto note = [&](std::atomic<int>& count) {
            elsewhere = elsewhere && std::this_thread::get_id() != own;
            ++count;
        };
        const std::string mount = running("mount " + kNode + " " + directory.path());
        const std::string umount = running("umount " + directory.path());
        CapturedOutput output;
        {
            const AutoMount object(
                kDevice, directory.path(), [&] { note(inserted); }, [&] { note(ejected); });
            ASSERT_TRUE(loop.wait());
            writeFile("/dev/other", "");
            makeNode();
            EXPECT_TRUE(eventually([&] { return inserted == 1; }));
            removeNode();
            EXPECT_TRUE(eventually([&] { return ejected == 1; }));
            ASSERT_EQ(0, mkdir(kNode.c_str(), 0755));
            EXPECT_TRUE(eventually([&] { return inserted == 2; }));
            ASSERT_EQ(0, rmdir(kNode.c_str()));
            EXPECT_TRUE(eventually([&] { return ejected == 2; }));
        }
        EXPECT_TRUE(elsewhere);
        EXPECT_EQ("AutoMount(PARS)\n" + event("other", 256) + event(kDevice, 256) + mount +
                      event(kDevice, 512) + umount + event(kDevice, 1073742080u) + mount +
                      event(kDevice, 1073742336u) + umount + "~AutoMount()\n",
                  output.text());
    });
}

TEST(AutoMount, RepeatedInsertionRunsMountAgain) {
    inPrivateMounts({"/dev"}, [] {
        const TempDir directory;
        LoopPasses loop;
        FakePrograms programs;
        programs.add("mount");
        programs.add("umount", "exit 32"); // busy: stays mounted
        std::atomic<int> inserted{0};
        CapturedOutput output;
        makeNode();
        {
            const AutoMount object(
                kDevice, directory.path(), [&] { ++inserted; }, callNothing);
            ASSERT_TRUE(loop.wait());
            removeNode();
            makeNode();
            EXPECT_TRUE(eventually([&] { return inserted == 2; }));
        }
        const std::string mount = running("mount " + kNode + " " + directory.path());
        const std::string umount = running("umount " + directory.path());
        EXPECT_EQ("AutoMount(PARS)\n" + mount + event(kDevice, 512) + umount + event(kDevice, 256) +
                      mount + "~AutoMount()\n" + umount,
                  output.text());
    });
}

TEST(AutoMount, NameWithItsDirectoryNeverMatchesAndIsMountedUnderDevTwice) {
    inPrivateMounts({"/dev"}, [] {
        const TempDir directory;
        LoopPasses loop;
        FakePrograms programs;
        programs.add("mount", "exit 32");
        const std::string command = "mount /dev//dev/" + kDevice + " " + directory.path();
        CapturedOutput output;
        {
            AutoMount object(kNode, directory.path());
            ASSERT_TRUE(loop.wait());
            makeNode();
            EXPECT_TRUE(output.waitFor("WHAT: 256\n"));
            EXPECT_THAT(programs.calls(), IsEmpty());
            object.onDeviceInserted();
        }
        EXPECT_EQ("AutoMount(PARS)\nAutoMount()\n" + event(kDevice, 256) + running(command) +
                      "~AutoMount()\n",
                  output.text());
    });
}

TEST(AutoMountDeathTest, EmptyCallbackEndsTheProcessOnTheOwnThread) {
    const TempDir directory;
    EXPECT_EXIT(
        {
            const Stub watching(
                interposedInotifyAddWatch, [&](int descriptor, const char*, std::uint32_t mask) {
                    return interposedInotifyAddWatch.real(descriptor, directory.path().c_str(),
                                                          mask); // in place of /dev
                });
            const CapturedCommands commands;
            const AutoMount object(kDevice, directory.path(), nullptr, nullptr);
            writeFile(directory / kDevice, "");
            eventually([] { return false; });
            _exit(0);
        },
        testing::KilledBySignal(SIGABRT), "bad_function_call");
}

TEST(AutoMountDeathTest, ExceptionOutOfTheConstructorsOwnMountEndsTheProcess) {
    const TempDir directory;
    EXPECT_EXIT(
        {
            NoDeviceEvents loop;
            const CapturedCommands commands;
            // A device that exists on every machine. The mount command does not run.
            try {
                AutoMount(
                    "null", directory.path(),
                    [] { throw std::runtime_error("out of the callback"); }, callNothing);
            } catch (const std::runtime_error&) {
                _exit(0);
            }
        },
        testing::KilledBySignal(SIGABRT), "terminate called|abi: terminating"); // libstdc++, libc++
}

} // namespace
