#include <kvr/api/data/NQ_JSON.h>

#include "documents.h"
#include "floor/Json.h"
#include "measure.h"

#include <map>
#include <string>
#include <vector>

#include <json-c/json_object.h>
#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace bench {
namespace {

using benchmark::DoNotOptimize;
using kvr::api::data::NQ_JSON;

constexpr char kNlohmann[] = "nlohmann-json";
constexpr char kRapid[] = "RapidJSON";
constexpr int kMembers = 10;

/// One tree for both sides: the time that json-c takes to compare keys depends on their addresses.
json_object* sharedTree(const std::string& text) {
    static std::map<std::string, NQ_JSON> documents;
    return documents.try_emplace(text, text).first->second.getObj();
}

void addParsing(const std::string& operation, const std::string& text, Repeat repeat) {
    add(
        operation, kLibrary, [&text] { return [&text] { DoNotOptimize(NQ_JSON(text).getObj()); }; },
        repeat);
    add(
        operation, kFloor, [&text] { return [&text] { DoNotOptimize(floor::Json(text).tree()); }; },
        repeat);
    add(
        operation, kNlohmann,
        [&text] { return [&text] { DoNotOptimize(nlohmann::json::parse(text)); }; }, repeat);
    add(
        operation, kRapid,
        [&text] {
            return [&text] {
                rapidjson::Document document;
                DoNotOptimize(document.Parse(text.data(), text.size()).HasParseError());
            };
        },
        repeat);
}

void addPrinting(const std::string& operation, const std::string& text, Repeat repeat) {
    add(
        operation, kLibrary,
        [&text] {
            return [document = NQ_JSON(sharedTree(text))] { DoNotOptimize(document.asString()); };
        },
        repeat);
    add(
        operation, kFloor,
        [&text] {
            return [document = std::make_shared<floor::Json>(sharedTree(text))] {
                DoNotOptimize(document->print());
            };
        },
        repeat);
    add(
        operation, kNlohmann,
        [&text] {
            return [document = nlohmann::json::parse(text)] { DoNotOptimize(document.dump()); };
        },
        repeat);
    add(
        operation, kRapid,
        [&text] {
            auto document = std::make_shared<rapidjson::Document>();
            document->Parse(text.c_str());
            return [document] {
                rapidjson::StringBuffer buffer;
                rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
                document->Accept(writer);
                DoNotOptimize(std::string(buffer.GetString(), buffer.GetSize()));
            };
        },
        repeat);
}

void addReading() {
    static const std::string kMethod = "method";
    static const std::string kId = "id";
    static const std::string kParams = "params";
    const Repeat repeat = {1000};

    const auto library = [](auto read) {
        return [read] {
            return [document = NQ_JSON(sharedTree(smallDocument())), read] { read(document); };
        };
    };
    const auto leanest = [](auto read) {
        return [read] {
            return [document = std::make_shared<floor::Json>(sharedTree(smallDocument())), read] {
                read(*document);
            };
        };
    };
    const auto nlohmann = [](auto read) {
        return [read] {
            return [document = nlohmann::json::parse(smallDocument()), read] { read(document); };
        };
    };
    const auto rapid = [](auto read) {
        return [read] {
            auto document = std::make_shared<rapidjson::Document>();
            document->Parse(smallDocument().c_str());
            return [document, read] { read(*document); };
        };
    };

    const std::string text = "json read text";
    add(text, kLibrary,
        library([](const NQ_JSON& document) { DoNotOptimize(document.get_json_string(kMethod)); }),
        repeat);
    add(text, kFloor,
        leanest([](const floor::Json& document) { DoNotOptimize(document.text(kMethod)); }),
        repeat);
    add(text, kNlohmann, nlohmann([](const nlohmann::json& document) {
            DoNotOptimize(document.find(kMethod)->get<std::string>());
        }),
        repeat);
    add(text, kRapid, rapid([](const rapidjson::Document& document) {
            DoNotOptimize(std::string(document[kMethod.c_str()].GetString()));
        }),
        repeat);

    const std::string number = "json read number";
    add(number, kLibrary,
        library([](const NQ_JSON& document) { DoNotOptimize(document.get_json_int(kId)); }),
        repeat);
    add(number, kFloor,
        leanest([](const floor::Json& document) { DoNotOptimize(document.number(kId)); }), repeat);
    add(number, kNlohmann, nlohmann([](const nlohmann::json& document) {
            DoNotOptimize(document.find(kId)->get<int>());
        }),
        repeat);
    add(number, kRapid, rapid([](const rapidjson::Document& document) {
            DoNotOptimize(document[kId.c_str()].GetInt());
        }),
        repeat);

    // The peers have no shared sub-documents, so they have no side here.
    const std::string object = "json share object";
    add(object, kLibrary, library([](const NQ_JSON& document) {
            DoNotOptimize(document.get_json_object(kParams).getObj());
        }),
        repeat);
    add(object, kFloor, leanest([](const floor::Json& document) {
            DoNotOptimize(document.member(kParams).tree());
        }),
        repeat);
}

/// The names of the members that are built.
const std::vector<std::string>& names() {
    static const std::vector<std::string> all = {"ipaddr", "netmask", "proto", "gateway", "dns",
                                                 "mtu",    "metric",  "mac",   "ifname",  "type"};
    static_assert(kMembers == 10, "one name each");
    return all;
}

// An object of ten texts, with an array of ten texts as one more member.
void addBuilding() {
    const std::string operation = "json build";
    add(operation, kLibrary, [] {
        return [] {
            NQ_JSON document;
            json_object* list = document.newArray();
            for (const std::string& name : names()) {
                document.addKeyVal(name, "192.168.1.1");
                document.addStringtoObj(list, name.c_str());
            }
            document.addObjtoObj(document.getObj(), "list", list);
            DoNotOptimize(document.getObj());
        };
    });
    add(operation, kFloor, [] {
        return [] {
            floor::Json document;
            json_object* list = document.newArray();
            for (const std::string& name : names()) {
                document.add(name, "192.168.1.1");
                document.addText(list, name.c_str());
            }
            document.addObject(document.tree(), "list", list);
            DoNotOptimize(document.tree());
        };
    });
    add(operation, kNlohmann, [] {
        return [] {
            nlohmann::json document = nlohmann::json::object();
            nlohmann::json list = nlohmann::json::array();
            for (const std::string& name : names()) {
                document[name] = "192.168.1.1";
                list.push_back(name);
            }
            document["list"] = std::move(list);
            DoNotOptimize(document);
        };
    });
    add(operation, kRapid, [] {
        return [] {
            rapidjson::Document document(rapidjson::kObjectType);
            auto& allocator = document.GetAllocator();
            rapidjson::Value list(rapidjson::kArrayType);
            for (const std::string& name : names()) {
                document.AddMember(rapidjson::Value(name.c_str(), allocator),
                                   rapidjson::Value("192.168.1.1", allocator), allocator);
                list.PushBack(rapidjson::Value(name.c_str(), allocator), allocator);
            }
            document.AddMember("list", list, allocator);
            DoNotOptimize(document);
        };
    });
}

void addFlattening() {
    const std::string map = "json flatten to map";
    add(map, kLibrary, [] {
        return [document = NQ_JSON(sharedTree(flatDocument()))] {
            std::map<std::string, std::string> members;
            document.asMap(members);
            DoNotOptimize(members);
        };
    });
    add(map, kFloor, [] {
        return [document = std::make_shared<floor::Json>(sharedTree(flatDocument()))] {
            std::map<std::string, std::string> members;
            document->flatten(members);
            DoNotOptimize(members);
        };
    });
    add(map, kNlohmann, [] {
        return [document = nlohmann::json::parse(flatDocument())] {
            DoNotOptimize(document.get<std::map<std::string, std::string>>());
        };
    });
    add(map, kRapid, [] {
        auto document = std::make_shared<rapidjson::Document>();
        document->Parse(flatDocument().c_str());
        return [document] {
            std::map<std::string, std::string> members;
            for (const auto& member : document->GetObject())
                members.emplace(member.name.GetString(), member.value.GetString());
            DoNotOptimize(members);
        };
    });

    const std::string empty = "json empty fields, others printed";
    add(empty, kLibrary, [] {
        return [document = NQ_JSON(sharedTree(flatDocument()))] {
            std::vector<std::string> keys;
            document.emptyFields(keys, document.getObj());
            DoNotOptimize(keys);
        };
    });
    add(empty, kFloor, [] {
        return [document = std::make_shared<floor::Json>(sharedTree(flatDocument()))] {
            std::vector<std::string> keys;
            document->emptyFields(keys, document->tree());
            DoNotOptimize(keys);
        };
    });
}

} // namespace

void addJson() {
    addParsing("json parse 200 B", smallDocument(), {});
    addParsing("json parse 90 KB", largeDocument(), {5});
    addReading();
    addBuilding();
    addPrinting("json print 200 B", smallDocument(), {});
    addPrinting("json print 90 KB", largeDocument(), {5});
    addFlattening();
}

} // namespace bench
