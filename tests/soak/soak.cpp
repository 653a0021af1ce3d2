// A management agent in a simulated gateway, under load for several minutes. The load consists of:
// - mixed requests, connections that break off, and clients that stay silent
// - a broker that is killed and restarted, and services that restart
// - a log at its size limit
//
// Prints a line every ten seconds, and the checks and their results at the end.

#include "AgentInSandbox.h"
#include "AgentProcess.h"
#include "Broker.h"
#include "Waiting.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <json-c/json.h>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr long kLogLimit = 65536;

/// What the clients have done so far. All threads use it.
class Tally {
public:
    int newId() { return ++ids_; }

    /// `code` is 0 for a result, otherwise the error's.
    void answered(int id, int code) {
        const std::lock_guard<std::mutex> lock(guard_);
        expected_.insert(id);
        ++answers_;
        ++codes_[code];
    }
    void unanswered(const std::string& why) {
        const std::lock_guard<std::mutex> lock(guard_);
        failures_.push_back(why);
    }
    /// For a complete request whose client did not wait for the response.
    void leftAlone(int id) {
        const std::lock_guard<std::mutex> lock(guard_);
        expected_.insert(id);
        ++brokenOff_;
    }
    void refused() { ++refused_; }
    void brokenOff() { ++brokenOff_; }
    void silent() { ++silent_; }
    void brokerRestarted() { ++restarts_; }

    std::string line() const {
        const std::lock_guard<std::mutex> lock(guard_);
        std::string text = std::to_string(answers_ + static_cast<int>(failures_.size())) +
                           " requests, " + std::to_string(answers_) + " answers";
        for (const auto& [code, count] : codes_)
            text += ", " + std::to_string(count) + "x " +
                    (code == 0 ? std::string("result") : std::to_string(code));
        return text + "; " + std::to_string(refused_) + " refused, " + std::to_string(brokenOff_) +
               " broken off, " + std::to_string(silent_) + " silent; broker killed " +
               std::to_string(restarts_) + " times";
    }
    std::vector<std::string> failures() const {
        const std::lock_guard<std::mutex> lock(guard_);
        return failures_;
    }
    std::set<int> expected() const {
        const std::lock_guard<std::mutex> lock(guard_);
        return expected_;
    }

private:
    mutable std::mutex guard_;
    std::atomic<int> ids_{0};
    std::atomic<int> refused_{0};
    std::atomic<int> brokenOff_{0};
    std::atomic<int> silent_{0};
    std::atomic<int> restarts_{0};
    int answers_ = 0;
    std::map<int, int> codes_;
    std::set<int> expected_; // each must occur once in the agent's output
    std::vector<std::string> failures_;
};

/// Method and parameters of one of the mixed requests.
struct Kind {
    const char* method;
    const char* params; ///< NUMBER stands for a number that changes
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

std::string requestOf(const Kind& kind, int id) {
    std::string params = kind.params;
    const std::size_t at = params.find("NUMBER");
    if (at != std::string::npos)
        params.replace(at, 6, std::to_string(id % 200 + 1));
    return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":")" + kind.method +
           R"(","params":)" + params + R"(,"answer":true})";
}

/// Reads a response's id and its error code, or 0. Returns false for any other text.
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

/// The clients: threads that run until the object is destroyed.
class Load {
public:
    Load(const AgentInSandbox& agent, Tally& tally) : path_(agent.socketPath()), tally_(tally) {
        for (unsigned seed = 1; seed <= 3; ++seed)
            start([this, seed] { sendRequests(seed); });
        start([this] { breakOff(); });
        start([this] { staySilent(); });
    }
    ~Load() {
        over_ = true;
        for (std::thread& thread : threads_)
            thread.join();
    }
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

private:
    template <class Action>
    void start(const Action& action) {
        threads_.emplace_back([this, action] {
            while (!over_)
                action();
        });
    }

    void pause(milliseconds time) {
        support::eventually([&] { return over_.load(); }, time);
    }

    /// Connects a client, again after each refusal. Returns null when the load ends before the
    /// agent, which serves one client at a time, accepts it.
    std::unique_ptr<Client> connected() {
        while (!over_) {
            try {
                return std::make_unique<Client>(path_);
            } catch (const std::runtime_error&) {
                tally_.refused();
            }
        }
        return nullptr;
    }

