#include "Load.h"

#include "Waiting.h"

#include <iterator>
#include <random>
#include <stdexcept>

#include <json-c/json.h>

namespace soak {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using support::AgentInSandbox;
using support::Client;

/// Method and parameters of one of the mixed requests.
struct Kind {
    const char* method;
    const char* params; ///< NUMBER is replaced by a changing number
};
const Kind kKinds[] = {
    {"system.describe", "{}"},
    {"system.info", "{}"},
    {"uci.get", R"({"config":"network","section":"lan"})"},
    {"uci.get", R"({"config":"network","section":"none"})"},
    {"uci.apply",
     R"({"config":"network","section":"lan","values":{"ipaddr":"10.0.0.NUMBER"},"restart":true})"},
    {"uci.apply",
     R"({"config":"dhcp","section":"sNUMBER","type":"host","values":{"ip":"10.0.0.9"}})"},
    {"uci.apply", R"({"config":"dhcp","section":"sNUMBER","type":"host","values":{}})"},
    {"uci.apply", R"({"config":"network","section":"lan","values":{"x":"it's"}})"},
    {"config.place",
     R"({"application":"ZEQ","directory":"cfg","file":"soak.txt","content":"NUMBER"})"},
    {"process.run", R"({"command":"echo","arguments":["NUMBER"]})"},
    {"process.run", R"({"command":"rm","arguments":["-rf","/"]})"},
    {"gpio.get", R"({"name":"temperature"})"},
    {"gpio.set", R"({"name":"no such light","value":1})"},
    {"no.such.method", "{}"},
};

bool restarts(const Kind& kind) {
    return std::string(kind.params).find("\"restart\":true") != std::string::npos;
}

std::string requestOf(const Kind& kind, int id) {
    std::string params = kind.params;
    const std::size_t at = params.find("NUMBER");
    if (at != std::string::npos)
        params.replace(at, 6, std::to_string(id % 200 + 1));
    return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":")" + kind.method +
           R"(","params":)" + params + R"(,"answer":true})";
}

void sendAndWait(const Kind& kind, const AgentInSandbox& agent, Tally& tally) {
    const int id = tally.newId();
    Client client(agent.socketPath());
    client.send(requestOf(kind, id));
    client.receive();
    tally.sentWithoutWaiting(id);
    if (restarts(kind))
        tally.serviceRestarted();
}

} // namespace

void Tally::answered(int id, int code) {
    const std::lock_guard<std::mutex> lock(guard_);
    expected_.insert(id);
    ++answers_;
    ++codes_[code];
}

void Tally::unanswered(const std::string& why) {
    const std::lock_guard<std::mutex> lock(guard_);
    failures_.push_back(why);
}

void Tally::sentWithoutWaiting(int id) {
    const std::lock_guard<std::mutex> lock(guard_);
    expected_.insert(id);
}

std::string Tally::line() const {
    const std::lock_guard<std::mutex> lock(guard_);
    std::string text = std::to_string(answers_ + static_cast<int>(failures_.size())) +
                       " requests, " + std::to_string(answers_) + " answers";
    for (const auto& [code, count] : codes_)
        text += ", " + std::to_string(count) + "x " +
                (code == 0 ? std::string("result") : std::to_string(code));
    return text + "; " + std::to_string(refused_) + " refused, " +
           std::to_string(disconnectedEarly_) + " broken off, " + std::to_string(silent_) +
           " silent; broker killed " + std::to_string(kills_) + " times, services restarted " +
           std::to_string(restarts_) + " times";
}

std::vector<std::string> Tally::failures() const {
    const std::lock_guard<std::mutex> lock(guard_);
    return failures_;
}

std::set<int> Tally::expected() const {
    const std::lock_guard<std::mutex> lock(guard_);
    return expected_;
}

bool readResponse(const std::string& text, int& id, int& code) {
    json_object* const response = json_tokener_parse(text.c_str());
    json_object* member = nullptr;
    const bool hasId = json_object_object_get_ex(response, "id", &member) != 0;
    id = json_object_get_int(member);
    code = 0;
    const bool isResult = json_object_object_get_ex(response, "result", &member) != 0;
    json_object* error = nullptr;
    if (json_object_object_get_ex(response, "error", &error) != 0 &&
        json_object_object_get_ex(error, "code", &member) != 0)
        code = json_object_get_int(member);
    json_object_put(response);
    return hasId && isResult != (code != 0);
}

void sendSimple(const AgentInSandbox& agent, Tally& tally) { sendAndWait(kKinds[0], agent, tally); }

void sendEachKind(const AgentInSandbox& agent, Tally& tally) {
    for (const Kind& kind : kKinds)
        sendAndWait(kind, agent, tally);
}

Load::Load(const AgentInSandbox& agent, Tally& tally) : path_(agent.socketPath()), tally_(tally) {
    for (unsigned seed = 1; seed <= 3; ++seed)
        start([this, seed] { sendRequests(seed); });
    start([this] { disconnectEarly(); });
    start([this] { staySilent(); });
}

Load::~Load() {
    over_ = true;
    for (std::thread& thread : threads_)
        thread.join();
}

void Load::start(const std::function<void()>& action) {
    threads_.emplace_back([this, action] {
        while (!over_)
            action();
    });
}

void Load::pause(milliseconds time) {
    support::eventually([&] { return over_.load(); }, time);
}

/// Connects a client, again after each refusal. Returns null when the load ends before the
/// agent, which serves one client at a time, accepts it.
std::unique_ptr<Client> Load::connected() {
    while (!over_) {
        try {
            return std::make_unique<Client>(path_);
        } catch (const std::runtime_error&) {
            tally_.refused();
        }
    }
    return nullptr;
}

void Load::sendRequests(unsigned seed) {
    std::mt19937 random(seed);
    while (const auto client = connected()) {
        const int id = tally_.newId();
        const Kind& kind = kKinds[random() % std::size(kKinds)];
        const std::string request = requestOf(kind, id);
        client->send(request);
        const std::string response = client->receive();
        int answered = 0;
        int code = 0;
        if (!readResponse(response, answered, code) || answered != id) {
            tally_.unanswered(request + " got: " + response);
            continue;
        }
        tally_.answered(id, code);
        if (restarts(kind))
            tally_.serviceRestarted();
    }
}

void Load::disconnectEarly() {
    pause(milliseconds(300));
    if (const auto client = connected()) {
        client->sendRaw("\1\2"); // half of the length field
        tally_.disconnectedEarly();
    }
    if (const auto client = connected()) {
        tally_.incompleteSent();
        client->sendRaw(std::string("\x40\0\0\0{\"jsonrpc\":\"2.0\",\"id\"", 23));
        tally_.disconnectedEarly();
    }
    if (const auto client = connected()) {
        const int id = tally_.newId();
        client->send(requestOf(kKinds[0], id));
        tally_.sentWithoutWaiting(id);
        tally_.disconnectedEarly();
    }
}

void Load::staySilent() {
    pause(seconds(5));
    if (const auto client = connected()) {
        client->receive(); // until the agent disconnects this client
        tally_.silent();
    }
}

} // namespace soak
