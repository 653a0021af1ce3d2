// NQ_System and the device: companion programs, processes, the boot environment and the serial
// port.

#include <kvr/api/sys/NQ_System.h>

#include "CapturedOutput.h"
#include "Descriptors.h"
#include "FakePrograms.h"
#include "PrivateMounts.h"
#include "ScriptedCalls.h"
#include "TempDir.h"
#include "ThrownBy.h"

#include <cerrno>
#include <functional>
#include <limits>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::sys::NQ_System;
using support::FakePrograms;
using support::inPrivateMounts;
using support::openDescriptors;
using support::openedSince;
using support::printedBy;
using support::TempDir;
using support::thrownBy;
using support::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;

// presence ----------------------------------------------------------------------------------------

std::vector<bool> companions() {
    return {NQ_System::hasModbus2MqttApp(), NQ_System::hasVexlor2RedApp(),
            NQ_System::hasVexlorApp(), NQ_System::hasNodeRedApp()};
}

TEST(NQ_System, ACompanionIsThereWhenItsDirectoryIs) {
    inPrivateMounts({"/opt"}, [] {
        EXPECT_THAT(companions(), ElementsAre(false, false, false, false));
        ASSERT_EQ(0, mkdir("/opt/apps", 0755));
        EXPECT_THAT(companions(), ElementsAre(false, false, false, false));
        const std::vector<std::string> paths = {"/opt/apps/ZEQ", "/opt/apps/VEXLORTORED",
                                                "/opt/apps/Vexlor", "/opt/apps/NodeRED"};
        for (std::size_t i = 0; i < paths.size(); ++i) {
            std::vector<bool> expected(4, false);
            expected[i] = true;
            ASSERT_EQ(0, mkdir(paths[i].c_str(), 0755));
            EXPECT_EQ(expected, companions()) << paths[i];
            ASSERT_EQ(0, rmdir(paths[i].c_str()));
            writeFile(paths[i], "a file counts too");
            EXPECT_EQ(expected, companions()) << paths[i];
            ASSERT_EQ(0, unlink(paths[i].c_str()));
        }
    });
}

TEST(NQ_System, AModemIsThereWhenItsNodeIs) {
    inPrivateMounts({"/dev"}, [] {
        EXPECT_FALSE(NQ_System::hasCellularModem());
        writeFile("/dev/cdc-wdm1", "");
        EXPECT_FALSE(NQ_System::hasCellularModem());
        writeFile("/dev/cdc-wdm0", "");
        EXPECT_TRUE(NQ_System::hasCellularModem());
    });
}

TEST(NQ_System, APathThatCannotBeOpenedDoesNotCount) {
    // A socket's node exists, but nobody can open it.
    inPrivateMounts({"/dev", "/opt"}, [] {
        ASSERT_EQ(0, mknod("/dev/cdc-wdm0", S_IFSOCK | 0666, 0));
        EXPECT_FALSE(NQ_System::hasCellularModem());
        for (const char* directory : {"/opt/apps", "/opt/apps/ZEQ", "/opt/apps/ZEQ/cfg"})
            ASSERT_EQ(0, mkdir(directory, 0755));
        for (const char* path : {"/opt/apps/VEXLORTORED", "/opt/apps/Vexlor", "/opt/apps/NodeRED",
                                 "/opt/apps/ZEQ/cfg/ZEQ.json"})
            ASSERT_EQ(0, mknod(path, S_IFSOCK | 0666, 0));
        EXPECT_THAT(companions(), ElementsAre(true, false, false, false));
        EXPECT_EQ("", printedBy([] { EXPECT_EQ("1", NQ_System::getPortId()); }));
    });
}

TEST(NQ_System, LookingForPathsLeavesNothingOpen) {
    inPrivateMounts({"/opt"}, [] {
        ASSERT_EQ(0, mkdir("/opt/apps", 0755));
        ASSERT_EQ(0, mkdir("/opt/apps/ZEQ", 0755));
        const auto before = openDescriptors();
        EXPECT_EQ("", printedBy([] { companions(); }));
        NQ_System::hasCellularModem();
        NQ_System::getPortId();
        EXPECT_THAT(openedSince(before), IsEmpty());
    });
}

// getProcIdByName ---------------------------------------------------------------------------------

int idPrintedAs(const std::string& script, const std::string& name = "agent") {
    FakePrograms programs;
    programs.add("pidof", script);
    return NQ_System::getProcIdByName(name);
}

TEST(NQ_System, ThePrintedNumberIsTheProcessId) {
    EXPECT_EQ(4711, idPrintedAs("echo 4711"));
    EXPECT_EQ(12, idPrintedAs("echo '12 34'"));
    EXPECT_EQ(12, idPrintedAs("echo 12; echo 34"));
    EXPECT_EQ(77, idPrintedAs("printf '  77'"));
    EXPECT_EQ(12, idPrintedAs("echo 012"));
    EXPECT_EQ(4711, idPrintedAs("echo 4711; exit 1"));
}

