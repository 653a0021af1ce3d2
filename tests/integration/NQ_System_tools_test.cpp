#include <kvr/api/sys/NQ_System.h>

#include "PrivateMounts.h"
#include "RunProgram.h"
#include "TempDir.h"
#include "ThrownBy.h"
#include "Waiting.h"

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

using kvr::api::sys::NQ_System;
using support::eventually;
using support::inPrivateMounts;
using support::ProgramResult;
using support::RunningProgram;
using support::runProgram;
using support::TempDir;
using support::thrownBy;
using support::writeFile;

/// Returns whether PATH contains the program.
bool isInstalled(const std::string& program) {
    return std::system(("command -v " + program + " > /dev/null").c_str()) == 0;
}

/// A copy of the helper program with a unique name. The destructor removes its lock file.
class Copy {
public:
    Copy() { std::filesystem::copy_file(TAVO_SINGLE_INSTANCE, path); }
    ~Copy() { unlink(lockFile.c_str()); }

    /// Waits until the program has printed everything.
    void started(RunningProgram& program) const {
        EXPECT_TRUE(
            eventually([&] { return program.outSoFar().find("another ") != std::string::npos; }));
    }

    TempDir directory;
    // At most 15 characters, because pidof sees no more of a name.
    const std::string name = "tavo-" + std::to_string(getpid());
    const std::string path = directory / name;
    const std::string lockFile = "/tmp/" + name + ".pid";
    const std::string aboutItself =
        "name " + name + "\ndirectory " + directory.path() + "\nanother ";
};

// single instance ---------------------------------------------------------------------------------

TEST(NQ_System_tools, AProgramKnowsItsNameDirectoryAndLockFile) {
    const Copy copy;
    const ProgramResult ran = runProgram({copy.path});
    EXPECT_EQ(0, ran.status);
    EXPECT_EQ(copy.aboutItself + "0\n", ran.out);
    EXPECT_EQ("", ran.err);
    EXPECT_EQ("", support::readFile(copy.lockFile));
}

TEST(NQ_System_tools, TheNameIsThatOfTheFileAndNotOfTheCall) {
    const Copy copy;
    const std::string link = copy.directory / "another-name";
    ASSERT_EQ(0, symlink(copy.path.c_str(), link.c_str()));
    EXPECT_EQ(copy.aboutItself + "0\n", runProgram({link}).out);
}

TEST(NQ_System_tools, ASecondProcessFindsTheFirstWhileItLives) {
    const Copy copy;
    {
        RunningProgram first({copy.path, "hold"});
        copy.started(first);
        EXPECT_EQ(copy.aboutItself + "0\n", first.outSoFar());
        EXPECT_EQ(copy.aboutItself + "1\n", runProgram({copy.path}).out);
        EXPECT_EQ(copy.aboutItself + "1\n", runProgram({copy.path}).out);
        kill(first.pid(), SIGTERM);
        first.wait();
    }
    EXPECT_EQ(copy.aboutItself + "0\n", runProgram({copy.path}).out);
}

TEST(NQ_System_tools, AProcessThatIsKilledReleasesTheLock) {
    const Copy copy;
    {
        RunningProgram first({copy.path, "hold"});
        copy.started(first);
        kill(first.pid(), SIGKILL);
        first.wait();
    }
    EXPECT_EQ(copy.aboutItself + "0\n", runProgram({copy.path}).out);
}

TEST(NQ_System_tools, AnotherProgramHasAnotherLock) {
    const Copy copy;
    const std::string other = copy.directory / (copy.name + "b");
    std::filesystem::copy_file(copy.path, other);
    RunningProgram first({copy.path, "hold"});
    copy.started(first);
    EXPECT_EQ("name " + copy.name + "b\ndirectory " + copy.directory.path() + "\nanother 0\n",
              runProgram({other}).out);
    unlink(("/tmp/" + copy.name + "b.pid").c_str());
}

// pidof -------------------------------------------------------------------------------------------

TEST(NQ_System_tools, PidofFindsARunningProgramAndNoneThatHasEnded) {
    if (!isInstalled("pidof"))
        GTEST_SKIP() << "pidof is not installed (package sysvinit-utils or procps)";
    const Copy copy;
    EXPECT_EQ(0, NQ_System::getProcIdByName(copy.name));
    {
        RunningProgram running({copy.path, "hold"});
        copy.started(running);
        ASSERT_EQ(running.pid(), NQ_System::getProcIdByName(copy.name));
        EXPECT_EQ(0, NQ_System::sendSIG2Proc(NQ_System::getProcIdByName(copy.name), SIGTERM));
        EXPECT_EQ(128 + SIGTERM, running.wait().status);
    }
    EXPECT_EQ(0, NQ_System::getProcIdByName(copy.name));
}

