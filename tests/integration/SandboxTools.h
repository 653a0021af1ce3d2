#ifndef TAVO_TESTS_SANDBOX_TOOLS_H
#define TAVO_TESTS_SANDBOX_TOOLS_H

#include "RunProgram.h"
#include "TempDir.h"

#include <cstdlib>
#include <string>
#include <vector>

#include <sys/stat.h>

#include <gtest/gtest.h>

namespace support {

constexpr char kNetwork[] = "\n"
                            "config interface 'lan'\n"
                            "\toption device 'br-lan'\n"
                            "\toption gateway '10.0.0.1'\n"
                            "\tlist dns '1.1.1.1'\n"
                            "\tlist dns '8.8.8.8'\n"
                            "\n"
                            "config device\n"
                            "\toption name 'br-lan'\n"
                            "\n";

constexpr char kUsageLine[] = "Usage: ubus [<options>] <command> [arguments...]\n";

/// The package directory of a gateway with a single package, "network".
class SandboxUbus : public testing::Test {
protected:
    SandboxUbus() {
        mkdir(config().c_str(), 0755);
        writeFile(config() + "/network", kNetwork);
    }

    std::string config() const { return directory_ / "config"; }
    std::string network() const { return readFile(config() + "/network"); }

    void provide(const std::string& package, const std::string& content) const {
        writeFile(config() + "/" + package, content);
    }

    /// Points the tools to this gateway, and PATH to the tools.
    std::vector<std::string> environment() const {
        return {"TAVO_UCI_CONFIG_DIR=" + config(), "TAVO_UCI_PENDING_DIR=" + directory_ / "pending",
                std::string("PATH=") + TAVO_SANDBOX_BIN + ":" + std::getenv("PATH")};
    }
    ProgramResult tool(const std::string& name, std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), name);
        return runProgram(arguments, environment());
    }
    ProgramResult call(const std::string& method, const std::string& json) const {
        return tool("ubus", {"call", "uci", method, json});
    }
    ProgramResult uci(std::vector<std::string> arguments) const { return tool("uci", arguments); }

    /// Commits and returns the file of the package network.
    std::string committed() const {
        expectSilent(uci({"commit", "network"}));
        return network();
    }

    static void expectSilent(const ProgramResult& ran) {
        EXPECT_EQ(0, ran.status);
        EXPECT_EQ("", ran.out);
        EXPECT_EQ("", ran.err);
    }

    /// Expects a refusal: this status and message, nothing on standard output, no pending change.
    void expectRefused(const std::string& method, const std::string& json, int status,
                       const std::string& text) const {
        const ProgramResult ran = call(method, json);
        EXPECT_EQ(status, ran.status) << json;
        EXPECT_EQ("", ran.out) << json;
        EXPECT_EQ("Command failed: ubus call uci " + method + " " + json + " (" + text + ")\n",
                  ran.err.substr(0, ran.err.find(kUsageLine)));
        EXPECT_EQ(status == 254, ran.err.find(kUsageLine) != std::string::npos) << ran.err;
        EXPECT_EQ("", uci({"changes"}).out) << json;
    }
    void expectNotFound(const std::string& method, const std::string& json) const {
        expectRefused(method, json, 252, "Not found");
    }
    void expectInvalid(const std::string& method, const std::string& json) const {
        expectRefused(method, json, 254, "Invalid argument");
    }

    TempDir directory_;
};

} // namespace support

#endif
