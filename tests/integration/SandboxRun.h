#ifndef TAVO_TESTS_SANDBOX_RUN_H
#define TAVO_TESTS_SANDBOX_RUN_H

#include "RunProgram.h"

#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

namespace support {

using Arguments = std::vector<std::string>;

const Arguments kAsNobody = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
const Arguments kTryNamespaces = {"unshare", "--user", "--map-root-user", "--mount", "true"};

inline Arguments operator+(Arguments first, const Arguments& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// Returns the host's entries and mounts where the gateway has its directories, with modification
/// times. Other mounts may change, because other tests run concurrently.
inline std::string hostState() {
    return runProgram({"sh", "-c",
                       "ls -lA --time-style=full-iso /etc /opt /mnt /etc/init.d; "
                       "awk '$5 ~ /^.(etc|opt|mnt|tmp|run.lock|var.lock)$/ || /[.]host/' "
                       "/proc/self/mountinfo"})
        .out;
}

/// Runs programs in the sandbox, and checks after each test that the host is unchanged.
class SandboxRun : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0 && runProgram(kTryNamespaces).status != 0)
            GTEST_SKIP() << "this user may not make namespaces";
        before_ = hostState();
    }
    void TearDown() override {
        if (!IsSkipped()) {
            EXPECT_EQ(before_, hostState());
        }
    }

    static Arguments sandbox(const Arguments& arguments) {
        return Arguments{TAVO_SANDBOX_RUN} + arguments;
    }
    static ProgramResult run(const Arguments& arguments, const std::string& input = "") {
        return runProgram(sandbox(arguments), {"TAVO_BUILD_DIR=" TAVO_BUILD_DIR}, input);
    }
    static ProgramResult shell(const std::string& script, const std::string& input = "") {
        return run({"sh", "-c", script}, input);
    }

private:
    std::string before_;
};

} // namespace support

#endif