    void sendRequests(unsigned seed) {
        std::mt19937 random(seed);
        while (const auto client = connected()) {
            const int id = tally_.newId();
            const std::string request = requestOf(kKinds[random() % std::size(kKinds)], id);
            client->send(request);
            const std::string response = client->receive();
            int answered = 0;
            int code = 0;
            if (readResponse(response, answered, code) && answered == id)
                tally_.answered(id, code);
            else
                tally_.unanswered(request + " got: " + response);
        }
    }

    void breakOff() {
        pause(milliseconds(300));
        if (const auto client = connected()) {
            client->sendRaw("\1\2"); // half of the length field
            tally_.brokenOff();
        }
        if (const auto client = connected()) {
            client->sendRaw(std::string("\x40\0\0\0{\"jsonrpc\":\"2.0\",\"id\"", 23));
            tally_.brokenOff();
        }
        if (const auto client = connected()) {
            const int id = tally_.newId();
            client->send(requestOf(kKinds[0], id));
            tally_.leftAlone(id);
        }
    }

    void staySilent() {
        pause(seconds(5));
        if (const auto client = connected()) {
            client->receive(); // until the agent disconnects this client
            tally_.silent();
        }
    }

    const std::string path_;
    Tally& tally_;
    std::atomic<bool> over_{false};
    std::vector<std::thread> threads_;
};

/// Kills the broker at intervals. Must run on the main thread, because the kernel ends a broker
/// together with the thread that started it.
class BrokerKiller {
public:
    BrokerKiller(support::Broker& broker, Tally& tally) : broker_(broker), tally_(tally) {}
    ~BrokerKiller() {
        if (!runs_)
            restart();
    }
    BrokerKiller(const BrokerKiller&) = delete;
    BrokerKiller& operator=(const BrokerKiller&) = delete;

    /// Must be called often.
    void tick(Clock::time_point now) {
        if (now < next_)
            return;
        if (runs_) {
            broker_.kill();
            runs_ = false;
            next_ = now + seconds(2);
        } else {
            restart();
            next_ = now + seconds(4);
        }
    }

private:
    void restart() {
        broker_.start();
        runs_ = true;
        tally_.brokerRestarted();
    }

    support::Broker& broker_;
    Tally& tally_;
    bool runs_ = true;
    Clock::time_point next_ = Clock::now() + seconds(4);
};

std::string textOf(const soak::Usage& usage) {
    return "RSS " + std::to_string(usage.residentKiB) + " KiB, " +
           std::to_string(usage.descriptors) + " descriptors, " + std::to_string(usage.threads) +
           " threads";
}

/// The mean of samples from a part of the run.
class Mean {
public:
    void add(long value) {
        sum_ += value;
        ++count_;
    }
    long value() const { return count_ == 0 ? 0 : sum_ / count_; }

private:
    long sum_ = 0;
    long count_ = 0;
};

int failedChecks = 0;

void check(bool holds, const std::string& what) {
    std::cout << (holds ? "ok      " : "FAILED  ") << what << std::endl;
    failedChecks += holds ? 0 : 1;
}

/// Each expected id must occur once on the agent's standard output.
void checkOutput(const AgentInSandbox& agent, const Tally& tally) {
    std::map<int, int> seen;
    int unreadable = 0;
    for (const std::string& line : agent.responses()) {
        int id = 0;
        int code = 0;
        if (readResponse(line, id, code))
            ++seen[id];
        else
            ++unreadable;
    }
    int lost = 0;
    int twice = 0;
    for (const int id : tally.expected()) {
        lost += seen[id] == 0;
        twice += seen[id] > 1;
    }
    check(lost == 0 && twice == 0 && unreadable == 0,
          "every response stands on standard output, once: " +
              std::to_string(tally.expected().size()) + " expected, " + std::to_string(lost) +
              " lost, " + std::to_string(twice) + " twice, " + std::to_string(unreadable) +
              " unreadable");
}

soak::Usage idleUsage(pid_t process) {
    // The last client's descriptor may stay open for a moment.
    soak::Usage usage = soak::usageOf(process);
    support::eventually(
        [&] {
            const soak::Usage now = soak::usageOf(process);
            usage.descriptors = std::min(usage.descriptors, now.descriptors);
            usage.threads = std::min(usage.threads, now.threads);
            return false;
        },
        seconds(2));
    return usage;
}

