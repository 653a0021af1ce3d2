#include <kvr/api/NQ_JsonRPC.h>

#include "CapturedOutput.h"
#include "CapturedSyslog.h"
#include "VirtualSlots.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <syslog.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::CallbackMethod;
using kvr::api::NQ_RPCHandler;
using kvr::api::data::NQ_JSON;
using support::CapturedOutput;
using support::CapturedSyslog;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::is_abstract<CallbackMethod>::value, "applications derive");
static_assert(std::has_virtual_destructor<CallbackMethod>::value, "deleted by its base");
static_assert(std::is_abstract<NQ_RPCHandler>::value, "applications derive");
static_assert(std::has_virtual_destructor<NQ_RPCHandler>::value, "applications derive");
static_assert(!std::is_copy_constructible<NQ_RPCHandler>::value, "a copy would delete twice");
static_assert(!std::is_copy_assignable<NQ_RPCHandler>::value, "a copy would delete twice");
static_assert(sizeof(CallbackMethod) == sizeof(void*), "virtual table alone");
static_assert(sizeof(NQ_RPCHandler) == sizeof(void*) + sizeof(std::list<CallbackMethod*>),
              "virtual table, method table");

/// The events of a test's handlers, in order.
using Journal = std::vector<std::string>;

class Dispatcher : public NQ_RPCHandler {
public:
    explicit Dispatcher(Journal* journal = nullptr) : journal_(journal) {}
    void RegisterMethods() override {
        if (journal_)
            journal_->push_back("RegisterMethods");
    }

private:
    Journal* journal_;
};

/// A handler that records its calls and its destruction.
class Recorder : public CallbackMethod {
public:
    Recorder(Journal& journal, std::string name, bool result = true)
        : id(name), journal_(journal), name_(std::move(name)), result_(result) {}
    ~Recorder() override {
        journal_.push_back("delete " + id);
        syslog(LOG_DEBUG, "delete"); // shows the order relative to the dispatcher's log record
    }

    bool Call(const NQ_JSON& request, NQ_JSON& response) override {
        journal_.push_back("call " + id);
        lastRequest = &request;
        lastResponse = &response;
        if (answers)
            response.addKeyVal("answer", "from " + id);
        return result_;
    }
    std::string GetName() const override {
        ++namesAsked;
        return name_;
    }
    std::string GetDescription() const override {
        journal_.push_back("describe " + id);
        return "";
    }

    void rename(const std::string& name) { name_ = name; }

    std::string id; ///< distinguishes handlers of the same name in the journal
    bool answers = false;
    mutable int namesAsked = 0;
    const NQ_JSON* lastRequest = nullptr;
    NQ_JSON* lastResponse = nullptr;

private:
    Journal& journal_;
    std::string name_;
    bool result_;
};

/// A dispatcher and the journal of its handlers.
class NQ_JsonRPC : public testing::Test {
protected:
    Recorder* add(const std::string& name, bool result = true) {
        auto* method = new Recorder(journal, name, result);
        dispatcher->AddMethod(method);
        return method;
    }
    Recorder* addAs(const std::string& id, const std::string& name) {
        Recorder* method = add(name);
        method->id = id;
        return method;
    }
    bool process(const std::string& text) { return dispatcher->Process(text, response); }

    Journal journal;
    std::unique_ptr<Dispatcher> dispatcher{new Dispatcher(&journal)};
    NQ_JSON response;
};

TEST_F(NQ_JsonRPC, ConstructionIsRecordedInTheSystemLog) {
    const CapturedSyslog log;
    const Dispatcher another;
    EXPECT_THAT(log.lines(), ElementsAre("<6> NQ_RPCHandler loaded"));
    EXPECT_EQ("NQ_RPCHandler loaded", log.records().at(0).format);
}

TEST_F(NQ_JsonRPC, DestructionIsRecordedBeforeTheHandlersAreDeletedInOrder) {
    add("b");
    add("a");
    addAs("second b", "b");
    const CapturedSyslog log;
    dispatcher.reset();
    EXPECT_THAT(journal, ElementsAre("delete b", "delete a", "delete second b"));
    EXPECT_THAT(log.lines(), ElementsAre("<6> NQ_RPCHandler unloaded", "<7> delete", "<7> delete",
                                         "<7> delete"));
    EXPECT_EQ("NQ_RPCHandler unloaded", log.records().at(0).format);
}

TEST_F(NQ_JsonRPC, DestructionSkipsNullEntries) {
    dispatcher->AddMethod(nullptr);
    add("a");
    dispatcher->AddMethod(nullptr);
    dispatcher.reset();
    EXPECT_THAT(journal, ElementsAre("delete a"));
}

