#include <kvr/api/NQ_JsonRPC.h>
#include <kvr/api/log/NQ_Logger.h>

#include <benchmark/benchmark.h>
#include <json-c/json.h>

#include <cstdio>
#include <fstream>
#include <list>
#include <mutex>
#include <string>

using kvr::api::CallbackMethod;
using kvr::api::data::NQ_JSON;

namespace {

class Method : public CallbackMethod {
public:
    explicit Method(std::string name) : name_(std::move(name)) {}
    bool Call(const NQ_JSON&, NQ_JSON&) override { return true; }
    std::string GetName() const override { return name_; }
    std::string GetDescription() const override { return ""; }

private:
    std::string name_;
};

class Dispatcher : public kvr::api::NQ_RPCHandler {
public:
    void RegisterMethods() override {
        for (const char* name : {"system.describe", "process.run", "config.place", "uci.apply"})
            AddMethod(new Method(name));
    }
};

const std::string kRequest =
    R"({"jsonrpc":"2.0","id":7,"method":"uci.apply","params":{"config":"network"}})";

void DispatchParsed(benchmark::State& state) {
    Dispatcher dispatcher;
    dispatcher.RegisterMethods();
    const NQ_JSON request(kRequest);
    NQ_JSON response;
    for (auto _ : state)
        benchmark::DoNotOptimize(dispatcher.Process(request, response));
}
BENCHMARK(DispatchParsed);

void DispatchParsed_floor(benchmark::State& state) {
    std::list<CallbackMethod*> methods;
    for (const char* name : {"system.describe", "process.run", "config.place", "uci.apply"})
        methods.push_back(new Method(name));
    const NQ_JSON request(kRequest);
    NQ_JSON response;
    for (auto _ : state) {
        json_object* member = nullptr;
        json_object_object_get_ex(request.getObj(), "method", &member);
        const std::string name = json_object_get_string(member);
        json_object_object_get_ex(request.getObj(), "params", &member);
        benchmark::DoNotOptimize(std::string(json_object_get_string(member)));
        for (CallbackMethod* method : methods)
            if (method->GetName() == name) {
                benchmark::DoNotOptimize(method->Call(request, response));
                break;
            }
    }
    for (CallbackMethod* method : methods)
        delete method;
}
BENCHMARK(DispatchParsed_floor);

const std::string kMessage = "request 7 uci.apply: done";
const std::string kLevel = "INFO";

// Appends to the real log file: run it where that does not matter.
void LogLine(benchmark::State& state) {
    kvr::api::log::NQ_Logger* logger = kvr::api::log::NQ_Logger::instance();
    for (auto _ : state)
        logger->log(kMessage, kLevel);
}
BENCHMARK(LogLine);

void LogLine_floor(benchmark::State& state) {
    std::mutex mutex;
    std::ofstream file("/tmp/log.out", std::ios::out | std::ios::app);
    for (auto _ : state) {
        const std::lock_guard<std::mutex> lock(mutex);
        file << kLevel << ": " << kMessage << std::endl;
    }
}
BENCHMARK(LogLine_floor);

} // namespace
