// AutoMount with mount and umount programs that only record their calls, in a /dev of its own.
// NQ_AutoMount_device_test.cpp mounts a real device.

#include <kvr/api/NQ_AutoMount.h>

#include "CapturedCommands.h"
#include "CapturedOutput.h"
#include "Descriptors.h"
#include "FakePrograms.h"
#include "HeldThreads.h"
#include "PrivateMounts.h"
#include "ScriptedInotify.h"
#include "TempDir.h"
#include "Waiting.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::AutoMount;
using support::CapturedCommands;
using support::CapturedOutput;
using support::errorsOf;
using support::eventually;
using support::exists;
using support::FakePrograms;
using support::inPrivateMounts;
using support::openDescriptors;
using support::openedSince;
using support::printedBy;
using support::TempDir;
using support::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::has_virtual_destructor<AutoMount>::value, "applications derive from it");
static_assert(!std::is_copy_constructible<AutoMount>::value, "its thread knows its address");

const std::string kDevice = "tavo-stick1";
const std::string kNode = "/dev/" + kDevice;

void callNothing() {}

/// The two lines for every event.
std::string event(const std::string& name, unsigned int mask) {
    return "SOMETHING HAPPNED: " + name + "\nWHAT: " + std::to_string(mask) + "\n";
}

std::string running(const std::string& command) { return "Running: " + command + "\n"; }

/// Sees the loop of the object's thread begin, and keeps its passes short. Destroying an object
/// whose loop has not begun may hang, and without short passes takes half a second.
class LoopSeen {
public:
    LoopSeen() {
        calls_.poll = [this](pollfd* polled, nfds_t count, int) {
            ++passes_;
            return kernelPoll(polled, count, 5);
        };
    }

    /// Waits for `more` passes from now on.
    bool wait(int more = 1) {
        const int target = passes_ + more;
        return eventually([&] { return passes_ >= target; });
    }

protected:
    InotifyCalls calls_;

private:
    std::atomic<int> passes_{0};
    ScriptedInotify scripted_{calls_};
};

/// The watch on /dev never sees anything: for objects of which only the operations are used.
class DeafLoop : public LoopSeen {
public:
    DeafLoop() {
        calls_.addWatch = [this](int, const std::string& path, std::uint32_t mask) {
            char text[16];
            std::snprintf(text, sizeof text, " %x", mask);
            watched = path + text;
            return 1;
        };
        calls_.removeWatch = [](int, int) { return 0; };
    }

    std::string watched; ///< path and mask of the last watch
};

/// An object on which operations and events are tried from the test's own thread, on a host whose
/// /dev it does not hear. Its commands do not run; system() returns `status`.
class AutoMountOperations : public testing::Test {
protected:
    void make(int status) {
        commands = std::make_unique<CapturedCommands>(CapturedCommands::runNothing, status);
        (void)printedBy([&] {
            object = std::make_unique<AutoMount>(
                kDevice, directory.path(), [this] { calls += "inserted "; },
                [this] { calls += "ejected "; });
            ASSERT_TRUE(loop.wait());
        });
    }

    void changeStatus(int status) {
        commands.reset();
        commands = std::make_unique<CapturedCommands>(CapturedCommands::runNothing, status);
    }

    std::string onEvent(const std::string& name, unsigned int mask) {
        const Watcher unused("", 0, nullptr, nullptr);
        return printedBy([&] { handleDevEvent(unused, name, mask, object.get()); });
    }

    std::string onDestruction() {
        return printedBy([&] { object.reset(); });
    }

    const std::string mountLine() const { return "mount /dev/" + kDevice + " " + directory.path(); }
    const std::string umountLine() const { return "umount " + directory.path(); }

    TempDir directory;
    DeafLoop loop;
    std::string calls;
    std::unique_ptr<CapturedCommands> commands;
    std::unique_ptr<AutoMount> object;
};

void makeNode() { writeFile(kNode, ""); }

void removeNode() { ASSERT_EQ(0, std::remove(kNode.c_str())); }

} // namespace

TEST_F(AutoMountOperations, WatchesCreationsAndDeletionsUnderDev) {
    make(0);
    EXPECT_EQ("/dev 300", loop.watched);
    EXPECT_THAT(commands->lines(), IsEmpty());
}

TEST_F(AutoMountOperations, CreationOfTheDeviceMounts) {
    make(0);
    EXPECT_EQ(event(kDevice, 256) + running(mountLine()), onEvent(kDevice, IN_CREATE));
    EXPECT_THAT(commands->lines(), ElementsAre(mountLine()));
    EXPECT_EQ("inserted ", calls);
}

