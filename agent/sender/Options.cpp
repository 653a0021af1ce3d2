#include "sender/Options.h"

#include "CommandLine.h"
#include "rpc/Text.h"

#include <algorithm>
#include <iostream>

#include <unistd.h>

namespace agent {
namespace {

constexpr char kHelp[] =
    "Usage: tavo-rpc [OPTION...] NAME [FILE...]\n"
    "  or:  tavo-rpc [OPTION...] --mqtt HOST:PORT --to NAME... FILE\n"
    "  or:  tavo-rpc [OPTION...] --mqtt HOST:PORT --all FILE\n"
    "Sends each FILE as one request to the agent NAME (the socket /tmp/socketDDS/NAME)\n"
    "and prints its response, one line of JSON. With no FILE, or when FILE is -, it sends\n"
    "the text on standard input. With --mqtt it sends one FILE to many gateways through a\n"
    "broker, and prints each response after the gateway's name when it arrives.\n"
    "\n"
    "  --no-answer        send each FILE unchanged, on one connection, and request no\n"
    "                     response; also for servers other than the agent\n"
    "  --timeout SECONDS  how long to wait for each response, or with --mqtt for all of\n"
    "                     them (default 30)\n"
    "  --mqtt HOST:PORT   the broker\n"
    "  --to NAME          a gateway, and further ones up to the last argument;\n"
    "                     repeatable\n"
    "  --all              all gateways whose agents are connected to the broker\n"
    "  --tls DIRECTORY    connect to the broker by TLS; DIRECTORY holds mqtt_ca-cert.crt\n"
    "                     and, for a client certificate, mqtt_client-cert.crt and\n"
    "                     mqtt_client-key.key\n"
    "  --insecure         allow --mqtt without --tls\n"
    "  --sender NAME      this sender's name, which the broker may check (default: made\n"
    "                     of the host's name and the process id)\n"
    "  --base TOPIC       the beginning of the topics, before a gateway's name (default\n"
    "                     gateways)\n"
    "  --help             print this text and exit\n"
    "\n"
    "A request without an id gets no response. To every other request on a socket,\n"
    "tavo-rpc adds the member \"answer\": true, so that the agent answers on the\n"
    "connection. The server takes a message by a single read, so it must arrive in one\n"
    "piece. Up to 32 KiB always do. Longer messages may be cut (tavo-rpc then warns), and\n"
    "above about 200 KiB they always are. With --mqtt, tavo-rpc gives each request a new\n"
    "id. It repeats the request for gateways that do not answer; they carry it out once.\n"
    "\n"
    "Exit status: 0 every request has its result (with --no-answer: all are sent),\n"
    "1 a response is an error, or something could not be read or sent, 2 no response\n"
    "came in time (with --mqtt: from some gateway), or usage error.\n";

constexpr option kOptions[] = {{"no-answer", no_argument, nullptr, 'n'},
                               {"timeout", required_argument, nullptr, 't'},
                               {"mqtt", required_argument, nullptr, 'm'},
                               {"to", required_argument, nullptr, 'o'},
                               {"all", no_argument, nullptr, 'a'},
                               {"tls", required_argument, nullptr, 'T'},
                               {"insecure", no_argument, nullptr, 'I'},
                               {"sender", required_argument, nullptr, 's'},
                               {"base", required_argument, nullptr, 'b'},
                               {"help", no_argument, nullptr, 'h'},
                               {nullptr, 0, nullptr, 0}};

std::string checkedName(const std::string& text, const std::string& what) {
    if (!isSender(text))
        throw UsageError("'" + safeLine(text) + "' is not a valid " + what +
                         " name: use up to 64 letters, digits, _, - and .");
    return text;
}

/// The host's name and the process id, with only the characters that a topic may have.
std::string defaultSender() {
    char host[40] = "";
    gethostname(host, sizeof host - 1);
    std::string name = host;
    const auto isBad = [](char c) { return !isName(std::string(1, c), "."); };
    std::replace_if(name.begin(), name.end(), isBad, '_');
    return "rpc-" + name + "-" + std::to_string(getpid());
}

/// Reads the arguments after the options when requests are sent through a broker.
void takeFleetArguments(SenderOptions& options, std::vector<std::string> arguments,
                        const std::string& tlsDirectory, bool insecure) {
    if (!options.answers)
        throw UsageError("--no-answer cannot be used with --mqtt");
    if (options.gateways.empty() == !options.all)
        throw UsageError("--mqtt needs either --to NAME or --all");
    if (arguments.empty())
        throw UsageError("the FILE with the request is missing");
    options.files = {arguments.back()};
    arguments.pop_back();
    if (options.all && !arguments.empty())
        throw UsageError("--all takes one FILE");
    for (const std::string& name : arguments)
        options.gateways.insert(checkedName(name, "gateway"));
    if (options.sender.empty())
        options.sender = defaultSender();
    options.broker->tlsDirectory = tlsDirectory;
    if (tlsDirectory.empty() && !insecure)
        throw UsageError(
            "--mqtt needs --tls DIRECTORY, or --insecure where nobody else can reach the "
            "broker");
}

SenderOptions parse(int argc, char** argv) {
    SenderOptions options;
    std::string tlsDirectory;
    bool insecure = false;
    const char* needsBroker = nullptr;
    int found;
    while ((found = nextOption(argc, argv, kOptions, kHelp)) != -1) {
        switch (found) {
        case 'n':
            options.answers = false;
            break;
        case 't':
            options.timeout = parseSeconds("--timeout", optarg);
            break;
        case 'm':
            options.broker = parseBrokerAddress(optarg);
            break;
        case 'o':
            options.gateways.insert(checkedName(optarg, "gateway"));
            needsBroker = "--to";
            break;
        case 'a':
            options.all = true;
            needsBroker = "--all";
            break;
        case 'T':
            tlsDirectory = optarg;
            needsBroker = "--tls";
            break;
        case 'I':
            insecure = true;
            needsBroker = "--insecure";
            break;
        case 's':
            options.sender = checkedName(optarg, "sender");
            needsBroker = "--sender";
            break;
        case 'b':
            options.base = parseBase(optarg);
            needsBroker = "--base";
            break;
        }
    }
    const std::vector<std::string> arguments(argv + optind, argv + argc);
    if (options.broker) {
        takeFleetArguments(options, arguments, tlsDirectory, insecure);
        return options;
    }
    if (needsBroker != nullptr)
        throw UsageError(std::string(needsBroker) + " needs --mqtt HOST:PORT");
    if (arguments.empty())
        throw UsageError("the NAME of the socket is missing");
    options.name = arguments.front();
    options.files.assign(arguments.begin() + 1, arguments.end());
    if (options.files.empty())
        options.files.emplace_back("-");
    return options;
}

} // namespace

void complain(const std::string& problem) { std::cerr << "tavo-rpc: " << problem << '\n'; }

SenderOptions parseSenderOptions(int argc, char** argv) {
    static char program[] = "tavo-rpc";
    argv[0] = program; // begins the messages of getopt_long()
    try {
        return parse(argc, argv);
    } catch (const UsageError& error) {
        exitWithUsageError(error, program);
    }
}

} // namespace agent
