#include <kvr/api/data/NQ_JSON.h>

#include "JsonLifetime.h"

#include <climits>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <json-c/json.h>

namespace {

using kvr::api::data::NQ_JSON;
using support::JsonLifetime;

// One member of each type.
const char* const kDocument = R"({"text":"abc","digits":"12","empty":"","number":5,"fraction":1.5,
    "yes":true,"no":false,"nothing":null,"object":{"a":1,"b":[true]},"list":["x",2,null,{"k":"v"}]})";

/// Handles that have no keys.
struct KeylessHandles {
    NQ_JSON emptyObject;
    NQ_JSON array{"[1]"};
    NQ_JSON string{"\"text\""};
    NQ_JSON nothing{static_cast<const json_object*>(nullptr)};
    const NQ_JSON* all[4] = {&emptyObject, &array, &string, &nothing};
};

TEST(NQ_JSON_readers, GetJsonStringGivesCharactersOrSpacedText) {
    const NQ_JSON json(kDocument);
    EXPECT_EQ("abc", json.get_json_string("text"));
    EXPECT_EQ("", json.get_json_string("empty"));
    EXPECT_EQ("5", json.get_json_string("number"));
    EXPECT_EQ("1.5", json.get_json_string("fraction"));
    EXPECT_EQ("true", json.get_json_string("yes"));
    EXPECT_EQ("false", json.get_json_string("no"));
    EXPECT_EQ("{ \"a\": 1, \"b\": [ true ] }", json.get_json_string("object"));
    EXPECT_EQ("[ \"x\", 2, null, { \"k\": \"v\" } ]", json.get_json_string("list"));
}

TEST(NQ_JSON_readers, GetJsonObjAsStringGivesPlainJson) {
    const NQ_JSON json(kDocument);
    EXPECT_EQ("\"abc\"", json.get_json_obj_as_string("text"));
    EXPECT_EQ("\"\"", json.get_json_obj_as_string("empty"));
    EXPECT_EQ("5", json.get_json_obj_as_string("number"));
    EXPECT_EQ("false", json.get_json_obj_as_string("no"));
    EXPECT_EQ("null", json.get_json_obj_as_string("nothing"));
    EXPECT_EQ("{\"a\":1,\"b\":[true]}", json.get_json_obj_as_string("object"));
    EXPECT_EQ("[\"x\",2,null,{\"k\":\"v\"}]", json.get_json_obj_as_string("list"));
}

TEST(NQ_JSON_readers, SlashesAreEscapedInJsonTextButNotInCharacters) {
    const NQ_JSON json("{\"o\":{\"path\":\"/a/b\"},\"path\":\"/a/b\"}");
    EXPECT_EQ("{\"path\":\"\\/a\\/b\"}", json.get_json_obj_as_string("o"));
    EXPECT_EQ("\"\\/a\\/b\"", json.get_json_obj_as_string("path"));
    EXPECT_EQ("{ \"path\": \"\\/a\\/b\" }", json.get_json_string("o"));
    EXPECT_EQ("/a/b", json.get_json_string("path"));
}

TEST(NQ_JSON_readers, GetJsonIntConverts) {
    const NQ_JSON json(kDocument);
    EXPECT_EQ(5, json.get_json_int("number"));
    EXPECT_EQ(12, json.get_json_int("digits"));
    EXPECT_EQ(1, json.get_json_int("fraction"));
    EXPECT_EQ(1, json.get_json_int("yes"));
    EXPECT_EQ(0, json.get_json_int("no"));
    EXPECT_EQ(0, json.get_json_int("text"));
    EXPECT_EQ(0, json.get_json_int("nothing"));
    EXPECT_EQ(0, json.get_json_int("object"));
    EXPECT_EQ(-7, NQ_JSON("{\"n\":-7}").get_json_int("n"));
    // Too large for an int: json-c returns the nearest value.
    EXPECT_EQ(INT_MAX, NQ_JSON("{\"n\":5000000000}").get_json_int("n"));
    EXPECT_EQ(INT_MIN, NQ_JSON("{\"n\":-5000000000}").get_json_int("n"));
}

