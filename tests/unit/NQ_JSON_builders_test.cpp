#include <kvr/api/data/NQ_JSON.h>

#include "CapturedOutput.h"
#include "ForkedChild.h"
#include "JsonLifetime.h"

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json-c/json.h>

namespace {

using kvr::api::data::NQ_JSON;
using support::CapturedOutput;
using support::JsonLifetime;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

const NQ_JSON kNothing(static_cast<const json_object*>(nullptr));

using Fields = std::map<std::string, std::string>;
using Keys = std::vector<std::string>;

TEST(NQ_JSON_builders, AddStringtoObjAppendsToAnArray) {
    NQ_JSON builder;
    const NQ_JSON array("[1]");
    builder.addStringtoObj(array.getObj(), "first");
    builder.addStringtoObj(array.getObj(), "");
    EXPECT_EQ("[ 1, \"first\", \"\" ]", array.asString());
    EXPECT_EQ("{ }", builder.asString()) << "the handle's own object was touched";
}

TEST(NQ_JSON_builders, AddObjtoArrayTakesOverTheCallersReference) {
    NQ_JSON builder;
    json_object* value = json_object_new_object();
    const JsonLifetime lifetime(value);
    {
        const NQ_JSON array("[]");
        builder.addObjtoArray(array.getObj(), value);
        EXPECT_EQ("[ { } ]", array.asString());
        EXPECT_FALSE(lifetime.over());
    }
    EXPECT_TRUE(lifetime.over());
}

TEST(NQ_JSON_builders, AddObjtoObjTakesOverTheCallersReference) {
    NQ_JSON builder;
    json_object* value = json_object_new_array();
    const JsonLifetime lifetime(value);
    {
        const NQ_JSON object;
        builder.addObjtoObj(object.getObj(), "list", value);
        EXPECT_EQ("{ \"list\": [ ] }", object.asString());
        EXPECT_FALSE(lifetime.over());
    }
    EXPECT_TRUE(lifetime.over());
    EXPECT_EQ("{ }", builder.asString());
}

TEST(NQ_JSON_builders, AddObjtoObjReplacesAMember) {
    NQ_JSON builder;
    const NQ_JSON object("{\"a\":[],\"b\":1}");
    const JsonLifetime lifetime(object.get_json_object("a").getObj());
    builder.addObjtoObj(object.getObj(), "a", json_object_new_int(5));
    EXPECT_EQ("{ \"a\": 5, \"b\": 1 }", object.asString());
    EXPECT_TRUE(lifetime.over());
}

TEST(NQ_JSON_builders, ContainersTakeNullValues) {
    NQ_JSON builder;
    const NQ_JSON array("[]");
    const NQ_JSON object;
    builder.addObjtoArray(array.getObj(), nullptr);
    builder.addObjtoObj(object.getObj(), "a", nullptr);
    EXPECT_EQ("[ null ]", array.asString());
    EXPECT_EQ("{ \"a\": null }", object.asString());
}

TEST(NQ_JSON_builders, AddKeyValtoObjStoresAString) {
    NQ_JSON builder;
    const NQ_JSON object("{\"old\":1,\"number\":2}");
    builder.addKeyValtoObj(object.getObj(), "number", "12");
    builder.addKeyValtoObj(object.getObj(), "new", "a \"b\"");
    EXPECT_EQ("{ \"old\": 1, \"number\": \"12\", \"new\": \"a \\\"b\\\"\" }", object.asString());
    EXPECT_EQ("{ }", builder.asString());
}

TEST(NQ_JSON_builders, AddKeyValStoresIntoTheHandlesOwnObject) {
    NQ_JSON json("{\"a\":1}");
    json.addKeyVal("a", "x");
    json.addKeyVal("b", "");
    json.addKeyVal("", "nameless");
    EXPECT_EQ("{ \"a\": \"x\", \"b\": \"\", \"\": \"nameless\" }", json.asString());
}

TEST(NQ_JSON_builders, AddKeyValEndsItsTextsAtTheirFirstNulByte) {
    NQ_JSON json;
    json.addKeyVal(std::string("ab\0c", 4), std::string("de\0f", 4));
    EXPECT_EQ("{ \"ab\": \"de\" }", json.asString());
}

TEST(NQ_JSON_builders, BuildersChangeNothingInAContainerOfTheWrongType) {
    NQ_JSON builder;
    const NQ_JSON object("{\"a\":1}");
    const NQ_JSON array("[1]");
    const NQ_JSON string("\"text\"");
    for (json_object* wrong : {object.getObj(), string.getObj(), kNothing.getObj()}) {
        builder.addStringtoObj(wrong, "s");
        builder.addObjtoArray(wrong, nullptr);
    }
    for (json_object* wrong : {array.getObj(), string.getObj(), kNothing.getObj()}) {
        builder.addKeyValtoObj(wrong, "k", "v");
        builder.addObjtoObj(wrong, "k", nullptr);
    }
    EXPECT_EQ("{ \"a\": 1 }", object.asString());
    EXPECT_EQ("[ 1 ]", array.asString());
    EXPECT_EQ("text", string.asString());
}

TEST(NQ_JSON_builders, AValueGivenToAContainerOfTheWrongTypeIsReleased) {
    NQ_JSON builder;
    json_object* first = json_object_new_object();
    const JsonLifetime firstLifetime(first);
    builder.addObjtoArray(builder.getObj(), first);
    EXPECT_TRUE(firstLifetime.over());

    json_object* second = json_object_new_object();
    const JsonLifetime secondLifetime(second);
    builder.addObjtoObj(nullptr, "k", second);
    EXPECT_TRUE(secondLifetime.over());
}

TEST(NQ_JSON_builders, AddKeyValOnAHandleWithoutAnObjectChangesNothing) {
    NQ_JSON array("[1]");
    array.addKeyVal("k", "v");
    EXPECT_EQ("[ 1 ]", array.asString());
    NQ_JSON nothing(kNothing);
    nothing.addKeyVal("k", "v");
    EXPECT_EQ(nullptr, nothing.getObj());
}

TEST(NQ_JSON_builders, NullTextsRaiseALogicErrorAndChangeNothing) {
    NQ_JSON builder;
    const NQ_JSON object;
    const NQ_JSON array("[]");
    EXPECT_THROW(builder.addStringtoObj(array.getObj(), nullptr), std::logic_error);
    EXPECT_THROW(builder.addKeyValtoObj(object.getObj(), nullptr, "v"), std::logic_error);
    EXPECT_THROW(builder.addKeyValtoObj(object.getObj(), "k", nullptr), std::logic_error);
    EXPECT_EQ("[ ]", array.asString());
    EXPECT_EQ("{ }", object.asString());
}

TEST(NQ_JSON_builders, ANullKeyLeavesTheValueToTheCaller) {
    NQ_JSON builder;
    json_object* value = json_object_new_object();
    const JsonLifetime lifetime(value);
    EXPECT_THROW(builder.addObjtoObj(builder.getObj(), nullptr, value), std::logic_error);
    EXPECT_THROW(builder.addObjtoObj(nullptr, nullptr, value), std::logic_error);
    ASSERT_FALSE(lifetime.over());
    EXPECT_EQ(1, json_object_put(value));
}

TEST(NQ_JSON_builders, NewArrayIsEmptyAndTheCallers) {
    NQ_JSON builder;
    json_object* first = builder.newArray();
    json_object* second = builder.newArray();
    EXPECT_NE(first, second);
    EXPECT_STREQ("[ ]", json_object_get_string(first));
    EXPECT_EQ(1, json_object_put(first)) << "more than one reference";
    EXPECT_EQ(1, json_object_put(second));
    EXPECT_EQ("{ }", builder.asString());
}

TEST(NQ_JSON_flatteners, AsMapGivesTheTextOfEveryMember) {
    const NQ_JSON json(
        "{\"s\":\"x\",\"e\":\"\",\"n\":1,\"b\":true,\"l\":[1,2],\"o\":{\"k\":\"v\"}}");
    Fields fields{{"stale", "entry"}};
    json.asMap(fields);
    EXPECT_THAT(fields, ElementsAre(Pair("b", "true"), Pair("e", ""), Pair("l", "[ 1, 2 ]"),
                                    Pair("n", "1"), Pair("o", "{ \"k\": \"v\" }"), Pair("s", "x")));
}

TEST(NQ_JSON_flatteners, AsMapIsEmptyWithoutMembers) {
    for (const NQ_JSON& json : {NQ_JSON(), NQ_JSON("[1]"), NQ_JSON("\"x\""), kNothing}) {
        Fields fields{{"stale", "entry"}};
        json.asMap(fields);
        EXPECT_THAT(fields, IsEmpty());
    }
}

TEST(NQ_JSON_flatteners, AsMapRaisesALogicErrorForANullMember) {
    Fields fields;
    EXPECT_THROW(NQ_JSON("{\"a\":null}").asMap(fields), std::logic_error);
}

TEST(NQ_JSON_flatteners, EmptyFieldsCollectsEmptyOnesAndPrintsTheOthers) {
    const NQ_JSON json("{\"a\":\"\",\"b\":\"x\",\"c\":\"\"}");
    Keys keys{"stale"};
    CapturedOutput output;
    json.emptyFields(keys, json.getObj());
    EXPECT_THAT(keys, ElementsAre("a", "c"));
    EXPECT_EQ("b=x\n", output.text());
}

TEST(NQ_JSON_flatteners, EmptyFieldsKeepsTheOrderOfTheMembers) {
    const NQ_JSON json("{\"z\":\"\",\"y\":\"2\",\"b\":\"\",\"a\":\"1\",\"c\":\"\"}");
    Keys keys;
    CapturedOutput output;
    json.emptyFields(keys, json.getObj());
    EXPECT_THAT(keys, ElementsAre("z", "b", "c"));
    EXPECT_EQ("y=2\na=1\n", output.text());
}

TEST(NQ_JSON_flatteners, EmptyFieldsPrintsTheTextOfAnyType) {
    const NQ_JSON json("{\"ip\":\"10.0.0.1\",\"n\":0,\"f\":false,\"l\":[],\"o\":{\"a\":\"\"}}");
    Keys keys;
    CapturedOutput output;
    json.emptyFields(keys, json.getObj());
    EXPECT_THAT(keys, IsEmpty());
    EXPECT_EQ("ip=10.0.0.1\nn=0\nf=false\nl=[ ]\no={ \"a\": \"\" }\n", output.text());
}

TEST(NQ_JSON_flatteners, EmptyFieldsCollectsATextThatIsEmptyAfterItsFirstNulByte) {
    const NQ_JSON json("{\"a\":\"\\u0000b\"}");
    Keys keys;
    CapturedOutput output;
    json.emptyFields(keys, json.getObj());
    EXPECT_THAT(keys, ElementsAre("a"));
    EXPECT_EQ("", output.text());
}

TEST(NQ_JSON_flatteners, EmptyFieldsWorksOnItsArgumentNotOnTheHandle) {
    const NQ_JSON handle("{\"own\":\"\",\"mine\":\"x\"}");
    const NQ_JSON argument("{\"given\":\"\"}");
    Keys keys;
    CapturedOutput output;
    handle.emptyFields(keys, argument.getObj());
    EXPECT_THAT(keys, ElementsAre("given"));
    kNothing.emptyFields(keys, argument.getObj());
    EXPECT_THAT(keys, ElementsAre("given"));
    EXPECT_EQ("", output.text());
}

TEST(NQ_JSON_flatteners, EmptyFieldsOnlyClearsWhenGivenNoObject) {
    const NQ_JSON handle("{\"own\":\"\",\"mine\":\"x\"}");
    const NQ_JSON array("[\"\",\"x\"]");
    const NQ_JSON string("\"x\"");
    CapturedOutput output;
    for (json_object* wrong : {array.getObj(), string.getObj(), kNothing.getObj()}) {
        Keys keys{"stale"};
        handle.emptyFields(keys, wrong);
        EXPECT_THAT(keys, IsEmpty());
    }
    EXPECT_EQ("", output.text());
}

TEST(NQ_JSON_flatteners, EmptyFieldsRaisesALogicErrorForANullMember) {
    const NQ_JSON json("{\"a\":\"x\",\"b\":null,\"c\":\"y\"}");
    Keys keys;
    CapturedOutput output;
    EXPECT_THROW(json.emptyFields(keys, json.getObj()), std::logic_error);
    EXPECT_EQ("a=x\n", output.text());
}

TEST(NQ_JSON_flatteners, EmptyFieldsFlushesItsLines) {
    const support::ForkedChild child = support::inForkedChild([] {
        const NQ_JSON json("{\"ip\":\"10.0.0.1\"}");
        Keys keys;
        json.emptyFields(keys, json.getObj());
        _exit(0); // does not flush buffers
    });
    EXPECT_EQ("ip=10.0.0.1\n", child.output);
}

} // namespace