TEST(NQ_System, WithoutAPrintedNumberTheProcessIdIsZero) {
    EXPECT_EQ(0, idPrintedAs("exit 1"));
    EXPECT_EQ(0, idPrintedAs("echo none"));
    EXPECT_EQ(0, idPrintedAs("echo 4711 >&2"));
}

TEST(NQ_System, ThePreviousProcessIdIsNotReturnedAgain) {
    EXPECT_EQ(4711, idPrintedAs("echo 4711"));
    EXPECT_EQ(0, idPrintedAs("exit 1"));
}

TEST(NQ_System, OnlyTheFirst511BytesOfTheLineCount) {
    EXPECT_EQ(1, idPrintedAs("printf '%510s12\\n' ''"));
}

TEST(NQ_System, AnIdIsReadAsAnUnsignedLongAndNarrowedToAnInt) {
    EXPECT_EQ(std::numeric_limits<int>::min() + 5, idPrintedAs("echo 2147483653"));
    const bool isLong = sizeof(long) == 8; // otherwise the number saturates
    EXPECT_EQ(isLong ? 5 : -1, idPrintedAs("echo 4294967301"));
    EXPECT_EQ(isLong ? 5 : -1, idPrintedAs("echo 9223372036854775813"));
}

TEST(NQ_System, PidofIsAskedForASingleProcess) {
    FakePrograms programs;
    programs.add("pidof", "echo 1");
    NQ_System::getProcIdByName("agent");
    EXPECT_THAT(programs.calls(), ElementsAre("pidof [-s] [agent]"));
}

TEST(NQ_System, TheShellInterpretsTheName) {
    FakePrograms programs;
    programs.add("pidof");
    EXPECT_EQ(42, NQ_System::getProcIdByName("'a b' c; echo 42"));
    EXPECT_THAT(programs.calls(), ElementsAre("pidof [-s] [a b] [c]"));
}

TEST(NQ_System, WithoutAShellTheProcessIdIsZero) {
    const support::ScriptedCall popen(support::Call::popen, ENOMEM);
    EXPECT_EQ(0, NQ_System::getProcIdByName("agent"));
    EXPECT_EQ(1, popen.count());
}

TEST(NQ_System, GettingAProcessIdLeavesNothingOpen) {
    const auto before = openDescriptors();
    idPrintedAs("echo 1");
    EXPECT_THAT(openedSince(before), IsEmpty());
    errno = 0;
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)); // no unreaped child either
    EXPECT_EQ(ECHILD, errno);
}

// get_uboot_env_setting ---------------------------------------------------------------------------

std::string settingPrintedAs(const std::string& script) {
    FakePrograms programs;
    programs.add("fw_printenv", script);
    return NQ_System::get_uboot_env_setting("sn");
}

TEST(NQ_System, TheSettingIsWhatFollowsTheEqualsSign) {
    EXPECT_EQ("ABC123", settingPrintedAs("echo sn=ABC123"));
    EXPECT_EQ(" a b ", settingPrintedAs("echo 'sn= a b '"));
    EXPECT_EQ("ABC123", settingPrintedAs("printf sn=ABC123"));
    EXPECT_EQ("ABC123", settingPrintedAs("echo sn=ABC123; exit 1"));
}

TEST(NQ_System, ASettingIsCutAtAnEqualsSignInsideIt) {
    EXPECT_EQ("b", settingPrintedAs("echo a=b=c"));
    EXPECT_EQ("", settingPrintedAs("echo a==c"));
}

TEST(NQ_System, EveryNewlineIsRemovedFromASetting) {
    EXPECT_EQ("one two", settingPrintedAs("printf 'sn=one\\n two\\n\\n'"));
    EXPECT_EQ("A\rB", settingPrintedAs("printf 'sn=A\\rB\\n'"));
}

TEST(NQ_System, AnEmptySettingIsEmpty) { EXPECT_EQ("", settingPrintedAs("echo sn=")); }

TEST(NQ_System, MessagesOfTheToolBelongToItsOutput) {
    EXPECT_EQ("ABC123", settingPrintedAs("echo 'Warning: bad' >&2; echo sn=ABC123"));
    EXPECT_EQ("1 (bad)sn", settingPrintedAs("echo 'code=1 (bad)' >&2; echo sn=ABC123"));
}

TEST(NQ_System, TheToolIsAskedWithoutAShell) {
    FakePrograms programs;
    programs.add("fw_printenv", "echo x=y");
    EXPECT_EQ("y", NQ_System::get_uboot_env_setting("a b;c $d"));
    EXPECT_THAT(programs.calls(), ElementsAre("fw_printenv [a b;c $d]"));
}

TEST(NQ_System, TheSerialNumberIsTheSettingSn) {
    FakePrograms programs;
    programs.add("fw_printenv", "echo sn=ABC123");
    EXPECT_EQ("ABC123", NQ_System::getDeviceSerialNumber());
    EXPECT_THAT(programs.calls(), ElementsAre("fw_printenv [sn]"));
}

