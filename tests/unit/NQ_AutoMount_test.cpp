// AutoMount's operations and events, one by one, with commands that are recorded and do not run.
// NQ_AutoMount_events_test.cpp creates and removes nodes. NQ_AutoMount_device_test.cpp mounts a
// device.

#include <kvr/api/NQ_AutoMount.h>

#include "AlteredNumberFormat.h"
#include "AutoMountFixture.h"
#include "CapturedCommands.h"
#include "CapturedOutput.h"
#include "Descriptors.h"
#include "FakePrograms.h"
#include "HeldThreads.h"
#include "Interposed.h"
#include "TempDir.h"
#include "Waiting.h"

#include <atomic>
#include <csignal>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <type_traits>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::AutoMount;
using support::callNothing;
using support::CapturedCommands;
using support::CapturedOutput;
using support::event;
using support::eventually;
using support::exists;
using support::FakePrograms;
using support::HeldThreads;
using support::interposedPoll;
using support::kDevice;
using support::kNode;
using support::NoDeviceEvents;
using support::openDescriptors;
using support::openedSince;
using support::printedBy;
using support::running;
using support::Stub;
using support::TempDir;
using support::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::has_virtual_destructor<AutoMount>::value, "applications derive from it");
static_assert(!std::is_copy_constructible<AutoMount>::value, "its thread knows its address");

/// An object whose operations and events run on the test's thread; it sees no events of the host's
/// /dev. Its commands do not run; system() returns `status`.
class AutoMount_operations : public testing::Test {
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
    NoDeviceEvents loop;
    std::string calls;
    std::unique_ptr<CapturedCommands> commands;
    std::unique_ptr<AutoMount> object;
};

/// Records what an object has done before it watches /dev, and whether its loop still runs while
/// the object is destroyed. The watch reports no event.
class ObservedLifetime {
public:
    std::string written() const { return output_.written(); }

    /// Holds the loop until the destructor has printed its line.
    void holdLoopUntilTheEnd() {
        ending = true;
        EXPECT_TRUE(eventually([&] { return held.load(); }));
    }

    HeldThreads threads;
    std::string printedBeforeWatch;
    int threadsBeforeWatch = -1;
    std::atomic<bool> begun{false};
    std::atomic<bool> printedWhileLoopRuns{false};

private:
    void pass() {
        if (ending && !printedWhileLoopRuns) {
            held = true;
            printedWhileLoopRuns =
                eventually([&] { return written().find('~') != std::string::npos; });
        }
        begun = true;
    }

    std::atomic<bool> ending{false};
    std::atomic<bool> held{false};
    CapturedOutput output_;
    const Stub<int(int, const char*, std::uint32_t)> addWatch_{
        support::interposedInotifyAddWatch, [this](int, const char*, std::uint32_t) {
            printedBeforeWatch = written();
            threadsBeforeWatch = threads.made();
            return 1;
        }};
    const Stub<int(pollfd*, nfds_t, int)> poll_{interposedPoll,
                                                [this](pollfd* polled, nfds_t count, int) {
                                                    pass();
                                                    return interposedPoll.real(polled, count, 5);
                                                }};
};

TEST(AutoMount_lifetime, WatchesThenStartsItsThreadThenLooksForTheDevice) {
    const TempDir directory;
    const CapturedCommands commands; // runs none of them
    int threadsWhenMounted = -1;
    ObservedLifetime life;
    // A device that exists on every machine.
    const AutoMount object(
        "null", directory.path(), [&] { threadsWhenMounted = life.threads.made(); }, callNothing);
    EXPECT_TRUE(eventually([&] { return life.begun.load(); }));
    EXPECT_EQ(0, life.threadsBeforeWatch);
    EXPECT_EQ(1, threadsWhenMounted);
    EXPECT_THAT(commands.lines(), ElementsAre("mount /dev/null " + directory.path()));
}