void sendEachKind(const AgentInSandbox& agent, Tally& tally) {
    for (const Kind& kind : kKinds) {
        const int id = tally.newId();
        Client client(agent.socketPath());
        client.send(requestOf(kind, id));
        client.receive();
        tally.leftAlone(id);
    }
}

bool reachesBroker(const AgentInSandbox& agent, const support::Broker& broker, Tally& tally) {
    const std::string topic = "gateways/agent/response";
    broker.keepFor("soak", topic);
    return support::eventually([&] {
        const int id = tally.newId();
        Client client(agent.socketPath());
        client.send(requestOf(kKinds[0], id));
        client.receive();
        tally.leftAlone(id);
        return !broker.receiveKept("soak", topic, 1).empty();
    });
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2 || std::atoi(argv[1]) <= 0) {
        std::cerr << "Usage: soak MINUTES\n";
        return 2;
    }
    const milliseconds length = std::chrono::minutes(std::atoi(argv[1]));
    testing::InitGoogleTest();
    const bool terminal = isatty(STDERR_FILENO) != 0;

    support::Broker broker;
    const std::string port = "127.0.0.1:" + std::to_string(broker.port());
    AgentInSandbox agent({"--mqtt", port, "--allow", "echo", "--idle", "1", "--log-limit",
                          std::to_string(kLogLimit)});
    const pid_t process = soak::find(TAVO_AGENT, port);
    Tally tally;
    Mean early;
    Mean late;
    check(reachesBroker(agent, broker, tally), "responses reach the broker");
    sendEachKind(agent, tally); // some allocate what they keep, such as the board's descriptor
    const soak::Usage before = idleUsage(process);
    std::cout << "at first: " << textOf(before) << std::endl;

    const auto start = Clock::now();
    {
        const Load load(agent, tally);
        BrokerKiller killer(broker, tally);
        auto nextLine = start + seconds(10);
        for (auto now = start; now < start + length; now = Clock::now()) {
            std::this_thread::sleep_for(milliseconds(100));
            killer.tick(now);
            const soak::Usage usage = soak::usageOf(process);
            const auto passed = now - start;
            if (passed > length / 4 && passed < length / 2)
                early.add(usage.residentKiB);
            if (passed > length * 3 / 4)
                late.add(usage.residentKiB);
            const long second =
                static_cast<long>(std::chrono::duration_cast<seconds>(passed).count());
            if (terminal)
                std::fprintf(stderr, "\r%ld of %ld s ", second,
                             static_cast<long>(length.count() / 1000));
            if (now >= nextLine) {
                std::cout << (terminal ? "\r" : "") << second << " s: " << tally.line() << "; "
                          << textOf(usage) << std::endl;
                nextLine += seconds(10);
            }
        }
        if (terminal)
            std::fprintf(stderr, "\r                    \r");
    }

    for (const std::string& failure : tally.failures())
        std::cout << failure << '\n';
    check(tally.failures().empty(), "every request was answered or refused: " + tally.line());
    check(reachesBroker(agent, broker, tally), "responses reach the broker again");
    checkOutput(agent, tally);
    const soak::Usage after = idleUsage(process);
    check(after.descriptors == before.descriptors && after.threads == before.threads,
          "descriptors and threads as at first: " + textOf(after));
    check(late.value() <= early.value() + std::max(512L, early.value() / 20),
          "memory is flat: " + std::to_string(early.value()) + " KiB in the second quarter, " +
              std::to_string(late.value()) + " KiB in the last");
    check(support::eventually([&] { return soak::zombiesOf(process) == 0; }, seconds(5)),
          "no zombie is left");
    struct stat log = {};
    const bool hasLog = stat(agent.file("/tmp/log.out").c_str(), &log) == 0;
    check(hasLog && log.st_size > 0 && log.st_size <= kLogLimit + 1024 &&
              support::exists(agent.file("/tmp/log.out.1")),
          "the log has met its limit and stayed there: " + std::to_string(log.st_size) + " bytes");
    const support::Ran ran = agent.end(SIGTERM);
    check(ran.status == 0, "the agent ends on SIGTERM with status " + std::to_string(ran.status));
    check(ran.err.find("Sanitizer") == std::string::npos &&
              ran.err.find("runtime error") == std::string::npos,
          "no sanitizer report");
    if (failedChecks != 0)
        std::cout << ran.err.substr(ran.err.size() - std::min<std::size_t>(ran.err.size(), 3000));
    return failedChecks == 0 ? 0 : 1;
}