TEST_F(AutoMountOperations, DeletionOfTheDeviceUnmounts) {
    make(0);
    EXPECT_EQ(event(kDevice, 512) + running(umountLine()), onEvent(kDevice, IN_DELETE));
    EXPECT_THAT(commands->lines(), ElementsAre(umountLine()));
    EXPECT_EQ("ejected ", calls);
}

TEST_F(AutoMountOperations, CreationIsLookedAtFirst) {
    make(0);
    EXPECT_EQ(event(kDevice, 768) + running(mountLine()), onEvent(kDevice, IN_CREATE | IN_DELETE));
    EXPECT_EQ("inserted ", calls);
}

TEST_F(AutoMountOperations, DirectoryOfTheDevicesNameIsTakenForIt) {
    make(0);
    EXPECT_EQ(event(kDevice, 1073742080u) + running(mountLine()),
              onEvent(kDevice, IN_CREATE | IN_ISDIR));
}

TEST_F(AutoMountOperations, OtherEventsOfTheDeviceArePrintedOnly) {
    make(0);
    EXPECT_EQ(event(kDevice, 2), onEvent(kDevice, IN_MODIFY));
    EXPECT_EQ(event(kDevice, 0), onEvent(kDevice, 0));
    EXPECT_EQ(event(kDevice, 4294966527u), onEvent(kDevice, 0xfffffcffu));
    EXPECT_THAT(commands->lines(), IsEmpty());
    EXPECT_EQ("", calls);
}

TEST_F(AutoMountOperations, EventsOfOtherDevicesArePrintedOnly) {
    make(0);
    for (const std::string& name : {std::string("sda"), kDevice + "0", kDevice.substr(1),
                                    std::string(), kNode, kDevice + std::string(1, '\0')}) {
        EXPECT_EQ(event(name, 256), onEvent(name, IN_CREATE));
        EXPECT_EQ(event(name, 512), onEvent(name, IN_DELETE));
    }
    EXPECT_THAT(commands->lines(), IsEmpty());
}

TEST_F(AutoMountOperations, FailedMountCallsNobodyAndLeavesNothingToUnmount) {
    for (const int status : {256, 1, -1, 32512, 9}) {
        make(status);
        EXPECT_EQ(running(mountLine()), printedBy([&] { object->onDeviceInserted(); }));
        EXPECT_EQ("~AutoMount()\n", onDestruction());
        EXPECT_THAT(commands->lines(), ElementsAre(mountLine()));
        commands.reset();
    }
    EXPECT_EQ("", calls);
}

TEST_F(AutoMountOperations, FailedUnmountCallsNobodyAndIsTriedAgainAtTheEnd) {
    make(0);
    EXPECT_EQ(running(mountLine()), printedBy([&] { object->onDeviceInserted(); }));
    changeStatus(256);
    EXPECT_EQ(running(umountLine()), printedBy([&] { object->onDeviceEjected(); }));
    EXPECT_EQ("inserted ", calls);
    changeStatus(0);
    EXPECT_EQ("~AutoMount()\n" + running(umountLine()), onDestruction());
    EXPECT_EQ("inserted ejected ", calls);
}

TEST_F(AutoMountOperations, CommandsRunWhateverTheStateIs) {
    make(0);
    EXPECT_EQ(running(umountLine()) + running(mountLine()) + running(mountLine()) +
                  running(umountLine()) + running(umountLine()),
              printedBy([&] {
                  object->onDeviceEjected();
                  object->onDeviceInserted();
                  object->onDeviceInserted();
                  object->onDeviceEjected();
                  object->onDeviceEjected();
              }));
    EXPECT_EQ("ejected inserted inserted ejected ejected ", calls);
    EXPECT_EQ("~AutoMount()\n", onDestruction());
}

TEST_F(AutoMountOperations, DestructionUnmountsWhatIsMounted) {
    make(0);
    (void)printedBy([&] { object->onDeviceInserted(); });
    EXPECT_EQ("~AutoMount()\n" + running(umountLine()), onDestruction());
    EXPECT_EQ("inserted ejected ", calls);
}

TEST_F(AutoMountOperations, FailedUnmountAtTheEndCallsNobody) {
    make(0);
    (void)printedBy([&] { object->onDeviceInserted(); });
    changeStatus(8192);
    EXPECT_EQ("~AutoMount()\n" + running(umountLine()), onDestruction());
    EXPECT_EQ("inserted ", calls);
}

