// The sandbox's runner in a chroot, as schroot and pbuilder create it: / is not a mount point
// there.

#include "RunProgram.h"
#include "TempDir.h"

#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

namespace {

using support::ProgramResult;
using Arguments = std::vector<std::string>;

// Runs a command in a root directory made of this machine's programs. A mount that escapes it
// appears in the script's own namespace, where the script checks for it. That namespace ends with
// the script.
const char kScript[] = R"SH(
set -eu
root=$1 source=$2 build=$3
shift 3
mount --make-rshared /
for directory in dev proc usr "$source" "$build"; do
    mkdir -p "$root/$directory"
    mount --rbind "/$directory" "$root/$directory"
done
for directory in bin lib lib32 lib64 libx32 sbin; do
    if [ -L "/$directory" ]; then cp -P "/$directory" "$root/"
    elif [ -d "/$directory" ]; then
        mkdir "$root/$directory"
        mount --rbind "/$directory" "$root/$directory"
    fi
done
mkdir -p "$root/etc" "$root/mnt" "$root/opt" "$root/tmp" "$root/var/lock"
cp /etc/group /etc/ld.so.cache /etc/passwd "$root/etc/"
! chroot "$root" unshare --mount true 2>/dev/null || { echo "/ is a mount point there" >&2; exit 90; }

before=$(cat /proc/self/mountinfo)
status=0
TAVO_BUILD_DIR=$build chroot "$root" "$source/sandbox/run" "$@" || status=$?
[ "$before" = "$(cat /proc/self/mountinfo)" ] || { echo "mounts escaped the chroot" >&2; exit 91; }
exit "$status"
)SH";

class SandboxChroot : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0)
            GTEST_SKIP() << "only root can change the root directory";
        if (support::runProgram({"unshare", "--mount", "true"}).status != 0)
            GTEST_SKIP() << "this machine allows no mounts";
    }

    ProgramResult run(const Arguments& command) const {
        Arguments arguments = {"unshare",    "--mount",       "sh",          "-c", kScript, "sh",
                               root_.path(), TAVO_SOURCE_DIR, TAVO_BUILD_DIR};
        arguments.insert(arguments.end(), command.begin(), command.end());
        return support::runProgram(arguments);
    }

    support::TempDir root_;
};

TEST_F(SandboxChroot, RunsAProgramOnTheGatewaysFiles) {
    const ProgramResult ran = run({"sh", "-c", "uci get network.lan; cat /etc/passwd; exit 7"});
    EXPECT_EQ("interface\n" + support::readFile("/etc/passwd"), ran.out);
    EXPECT_EQ("", ran.err);
    EXPECT_EQ(7, ran.status);
}

TEST_F(SandboxChroot, KeepsARootForALaterRun) {
    const ProgramResult ran =
        run({"--root", "/tmp/kept", "sh", "-c",
             "uci set network.lan.mtu=1400 && uci commit && echo x > /tmp/new"});
    EXPECT_EQ("", ran.out + ran.err);
    EXPECT_EQ(0, ran.status);
    EXPECT_NE(
        std::string::npos,
        support::readFile(root_ / "tmp/kept/etc/config/network").find("\toption mtu '1400'\n"));
    EXPECT_EQ("x\n", support::readFile(root_ / "tmp/kept/tmp/new"));
}

} // namespace
