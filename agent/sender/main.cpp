// tavo-rpc: sends requests to the agent, or any messages to a program that serves NQ_Sockets.

#include "rpc/Json.h"
#include "sender/Connection.h"
#include "sender/Payload.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <getopt.h>

namespace {

using namespace agent;
using std::chrono::seconds;

const char kHelp[] =
    "Usage: tavo-rpc [OPTION...] NAME [FILE...]\n"
    "Sends each FILE as one request to the agent NAME (the socket /tmp/socketDDS/NAME)\n"
    "and prints its response, one line of JSON; with no FILE, or when FILE is -, sends\n"
    "what standard input holds.\n"
    "\n"
    "  --no-answer        send each FILE as it is, on one connection, and ask for no\n"
    "                     response; for servers other than the agent, too\n"
    "  --timeout SECONDS  how long to wait for each response (30 unless given)\n"
    "  --help             print this text and exit\n"
    "\n"
    "A request without an id gets no response. To the others tavo-rpc adds the member\n"
    "\"answer\": true, by which the agent answers on the connection. The server takes a\n"
    "message by a single read, so it must arrive in one piece: up to 32 KiB always do,\n"
    "more may be cut (tavo-rpc then warns), and above some 200 KiB is always cut.\n"
    "\n"
    "Exit status: 0 every request has its result (with --no-answer: all are sent),\n"
    "1 a response is an error, or something could not be read or sent, 2 no response\n"
    "came in time, or usage error.\n";

/// The kernel queues what one send() gives in pieces of at least this size; the server may find
/// only the first one.
constexpr std::size_t kSafeSize = 32 * 1024;

constexpr seconds kSendLimit(5); ///< with --no-answer
constexpr int kMostSeconds = 24 * 60 * 60;

enum Status { success = 0, failure = 1, noAnswer = 2, usage = 2 };

struct Options {
    std::string name;
    std::vector<std::string> files;
    bool answers = true;
    seconds timeout{30};
};

void complain(const std::string& problem) { std::cerr << "tavo-rpc: " << problem << '\n'; }

[[noreturn]] void usageError(const std::string& problem) {
    if (!problem.empty())
        complain(problem);
    std::cerr << "Try 'tavo-rpc --help' for more information.\n";
    std::exit(usage);
}

seconds parseTimeout(const std::string& text) {
    const bool isNumber = !text.empty() && text.size() <= 6 &&
                          text.find_first_not_of("0123456789") == std::string::npos;
    if (!isNumber || std::stoi(text) < 1 || std::stoi(text) > kMostSeconds)
        usageError("--timeout takes a number of seconds, 1 to " + std::to_string(kMostSeconds));
    return seconds(std::stoi(text));
}

Options parseOptions(int argc, char** argv) {
    static const option known[] = {{"no-answer", no_argument, nullptr, 'n'},
                                   {"timeout", required_argument, nullptr, 't'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
    char programName[] = "tavo-rpc";
    argv[0] = programName; // what getopt_long() begins its messages with
    Options options;
    int found;
    while ((found = getopt_long(argc, argv, "", known, nullptr)) != -1) {
        switch (found) {
        case 'n':
            options.answers = false;
            break;
        case 't':
            options.timeout = parseTimeout(optarg);
            break;
        case 'h':
            std::fputs(kHelp, stdout);
            std::exit(success);
        default:
            usageError(""); // getopt_long() has said what is wrong
        }
    }
    if (optind == argc)
        usageError("the NAME of the socket is missing");
    options.name = argv[optind];
    options.files.assign(argv + optind + 1, argv + argc);
    if (options.files.empty())
        options.files.emplace_back("-");
    return options;
}

/// Sends one message, and returns the answer to it, which is empty when none is due.
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

void sendAll(const Options& options, const std::vector<Payload>& payloads) {
    Connection connection(options.name, kSendLimit);
    for (const Payload& payload : payloads)
        transfer(connection, payload, options.timeout);
}

/// Sends a request on a connection of its own: the agent cuts off one that was silent for long.
/// False when the response is an error.
bool call(const Options& options, const Payload& payload) {
    Connection connection(options.name, options.timeout);
    const std::string response = transfer(connection, payload, options.timeout);
    if (response.empty())
        return !payload.getsAnswer;
    std::cout << response << std::endl;
    const ParsedJson parsed = parseJson(response);
    return json_object_object_get_ex(parsed.value.get(), "result", nullptr) != 0;
}

Status run(const Options& options) {
    // All are read first: what cannot be read must not leave half of the messages sent.
    std::vector<Payload> payloads;
    for (const std::string& file : options.files)
        payloads.push_back(readPayload(file));
    if (!options.answers) {
        sendAll(options, payloads);
        return success;
    }
    for (Payload& payload : payloads)
        askForAnswer(payload);
    Status status = success;
    for (const Payload& payload : payloads)
        if (!call(options, payload))
            status = failure;
    return status;
}

} // namespace

int main(int argc, char** argv) {
    const Options options = parseOptions(argc, argv);
    try {
        return run(options);
    } catch (const NoAnswer& problem) {
        complain(problem.what());
        return options.answers ? noAnswer : failure;
    } catch (const std::exception& problem) {
        complain(problem.what());
        return failure;
    }
}