TEST_F(NQ_JsonRPC, NothingCallsTheHooksOfDerivedClasses) {
    add("ping");
    EXPECT_TRUE(process("{\"method\":\"ping\"}"));
    dispatcher->Lookup("ping");
    dispatcher->DeleteMethod("ping");
    dispatcher.reset();
    EXPECT_THAT(journal, ElementsAre("call ping", "delete ping"));
}

TEST_F(NQ_JsonRPC, LookupFindsNothingInAnEmptyTable) {
    EXPECT_EQ(nullptr, dispatcher->Lookup("ping"));
    EXPECT_EQ(nullptr, dispatcher->Lookup(""));
}

TEST_F(NQ_JsonRPC, LookupComparesNamesExactly) {
    Recorder* ping = add("ping");
    Recorder* nul = add(std::string("nul\0byte", 8));
    Recorder* nameless = add("");
    EXPECT_EQ(ping, dispatcher->Lookup("ping"));
    EXPECT_EQ(nul, dispatcher->Lookup(std::string("nul\0byte", 8)));
    EXPECT_EQ(nameless, dispatcher->Lookup(""));
    for (const char* name : {"Ping", "pin", "pings", " ping", "nul"})
        EXPECT_EQ(nullptr, dispatcher->Lookup(name)) << name;
}

TEST_F(NQ_JsonRPC, LookupGivesTheFirstRegisteredOfAName) {
    add("other");
    Recorder* first = addAs("first", "same");
    addAs("second", "same");
    EXPECT_EQ(first, dispatcher->Lookup("same"));
}

TEST_F(NQ_JsonRPC, LookupAsksForEachNameUntilTheFirstMatchEveryTime) {
    Recorder* a = add("a");
    Recorder* b = add("b");
    Recorder* c = add("c");
    EXPECT_EQ(b, dispatcher->Lookup("b"));
    EXPECT_EQ(1, a->namesAsked);
    EXPECT_EQ(1, b->namesAsked);
    EXPECT_EQ(0, c->namesAsked);
    c->rename("a");
    a->rename("z");
    EXPECT_EQ(c, dispatcher->Lookup("a"));
    EXPECT_EQ(a, dispatcher->Lookup("z"));
}

TEST_F(NQ_JsonRPC, LookupChangesNothing) {
    add("a");
    dispatcher->Lookup("a");
    dispatcher->Lookup("missing");
    EXPECT_THAT(journal, IsEmpty());
}

TEST_F(NQ_JsonRPC, DeleteMethodDeletesTheFirstOfItsNameOnly) {
    add("other");
    addAs("first", "same");
    Recorder* second = addAs("second", "same");
    dispatcher->DeleteMethod("same");
    EXPECT_THAT(journal, ElementsAre("delete first"));
    EXPECT_EQ(second, dispatcher->Lookup("same")) << "the second takes over";
    dispatcher->DeleteMethod("same");
    EXPECT_THAT(journal, ElementsAre("delete first", "delete second"));
    EXPECT_EQ(nullptr, dispatcher->Lookup("same"));
    EXPECT_NE(nullptr, dispatcher->Lookup("other"));
}

TEST_F(NQ_JsonRPC, DeleteMethodOfAnUnknownNameDoesNothing) {
    Recorder* ping = add("ping");
    for (const char* name : {"", "Ping", "pin", "pings"})
        dispatcher->DeleteMethod(name);
    EXPECT_THAT(journal, IsEmpty());
    EXPECT_EQ(ping, dispatcher->Lookup("ping"));
}

TEST_F(NQ_JsonRPC, DeleteMethodOnAnEmptyTableDoesNothing) {
    dispatcher->DeleteMethod("ping");
    EXPECT_EQ(nullptr, dispatcher->Lookup("ping"));
}

TEST_F(NQ_JsonRPC, DeleteMethodNeverRemovesSystemDescribe) {
    Recorder* describe = add("system.describe");
    dispatcher->DeleteMethod("system.describe");
    EXPECT_THAT(journal, IsEmpty());
    EXPECT_EQ(describe, dispatcher->Lookup("system.describe"));
    EXPECT_TRUE(process("{\"method\":\"system.describe\"}"));
}

TEST_F(NQ_JsonRPC, DeleteMethodReturnsImmediatelyForSystemDescribe) {
    Recorder* other = add("other");
    dispatcher->DeleteMethod("system.describe");
    EXPECT_EQ(0, other->namesAsked);
}

TEST_F(NQ_JsonRPC, OnlyTheExactNameSystemDescribeIsProtected) {
    for (const char* name : {"system.describe2", "system.describ", "System.describe"}) {
        add(name);
        dispatcher->DeleteMethod(name);
    }
    EXPECT_THAT(journal, ElementsAre("delete system.describe2", "delete system.describ",
                                     "delete System.describe"));
}

