// tavo-rpc: sends requests to the agent, requests to the agents of many gateways, or any messages
// to a program that serves NQ_Sockets.

#include "rpc/Json.h"
#include "sender/Connection.h"
#include "sender/Fleet.h"
#include "sender/Options.h"
#include "sender/Payload.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace agent;
using std::chrono::seconds;

/// The kernel may split a longer message into pieces of at least this size, and the server then
/// finds only the first.
constexpr std::size_t kSafeSize = 32 * 1024;

constexpr seconds kSendLimit(5); ///< with --no-answer

// Exit statuses.
constexpr int kSuccess = 0;
constexpr int kFailure = 1;
constexpr int kNoAnswer = 2;

/// Sends one message and returns its answer, or an empty text when none is expected.
std::string transfer(Connection& connection, const Payload& payload, seconds timeout) {
    if (payload.text.size() + sizeof(std::uint32_t) > kSafeSize)
        complain(payload.label + ": " + std::to_string(payload.text.size()) +
                 " bytes may not arrive in one piece");
    try {
        connection.send(payload.text);
        return payload.getsAnswer ? connection.receive(timeout) : std::string();
    } catch (const NoAnswer& problem) {
        throw NoAnswer(payload.label + ": " + problem.what());
    } catch (const std::runtime_error& problem) {
        throw std::runtime_error(payload.label + ": " + problem.what());
    }
}

void sendAll(const SenderOptions& options, const std::vector<Payload>& payloads) {
    Connection connection(options.name, kSendLimit);
    for (const Payload& payload : payloads)
        transfer(connection, payload, options.timeout);
}

/// Sends a request on a separate connection, since the agent disconnects a client that is silent
/// for too long. Returns false when the response is an error.
bool call(const SenderOptions& options, const Payload& payload) {
    Connection connection(options.name, options.timeout);
    const std::string response = transfer(connection, payload, options.timeout);
    if (response.empty())
        return !payload.getsAnswer;
    std::cout << response << std::endl;
    const ParsedJson parsed = parseJson(response);
    return json_object_object_get_ex(parsed.value.get(), "result", nullptr) != 0;
}

std::string listed(const std::vector<std::string>& names) {
    std::string list;
    for (const std::string& name : names)
        list += " " + name;
    return list;
}

/// Sends one request to many gateways.
int callFleet(const SenderOptions& options) {
    const std::string problem = tlsProblem(*options.broker);
    if (!problem.empty())
        throw std::runtime_error(problem);
    const Payload payload = readPayload(options.files.front());
    Fleet fleet(*options.broker, options.base, options.sender,
                Fleet::Clock::now() + options.timeout);
    try {
        fleet.connect();
    } catch (const std::runtime_error& reason) {
        throw NoAnswer(options.broker->uri() + ": " + reason.what());
    }
    const std::set<std::string> gateways = options.all ? fleet.findAll() : options.gateways;
    if (gateways.empty())
        throw NoAnswer("no gateway is connected to the broker");
    const Fleet::Outcome outcome = fleet.call(payload, gateways);
    if (!outcome.unanswered.empty())
        throw NoAnswer("no response within " + std::to_string(options.timeout.count()) + " s from" +
                       listed(outcome.unanswered));
    return outcome.errors == 0 ? kSuccess : kFailure;
}

int run(const SenderOptions& options) {
    if (options.broker)
        return callFleet(options);
    // All files are read first, so that nothing is sent when one of them cannot be read.
    std::vector<Payload> payloads;
    for (const std::string& file : options.files)
        payloads.push_back(readPayload(file));
    if (!options.answers) {
        sendAll(options, payloads);
        return kSuccess;
    }
    for (Payload& payload : payloads)
        askForAnswer(payload);
    int status = kSuccess;
    for (const Payload& payload : payloads)
        if (!call(options, payload))
            status = kFailure;
    return status;
}

} // namespace

int main(int argc, char** argv) {
    const SenderOptions options = parseSenderOptions(argc, argv);
    try {
        return run(options);
    } catch (const NoAnswer& problem) {
        complain(problem.what());
        return options.answers ? kNoAnswer : kFailure;
    } catch (const std::exception& problem) {
        complain(problem.what());
        return kFailure;
    }
}
