#include <kvr/api/mng/NQ_UBUS.h>

#include "CapturedCommands.h"
#include "CapturedOutput.h"
#include "UciTools.h"

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::mng::NQ_UBUS;
using support::CapturedCommands;
using support::configured;
using support::kLan;
using support::kUnparsable;
using support::named;
using support::printedBy;
using support::UciTools;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// init and the readers ----------------------------------------------------------------------------

TEST(NQ_UBUS, IsEmptyAtFirst) {
    const NQ_UBUS ubus;
    EXPECT_EQ("", ubus.getJsonCfg());
    EXPECT_EQ("", ubus.getConfigField());
    EXPECT_EQ("", ubus.getSectionField());
    EXPECT_EQ("", ubus.getValuesField());
    EXPECT_FALSE(ubus.hasEmptyValues());
}

TEST(NQ_UBUS, InitReadsTheFieldsAndPrintsNothing) {
    NQ_UBUS ubus;
    EXPECT_EQ("", printedBy([&] { ubus.init(kLan); }));
    EXPECT_EQ("network", ubus.getConfigField());
    EXPECT_EQ("lan", ubus.getSectionField());
    EXPECT_EQ(R"({ "ipaddr": "192.168.1.1", "gateway": "" })", ubus.getValuesField());
    EXPECT_THAT(ubus.makeAddConfig(), HasSubstr("interface"));
}

TEST(NQ_UBUS, InitKeepsTheTextAsItIs) {
    const std::string text = " {\"unknown\" :  [1,2] ,\n\t\"config\":\"network\"} and more";
    EXPECT_EQ(text, configured(text).getJsonCfg());
    EXPECT_EQ("network", configured(text).getConfigField());
}

TEST(NQ_UBUS, MissingMembersReadEmpty) {
    const NQ_UBUS ubus = configured("{}");
    EXPECT_EQ("", ubus.getConfigField());
    EXPECT_EQ("", ubus.getSectionField());
    EXPECT_EQ("", ubus.getValuesField());
    EXPECT_EQ("{}", ubus.getJsonCfg());
}

TEST(NQ_UBUS, OtherTypesReadAsTheirText) {
    NQ_UBUS ubus =
        configured(R"({"config":7,"section":{"a":[1,true]},"type":false,"values":"plain text"})");
    EXPECT_EQ("7", ubus.getConfigField());
    EXPECT_EQ(R"({ "a": [ 1, true ] })", ubus.getSectionField());
    EXPECT_EQ("plain text", ubus.getValuesField());
    EXPECT_EQ(R"({ "config": "7", "name": "{ \"a\": [ 1, true ] }", "type": "false" })",
              ubus.makeAddConfig());
}

TEST(NQ_UBUS, ANullMemberRaisesALogicError) {
    for (const char* key : {"config", "section", "type", "values"}) {
        NQ_UBUS ubus;
        EXPECT_THROW(ubus.init("{\"" + std::string(key) + "\":null}"), std::logic_error) << key;
    }
}

TEST(NQ_UBUS, TheFieldsAreTakenInOrderUpToANullOne) {
    const std::vector<std::pair<std::string, std::vector<std::string>>> rows = {
        {R"({"config":null,"section":"s","type":"t","values":"v"})",
         {"network", "lan", "interface"}},
        {R"({"config":"c","section":null,"type":"t","values":"v"})", {"c", "lan", "interface"}},
        {R"({"config":"c","section":"s","type":null,"values":"v"})", {"c", "s", "interface"}},
        {R"({"config":"c","section":"s","type":"t","values":null})", {"c", "s", "t"}}};
    for (const auto& [text, fields] : rows) {
        NQ_UBUS ubus = configured(kLan);
        EXPECT_THROW(ubus.init(text), std::logic_error);
        EXPECT_EQ(text, ubus.getJsonCfg());
        EXPECT_EQ("{ \"config\": \"" + fields[0] + "\", \"name\": \"" + fields[1] +
                      "\", \"type\": \"" + fields[2] + "\" }",
                  ubus.makeAddConfig());
        EXPECT_EQ(R"({ "ipaddr": "192.168.1.1", "gateway": "" })", ubus.getValuesField());
    }
}

TEST(NQ_UBUS, AnUnparsableTextKeepsTheEarlierFields) {
    NQ_UBUS ubus = configured(kLan);
    for (const char* text : {"{\"config\":\"dhcp\"", "no json", ""}) {
        EXPECT_EQ(kUnparsable, printedBy([&] { ubus.init(text); }));
        EXPECT_EQ(text, ubus.getJsonCfg());
        EXPECT_EQ("network", ubus.getConfigField());
        EXPECT_EQ("lan", ubus.getSectionField());
        EXPECT_EQ(R"({ "ipaddr": "192.168.1.1", "gateway": "" })", ubus.getValuesField());
        EXPECT_THAT(ubus.makeAddConfig(), HasSubstr("interface"));
    }
}

TEST(NQ_UBUS, ADocumentThatIsNoObjectEmptiesTheFields) {
    NQ_UBUS ubus = configured(kLan);
    ubus.init("[ 1 ]");
    EXPECT_EQ("", ubus.getConfigField());
    EXPECT_EQ("", ubus.getSectionField());
    EXPECT_EQ("", ubus.getValuesField());
}