TEST(NQ_JSON_readers, GetJsonDoubleConverts) {
    const NQ_JSON json(kDocument);
    EXPECT_EQ(5.0, json.get_json_double("number"));
    EXPECT_EQ(1.5, json.get_json_double("fraction"));
    EXPECT_EQ(0.1, NQ_JSON("{\"n\":0.1}").get_json_double("n"));
    EXPECT_EQ(12.0, json.get_json_double("digits"));
    EXPECT_EQ(1.0, json.get_json_double("yes"));
    EXPECT_EQ(0.0, json.get_json_double("text"));
    EXPECT_EQ(0.0, json.get_json_double("nothing"));
    EXPECT_EQ(0.0, json.get_json_double("list"));
}

TEST(NQ_JSON_readers, GetJsonObjectSharesTheMember) {
    NQ_JSON json(kDocument);
    NQ_JSON member = json.get_json_object("object");
    member.addKeyVal("c", "new");
    EXPECT_EQ("{\"a\":1,\"b\":[true],\"c\":\"new\"}", json.get_json_obj_as_string("object"));

    const JsonLifetime lifetime(member.getObj());
    json = NQ_JSON();
    EXPECT_FALSE(lifetime.over());
    member = NQ_JSON();
    EXPECT_TRUE(lifetime.over());
}

TEST(NQ_JSON_readers, ReadersGiveFixedDefaultsForAMissingKey) {
    const KeylessHandles keyless;
    for (const NQ_JSON* json : keyless.all) {
        EXPECT_EQ("", json->get_json_string("key"));
        EXPECT_EQ("", json->get_json_obj_as_string("key"));
        EXPECT_EQ(0, json->get_json_int("key"));
        EXPECT_EQ(0.0, json->get_json_double("key"));
        EXPECT_EQ(nullptr, json->get_json_object("key").getObj());
        EXPECT_FALSE(json->keyExists("key"));
        EXPECT_EQ(0, json->json_object_array_len("key"));
        EXPECT_THROW(json->get_json_string_arrayID("key", 0), std::logic_error);
    }
}

TEST(NQ_JSON_readers, KeysAreComparedExactly) {
    const NQ_JSON json("{\"key\":1,\"\":2}");
    EXPECT_TRUE(json.keyExists("key"));
    EXPECT_FALSE(json.keyExists("Key"));
    EXPECT_FALSE(json.keyExists("ke"));
    EXPECT_FALSE(json.keyExists("keys"));
    EXPECT_EQ(2, json.get_json_int(""));
}

TEST(NQ_JSON_readers, ANullMemberExistsButHasNoText) {
    const NQ_JSON json(kDocument);
    EXPECT_TRUE(json.keyExists("nothing"));
    EXPECT_EQ(nullptr, json.get_json_object("nothing").getObj());
    EXPECT_THROW(json.get_json_string("nothing"), std::logic_error);
}

TEST(NQ_JSON_readers, ReadersSeeChangesImmediately) {
    NQ_JSON json;
    EXPECT_EQ(0, json.get_json_int("n"));
    json.addKeyVal("n", "1");
    EXPECT_EQ(1, json.get_json_int("n"));
    json.addKeyVal("n", "2");
    EXPECT_EQ(2, json.get_json_int("n"));
}

TEST(NQ_JSON_readers, OnlyAnArrayIsAnArray) {
    EXPECT_TRUE(NQ_JSON("[]").json_object_is_array());
    EXPECT_FALSE(NQ_JSON("{}").json_object_is_array());
    for (const char* text : {"\"[]\"", "1 ", "1.5 ", "true ", "null "})
        EXPECT_FALSE(NQ_JSON(std::string(text)).json_object_is_array()) << text;
    EXPECT_FALSE(NQ_JSON(static_cast<const json_object*>(nullptr)).json_object_is_array());
}

TEST(NQ_JSON_readers, ArrayLengthsCountElements) {
    const NQ_JSON array("[1,null,[2,3]]");
    EXPECT_EQ(3, array.json_object_array_len());
    EXPECT_EQ(3, array.getArraySize());
    EXPECT_EQ(0, NQ_JSON("[]").getArraySize());
    EXPECT_EQ(4, NQ_JSON(kDocument).json_object_array_len("list"));
}

TEST(NQ_JSON_readers, ArrayLengthsAreZeroWithoutAnArray) {
    const KeylessHandles keyless;
    for (const NQ_JSON* json : {&keyless.emptyObject, &keyless.string, &keyless.nothing}) {
        EXPECT_EQ(0, json->json_object_array_len());
        EXPECT_EQ(0, json->getArraySize());
    }
    const NQ_JSON json(kDocument);
    for (const char* key : {"text", "number", "nothing", "object"})
        EXPECT_EQ(0, json.json_object_array_len(key)) << key;
}