TEST(AutoMount_lifetime, PrintsEveryLineImmediately) {
    const TempDir directory;
    const CapturedCommands commands;
    std::string afterConstruction;
    std::string afterEvent;
    std::string directoryMade;
    {
        ObservedLifetime life;
        auto object = std::make_unique<AutoMount>(kDevice, directory.path());
        EXPECT_TRUE(eventually([&] { return life.begun.load(); }));
        EXPECT_EQ("AutoMount(PARS)\n", life.printedBeforeWatch);
        afterConstruction = life.written();
        handleDevEvent(Watcher("", 0, nullptr, nullptr), "other", IN_CREATE, object.get());
        afterEvent = life.written();
        life.holdLoopUntilTheEnd();
        object.reset();
        EXPECT_TRUE(life.printedWhileLoopRuns);
    }
    EXPECT_EQ("AutoMount(PARS)\nAutoMount()\n", afterConstruction);
    EXPECT_EQ(afterConstruction + event("other", 256), afterEvent);
    {
        ObservedLifetime life;
        const AutoMount object(kDevice, directory / "new");
        EXPECT_TRUE(eventually([&] { return life.begun.load(); }));
        directoryMade = life.printedBeforeWatch;
    }
    EXPECT_EQ("AutoMount(PARS)\nDirectory " + directory / "new" +
                  " does not exist, creating it...\n",
              directoryMade);
}

TEST_F(AutoMount_operations, WatchesCreationsAndDeletionsUnderDev) {
    make(0);
    EXPECT_EQ("/dev 300", loop.watched);
    EXPECT_THAT(commands->lines(), IsEmpty());
}

TEST_F(AutoMount_operations, PrintsTheMaskInDecimalWhateverTheApplicationAskedOfItsStream) {
    make(0);
    const support::AlteredNumberFormat altered;
    EXPECT_EQ(event("other", 0x40000100u), onEvent("other", 0x40000100u));
}

TEST_F(AutoMount_operations, CreationOfTheDeviceMounts) {
    make(0);
    EXPECT_EQ(event(kDevice, 256) + running(mountLine()), onEvent(kDevice, IN_CREATE));
    EXPECT_THAT(commands->lines(), ElementsAre(mountLine()));
    EXPECT_EQ("inserted ", calls);
}

TEST_F(AutoMount_operations, DeletionOfTheDeviceUnmounts) {
    make(0);
    EXPECT_EQ(event(kDevice, 512) + running(umountLine()), onEvent(kDevice, IN_DELETE));
    EXPECT_THAT(commands->lines(), ElementsAre(umountLine()));
    EXPECT_EQ("ejected ", calls);
}

TEST_F(AutoMount_operations, CreationIsCheckedFirst) {
    make(0);
    EXPECT_EQ(event(kDevice, 768) + running(mountLine()), onEvent(kDevice, IN_CREATE | IN_DELETE));
    EXPECT_EQ("inserted ", calls);
}

TEST_F(AutoMount_operations, DirectoryOfTheDevicesNameIsTreatedAsTheDevice) {
    make(0);
    EXPECT_EQ(event(kDevice, 1073742080u) + running(mountLine()),
              onEvent(kDevice, IN_CREATE | IN_ISDIR));
}

TEST_F(AutoMount_operations, OtherEventsOfTheDeviceArePrintedOnly) {
    make(0);
    EXPECT_EQ(event(kDevice, 2), onEvent(kDevice, IN_MODIFY));
    EXPECT_EQ(event(kDevice, 0), onEvent(kDevice, 0));
    EXPECT_EQ(event(kDevice, 4294966527u), onEvent(kDevice, 0xfffffcffu));
    EXPECT_THAT(commands->lines(), IsEmpty());
    EXPECT_EQ("", calls);
}

TEST_F(AutoMount_operations, EventsOfOtherDevicesArePrintedOnly) {
    make(0);
    for (const std::string& name : {std::string("sda"), kDevice + "0", kDevice.substr(1),
                                    std::string(), kNode, kDevice + std::string(1, '\0')}) {
        EXPECT_EQ(event(name, 256), onEvent(name, IN_CREATE));
        EXPECT_EQ(event(name, 512), onEvent(name, IN_DELETE));
    }
    EXPECT_THAT(commands->lines(), IsEmpty());
}

TEST_F(AutoMount_operations, FailedMountRunsNoCallbackAndLeavesNothingToUnmount) {
    for (const int status : {256, 1, -1, 32512, 9}) {
        make(status);
        EXPECT_EQ(running(mountLine()), printedBy([&] { object->onDeviceInserted(); }));
        EXPECT_EQ("~AutoMount()\n", onDestruction());
        EXPECT_THAT(commands->lines(), ElementsAre(mountLine()));
        commands.reset();
    }
    EXPECT_EQ("", calls);
}

TEST_F(AutoMount_operations, FailedUnmountRunsNoCallbackAndIsTriedAgainAtTheEnd) {
    make(0);
    EXPECT_EQ(running(mountLine()), printedBy([&] { object->onDeviceInserted(); }));
    changeStatus(256);
    EXPECT_EQ(running(umountLine()), printedBy([&] { object->onDeviceEjected(); }));
    EXPECT_EQ("inserted ", calls);
    changeStatus(0);
    EXPECT_EQ("~AutoMount()\n" + running(umountLine()), onDestruction());
    EXPECT_EQ("inserted ejected ", calls);
}