TEST_F(AutoMountOperations, StateChangesBeforeTheCallback) {
    commands = std::make_unique<CapturedCommands>(CapturedCommands::runNothing, 0);
    (void)printedBy([&] {
        object = std::make_unique<AutoMount>(
            kDevice, directory.path(), [] { throw std::runtime_error("inserted"); },
            [] { throw std::runtime_error("ejected"); });
        ASSERT_TRUE(loop.wait());
        EXPECT_THROW(object->onDeviceInserted(), std::runtime_error);
        EXPECT_THROW(object->onDeviceEjected(), std::runtime_error);
    });
    EXPECT_EQ("~AutoMount()\n", onDestruction()); // not mounted any more

    (void)printedBy([&] {
        object = std::make_unique<AutoMount>(
            kDevice, directory.path(), [] { throw std::runtime_error("inserted"); }, callNothing);
        ASSERT_TRUE(loop.wait());
        EXPECT_THROW(object->onDeviceInserted(), std::runtime_error);
    });
    EXPECT_EQ("~AutoMount()\n" + running(umountLine()), onDestruction());
}

TEST_F(AutoMountOperations, DestructionUnmountsAfterTheOwnThreadHasEnded) {
    HeldThreads threads;
    bool ended = false;
    commands = std::make_unique<CapturedCommands>(CapturedCommands::runNothing, 0);
    (void)printedBy([&] {
        object = std::make_unique<AutoMount>(kDevice, directory.path(), callNothing,
                                             [&] { ended = threads.joinsReach(1); });
        ASSERT_TRUE(loop.wait());
        object->onDeviceInserted();
        object.reset();
    });
    EXPECT_TRUE(ended);
}

TEST_F(AutoMountOperations, NamesReachTheShellAsTheyAre) {
    FakePrograms programs;
    programs.add("mount");
    std::unique_ptr<AutoMount> mine;
    (void)printedBy([&] {
        mine = std::make_unique<AutoMount>("x y; echo 'a  b'; mount", directory.path());
        ASSERT_TRUE(loop.wait());
    });
    EXPECT_EQ("Running: mount /dev/x y; echo 'a  b'; mount " + directory.path() + "\na  b\n",
              printedBy([&] { mine->onDeviceInserted(); }));
    EXPECT_THAT(programs.calls(),
                ElementsAre("mount [/dev/x] [y]", "mount [" + directory.path() + "]"));
    programs.add("umount");
    (void)printedBy([&] { mine.reset(); });
}

TEST_F(AutoMountOperations, IgnoredChildSignalMeansThatNothingCountsAsMounted) {
    FakePrograms programs;
    programs.add("mount");
    (void)printedBy([&] {
        object = std::make_unique<AutoMount>(
            kDevice, directory.path(), [this] { calls += "inserted "; }, callNothing);
        ASSERT_TRUE(loop.wait());
    });
    std::signal(SIGCHLD, SIG_IGN);
    (void)printedBy([&] { object->onDeviceInserted(); });
    std::signal(SIGCHLD, SIG_DFL);
    EXPECT_THAT(programs.calls(), ElementsAre("mount [" + kNode + "] [" + directory.path() + "]"));
    EXPECT_EQ("", calls);
    EXPECT_EQ("~AutoMount()\n", onDestruction());
}

TEST_F(AutoMountOperations, ShortConstructorPrintsItsLineLastAndCallsNobody) {
    commands = std::make_unique<CapturedCommands>(CapturedCommands::runNothing, 0);
    EXPECT_EQ("AutoMount(PARS)\nAutoMount()\n", printedBy([&] {
                  object = std::make_unique<AutoMount>(kDevice, directory.path());
                  ASSERT_TRUE(loop.wait());
              }));
    EXPECT_EQ(event(kDevice, 256) + running(mountLine()), onEvent(kDevice, IN_CREATE));
    EXPECT_EQ(event(kDevice, 512) + running(umountLine()), onEvent(kDevice, IN_DELETE));
    EXPECT_EQ("~AutoMount()\n", onDestruction());
}

TEST_F(AutoMountOperations, EmptyCallbackThrowsAfterTheFirstSuccess) {
    commands = std::make_unique<CapturedCommands>(CapturedCommands::runNothing, 0);
    (void)printedBy([&] {
        object = std::make_unique<AutoMount>(kDevice, directory.path(), nullptr, nullptr);
        ASSERT_TRUE(loop.wait());
        EXPECT_THROW(object->onDeviceInserted(), std::bad_function_call);
        EXPECT_THROW(object->onDeviceEjected(), std::bad_function_call);
    });
    (void)onDestruction();
}