TEST(NQ_UBUS, InitReplacesEveryField) {
    NQ_UBUS ubus = configured(kLan);
    ubus.init(R"({"config":"dhcp"})");
    EXPECT_EQ("dhcp", ubus.getConfigField());
    EXPECT_EQ("", ubus.getSectionField());
    EXPECT_EQ("", ubus.getValuesField());
    EXPECT_EQ(R"({ "config": "dhcp", "name": "" })", ubus.makeAddConfig());
}

TEST(NQ_UBUS, ACopyIsIndependent) {
    const NQ_UBUS original = configured(kLan);
    NQ_UBUS copy(original);
    copy.init(R"({"config":"dhcp"})");
    EXPECT_EQ("dhcp", copy.getConfigField());
    EXPECT_EQ("network", original.getConfigField());
    EXPECT_EQ(kLan, original.getJsonCfg());
}

TEST(NQ_UBUS, ValuesAreEmptyWhenTheirTextIsThatOfAnEmptyObject) {
    EXPECT_TRUE(configured(R"({"values":{}})").hasEmptyValues());
    EXPECT_TRUE(configured(R"({"values": {  } })").hasEmptyValues());
    EXPECT_TRUE(configured(R"({"values":"{ }"})").hasEmptyValues()) << "the text is compared";
    EXPECT_FALSE(configured(R"({"values":"{}"})").hasEmptyValues());
    EXPECT_FALSE(configured(R"({"values":[]})").hasEmptyValues());
    EXPECT_FALSE(configured(R"({"values":{"a":""}})").hasEmptyValues());
    EXPECT_FALSE(configured(R"({"values":""})").hasEmptyValues());
    EXPECT_FALSE(configured("{}").hasEmptyValues());
}

// The JSON arguments ------------------------------------------------------------------------------

TEST(NQ_UBUS, AddNamesTheTypeOnlyWhenThereIsOne) {
    EXPECT_EQ(R"({ "config": "network", "name": "lan", "type": "interface" })",
              configured(kLan).makeAddConfig());
    EXPECT_EQ(R"({ "config": "network", "name": "lan" })", named("network", "lan").makeAddConfig());
    EXPECT_EQ(R"({ "config": "c", "name": "s" })",
              configured(R"({"config":"c","section":"s","type":""})").makeAddConfig());
}

TEST(NQ_UBUS, DeletingASectionNamesPackageAndSection) {
    EXPECT_EQ(R"({ "config": "network", "section": "lan" })",
              configured(kLan).makeDeleteSectionConfig());
}

TEST(NQ_UBUS, DeletingOptionsComesWithVerbAndQuotes) {
    const UciTools tools;
    NQ_UBUS ubus = configured(
        R"({"config":"network","section":"lan","values":{"z":"","a":"1","b":"","y":""}})");
    EXPECT_EQ(R"(delete '{ "config": "network", "section": "lan", "options": [ ] }')",
              ubus.makeDeleteConfig());
    printedBy([&] { ubus.checkConfig(); });
    EXPECT_EQ(R"(delete '{ "config": "network", "section": "lan", "options": [ "z", "b", "y" ] }')",
              ubus.makeDeleteConfig());
}

TEST(NQ_UBUS, ArgumentsAreEscapedAsJsonOnly) {
    NQ_UBUS ubus = configured(R"({"config":"a\"b","section":"it's $HOME/x"})");
    EXPECT_EQ(R"({ "config": "a\"b", "section": "it's $HOME\/x" })",
              ubus.makeDeleteSectionConfig());
    EXPECT_EQ(R"({ "config": "a\"b", "name": "it's $HOME\/x" })", ubus.makeAddConfig());
    EXPECT_EQ(R"(delete '{ "config": "a\"b", "section": "it's $HOME\/x", "options": [ ] }')",
              ubus.makeDeleteConfig());
}

// getSystemCfg ------------------------------------------------------------------------------------

TEST(NQ_UBUS, GetPassesOneArgumentWithoutAShell) {
    const UciTools tools;
    const CapturedCommands commands;
    const NQ_UBUS ubus = named("network", "lan");
    EXPECT_EQ("", ubus.getSystemCfg());
    EXPECT_THAT(tools.calls(),
                ElementsAre(R"(ubus [call] [uci] [get] [{ "config":"network","section":"lan"}])"));
    EXPECT_THAT(commands.lines(), IsEmpty());
}

TEST(NQ_UBUS, GetEscapesNothing) {
    const UciTools tools;
    configured(R"({"config":"it's $HOME","section":"a\"b\\c"})").getSystemCfg();
    EXPECT_THAT(
        tools.calls(),
        ElementsAre(R"(ubus [call] [uci] [get] [{ "config":"it's $HOME","section":"a"b\c"}])"));
}

TEST(NQ_UBUS, GetReturnsAllThatTheToolPrints) {
    const UciTools tools(
        "printf '{\\n\\t\"values\": {\\n'; echo 'a message' >&2; printf '\\n  }  \\n';"
        " exit 4");
    EXPECT_EQ("{\n\t\"values\": {\na message\n\n  }  \n", named("c", "s").getSystemCfg());
}

} // namespace
