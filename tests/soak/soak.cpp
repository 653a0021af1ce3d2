// A management agent in a simulated gateway, under load for several minutes. The load consists of:
// - mixed requests, connections that break off, and clients that stay silent
// - a broker that is killed and restarted, and services that restart
// - a log at its size limit
//
// Prints a line every ten seconds, and the checks and their results at the end. SIGINT and SIGTERM
// end the run without the checks.

#include "AgentInSandbox.h"
#include "AgentProcess.h"
#include "Load.h"
#include "ResponseReceiver.h"
#include "Waiting.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

using support::AgentInSandbox;
using Clock = std::chrono::steady_clock;
using soak::Tally;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr long kLogLimit = 65536;

volatile std::sig_atomic_t endedBy = 0;

extern "C" void noteSignal(int signal) { endedBy = signal; }

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
        if (soak::readResponse(line, id, code))
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
          "every response is on standard output, once: " + std::to_string(tally.expected().size()) +
              " expected, " + std::to_string(lost) + " lost, " + std::to_string(twice) +
              " twice, " + std::to_string(unreadable) + " unreadable");
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

/// With no other load: the broker runs, then it is away for more responses than the agent keeps.
void checkBroker(const AgentInSandbox& agent, soak::ResponseReceiver& receiver, Tally& tally) {
    const auto send = [&](int count) {
        for (int i = 0; i < count; ++i)
            soak::sendSimple(agent, tally);
    };
    const auto lastArrives = [&] {
        return agent.waitForResponses(tally.expected().size()) &&
               receiver.waitFor(agent.responses().back());
    };
    send(1);
    check(lastArrives(), "responses reach the broker again");
    send(50);
    check(lastArrives(), "50 responses reach the broker");
    for (const int count : {50, 150}) {
        receiver.killBroker();
        tally.brokerKilled();
        send(count);
        receiver.restartBroker();
        check(lastArrives(), "the last of " + std::to_string(count) +
                                 " responses reaches the broker, which was away");
    }
    const std::vector<std::string> printed = agent.responses();
    const soak::Comparison found = receiver.compareWith(printed);
    check(found.lost == 0 && found.unexpected == 0 && found.twice <= tally.kills(),
          "nothing else is missing at the broker: " + std::to_string(printed.size()) +
              " responses, " + std::to_string(found.received) + " received, " +
              std::to_string(found.dropped) + " dropped while 100 newer ones waited, " +
              std::to_string(found.lost) + " lost otherwise, " + std::to_string(found.twice) +
              " received twice, " + std::to_string(found.unexpected) + " foreign or out of order");
}

/// Each restart that a request has requested must have run.
void checkRestarts(const AgentInSandbox& agent, const Tally& tally) {
    const std::string log = agent.read("/tmp/init.d.log");
    const long count = std::count(log.begin(), log.end(), '\n');
    check(count == tally.restarts() && count > 0,
          "every service was restarted: " + std::to_string(tally.restarts()) + " requests, " +
              std::to_string(count) + " restarts");
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2 || std::atoi(argv[1]) <= 0) {
        std::cerr << "Usage: soak MINUTES\n";
        return 2;
    }
    const milliseconds length = std::chrono::minutes(std::atoi(argv[1]));
    testing::InitGoogleTest();
    std::signal(SIGINT, noteSignal);
    std::signal(SIGTERM, noteSignal);
    const bool terminal = isatty(STDERR_FILENO) != 0;

    Tally tally;
    soak::ResponseReceiver receiver(tally);
    const std::string port = "127.0.0.1:" + std::to_string(receiver.port());
    AgentInSandbox agent({"--mqtt", port, "--allow", "echo", "--idle", "1", "--log-limit",
                          std::to_string(kLogLimit)});
    const pid_t process = soak::find(TAVO_AGENT, port);
    if (process == 0) {
        std::cerr << "soak: the agent's process was not found\n";
        return 1;
    }
    Mean early;
    Mean late;
    soak::sendEachKind(agent,
                       tally); // some allocate what they keep, such as the board's descriptor
    check(receiver.waitFor(agent.responses().back()), "responses reach the broker");
    const soak::Usage before = idleUsage(process);
    std::cout << "at first: " << textOf(before) << std::endl;

    const auto start = Clock::now();
    {
        const soak::Load load(agent, tally);
        soak::BrokerKiller killer(receiver, tally);
        auto nextLine = start + seconds(10);
        for (auto now = start; now < start + length && endedBy == 0; now = Clock::now()) {
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

    if (endedBy != 0)
        return 128 + endedBy;

    for (const std::string& failure : tally.failures())
        std::cout << failure << '\n';
    check(tally.failures().empty(), "every request was answered or refused: " + tally.line());
    checkBroker(agent, receiver, tally);
    checkRestarts(agent, tally);
    checkOutput(agent, tally);
    const soak::Usage after = idleUsage(process);
    check(before.residentKiB > 0 && after.descriptors == before.descriptors &&
              after.threads == before.threads,
          "descriptors and threads as at first: " + textOf(after));
    check(early.value() > 0 && late.value() > 0 &&
              late.value() <= early.value() + std::max(512L, early.value() / 20),
          "memory is flat: " + std::to_string(early.value()) + " KiB in the second quarter, " +
              std::to_string(late.value()) + " KiB in the last");
    check(support::eventually([&] { return soak::zombiesOf(process) == 0; }, seconds(5)),
          "no zombie is left");
    struct stat log = {};
    const bool hasLog = stat(agent.file("/tmp/log.out").c_str(), &log) == 0;
    check(hasLog && log.st_size > 0 && log.st_size <= kLogLimit + 1024 &&
              support::exists(agent.file("/tmp/log.out.1")),
          "the log was emptied at its limit; it has " + std::to_string(log.st_size) + " bytes now");
    const support::ProgramResult ran = agent.end(SIGTERM);
    check(ran.status == 0, "the agent ends on SIGTERM with status " + std::to_string(ran.status));
#ifdef TAVO_SANITIZER
    check(ran.err.find("Sanitizer") == std::string::npos &&
              ran.err.find("runtime error") == std::string::npos,
          "no sanitizer report");
#endif
    if (failedChecks != 0)
        std::cout << ran.err.substr(ran.err.size() - std::min<std::size_t>(ran.err.size(), 3000));
    return failedChecks == 0 ? 0 : 1;
}