TEST(NQ_JSON_readers, ArrayElementsAreReadAsText) {
    const NQ_JSON json(kDocument);
    const NQ_JSON array = json.get_json_object("list");
    const char* const expected[] = {"x", "2", nullptr, "{ \"k\": \"v\" }"};
    for (int idx : {0, 1, 3}) {
        EXPECT_EQ(expected[idx], array.get_json_string_arrayID(idx));
        EXPECT_EQ(expected[idx], json.get_json_string_arrayID("list", idx));
    }
}

TEST(NQ_JSON_readers, AnElementWithoutTextRaisesALogicError) {
    const NQ_JSON json(kDocument);
    const NQ_JSON array = json.get_json_object("list");
    for (int idx : {2 /* a null */, -1, 4, 1000000}) {
        EXPECT_THROW(array.get_json_string_arrayID(idx), std::logic_error) << idx;
        EXPECT_THROW(json.get_json_string_arrayID("list", idx), std::logic_error) << idx;
    }
    EXPECT_THROW(json.get_json_string_arrayID(0), std::logic_error);
    EXPECT_THROW(json.get_json_string_arrayID("object", 0), std::logic_error);
    EXPECT_THROW(NQ_JSON("\"x\"").get_json_string_arrayID(0), std::logic_error);
}

TEST(NQ_JSON_readers, GetArrayObjectSharesTheElement) {
    NQ_JSON array("[{\"a\":1},{\"b\":2}]");
    NQ_JSON second = array.getArrayObject(1);
    second.addKeyVal("c", "3");
    EXPECT_EQ("[ { \"a\": 1 }, { \"b\": 2, \"c\": \"3\" } ]", array.asString());

    const JsonLifetime lifetime(second.getObj());
    array = NQ_JSON();
    EXPECT_FALSE(lifetime.over());
    second = NQ_JSON();
    EXPECT_TRUE(lifetime.over());
}

TEST(NQ_JSON_readers, GetArrayObjectHoldsNoValueWhereThereIsNoElement) {
    const NQ_JSON array("[null,1]");
    for (int idx : {0 /* a null */, -1, 2, 1000000})
        EXPECT_EQ(nullptr, array.getArrayObject(idx).getObj()) << idx;
    EXPECT_EQ(nullptr, NQ_JSON("{\"0\":1}").getArrayObject(0).getObj());
    EXPECT_EQ(nullptr,
              NQ_JSON(static_cast<const json_object*>(nullptr)).getArrayObject(0).getObj());
}

TEST(NQ_JSON_readers, GetObjTakesNoReference) {
    NQ_JSON json;
    const JsonLifetime lifetime(json.getObj());
    json = NQ_JSON("[]");
    EXPECT_TRUE(lifetime.over());
}

TEST(NQ_JSON_readers, AsStringGivesSpacedTextOrBareCharacters) {
    EXPECT_EQ("{ \"a\": { \"b\": [ 1, 2 ] }, \"e\": { }, \"f\": [ ] }",
              NQ_JSON("{\"a\":{\"b\":[1,2]},\"e\":{},\"f\":[]}").asString());
    EXPECT_EQ("say \"hi\"", NQ_JSON("\"say \\\"hi\\\"\"").asString());
    EXPECT_THROW(NQ_JSON(static_cast<const json_object*>(nullptr)).asString(), std::logic_error);
}

TEST(NQ_JSON_readers, TextsEndAtTheirFirstNulByte) {
    const NQ_JSON json("{\"a\":\"x\\u0000y\",\"list\":[\"p\\u0000q\"]}");
    EXPECT_EQ("x", json.get_json_string("a"));
    EXPECT_EQ("p", json.get_json_string_arrayID("list", 0));
}

TEST(NQ_JSON_readers, NullKeysRaiseALogicError) {
    const NQ_JSON json(kDocument);
    EXPECT_THROW(json.json_object_array_len(nullptr), std::logic_error);
    EXPECT_THROW(json.get_json_string_arrayID(nullptr, 0), std::logic_error);
}

TEST(NQ_JSON_readers, BytesPassUnchanged) {
    const std::string bytes = "\xc3\xa9 \xff";
    NQ_JSON json;
    json.addKeyVal("k", bytes);
    EXPECT_EQ(bytes, json.get_json_string("k"));
}

} // namespace
