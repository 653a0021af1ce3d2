// How the build chooses the provider of the DDS RMI runtime: real runs of CMake on a small project.
#include "RunProgram.h"
#include "TempDir.h"

#include <string>
#include <vector>

#include <sys/stat.h>

#include <gmock/gmock.h>

namespace {

using support::ProgramResult;
using support::runProgram;
using testing::HasSubstr;
using testing::Not;

const char kWithoutCyclone[] = "-DCMAKE_DISABLE_FIND_PACKAGE_CycloneDDS=ON";

const char kChoseOpenSplice[] =
    "provider: OPENSPLICE\ninstalled to: \nsources: empty.cpp NQ_DDS_RMI.cpp\n";
const char kChoseCyclone[] =
    "provider: CYCLONEDDS\ninstalled to: include/tavo/rmi\nsources: empty.cpp NQ_DDS_RMI.cpp "
    "CRuntime.cpp CycloneRuntime.cpp RuntimeOptions.cpp\n";
const char kChoseNone[] = "provider: OFF\ninstalled to: \nsources: empty.cpp\n";

/// An installation of the commercial product: the header directories, and empty libraries.
class OpenSplice {
public:
    OpenSplice() {
        for (const char* name : {"include", "include/sys", "include/dcps", "include/dcps/C++",
                                 "include/dcps/C++/SACPP", "include/rmi", "lib"})
            mkdir((home_ / name).c_str(), 0755);
        support::writeFile(home_ / "include/rmi/dds_service_sdk.h",
                           support::readFile(TAVO_VENDOR_INTERFACE));
        for (const char* name : {"ddsrmi", "dcpssacpp", "ddskernel"})
            EXPECT_EQ(0, runProgram({TAVO_C_COMPILER, "-shared", "-o", pathOf(name), "-x", "c",
                                     "/dev/null"})
                             .status);
    }

    std::string pathOf(const std::string& name) const { return home_ / ("lib/lib" + name + ".so"); }
    const std::string& home() const { return home_.path(); }

private:
    support::TempDir home_;
};

class dds_choice : public testing::Test {
protected:
    /// Configures with these options and with OSPL_HOME=`home` in the environment.
    ProgramResult configure(const std::vector<std::string>& options, const std::string& home = "") {
        std::vector<std::string> command = {TAVO_CMAKE,
                                            "-S",
                                            TAVO_DDS_CHOICE,
                                            "-B",
                                            build_.path(),
                                            std::string("-DTAVO_ROOT=") + TAVO_ROOT,
                                            "-DCMAKE_INSTALL_PREFIX=/usr"};
        command.insert(command.end(), options.begin(), options.end());
        return runProgram(command, {"OSPL_HOME=" + home});
    }

    std::string chosen() const { return support::readFile(build_ / "chosen.txt"); }

    /// Compiles the chosen sources.
    ProgramResult build() const { return runProgram({TAVO_CMAKE, "--build", build_.path()}); }

private:
    support::TempDir build_;
};

TEST_F(dds_choice, UnknownValueIsAnError) {
    for (const char* value : {"BOGUS", "auto", "ON", ""}) {
        const ProgramResult ran = configure({std::string("-DTAVO_DDS=") + value});
        EXPECT_NE(0, ran.status) << value;
        EXPECT_THAT(ran.err, HasSubstr("TAVO_DDS is \"" + std::string(value) +
                                       "\"; it must be AUTO, OPENSPLICE, CYCLONEDDS or OFF"));
    }
}

TEST_F(dds_choice, AutoPrefersOpenSpliceAndItsInterfaceIsEnough) {
    const OpenSplice vendor;
    const ProgramResult ran = configure({}, vendor.home());
    ASSERT_EQ(0, ran.status) << ran.err;
    EXPECT_EQ(kChoseOpenSplice, chosen());
    const ProgramResult built = build();
    EXPECT_EQ(0, built.status) << built.out << built.err;
}

TEST_F(dds_choice, AutoUsesCycloneWithoutOpenSplice) {
    const ProgramResult ran = configure({});
    ASSERT_EQ(0, ran.status) << ran.err;
    EXPECT_EQ(kChoseCyclone, chosen());
    const ProgramResult built = build();
    EXPECT_EQ(0, built.status) << built.out << built.err;
}

TEST_F(dds_choice, AutoWithoutAnyLeavesTheClassOutAndNamesThePackage) {
    const ProgramResult ran = configure({kWithoutCyclone});
    ASSERT_EQ(0, ran.status) << ran.err;
    EXPECT_EQ(kChoseNone, chosen());
    EXPECT_THAT(ran.out + ran.err, HasSubstr("cyclonedds-dev"));
}

TEST_F(dds_choice, OffLeavesTheClassOutSilentlyEvenWithAProvider) {
    const OpenSplice vendor;
    const ProgramResult ran = configure({"-DTAVO_DDS=OFF"}, vendor.home());
    ASSERT_EQ(0, ran.status) << ran.err;
    EXPECT_EQ(kChoseNone, chosen());
    EXPECT_THAT(ran.out + ran.err, Not(HasSubstr("cyclonedds-dev")));
}

TEST_F(dds_choice, CycloneIsUsedWhenRequestedAlthoughOpenSpliceIsPresent) {
    const OpenSplice vendor;
    const ProgramResult ran = configure({"-DTAVO_DDS=CYCLONEDDS"}, vendor.home());
    ASSERT_EQ(0, ran.status) << ran.err;
    EXPECT_EQ(kChoseCyclone, chosen());
}

TEST_F(dds_choice, CycloneRequestedButMissingIsAnErrorThatNamesThePackage) {
    const ProgramResult ran = configure({"-DTAVO_DDS=CYCLONEDDS", kWithoutCyclone});
    EXPECT_NE(0, ran.status);
    EXPECT_THAT(ran.err, HasSubstr("cyclonedds-dev"));
}

TEST_F(dds_choice, OpenSpliceIsFoundByACMakeVariableToo) {
    const OpenSplice vendor;
    const ProgramResult ran = configure({"-DTAVO_DDS=OPENSPLICE", "-DOSPL_HOME=" + vendor.home()});
    ASSERT_EQ(0, ran.status) << ran.err;
    EXPECT_EQ(kChoseOpenSplice, chosen());
}

TEST_F(dds_choice, OpenSpliceRequestedButMissingIsAnErrorThatNamesTheVariable) {
    const ProgramResult ran = configure({"-DTAVO_DDS=OPENSPLICE"});
    EXPECT_NE(0, ran.status);
    EXPECT_THAT(ran.err, HasSubstr("OSPL_HOME"));
}

TEST_F(dds_choice, OpenSpliceWithoutALibraryDoesNotCount) {
    const OpenSplice vendor;
    ASSERT_EQ(0, remove(vendor.pathOf("dcpssacpp").c_str()));
    EXPECT_NE(0, configure({"-DTAVO_DDS=OPENSPLICE"}, vendor.home()).status);
}

TEST_F(dds_choice, SwitchingFromOpenSpliceToCycloneInOneBuildTreeWorks) {
    const OpenSplice vendor;
    ASSERT_EQ(0, configure({"-DTAVO_DDS=OPENSPLICE"}, vendor.home()).status);
    ASSERT_EQ(0, configure({"-DTAVO_DDS=CYCLONEDDS"}, vendor.home()).status);
    EXPECT_EQ(kChoseCyclone, chosen());
}

} // namespace