TEST(NQ_System, OutputWithoutAnEqualsSignIsOutOfRange) {
    EXPECT_EQ("vector::_M_range_check: __n (which is 1) >= this->size() (which is 1)",
              thrownBy<std::out_of_range>(
                  [] { settingPrintedAs("echo '## Error: not defined' >&2; exit 1"); }));
    EXPECT_EQ("vector::_M_range_check: __n (which is 1) >= this->size() (which is 1)",
              thrownBy<std::out_of_range>([] { settingPrintedAs("printf ="); }));
    EXPECT_EQ("vector::_M_range_check: __n (which is 1) >= this->size() (which is 0)",
              thrownBy<std::out_of_range>([] { settingPrintedAs(""); }));
}

TEST(NQ_System, ASerialNumberThatIsNotSetIsOutOfRange) {
    FakePrograms programs;
    programs.add("fw_printenv", "echo 'not defined'");
    EXPECT_EQ("vector::_M_range_check: __n (which is 1) >= this->size() (which is 1)",
              thrownBy<std::out_of_range>([] { NQ_System::getDeviceSerialNumber(); }));
}

TEST(NQ_System, WithoutTheToolTheSettingIsOutOfRange) {
    const TempDir empty;
    const std::string path = getenv("PATH");
    setenv("PATH", empty.path().c_str(), 1);
    EXPECT_THAT(thrownBy<std::out_of_range>([] { NQ_System::get_uboot_env_setting("sn"); }),
                testing::StartsWith("vector::_M_range_check: "));
    setenv("PATH", path.c_str(), 1);
}

// getPortId, getPortIdName ------------------------------------------------------------------------

struct Port {
    std::string id;
    std::string name;
    std::string output;

    bool operator==(const Port& other) const {
        return id == other.id && name == other.name && output == other.output;
    }
};

std::ostream& operator<<(std::ostream& out, const Port& port) {
    return out << '"' << port.id << "\" " << port.name << " \"" << port.output << '"';
}

Port configuredPort() {
    Port port;
    port.output = printedBy([&] {
        port.id = NQ_System::getPortId();
        port.name = NQ_System::getPortIdName();
    });
    return port;
}

void withConfiguration(const std::function<void(const std::string& file)>& body) {
    inPrivateMounts({"/opt"}, [&] {
        mkdir("/opt/apps", 0755);
        mkdir("/opt/apps/ZEQ", 0755);
        mkdir("/opt/apps/ZEQ/cfg", 0755);
        body("/opt/apps/ZEQ/cfg/ZEQ.json");
    });
}

TEST(NQ_System, WithoutAConfigurationThePortIsOneAndRs485) {
    inPrivateMounts({"/opt"}, [] { EXPECT_EQ((Port{"1", "RS485", ""}), configuredPort()); });
    withConfiguration([](const std::string&) {
        EXPECT_EQ((Port{"1", "RS485", ""}), configuredPort());
    });
}

TEST(NQ_System, ThePortIsTheConfiguredOne) {
    withConfiguration([](const std::string& file) {
        writeFile(file, "{\"portID\":\"2\"}");
        EXPECT_EQ((Port{"2", "RS232", ""}), configuredPort());
        writeFile(file, "{\"other\":\"2\",\"portID\":\"1\"}\n");
        EXPECT_EQ((Port{"1", "RS485", ""}), configuredPort());
    });
}

TEST(NQ_System, EveryPortButExactlyOneIsRs232) {
    withConfiguration([](const std::string& file) {
        for (const char* id : {"", "0", "01", " 1", "1 ", "11", "RS485"}) {
            writeFile(file, std::string("{\"portID\":\"") + id + "\"}");
            EXPECT_EQ((Port{id, "RS232", ""}), configuredPort());
        }
    });
}

TEST(NQ_System, ANumericPortIsReadAsText) {
    withConfiguration([](const std::string& file) {
        writeFile(file, "{\"portID\":1}");
        EXPECT_EQ((Port{"1", "RS485", ""}), configuredPort());
    });
}

TEST(NQ_System, AConfigurationWithoutAPortHasAnEmptyOne) {
    withConfiguration([](const std::string& file) {
        writeFile(file, "{\"port\":\"1\"}");
        EXPECT_EQ((Port{"", "RS232", ""}), configuredPort());
    });
}

TEST(NQ_System, APortThatIsNullIsALogicError) {
    withConfiguration([](const std::string& file) {
        writeFile(file, "{\"portID\":null}");
        EXPECT_THROW(NQ_System::getPortId(), std::logic_error);
        EXPECT_THROW(NQ_System::getPortIdName(), std::logic_error);
    });
}

TEST(NQ_System, ABrokenConfigurationHasAnEmptyPortAndIsReported) {
    withConfiguration([](const std::string& file) {
        writeFile(file, "{\"portID\":");
        EXPECT_EQ((Port{"", "RS232", "Unable to parse json\nUnable to parse json\n"}),
                  configuredPort());
    });
}

} // namespace
