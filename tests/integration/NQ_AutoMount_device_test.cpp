// AutoMount with a real device: a small file system on a loop device, whose node under /dev appears
// and disappears. The test mounts in its own mount namespace. The node and the loop device belong
// to the machine, under unique names.

#include <kvr/api/NQ_AutoMount.h>

#include "CapturedOutput.h"
#include "RemovableDevice.h"
#include "TempDir.h"
#include "Waiting.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::AutoMount;
using support::CapturedOutput;
using support::eventually;
using support::exists;
using support::RemovableDevice;
using support::TempDir;
using support::writeFile;
using testing::HasSubstr;

/// Runs in the test's own mount namespace, whose mounts do not spread to the machine.
class AutoMount_device : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "mounting needs root";
        if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr))
            GTEST_SKIP() << "no mount namespace: " << std::strerror(errno);
        device = std::make_unique<RemovableDevice>();
        if (!device->problem().empty())
            GTEST_SKIP() << "no block device here: " << device->problem();
        directory = std::make_unique<TempDir>();
        mountPoint = *directory / "media";
        std::filesystem::create_directory(mountPoint);
        device->plugIn();
        const int refused = mount(device->node().c_str(), mountPoint.c_str(), "ext2", 0, "");
        const int reason = errno;
        (void)umount(mountPoint.c_str());
        device->unplug();
        if (refused != 0)
            GTEST_SKIP() << "this machine does not mount: " << std::strerror(reason);
        output = std::make_unique<CapturedOutput>();
    }

    void TearDown() override {
        if (!mountPoint.empty())
            (void)umount2(mountPoint.c_str(), MNT_DETACH);
    }

    void make() {
        object = std::make_unique<AutoMount>(
            device->name(), mountPoint, [this] { ++inserted; }, [this] { ++ejected; });
        // Destroying an object before its thread receives events may hang.
        const std::string mark = device->node() + "-seen";
        writeFile(mark, "");
        (void)unlink(mark.c_str());
        ASSERT_TRUE(output->waitFor(device->name() + "-seen\nWHAT: 512\n"));
    }

    bool isMounted() const { return exists(mountPoint + "/hello"); }

    std::string mountCommand() const {
        return "Running: mount " + device->node() + " " + mountPoint + "\n";
    }
    std::string umountCommand() const { return "Running: umount " + mountPoint + "\n"; }

    std::string eventLines(unsigned int mask) const {
        // Deliberate, here and below: the spelling "HAPPNED" is part of the printed text.
        return "SOMETHING HAPPNED: " + device->name() + "\nWHAT: " + std::to_string(mask) + "\n";
    }

    /// Returns the printed text without the lines about other entries of /dev, which any process
    /// may change.
    std::string printed() const {
        static const std::string happened = "SOMETHING HAPPNED: ";
        std::istringstream lines(output->text());
        std::string result;
        for (std::string line; std::getline(lines, line);) {
            std::string what;
            if (line.compare(0, happened.size(), happened) == 0 &&
                line.substr(happened.size()) != device->name())
                std::getline(lines, what); // skips its second line, too
            else
                result += line + '\n';
        }
        return result;
    }

    std::unique_ptr<RemovableDevice> device;
    std::unique_ptr<TempDir> directory;
    std::string mountPoint;
    std::atomic<int> inserted{0};
    std::atomic<int> ejected{0};
    std::unique_ptr<CapturedOutput> output;
    std::unique_ptr<AutoMount> object;
};

TEST_F(AutoMount_device, PresentDeviceIsMountedAtConstructionAndUnmountedAtTheEnd) {
    device->plugIn();
    make();
    EXPECT_TRUE(isMounted());
    EXPECT_EQ("from the device\n", support::readFile(mountPoint + "/hello"));
    EXPECT_EQ(1, inserted);
    object.reset();
    EXPECT_FALSE(isMounted());
    EXPECT_EQ(1, ejected);
    EXPECT_EQ("AutoMount(PARS)\n" + mountCommand() + "~AutoMount()\n" + umountCommand(), printed());
}

