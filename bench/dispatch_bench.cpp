#include <kvr/api/NQ_JsonRPC.h>

#include "documents.h"
#include "floor/Dispatcher.h"
#include "measure.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

namespace bench {
namespace {

using kvr::api::data::NQ_JSON;

/// The last method is the one that the request names.
std::string methodName(int index, int count) {
    return index == count - 1 ? "uci.apply" : "method." + std::to_string(index);
}

class LibraryMethod : public kvr::api::CallbackMethod {
public:
    explicit LibraryMethod(std::string name) : name_(std::move(name)) {}
    bool Call(const NQ_JSON&, NQ_JSON&) override { return true; }
    std::string GetName() const override { return name_; }
    std::string GetDescription() const override { return std::string(); }

private:
    std::string name_;
};

class LibraryDispatcher : public kvr::api::NQ_RPCHandler {
public:
    explicit LibraryDispatcher(int count) {
        for (int i = 0; i < count; ++i)
            AddMethod(new LibraryMethod(methodName(i, count)));
    }
    void RegisterMethods() override {}
};

class FloorMethod : public floor::Method {
public:
    explicit FloorMethod(std::string name) : name_(std::move(name)) {}
    bool call(const floor::Json&, floor::Json&) override { return true; }
    std::string name() const override { return name_; }

private:
    std::string name_;
};

std::shared_ptr<floor::Dispatcher> floorDispatcher(int count) {
    auto dispatcher = std::make_shared<floor::Dispatcher>();
    for (int i = 0; i < count; ++i)
        dispatcher->add(new FloorMethod(methodName(i, count)));
    return dispatcher;
}

/// The dispatcher of a program with nlohmann-json: functions by name.
using Functions =
    std::map<std::string, std::function<bool(const nlohmann::json&, nlohmann::json&)>>;

Functions functions(int count) {
    Functions all;
    for (int i = 0; i < count; ++i)
        all.emplace(methodName(i, count),
                    [](const nlohmann::json&, nlohmann::json&) { return true; });
    return all;
}

void addParsed(int count) {
    const std::string operation =
        "dispatch, " + std::to_string(count) + (count == 1 ? " method" : " methods");
    const Repeat repeat = {200};
    add(
        operation, kLibrary,
        [count] {
            return [dispatcher = std::make_shared<LibraryDispatcher>(count),
                    request = NQ_JSON(smallDocument()), response = NQ_JSON()]() mutable {
                benchmark::DoNotOptimize(dispatcher->Process(request, response));
            };
        },
        repeat);
    add(
        operation, kFloor,
        [count] {
            return [dispatcher = floorDispatcher(count),
                    request = std::make_shared<floor::Json>(smallDocument()),
                    response = std::make_shared<floor::Json>()] {
                benchmark::DoNotOptimize(dispatcher->process(*request, *response));
            };
        },
        repeat);
    add(
        operation, "nlohmann-json and std::map",
        [count] {
            return [known = functions(count), request = nlohmann::json::parse(smallDocument()),
                    response = nlohmann::json()]() mutable {
                const auto found = known.find(request.find("method")->get<std::string>());
                benchmark::DoNotOptimize(found->second(request, response));
            };
        },
        repeat);
}

void addText(int count) {
    const std::string operation = "dispatch text, " + std::to_string(count) + " methods";
    add(operation, kLibrary, [count] {
        return [dispatcher = std::make_shared<LibraryDispatcher>(count),
                response = NQ_JSON()]() mutable {
            benchmark::DoNotOptimize(dispatcher->Process(smallDocument(), response));
        };
    });
    add(operation, kFloor, [count] {
        return [dispatcher = floorDispatcher(count), response = std::make_shared<floor::Json>()] {
            benchmark::DoNotOptimize(dispatcher->process(smallDocument(), *response));
        };
    });
    add(operation, "nlohmann-json and std::map", [count] {
        return [known = functions(count), response = nlohmann::json()]() mutable {
            const nlohmann::json request = nlohmann::json::parse(smallDocument());
            const auto found = known.find(request.find("method")->get<std::string>());
            benchmark::DoNotOptimize(found->second(request, response));
        };
    });
}

} // namespace

void addDispatch() {
    for (const int count : {1, 8, 64})
        addParsed(count);
    addText(8);
}

} // namespace bench
