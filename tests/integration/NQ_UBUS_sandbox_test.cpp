// The effect of NQ_UBUS on a gateway's files, with the simulated tools.
#include "RunProgram.h"
#include "TempDir.h"

#include <string>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::ProgramResult;
using testing::HasSubstr;
using testing::Not;

class NQ_UBUS_sandbox : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0 &&
            support::runProgram({"unshare", "--user", "--map-root-user", "--mount", "true"})
                    .status != 0)
            GTEST_SKIP() << "this user may not make namespaces";
    }

    /// Passes the texts to init, checkConfig and applyConfig. If --restart is among them, also
    /// calls restartService.
    ProgramResult apply(std::vector<std::string> texts) const {
        texts.insert(texts.begin(), {TAVO_SANDBOX_RUN, "--root", root_.path(), TAVO_UCI_APPLY});
        return support::runProgram(texts, {"TAVO_BUILD_DIR=" TAVO_BUILD_DIR});
    }
    std::string package(const std::string& name) const {
        return support::readFile(root_ / "etc/config/" + name);
    }
    static std::string original(const std::string& name) {
        return support::readFile(std::string(TAVO_SANDBOX_ROOTFS "/etc/config/") + name);
    }
    /// Returns the original file with `to` in place of `from`.
    static std::string changed(const std::string& name, const std::string& from,
                               const std::string& to) {
        std::string text = original(name);
        const std::size_t at = text.find(from);
        EXPECT_NE(std::string::npos, at) << from;
        return text.replace(at, from.size(), to);
    }

    support::TempDir root_;
};

TEST_F(NQ_UBUS_sandbox, ExistingSectionGetsTheValues) {
    const std::string text =
        R"({"config":"network","section":"lan","type":"interface","values":{"ipaddr":"10.9.8.7"}})";
    const ProgramResult ran = apply({text});
    EXPECT_EQ(0, ran.status);
    EXPECT_EQ("", ran.err);
    EXPECT_EQ("config:network\n"
              "section:lan\n"
              "type:interface\n"
              "values:{ \"ipaddr\": \"10.9.8.7\" }\n"
              "ipaddr=10.9.8.7\n"
              "Calling: ubus call uci set '" +
                  text + "'; uci commit network\n",
              ran.out);
    EXPECT_EQ(changed("network", "192.168.1.1'", "10.9.8.7'"), package("network"));
}

TEST_F(NQ_UBUS_sandbox, MissingSectionWithATypeIsCreated) {
    const std::string text =
        R"({"config":"network","section":"guest","type":"interface","values":{"proto":"static","dns":["9.9.9.9","8.8.4.4"]}})";
    const ProgramResult ran = apply({text});
    EXPECT_EQ("", ran.err);
    // Deliberate: the spelling "does't" is part of the printed text.
    EXPECT_THAT(
        ran.out,
        HasSubstr("network/guest does't exist yet, create it!\n"
                  "Calling: ubus call uci add '{ \"config\": \"network\", \"name\": \"guest\", "
                  "\"type\": \"interface\" }'; uci commit network\n"
                  "{\n\t\"section\": \"guest\"\n}\n"
                  "Calling: ubus call uci set '" +
                  text + "'; uci commit network\n"));
    EXPECT_EQ(original("network") + "config interface 'guest'\n"
                                    "\toption proto 'static'\n"
                                    "\tlist dns '9.9.9.9'\n"
                                    "\tlist dns '8.8.4.4'\n"
                                    "\n",
              package("network"));
}

TEST_F(NQ_UBUS_sandbox, MissingSectionWithoutATypeIsNotCreated) {
    const ProgramResult ran =
        apply({R"({"config":"network","section":"guest","values":{"proto":"static"}})"});
    EXPECT_EQ(0, ran.status);
    EXPECT_THAT(ran.err,
                HasSubstr("{ \"config\": \"network\", \"name\": \"guest\" } (Invalid argument)\n"));
    EXPECT_THAT(ran.err, HasSubstr("\"values\":{\"proto\":\"static\"}} (Not found)\n"));
    EXPECT_EQ(original("network"), package("network"));
}

