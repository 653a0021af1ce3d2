#include <kvr/api/data/NQ_JSON.h>

#include "CapturedOutput.h"
#include "ForkedChild.h"
#include "JsonLifetime.h"
#include "TempDir.h"

#include <stdexcept>
#include <string>
#include <type_traits>

#include <unistd.h>

#include <gtest/gtest.h>
#include <json-c/json.h>

namespace {

using kvr::api::data::NQ_JSON;
using support::CapturedOutput;
using support::JsonLifetime;

static_assert(std::has_virtual_destructor<NQ_JSON>::value, "applications may derive");
static_assert(sizeof(NQ_JSON) == 3 * sizeof(void*), "virtual table, document, scratch handle");

const char* const kParseError = "Unable to parse json\n";

std::string nestedArrays(int depth) {
    return std::string(static_cast<std::size_t>(depth), '[') +
           std::string(static_cast<std::size_t>(depth), ']');
}

TEST(NQ_JSON, DefaultConstructorMakesANewEmptyObject) {
    const NQ_JSON first;
    const NQ_JSON second;
    EXPECT_EQ("{ }", first.asString());
    EXPECT_NE(first.getObj(), second.getObj());
}

TEST(NQ_JSON, TextConstructorParsesEveryKindOfValue) {
    CapturedOutput output;
    EXPECT_EQ("{ \"a\": [ 1, 2 ] }", NQ_JSON("{\"a\":[1,2]}").asString());
    EXPECT_EQ("[ 1, \"x\", null ]", NQ_JSON(" [1,\"x\",null]").asString());
    EXPECT_EQ("bare characters", NQ_JSON("\"bare characters\"").asString());
    EXPECT_EQ("", output.text());
}

TEST(NQ_JSON, TextThatIsNotCompleteJsonIsReportedOnceAndHoldsNoValue) {
    for (const char* text : {"", " ", "\n", "42", "-1", "1.5", "{\"a\":1", "[1,2", "\"open", "nope",
                             "]", "}", "{\"a\" 1}", "{\"a\":tru}", "{1:2}", "[1 2]", "\xff"}) {
        CapturedOutput output;
        const NQ_JSON json{std::string(text)};
        EXPECT_EQ(kParseError, output.text()) << text;
        EXPECT_EQ(nullptr, json.getObj()) << text;
    }
}

TEST(NQ_JSON, BareWordsAndNumbersNeedAFollowingCharacterToClose) {
    for (const char* text : {"true", "false", "null", "42"}) {
        CapturedOutput output;
        EXPECT_EQ(nullptr, NQ_JSON{std::string(text)}.getObj()) << text;
        EXPECT_EQ(kParseError, output.text()) << text;
    }
    CapturedOutput output;
    EXPECT_EQ("true", NQ_JSON("true ").asString());
    EXPECT_EQ("false", NQ_JSON("false\n").asString());
    EXPECT_EQ("42", NQ_JSON("42 ").asString());
    EXPECT_EQ("", output.text());
}

TEST(NQ_JSON, NullTextIsNoErrorButHoldsNoValue) {
    CapturedOutput output;
    EXPECT_EQ(nullptr, NQ_JSON("null ").getObj());
    EXPECT_EQ("", output.text());
}

TEST(NQ_JSON, CharactersAfterACompleteValueAreIgnored) {
    CapturedOutput output;
    EXPECT_EQ("{ \"a\": 1 }", NQ_JSON("{\"a\":1} and more").asString());
    EXPECT_EQ("[ ]", NQ_JSON("[]]").asString());
    EXPECT_EQ("x", NQ_JSON("\"x\"\"y\"").asString());
    EXPECT_EQ("", output.text());
}

TEST(NQ_JSON, TheWholeTextIsParsedByItsLengthNotUpToATerminator) {
    CapturedOutput output;
    EXPECT_EQ("42", NQ_JSON(std::string("42\0", 3)).asString());
    EXPECT_EQ("", output.text());
}

TEST(NQ_JSON, NestingIsLimitedToThirtyTwoLevels) {
    {
        CapturedOutput output;
        EXPECT_NE(nullptr, NQ_JSON(nestedArrays(32)).getObj());
        EXPECT_EQ("", output.text());
    }
    CapturedOutput output;
    EXPECT_EQ(nullptr, NQ_JSON(nestedArrays(33)).getObj());
    EXPECT_EQ(kParseError, output.text());
}

TEST(NQ_JSON, TheParserIsAsLenientAsJsonCIsByDefault) {
    CapturedOutput output;
    EXPECT_EQ("{ \"a\": \"x\", \"b\": 2 }", NQ_JSON("{'a':'x', /* why */ \"b\":2}").asString());
    EXPECT_EQ("\xff", NQ_JSON("\"\xff\"").asString()); // not UTF-8
    EXPECT_EQ("", output.text());
}

TEST(NQ_JSON, TheParsersMessageIsFlushed) {
    const support::ForkedChild child = support::inForkedChild([] {
        NQ_JSON("");
        _exit(0); // does not flush buffers
    });
    EXPECT_EQ(kParseError, child.output);
}

TEST(NQ_JSON, AMemberThatAppearsTwiceKeepsItsLastValue) {
    EXPECT_EQ("{ \"a\": 2 }", NQ_JSON("{\"a\":1,\"a\":2}").asString());
}

TEST(NQ_JSON, MembersKeepTheOrderOfTheirInsertion) {
    NQ_JSON json("{\"z\":1,\"a\":2}");
    json.addKeyVal("m", "3");
    EXPECT_EQ("{ \"z\": 1, \"a\": 2, \"m\": \"3\" }", json.asString());
}

TEST(NQ_JSON, WrappingSharesTheTreeAndLeavesTheCallersReference) {
    json_object* tree = json_object_new_object();
    const JsonLifetime lifetime(tree);
    {
        NQ_JSON json(static_cast<const json_object*>(tree));
        EXPECT_EQ(tree, json.getObj());
        json.addKeyVal("a", "b");
        EXPECT_STREQ("{ \"a\": \"b\" }", json_object_get_string(tree));
    }
    EXPECT_FALSE(lifetime.over());
    json_object_put(tree);
    EXPECT_TRUE(lifetime.over());
}

TEST(NQ_JSON, AWrappedTreeOutlivesItsCallersReference) {
    json_object* tree = json_object_new_object();
    const JsonLifetime lifetime(tree);
    {
        const NQ_JSON json(static_cast<const json_object*>(tree));
        json_object_put(tree);
        EXPECT_FALSE(lifetime.over());
    }
    EXPECT_TRUE(lifetime.over());
}

TEST(NQ_JSON, WrappingANullPointerHoldsNoValue) {
    const NQ_JSON json(static_cast<const json_object*>(nullptr));
    EXPECT_EQ(nullptr, json.getObj());
    const NQ_JSON copy(json);
    EXPECT_EQ(nullptr, copy.getObj());
}

TEST(NQ_JSON, ACopySharesTheTree) {
    const NQ_JSON original;
    NQ_JSON copy(original);
    copy.addKeyVal("added", "through the copy");
    EXPECT_EQ(original.getObj(), copy.getObj());
    EXPECT_TRUE(original.keyExists("added"));
}

TEST(NQ_JSON, TheTreeExistsAsLongAsItsLastHandle) {
    auto* first = new NQ_JSON;
    const JsonLifetime lifetime(first->getObj());
    {
        const NQ_JSON second(*first);
        delete first;
        EXPECT_FALSE(lifetime.over());
        EXPECT_EQ("{ }", second.asString());
    }
    EXPECT_TRUE(lifetime.over());
}

TEST(NQ_JSON, AssignmentFreesTheOldTreeWithItsLastHandle) {
    NQ_JSON a;
    const NQ_JSON b("[1]");
    const JsonLifetime lifetime(a.getObj());
    const JsonLifetime other(b.getObj());
    EXPECT_EQ(&a, &(a = b));
    EXPECT_TRUE(lifetime.over());
    EXPECT_FALSE(other.over());
    EXPECT_EQ(b.getObj(), a.getObj());
}

TEST(NQ_JSON, AssignmentKeepsAnOldTreeThatHasAnotherHandle) {
    NQ_JSON a;
    const NQ_JSON keeper(a);
    const JsonLifetime lifetime(a.getObj());
    a = NQ_JSON("[1]");
    EXPECT_FALSE(lifetime.over());
    EXPECT_EQ("{ }", keeper.asString());
    EXPECT_EQ("[ 1 ]", a.asString());
}

TEST(NQ_JSON, AssignmentTakesASeparateReference) {
    NQ_JSON a;
    auto* b = new NQ_JSON("[1]");
    const JsonLifetime lifetime(b->getObj());
    a = *b;
    delete b;
    EXPECT_FALSE(lifetime.over());
    EXPECT_EQ("[ 1 ]", a.asString());
    a = NQ_JSON();
    EXPECT_TRUE(lifetime.over());
}

TEST(NQ_JSON, SelfAssignmentDoesNothing) {
    NQ_JSON json("{\"a\":1}");
    const JsonLifetime lifetime(json.getObj());
    NQ_JSON& same = json;
    EXPECT_EQ(&json, &(json = same));
    EXPECT_FALSE(lifetime.over());
    EXPECT_EQ("{ \"a\": 1 }", json.asString());
    json = NQ_JSON(); // the self-assignment did not raise the count
    EXPECT_TRUE(lifetime.over());
}

TEST(NQ_JSON, AssignmentBetweenHandlesOfOneTreeKeepsTheCount) {
    NQ_JSON a;
    const JsonLifetime lifetime(a.getObj());
    {
        NQ_JSON b(a);
        a = b;
        EXPECT_FALSE(lifetime.over());
    }
    a = NQ_JSON();
    EXPECT_TRUE(lifetime.over());
}

TEST(NQ_JSON, AHandleCanBeReplacedByAMemberOfItsOwnTree) {
    NQ_JSON json("{\"inner\":{\"a\":1}}");
    json = json.get_json_object("inner");
    EXPECT_EQ("{ \"a\": 1 }", json.asString());
}

TEST(NQ_JSON, AssigningAHandleWithoutAValueDropsTheTree) {
    NQ_JSON json;
    const JsonLifetime lifetime(json.getObj());
    json = NQ_JSON(static_cast<const json_object*>(nullptr));
    EXPECT_TRUE(lifetime.over());
    EXPECT_EQ(nullptr, json.getObj());
}

TEST(NQ_JSON, TheScratchHandleStartsAsNull) {
    const NQ_JSON original;
    EXPECT_EQ(nullptr, original.gettempObj());
    EXPECT_EQ(nullptr, NQ_JSON("[]").gettempObj());
    EXPECT_EQ(nullptr, NQ_JSON(original).gettempObj());
    EXPECT_EQ(nullptr, NQ_JSON(static_cast<const json_object*>(original.getObj())).gettempObj());
    EXPECT_EQ(nullptr, original.get_json_object("missing").gettempObj());
}

TEST(NQ_JSON, TheScratchHandleIsNeverCopied) {
    json_object* scratch = json_object_new_array();
    json_object* other = json_object_new_array();
    NQ_JSON original;
    original.settempObj(scratch);
    EXPECT_EQ(scratch, original.gettempObj());

    const NQ_JSON copy(original);
    EXPECT_EQ(nullptr, copy.gettempObj());

    NQ_JSON assigned;
    assigned.settempObj(other);
    assigned = original;
    EXPECT_EQ(other, assigned.gettempObj());

    json_object_put(other);
    json_object_put(scratch);
}

TEST(NQ_JSON, TheScratchHandleIsNeitherOwnedNorReleased) {
    json_object* scratch = json_object_new_array();
    const JsonLifetime lifetime(scratch);
    {
        NQ_JSON json;
        json.settempObj(scratch);
        json.settempObj(nullptr);
        json.settempObj(scratch);
    }
    EXPECT_FALSE(lifetime.over());
    EXPECT_EQ(1, json_object_put(scratch)) << "a reference was taken";
}

TEST(NQ_JSON, FromFileParsesTheWholeFile) {
    const support::TempDir dir;
    const std::string filler(300000, 'x');
    support::writeFile(dir / "large.json", "\r\n {\"filler\":\"" + filler + "\",\"last\":1}\n");
    CapturedOutput output;
    const NQ_JSON json = NQ_JSON::fromFile(dir / "large.json");
    EXPECT_EQ(filler, json.get_json_string("filler"));
    EXPECT_EQ(1, json.get_json_int("last"));
    EXPECT_EQ("", output.text());
}

TEST(NQ_JSON, FromFileTrimsNothing) {
    const support::TempDir dir;
    support::writeFile(dir / "number", "42");
    support::writeFile(dir / "line", "42\n");
    CapturedOutput output;
    EXPECT_EQ(nullptr, NQ_JSON::fromFile(dir / "number").getObj());
    EXPECT_EQ(kParseError, output.text());
    EXPECT_EQ("42", NQ_JSON::fromFile(dir / "line").asString());
    EXPECT_EQ(kParseError, output.text());
}

TEST(NQ_JSON, FromFileTreatsAFileThatCannotBeReadAsAnEmptyText) {
    const support::TempDir dir;
    support::writeFile(dir / "empty", "");
    for (const std::string& path : {dir / "missing", dir / "empty", dir.path(), std::string()}) {
        CapturedOutput output;
        EXPECT_EQ(nullptr, NQ_JSON::fromFile(path).getObj()) << path;
        EXPECT_EQ(kParseError, output.text()) << path;
    }
}

} // namespace