TEST_F(NQ_JsonRPC, DeleteMethodWalksPastNullEntries) {
    dispatcher->AddMethod(nullptr);
    add("ping");
    dispatcher->AddMethod(nullptr);
    dispatcher->DeleteMethod("ping");
    EXPECT_THAT(journal, ElementsAre("delete ping"));
    dispatcher->DeleteMethod("ping");
    dispatcher->DeleteMethod("");
    EXPECT_THAT(journal, ElementsAre("delete ping"));
}

TEST_F(NQ_JsonRPC, ProcessHandsTheWholeRequestAndTheCallersResponseToTheHandler) {
    Recorder* ping = add("ping");
    const NQ_JSON request("{\"id\":1,\"method\":\"ping\",\"params\":{\"a\":[1]}}");
    EXPECT_TRUE(dispatcher->Process(request, response));
    EXPECT_EQ(&request, ping->lastRequest);
    EXPECT_EQ(&response, ping->lastResponse);
    EXPECT_THAT(journal, ElementsAre("call ping"));
}

TEST_F(NQ_JsonRPC, ProcessReturnsTheHandlersResult) {
    add("good", true);
    add("bad", false);
    EXPECT_TRUE(process("{\"method\":\"good\"}"));
    EXPECT_FALSE(process("{\"method\":\"bad\"}"));
    EXPECT_THAT(journal, ElementsAre("call good", "call bad"));
}

TEST_F(NQ_JsonRPC, EveryFormOfProcessDispatches) {
    add("ping")->answers = true;
    const std::string text = "{\"method\":\"ping\"}";
    NQ_JSON fromValue;
    NQ_JSON fromString;
    NQ_JSON fromPointer;
    EXPECT_TRUE(dispatcher->Process(NQ_JSON(text), fromValue));
    EXPECT_TRUE(dispatcher->Process(text, fromString));
    EXPECT_TRUE(dispatcher->Process(text.c_str(), fromPointer));
    for (const NQ_JSON* answer : {&fromValue, &fromString, &fromPointer})
        EXPECT_EQ("{ \"answer\": \"from ping\" }", answer->asString());
}

TEST_F(NQ_JsonRPC, TheDispatcherNeitherClearsNorCompletesTheResponse) {
    add("silent");
    add("talker")->answers = true;
    response = NQ_JSON("{\"kept\":true}");
    EXPECT_TRUE(process("{\"jsonrpc\":\"2.0\",\"id\":7,\"method\":\"silent\"}"));
    EXPECT_EQ("{ \"kept\": true }", response.asString());
    EXPECT_TRUE(process("{\"jsonrpc\":\"2.0\",\"id\":8,\"method\":\"talker\"}"));
    EXPECT_EQ("{ \"kept\": true, \"answer\": \"from talker\" }", response.asString());
}

TEST_F(NQ_JsonRPC, ProcessUsesTheFirstRegisteredOfAName) {
    addAs("first", "same");
    addAs("second", "same");
    process("{\"method\":\"same\"}");
    process("{\"method\":\"same\"}");
    EXPECT_THAT(journal, ElementsAre("call first", "call first"));
}

TEST_F(NQ_JsonRPC, TheMethodIsReadAsText) {
    add("7");
    add("true");
    add("[ 1, 2 ]");
    EXPECT_TRUE(process("{\"method\":7}"));
    EXPECT_TRUE(process("{\"method\":true}"));
    EXPECT_TRUE(process("{\"method\":[1,2]}"));
    EXPECT_THAT(journal, ElementsAre("call 7", "call true", "call [ 1, 2 ]"));
}

TEST_F(NQ_JsonRPC, RequestsThatNameNoKnownMethodFailSilently) {
    add("ping");
    add(""); // a missing or empty "method" must not find it
    response = NQ_JSON("{\"kept\":true}");
    const CapturedSyslog log;
    CapturedOutput output;
    for (const char* text :
         {"{\"method\":\"pong\"}", "{\"method\":\"Ping\"}", "{\"method\":\"\"}", "{}",
          "{\"Method\":\"ping\"}", "{\"params\":{\"method\":\"ping\"}}", "\"ping\"", "7 ", "true "})
        EXPECT_FALSE(process(text)) << text;
    EXPECT_THAT(journal, IsEmpty());
    EXPECT_EQ("{ \"kept\": true }", response.asString());
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ("", output.text());
}

TEST_F(NQ_JsonRPC, ATextThatDoesNotParseFailsWithTheParsersLine) {
    add("ping");
    for (const char* text : {"", "{\"method\":\"ping\"", "nonsense", "42"}) {
        CapturedOutput output;
        EXPECT_FALSE(process(text)) << text;
        EXPECT_FALSE(dispatcher->Process(text, response)) << text;
        EXPECT_EQ("Unable to parse json\nUnable to parse json\n", output.text()) << text;
    }
    EXPECT_THAT(journal, IsEmpty());
    EXPECT_EQ("{ }", response.asString());
}

