// Memory that runs out: documents, texts and configurations. Each allocation of a representative
// operation fails, in a new process.
//
// If a dependency crashes, the outcome names it. In a trial that starts a program, allocations of
// the forked copy fail too, until it executes the program.

#include <kvr/api/NQ_JsonRPC.h>
#include <kvr/api/crypto/NQ_Crypto.h>
#include <kvr/api/data/NQ_JSON.h>
#include <kvr/api/data/NQ_Strings.h>
#include <kvr/api/datetime/NQ_Time.h>
#include <kvr/api/mng/NQ_Config.h>
#include <kvr/api/mng/NQ_UBUS.h>

#include "FailingMemory.h"
#include "FakePrograms.h"
#include "TempDir.h"

#include <map>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <json-c/json.h>

using fault::AtLeast;
using fault::exhaust;
using fault::kLong;
using fault::Memory;
using kvr::api::data::NQ_JSON;
using kvr::api::data::NQ_Strings;

namespace {

const std::string kDocument = R"({"config":"network","values":{"ipaddr":"10.0.0.1","x":""},)"
                              R"("l":[1,2.5,"three",true]})";

/// Describes what json-c parsed: the whole document, or how much of it.
std::string parseResult(const NQ_JSON& json, const Memory& memory) {
    static const std::string whole = NQ_JSON(kDocument).asString();
    if (json.getObj() == nullptr)
        return std::string("no value") + (memory.printed().empty() ? "" : ", reported");
    return json.asString() == whole ? "whole" : "json-c: without a member or an element";
}

// OpenSSL loads the texts of its errors at the first error and keeps them.
const std::string kErrorTexts = "std::bad_alloc (memory kept)";
// Outcomes of json-c with too little memory. json-c does not report these failures, so the library
// cannot either.
const std::set<std::string> kParsing = {"no value", "no value (memory kept)", "no value, reported",
                                        "json-c: without a member or an element (memory kept)",
                                        "signal 11 in libjson-c"};
const std::string kNoText = "exception: kvr::api::data::NQ_JSON: a text is null";

} // namespace

TEST(OutOfMemory, Json) {
    exhaust("NQ_JSON(text)", AtLeast{20}, "whole", kParsing, [](Memory& memory) {
        memory.fail();
        const NQ_JSON json(kDocument);
        memory.recover();
        return parseResult(json, memory);
    });
    const support::TempDir directory;
    support::writeFile(directory / "file", kDocument);
    exhaust("NQ_JSON::fromFile", AtLeast{20}, "whole", kParsing, [&](Memory& memory) {
        const std::string path = directory / "file";
        memory.fail();
        const NQ_JSON json = NQ_JSON::fromFile(path);
        memory.recover();
        return parseResult(json, memory);
    });
    exhaust("NQ_JSON()", AtLeast{2}, "{ }", {}, [](Memory& memory) {
        memory.fail();
        const NQ_JSON json;
        memory.recover();
        return json.asString();
    });
    exhaust("NQ_JSON readers", AtLeast{4}, "network{\"ipaddr\":\"10.0.0.1\",\"x\":\"\"}four",
            {kNoText}, [](Memory& memory) {
                const NQ_JSON json(kDocument);
                memory.fail();
                std::string text = json.get_json_string("config");
                text += json.get_json_obj_as_string("values");
                const NQ_JSON list = json.get_json_object("l");
                text += list.getArraySize() == 4 ? "four" : "";
                memory.recover();
                return text;
            });
    exhaust("NQ_JSON::asString", AtLeast{4}, "whole", {kNoText, "json-c: a text with a gap"},
            [](Memory& memory) {
                const NQ_JSON json(kDocument);
                memory.fail();
                const std::string text = json.asString();
                memory.recover();
                return text == json.asString() ? "whole" : "json-c: a text with a gap";
            });
    exhaust("NQ_JSON builders", AtLeast{8},
            "{ \"key\": \"value\", \"list\": [ \"one\", \"two\" ] }", {}, [](Memory& memory) {
                NQ_JSON json;
                memory.fail();
                json.addKeyVal("key", "value");
                json_object* const list = json.newArray();
                json.addObjtoObj(json.getObj(), "list", list);
                json.addStringtoObj(list, "one");
                json.addStringtoObj(list, "two");
                memory.recover();
                return json.asString();
            });
    exhaust("NQ_JSON::asMap", AtLeast{4}, "2", {kNoText}, [](Memory& memory) {
        const NQ_JSON json(R"({"a":"one","b":2})");
        std::map<std::string, std::string> fields;
        memory.fail();
        json.asMap(fields);
        memory.recover();
        return std::to_string(fields.size());
    });
    exhaust("NQ_JSON::emptyFields", AtLeast{2}, "1ip=10.0.0.1|", {}, [](Memory& memory) {
        const NQ_JSON json("{\"" + kLong + "\":\"\",\"ip\":\"10.0.0.1\"}");
        std::vector<std::string> empty;
        memory.fail();
        json.emptyFields(empty, json.getObj());
        memory.recover();
        return std::to_string(empty.size()) + memory.printed();
    });
}