TEST_F(AutoMount_device, DeviceIsMountedWhenPluggedInAndUnmountedWhenUnplugged) {
    make();
    EXPECT_FALSE(isMounted());
    for (int round = 1; round <= 2; ++round) {
        device->plugIn();
        EXPECT_TRUE(eventually([&] { return inserted == round; }));
        EXPECT_TRUE(isMounted());
        device->unplug();
        EXPECT_TRUE(eventually([&] { return ejected == round; }));
        EXPECT_FALSE(isMounted());
    }
    object.reset();
    const std::string once = eventLines(256) + mountCommand() + eventLines(512) + umountCommand();
    EXPECT_EQ("AutoMount(PARS)\n" + once + once + "~AutoMount()\n", printed());
}

TEST_F(AutoMount_device, DeviceIsUnmountedAtTheEndWhenItIsStillPresent) {
    make();
    device->plugIn();
    EXPECT_TRUE(eventually([&] { return inserted == 1; }));
    object.reset();
    EXPECT_FALSE(isMounted());
    EXPECT_EQ(1, ejected);
}

TEST_F(AutoMount_device, BusyDeviceStaysMountedUntilItCanBeUnmounted) {
    const support::CapturedErrors errors;
    make();
    device->plugIn();
    EXPECT_TRUE(eventually([&] { return inserted == 1; }));
    const int inUse = open((mountPoint + "/hello").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_NE(-1, inUse);
    device->unplug();
    EXPECT_TRUE(output->waitFor(umountCommand()));
    EXPECT_TRUE(errors.waitFor("busy")); // umount's message
    EXPECT_TRUE(isMounted());
    EXPECT_EQ(0, ejected);
    close(inUse);
    object.reset();
    EXPECT_FALSE(isMounted());
    EXPECT_EQ(1, ejected);
    EXPECT_EQ("AutoMount(PARS)\n" + eventLines(256) + mountCommand() + eventLines(512) +
                  umountCommand() + "~AutoMount()\n" + umountCommand(),
              printed());
}

TEST_F(AutoMount_device, DeviceThatCannotBeMountedChangesNothing) {
    const support::CapturedErrors errors;
    writeFile(device->node(), "no file system");
    make();
    EXPECT_THAT(errors.text(), HasSubstr("mount"));
    EXPECT_EQ(0, inserted);
    device->unplug();
    EXPECT_TRUE(output->waitFor(umountCommand())); // even if it is not mounted
    EXPECT_TRUE(errors.waitFor("not mounted"));
    object.reset();
    EXPECT_EQ(0, ejected);
    EXPECT_EQ("AutoMount(PARS)\n" + mountCommand() + eventLines(512) + umountCommand() +
                  "~AutoMount()\n",
              printed());
}

TEST_F(AutoMount_device, DirectoryOfTheDevicesNameIsTreatedAsTheDevice) {
    const support::CapturedErrors errors;
    make();
    ASSERT_EQ(0, mkdir(device->node().c_str(), 0755));
    EXPECT_TRUE(output->waitFor(eventLines(1073742080u) + mountCommand()));
    EXPECT_TRUE(errors.waitFor("mount: ")); // a directory is not a device
    ASSERT_EQ(0, rmdir(device->node().c_str()));
    EXPECT_TRUE(output->waitFor(eventLines(1073742336u) + umountCommand()));
    object.reset();
    EXPECT_EQ(0, inserted + ejected);
}

TEST_F(AutoMount_device, NameWithItsDirectoryNeverMatches) {
    AutoMount prefixed(device->node(), mountPoint);
    device->plugIn();
    device->unplug();
    EXPECT_TRUE(output->waitFor(eventLines(512)));
    const support::CapturedErrors errors;
    prefixed.onDeviceInserted();
    EXPECT_THAT(errors.text(), HasSubstr("/dev//dev/" + device->name()));
    EXPECT_FALSE(isMounted());
    EXPECT_EQ("AutoMount(PARS)\nAutoMount()\n" + eventLines(256) + eventLines(512) +
                  "Running: mount /dev//dev/" + device->name() + " " + mountPoint + "\n",
              printed());
}

TEST_F(AutoMount_device, SecondMountOfTheSameDeviceHasNoEffect) {
    const support::CapturedErrors errors;
    device->plugIn();
    make();
    object->onDeviceInserted(); // as when an event arrives during the initial check
    EXPECT_TRUE(isMounted());
    EXPECT_EQ(1, inserted);
    object.reset();
    EXPECT_FALSE(isMounted());
}

} // namespace