TEST_F(NQ_JsonRPC, ARequestThatHoldsNoValueFails) {
    Recorder* nameless = add("");
    EXPECT_FALSE(dispatcher->Process(NQ_JSON(static_cast<const json_object*>(nullptr)), response));
    EXPECT_FALSE(process("null "));
    EXPECT_EQ(0, nameless->namesAsked);
}

TEST_F(NQ_JsonRPC, AnArrayOfRequestsIsNotDispatched) {
    Recorder* ping = add("ping");
    response = NQ_JSON("{\"kept\":true}");
    CapturedOutput output;
    EXPECT_FALSE(process("[{\"method\":\"ping\"}]"));
    EXPECT_FALSE(process("[]"));
    EXPECT_FALSE(dispatcher->Process("[{\"method\":\"ping\"}]", response));
    EXPECT_FALSE(dispatcher->Process(NQ_JSON("[{\"method\":\"ping\"}]"), response));
    EXPECT_THAT(journal, IsEmpty());
    EXPECT_EQ(0, ping->namesAsked);
    EXPECT_EQ("{ \"kept\": true }", response.asString());
    EXPECT_EQ("", output.text());
}

TEST_F(NQ_JsonRPC, ANullMethodRaisesALogicError) {
    add("ping");
    EXPECT_THROW(process("{\"method\":null}"), std::logic_error);
    EXPECT_THROW(dispatcher->Process(NQ_JSON("{\"method\":null}"), response), std::logic_error);
    EXPECT_THAT(journal, IsEmpty());
}

TEST_F(NQ_JsonRPC, NullParamsRaiseALogicErrorBeforeAnythingIsLookedUp) {
    Recorder* ping = add("ping");
    EXPECT_THROW(process("{\"method\":\"ping\",\"params\":null}"), std::logic_error);
    EXPECT_THROW(process("{\"method\":\"\",\"params\":null}"), std::logic_error);
    EXPECT_THROW(process("{\"params\":null}"), std::logic_error);
    EXPECT_THAT(journal, IsEmpty());
    EXPECT_EQ(0, ping->namesAsked);
}

TEST_F(NQ_JsonRPC, ANullTextRaisesALogicError) {
    const char* text = nullptr;
    CapturedOutput output;
    EXPECT_THROW(dispatcher->Process(text, response), std::logic_error);
    EXPECT_EQ("", output.text());
}

TEST_F(NQ_JsonRPC, ATextIsParsedByItsLength) {
    add("ping");
    const std::string text("{\"method\":\"ping\"}\0rest", 22);
    EXPECT_TRUE(process(text));
    EXPECT_TRUE(dispatcher->Process(text.c_str(), response));
    EXPECT_THAT(journal, ElementsAre("call ping", "call ping"));
}

TEST_F(NQ_JsonRPC, WhatAHandlerThrowsReachesTheCaller) {
    struct Thrower : CallbackMethod {
        bool Call(const NQ_JSON&, NQ_JSON&) override { throw std::out_of_range("theirs"); }
        std::string GetName() const override { return "throw"; }
        std::string GetDescription() const override { return ""; }
    };
    dispatcher->AddMethod(new Thrower);
    EXPECT_THROW(process("{\"method\":\"throw\"}"), std::out_of_range);
}

TEST_F(NQ_JsonRPC, ASharedRequestMayBeKeptByItsHandler) {
    struct Keeper : CallbackMethod {
        explicit Keeper(NQ_JSON& kept) : kept_(kept) {}
        bool Call(const NQ_JSON& request, NQ_JSON&) override {
            kept_ = request;
            return true;
        }
        std::string GetName() const override { return "keep"; }
        std::string GetDescription() const override { return ""; }
        NQ_JSON& kept_;
    };
    NQ_JSON kept;
    dispatcher->AddMethod(new Keeper(kept));
    EXPECT_TRUE(process("{\"method\":\"keep\",\"a\":1}"));
    EXPECT_EQ("{ \"method\": \"keep\", \"a\": 1 }", kept.asString());
}

TEST(NQ_JsonRPC_layout, VirtualOperationsKeepTheirSlots) {
    EXPECT_EQ(2u, support::virtualSlot(&CallbackMethod::Call));
    EXPECT_EQ(3u, support::virtualSlot(&CallbackMethod::GetName));
    EXPECT_EQ(4u, support::virtualSlot(&CallbackMethod::GetDescription));
    EXPECT_EQ(2u, support::virtualSlot(&NQ_RPCHandler::RegisterMethods));
}

} // namespace