TEST_F(AutoMountOperations, CopiesOutliveTheCallersTexts) {
    commands = std::make_unique<CapturedCommands>(CapturedCommands::runNothing, 0);
    std::string device = kDevice;
    std::string path = directory.path();
    (void)printedBy([&] {
        object = std::make_unique<AutoMount>(device, path);
        ASSERT_TRUE(loop.wait());
    });
    device.assign(device.size(), 'x');
    path.assign(path.size(), 'x');
    EXPECT_EQ(running(mountLine()), printedBy([&] { object->onDeviceInserted(); }));
    (void)onDestruction();
}

TEST_F(AutoMountOperations, MissingDirectoryIsMadeWithItsMode) {
    const std::string path = directory / "new";
    const mode_t before = umask(0);
    EXPECT_EQ("AutoMount(PARS)\nDirectory " + path + " does not exist, creating it...\n",
              printedBy([&] {
                  object = std::make_unique<AutoMount>(kDevice, path, callNothing, callNothing);
                  ASSERT_TRUE(loop.wait());
              }));
    umask(before);
    struct stat status = {};
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_TRUE(S_ISDIR(status.st_mode));
    EXPECT_EQ(0775u, status.st_mode & 07777u);
    (void)onDestruction();
    EXPECT_TRUE(exists(path));
}

TEST_F(AutoMountOperations, LinkToADirectoryIsGoodEnough) {
    ASSERT_EQ(0, symlink(directory.path().c_str(), (directory / "link").c_str()));
    EXPECT_EQ("AutoMount(PARS)\n", printedBy([&] {
                  object = std::make_unique<AutoMount>(kDevice, directory / "link", callNothing,
                                                       callNothing);
                  ASSERT_TRUE(loop.wait());
              }));
    (void)onDestruction();
}

TEST_F(AutoMountOperations, DirectoryThatCannotBeMadeIsAnError) {
    writeFile(directory / "file", "");
    const std::set<int> before = openDescriptors();
    for (const std::string& path :
         {directory / "missing/new", directory / "file", directory / "file/new"}) {
        std::string message;
        EXPECT_EQ("AutoMount(PARS)\nDirectory " + path + " does not exist, creating it...\n",
                  printedBy([&] {
                      try {
                          AutoMount(kDevice, path, callNothing, callNothing);
                      } catch (const std::runtime_error& error) {
                          message = error.what();
                      }
                  }));
        EXPECT_EQ("Error creating directory '" + path + "'", message);
    }
    EXPECT_THAT(openedSince(before), IsEmpty());
    EXPECT_EQ("", loop.watched);
}

TEST(AutoMount, WithoutInotifyOnlyADeviceThatIsThereIsMounted) {
    inPrivateMounts({"/dev"}, [] {
        const TempDir directory;
        FakePrograms programs;
        programs.add("mount");
        programs.add("umount");
        makeNode();
        InotifyCalls refusing;
        refusing.init = [] {
            errno = EMFILE;
            return -1;
        };
        std::atomic<int> passes{0};
        refusing.poll = [&](pollfd* polled, nfds_t count, int) {
            ++passes;
            return kernelPoll(polled, count, 5);
        };
        const ScriptedInotify scripted(refusing);
        std::string printed;
        const std::string errors = errorsOf([&] {
            printed = printedBy([&] {
                const AutoMount object(kDevice, directory.path());
                ASSERT_TRUE(eventually([&] { return passes > 0; }));
            });
        });
        EXPECT_EQ("Couldn't initialize inotify: Too many open files\n", errors);
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
        LoopSeen loop;
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
        LoopSeen loop;
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

        // A socket is there for everybody, and opened by nobody.
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
        LoopSeen loop;
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
        EXPECT_EQ(3u, whileAlive); // the capture's two, and inotify's
        EXPECT_THAT(openedSince(before), IsEmpty());
    });
}

TEST(AutoMount, NodesThatComeAndGoAreMountedAndUnmountedOnTheOwnThread) {
    inPrivateMounts({"/dev"}, [] {
        const TempDir directory;
        LoopSeen loop;
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
        LoopSeen loop;
        FakePrograms programs;
        programs.add("mount");
        programs.add("umount", "exit 32"); // busy: the state stays
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
        LoopSeen loop;
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
            InotifyCalls calls;
            calls.addWatch = [&](int descriptor, const std::string&, std::uint32_t mask) {
                return kernelAddWatch(descriptor, directory.path(), mask); // in place of /dev
            };
            const ScriptedInotify scripted(calls);
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
            DeafLoop loop;
            const CapturedCommands commands;
            // A device that is there on every machine; nothing is mounted.
            try {
                AutoMount(
                    "null", directory.path(),
                    [] { throw std::runtime_error("out of the callback"); }, callNothing);
            } catch (const std::runtime_error&) {
                _exit(0);
            }
        },
        testing::KilledBySignal(SIGABRT), "terminate called");
}