TEST_F(NQ_UBUS_sandbox, MissingPackageLooksLikeAnExistingSection) {
    const ProgramResult ran =
        apply({R"({"config":"nopkg","section":"a","type":"b","values":{"c":"d"}})"});
    EXPECT_THAT(ran.out, Not(HasSubstr("create it!")));
    EXPECT_THAT(ran.err,
                HasSubstr("\"values\":{\"c\":\"d\"}} (Not found)\nuci: Entry not found\n"));
    EXPECT_FALSE(support::exists(root_ / "etc/config/nopkg"));
}

TEST_F(NQ_UBUS_sandbox, EmptyValuesDeleteTheSection) {
    const ProgramResult ran = apply({R"({"config":"network","section":"wan6","values":{}})"});
    EXPECT_EQ("", ran.err);
    EXPECT_EQ(
        changed("network",
                "config interface 'wan6'\n\toption device 'eth2'\n\toption proto 'dhcpv6'\n\n", ""),
        package("network"));
}

TEST_F(NQ_UBUS_sandbox, EmptyOptionIsDroppedAndTheOthersAreSet) {
    const ProgramResult ran = apply(
        {R"({"config":"network","section":"lan","type":"interface","values":{"gateway":"","ipaddr":"10.0.0.1"}})"});
    EXPECT_EQ("", ran.err);
    EXPECT_THAT(ran.out, HasSubstr("Calling: ubus call uci delete '{ \"config\": \"network\", "
                                   "\"section\": \"lan\", \"options\": [ \"gateway\" ] }'; "
                                   "uci commit network\n"));
    std::string expected = changed("network", "\toption gateway '192.168.1.254'\n", "");
    expected.replace(expected.find("192.168.1.1'"), 12, "10.0.0.1'");
    EXPECT_EQ(expected, package("network"));
}

TEST_F(NQ_UBUS_sandbox, EmptyOptionThatDoesNotExistChangesNothingElse) {
    const ProgramResult ran =
        apply({R"({"config":"network","section":"lan","values":{"never":"","metric":5}})"});
    EXPECT_THAT(ran.err, HasSubstr("\"options\": [ \"never\" ] } (Not found)\n"));
    EXPECT_THAT(package("network"), HasSubstr("\tlist dns '8.8.8.8'\n\toption metric '5'\n\n"));
}

TEST_F(NQ_UBUS_sandbox, QuoteInTheTextPreventsAllCommands) {
    const ProgramResult ran =
        apply({R"({"config":"network","section":"lan","values":{"ipaddr":"it's"}})"});
    EXPECT_EQ(0, ran.status);
    EXPECT_NE("", ran.err);
    EXPECT_EQ(original("network"), package("network"));
}

TEST_F(NQ_UBUS_sandbox, CreatedSectionIsThereForTheNextRequest) {
    const ProgramResult ran =
        apply({R"({"config":"dhcp","section":"guest","type":"dhcp","values":{"start":"10"}})",
               R"({"config":"dhcp","section":"guest","values":{"start":"20"}})",
               R"({"config":"dhcp","section":"guest","values":{}})"});
    EXPECT_EQ("", ran.err);
    EXPECT_EQ(original("dhcp"), package("dhcp"));
}

TEST_F(NQ_UBUS_sandbox, RestartReachesTheServiceOfThePackageOrSection) {
    const ProgramResult ran =
        apply({"--restart", R"({"config":"network","section":"lan","values":{"mtu":"1"}})",
               R"({"config":"dhcp","section":"lan","values":{"limit":"9"}})",
               R"({"config":"system","section":"ntp","values":{"enabled":"0"}})"});
    EXPECT_EQ("", ran.err);
    EXPECT_EQ("network restart\ndnsmasq restart\nsysntpd restart\n",
              support::readFile(root_ / "tmp/init.d.log"));
    EXPECT_THAT(package("system"), HasSubstr("config timeserver 'ntp'\n\toption enabled '0'\n"));
}

} // namespace