TEST(OutOfMemory, Texts) {
    exhaust("NQ_Strings", AtLeast{4}, "3" + std::string(200, 'y'), {}, [](Memory& memory) {
        std::string text = kLong;
        memory.fail();
        const std::size_t fields = NQ_Strings::split("a,,b", ',').size();
        NQ_Strings::replaceAll(text, "x", "yy");
        memory.recover();
        return std::to_string(fields) + text;
    });
    exhaust("NQ_Time", AtLeast{1}, "1970-01-01T00:00:01.500Z1", {}, [](Memory& memory) {
        memory.fail();
        std::string text = kvr::api::datetime::NQ_Time::tvToDateStr({1, 500000});
        const timeval back = kvr::api::datetime::NQ_Time::dateStrToTv(text);
        memory.recover();
        return text + std::to_string(back.tv_sec);
    });
}

namespace {

class Echo : public kvr::api::CallbackMethod {
public:
    bool Call(const NQ_JSON& request, NQ_JSON& response) override {
        response.addKeyVal("result", request.get_json_string("params"));
        return true;
    }
    std::string GetName() const override { return "a name that no string holds by itself"; }
    std::string GetDescription() const override { return ""; }
};

class Dispatcher : public kvr::api::NQ_RPCHandler {
public:
    void RegisterMethods() override { AddMethod(new Echo); }
};

} // namespace

TEST(OutOfMemory, JsonRpc) {
    const std::set<std::string> ofJsonC = {
        "false{ }", "false{ } (memory kept)", "true{ \"result\": \"\" } (memory kept)",
        "std::bad_alloc (memory kept)", "signal 11 in libjson-c"};
    std::set<std::string> others = ofJsonC;
    others.insert("exception: kvr::api::NQ_RPCHandler: \"params\" is null");
    exhaust("NQ_RPCHandler::AddMethod", AtLeast{1}, "added", {}, [](Memory& memory) {
        Dispatcher dispatcher;
        auto* const method = new Echo;
        memory.fail();
        dispatcher.AddMethod(method); // deletes the method if it cannot keep it
        memory.recover();
        return dispatcher.Lookup(method->GetName()) == method ? "added" : "missing";
    });
    exhaust("NQ_RPCHandler::Process", AtLeast{15}, "true{ \"result\": \"5\" }", others,
            [](Memory& memory) {
                Dispatcher dispatcher;
                dispatcher.RegisterMethods();
                NQ_JSON response;
                memory.fail();
                const bool done = dispatcher.Process(
                    R"({"method":"a name that no string holds by itself","params":5})", response);
                memory.recover();
                return (done ? "true" : "false") + response.asString();
            });
}