TEST_F(AutoMount_operations, CommandsRunWhateverTheStateIs) {
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

TEST_F(AutoMount_operations, DestructionUnmountsWhatIsMounted) {
    make(0);
    (void)printedBy([&] { object->onDeviceInserted(); });
    EXPECT_EQ("~AutoMount()\n" + running(umountLine()), onDestruction());
    EXPECT_EQ("inserted ejected ", calls);
}

TEST_F(AutoMount_operations, FailedUnmountAtTheEndRunsNoCallback) {
    make(0);
    (void)printedBy([&] { object->onDeviceInserted(); });
    changeStatus(8192);
    EXPECT_EQ("~AutoMount()\n" + running(umountLine()), onDestruction());
    EXPECT_EQ("inserted ", calls);
}

TEST_F(AutoMount_operations, StateChangesBeforeTheCallback) {
    commands = std::make_unique<CapturedCommands>(CapturedCommands::runNothing, 0);
    (void)printedBy([&] {
        object = std::make_unique<AutoMount>(
            kDevice, directory.path(), [] { throw std::runtime_error("inserted"); },
            [] { throw std::runtime_error("ejected"); });
        ASSERT_TRUE(loop.wait());
        EXPECT_THROW(object->onDeviceInserted(), std::runtime_error);
        EXPECT_THROW(object->onDeviceEjected(), std::runtime_error);
    });
    EXPECT_EQ("~AutoMount()\n", onDestruction()); // no longer mounted

    (void)printedBy([&] {
        object = std::make_unique<AutoMount>(
            kDevice, directory.path(), [] { throw std::runtime_error("inserted"); }, callNothing);
        ASSERT_TRUE(loop.wait());
        EXPECT_THROW(object->onDeviceInserted(), std::runtime_error);
    });
    EXPECT_EQ("~AutoMount()\n" + running(umountLine()), onDestruction());
}

TEST_F(AutoMount_operations, DestructionUnmountsAfterTheOwnThreadHasEnded) {
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

TEST_F(AutoMount_operations, NamesAreNotQuotedForTheShell) {
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

TEST_F(AutoMount_operations, IgnoredChildSignalMeansThatNothingCountsAsMounted) {
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

TEST_F(AutoMount_operations, ShortConstructorPrintsItsLineLastAndRunsNoCallback) {
    commands = std::make_unique<CapturedCommands>(CapturedCommands::runNothing, 0);
    EXPECT_EQ("AutoMount(PARS)\nAutoMount()\n", printedBy([&] {
                  object = std::make_unique<AutoMount>(kDevice, directory.path());
                  ASSERT_TRUE(loop.wait());
              }));
    EXPECT_EQ(event(kDevice, 256) + running(mountLine()), onEvent(kDevice, IN_CREATE));
    EXPECT_EQ(event(kDevice, 512) + running(umountLine()), onEvent(kDevice, IN_DELETE));
    EXPECT_EQ("~AutoMount()\n", onDestruction());
}

TEST_F(AutoMount_operations, EmptyCallbackThrowsAfterTheFirstSuccess) {
    commands = std::make_unique<CapturedCommands>(CapturedCommands::runNothing, 0);
    (void)printedBy([&] {
        object = std::make_unique<AutoMount>(kDevice, directory.path(), nullptr, nullptr);
        ASSERT_TRUE(loop.wait());
        EXPECT_THROW(object->onDeviceInserted(), std::bad_function_call);
        EXPECT_THROW(object->onDeviceEjected(), std::bad_function_call);
    });
    (void)onDestruction();
}

TEST_F(AutoMount_operations, CopiesOutliveTheCallersTexts) {
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

TEST_F(AutoMount_operations, MissingDirectoryIsMadeWithItsMode) {
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

TEST_F(AutoMount_operations, LinkToADirectoryIsAccepted) {
    ASSERT_EQ(0, symlink(directory.path().c_str(), (directory / "link").c_str()));
    EXPECT_EQ("AutoMount(PARS)\n", printedBy([&] {
                  object = std::make_unique<AutoMount>(kDevice, directory / "link", callNothing,
                                                       callNothing);
                  ASSERT_TRUE(loop.wait());
              }));
    (void)onDestruction();
}

TEST_F(AutoMount_operations, DirectoryThatCannotBeMadeIsAnError) {
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

} // namespace