TEST(NQ_System_tools, OfSeveralProcessesPidofNamesOne) {
    if (!isInstalled("pidof"))
        GTEST_SKIP() << "pidof is not installed (package sysvinit-utils or procps)";
    const Copy copy;
    RunningProgram first({copy.path, "hold"});
    RunningProgram second({copy.path, "hold"});
    copy.started(first);
    copy.started(second);
    const int found = NQ_System::getProcIdByName(copy.name);
    EXPECT_TRUE(found == first.pid() || found == second.pid()) << found;
}

// fw_printenv -------------------------------------------------------------------------------------

std::uint32_t crc32(const std::string& bytes) {
    std::uint32_t sum = 0xffffffffu;
    for (const char byte : bytes) {
        sum ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit)
            sum = sum >> 1 ^ ((sum & 1u) != 0 ? 0xedb88320u : 0u);
    }
    return ~sum;
}

/// A boot environment as stored in flash: the checksum, then the variables, each ended by a zero
/// byte.
std::string environmentOf(std::initializer_list<std::string> variables) {
    std::string data;
    for (const std::string& variable : variables)
        data += variable + '\0';
    data.resize(0x2000 - 4, '\0');
    const std::uint32_t sum = crc32(data);
    std::string image;
    for (int shift = 0; shift < 32; shift += 8)
        image += static_cast<char>(sum >> shift & 0xffu);
    return image + data;
}

/// Runs `body` where the tool reads `environment` as the boot environment.
void withEnvironment(const std::string& environment, const std::function<void()>& body) {
    if (!isInstalled("fw_printenv"))
        GTEST_SKIP() << "fw_printenv is not installed (package libubootenv-tool)";
    const TempDir directory;
    const std::string flash = directory / "flash";
    writeFile(flash, environment);
    inPrivateMounts({"/etc", "/run"}, [&] {
        mkdir("/run/lock", 0755); // the tool's lock directory
        writeFile("/etc/fw_env.config", flash + " 0x0000 0x2000\n");
        body();
    });
}

TEST(NQ_System_tools, TheSerialNumberComesFromTheBootEnvironment) {
    withEnvironment(environmentOf({"bootdelay=3", "sn=ABC123"}), [] {
        EXPECT_EQ("ABC123", NQ_System::getDeviceSerialNumber());
        EXPECT_EQ("3", NQ_System::get_uboot_env_setting("bootdelay"));
    });
}

TEST(NQ_System_tools, AVariablesValueIsCutAtItsEqualsSign) {
    withEnvironment(environmentOf({"bootargs=console=ttyS0,115200 root=/dev/sda1"}),
                    [] { EXPECT_EQ("console", NQ_System::get_uboot_env_setting("bootargs")); });
}

TEST(NQ_System_tools, AVariableThatIsNotSetIsEmptyOrOutOfRangeAsTheToolHasIt) {
    withEnvironment(environmentOf({"bootdelay=3"}), [] {
        const ProgramResult tool = runProgram({"fw_printenv", "other"});
        if (tool.out == "other=\n") { // libubootenv's tool
            EXPECT_EQ("", NQ_System::get_uboot_env_setting("other"));
            EXPECT_EQ("", NQ_System::getDeviceSerialNumber());
            return;
        }
        ASSERT_EQ(std::string::npos, (tool.out + tool.err).find('=')) << tool.out << tool.err;
        const std::string expected =
            "vector::_M_range_check: __n (which is 1) >= this->size() (which is 1)";
        EXPECT_EQ(expected,
                  thrownBy<std::out_of_range>([] { NQ_System::getDeviceSerialNumber(); }));
        EXPECT_EQ(expected,
                  thrownBy<std::out_of_range>([] { NQ_System::get_uboot_env_setting("other"); }));
    });
}

TEST(NQ_System_tools, ADamagedBootEnvironmentHasNoVariables) {
    std::string environment = environmentOf({"sn=ABC123"});
    environment[0] = static_cast<char>(~environment[0]);
    withEnvironment(environment,
                    [] { EXPECT_THROW(NQ_System::getDeviceSerialNumber(), std::out_of_range); });
}

} // namespace
