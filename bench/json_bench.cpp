#include <kvr/api/data/NQ_JSON.h>

#include <benchmark/benchmark.h>
#include <json-c/json.h>

#include <string>

using kvr::api::data::NQ_JSON;

namespace {

const std::string kRequest =
    R"({"jsonrpc":"2.0","id":7,"method":"uci.apply","params":{"config":"network","section":"lan",)"
    R"("type":"interface","values":{"ipaddr":"192.168.1.1","netmask":"255.255.255.0","gateway":""}}})";

void JsonParse(benchmark::State& state) {
    for (auto _ : state) {
        const NQ_JSON document(kRequest);
        benchmark::DoNotOptimize(document.getObj());
    }
}
BENCHMARK(JsonParse);

void JsonParse_floor(benchmark::State& state) {
    for (auto _ : state) {
        json_tokener* tokener = json_tokener_new();
        json_object* document =
            json_tokener_parse_ex(tokener, kRequest.c_str(), static_cast<int>(kRequest.length()));
        json_tokener_free(tokener);
        benchmark::DoNotOptimize(document);
        json_object_put(document);
    }
}
BENCHMARK(JsonParse_floor);

void JsonReadMember(benchmark::State& state) {
    const NQ_JSON document(kRequest);
    const std::string key = "method";
    for (auto _ : state)
        benchmark::DoNotOptimize(document.get_json_string(key));
}
BENCHMARK(JsonReadMember);

void JsonReadMember_floor(benchmark::State& state) {
    const NQ_JSON document(kRequest);
    const std::string key = "method";
    for (auto _ : state) {
        json_object* member = nullptr;
        json_object_object_get_ex(document.getObj(), key.c_str(), &member);
        benchmark::DoNotOptimize(std::string(json_object_get_string(member)));
    }
}
BENCHMARK(JsonReadMember_floor);

void JsonShareMember(benchmark::State& state) {
    const NQ_JSON document(kRequest);
    const std::string key = "params";
    for (auto _ : state) {
        const NQ_JSON member = document.get_json_object(key);
        benchmark::DoNotOptimize(member.getObj());
    }
}
BENCHMARK(JsonShareMember);

void JsonShareMember_floor(benchmark::State& state) {
    const NQ_JSON document(kRequest);
    const std::string key = "params";
    for (auto _ : state) {
        json_object* member = nullptr;
        json_object_object_get_ex(document.getObj(), key.c_str(), &member);
        benchmark::DoNotOptimize(json_object_get(member));
        json_object_put(member);
    }
}
BENCHMARK(JsonShareMember_floor);

} // namespace