TEST(OutOfMemory, Uci) {
    support::FakePrograms programs;
    programs.add("ubus", "[ \"$3\" != get ] || echo section");
    programs.add("uci");
    const std::string gap = "json-c: without a member or an element";
    exhaust(
        "NQ_UBUS::init and checkConfig", AtLeast{25}, "whole",
        {"not valid", "not valid (memory kept)", gap + " (memory kept)",
         "std::bad_alloc (memory kept)", "signal 11 in libjson-c", kNoText, "whole (memory kept)"},
        [&](Memory& memory) {
            kvr::api::mng::NQ_UBUS section;
            memory.fail();
            section.init(R"({"config":"network","section":"lan","values":{"ipaddr":"10.0.0.1"}})");
            const bool valid = section.checkConfig();
            memory.recover();
            if (!valid)
                return std::string("not valid");
            const bool whole = section.getConfigField() == "network" &&
                               section.getSectionField() == "lan" &&
                               section.getValuesField() == "{ \"ipaddr\": \"10.0.0.1\" }";
            return whole ? "whole" : gap;
        });
    exhaust("NQ_UBUS::makeDeleteConfig", AtLeast{15}, "whole",
            {kNoText, "json-c: a text with a gap"}, [](Memory& memory) {
                kvr::api::mng::NQ_UBUS section;
                section.init(R"({"config":"network","section":"lan","values":{"gateway":""}})");
                section.checkConfig();
                memory.fail();
                const std::string text = section.makeDeleteConfig();
                memory.recover();
                return text == section.makeDeleteConfig() ? "whole" : "json-c: a text with a gap";
            });
    exhaust("NQ_UBUS::applyConfig", AtLeast{10}, "true", {}, [](Memory& memory) {
        kvr::api::mng::NQ_UBUS section;
        section.init(R"({"config":"network","section":"lan","values":{"ipaddr":"10.0.0.1"}})");
        memory.fail();
        const bool done = section.applyConfig();
        memory.recover();
        return done ? "true" : "false";
    });
}

TEST(OutOfMemory, Config) {
    const support::TempDir root;
    for (const bool isBase64 : {false, true}) {
        const std::string what = isBase64 ? "NQ_Config, base64" : "NQ_Config, plain";
        std::set<std::string> others = fault::kEmptyFile;
        others.insert(kErrorTexts);
        exhaust(what, AtLeast{6}, kLong, others, [&](Memory& memory) {
            const std::string content =
                isBase64 ? kvr::api::crypto::NQ_Base64::base64_encode(kLong) : kLong;
            kvr::api::mng::NQ_Config config(root.path());
            memory.fail();
            config.init("app", "", "cfg", "file", content, isBase64);
            config.applyConfig();
            memory.recover();
            return support::readFile(root / "app/cfg/file");
        });
    }
}

TEST(OutOfMemory, Cryptography) {
    using kvr::api::crypto::NQ_Base64;
    using kvr::api::crypto::NQ_Crypto;
    // On any failure of OpenSSL the class ends the process.
    exhaust("NQ_Crypto", AtLeast{6}, "32" + kLong.substr(0, 20), {"signal 6 in libtavo"},
            [](Memory& memory) {
                std::vector<std::string> parts = {kLong, kLong};
                unsigned char plain[32] = "xxxxxxxxxxxxxxxxxxxx";
                unsigned char cipher[48];
                NQ_Crypto crypto;
                memory.fail();
                crypto.init(parts);
                const int length = crypto.encrypt(plain, 20, cipher);
                crypto.decrypt(cipher, length, plain);
                memory.recover();
                return std::to_string(length) + reinterpret_cast<char*>(plain);
            });
    exhaust("NQ_Base64::base64_encode", AtLeast{6}, NQ_Base64::base64_encode(kLong), {kErrorTexts},
            [](Memory& memory) {
                memory.fail();
                std::string text = NQ_Base64::base64_encode(kLong);
                memory.recover();
                return text;
            });
    exhaust("NQ_Base64::base64_decode", AtLeast{8}, kLong, {kErrorTexts}, [](Memory& memory) {
        const std::string text = NQ_Base64::base64_encode(kLong);
        memory.fail();
        std::string bytes = NQ_Base64::base64_decode(text);
        memory.recover();
        return bytes;
    });
}
