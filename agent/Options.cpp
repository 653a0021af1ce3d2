#include "Options.h"

#include "CommandLine.h"
#include "rpc/Text.h"

namespace agent {
namespace {

/// Keeps the path within the 108 bytes of a socket address.
constexpr std::size_t kLongestName = 64;
constexpr int kLeastLog = 4096;
constexpr int kMaxLog = 64 * 1024 * 1024;

constexpr char kHelp[] =
    "Usage: tavo-agent [OPTION...] NAME\n"
    "Serves management requests (JSON-RPC 2.0) on the socket /tmp/socketDDS/NAME.\n"
    "\n"
    "  --allow PROGRAM   let process.run start PROGRAM; a request must name it exactly as\n"
    "                    here; repeatable; by default no program is allowed\n"
    "  --idle SECONDS    disconnect a client that sends nothing for this long (default\n"
    "                    10, at most 86400)\n"
    "  --log-limit BYTES when the log is longer, keep its last lines, half of BYTES at\n"
    "                    most, in /tmp/log.out.1 and empty it (default 1048576, at\n"
    "                    least 4096)\n"
    "  --mqtt HOST:PORT  also publish every response at this MQTT broker, with the topic\n"
    "                    gateways/NAME/response; gateways/NAME/state is \"online\" or, by\n"
    "                    a will, \"offline\"\n"
    "  --tls DIRECTORY   connect to the broker by TLS; DIRECTORY holds mqtt_ca-cert.crt\n"
    "                    and, for a client certificate, mqtt_client-cert.crt and\n"
    "                    mqtt_client-key.key\n"
    "  --base TOPIC      begin the topics with TOPIC instead of gateways/NAME\n"
    "  --requests        also take requests from the broker: SENDER publishes them at\n"
    "                    gateways/NAME/request/SENDER and gets the responses at\n"
    "                    gateways/NAME/response/SENDER. Whoever may publish there has the\n"
    "                    agent's rights on this gateway\n"
    "  --remote-allow METHOD\n"
    "                    also take requests for METHOD from the broker: process.run or\n"
    "                    config.place; repeatable\n"
    "  --insecure        allow --requests without --tls\n"
    "  --help            print this text and exit\n"
    "\n"
    "Each response is one line of JSON on standard output. Standard error gets the\n"
    "progress of requests and the output of the commands that they run. The agent logs\n"
    "requests and their outcomes in /tmp/log.out. Send requests with tavo-rpc; the method\n"
    "system.describe lists all methods.\n"
    "\n"
    "Only the owner can use the socket. SIGTERM and SIGINT end the agent, after the\n"
    "request in progress.\n"
    "\n"
    "Exit status: 0 ended by a signal, 1 cannot serve, 2 usage error.\n";

constexpr option kOptions[] = {
    {"allow", required_argument, nullptr, 'a'},
    {"idle", required_argument, nullptr, 'i'},
    {"log-limit", required_argument, nullptr, 'l'},
    {"mqtt", required_argument, nullptr, 'm'},
    {"tls", required_argument, nullptr, 't'},
    {"base", required_argument, nullptr, 'b'},
    {"requests", no_argument, nullptr, 'r'},
    {"remote-allow", required_argument, nullptr, 'R'},
    {"insecure", no_argument, nullptr, 'I'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

std::string checkedName(const std::string& name) {
    if (!isName(name, "-.") || name == "." || name == "..")
        throw UsageError("'" + safeLine(name) +
                         "' is not a valid socket name: use letters, digits, _, - and .");
    if (name.size() > kLongestName)
        throw UsageError("the name is longer than " + std::to_string(kLongestName) + " characters");
    return name;
}

std::size_t parseLogLimit(const std::string& text) {
    const int bytes = parseNumber(text, kMaxLog);
    if (bytes < kLeastLog)
        throw UsageError("--log-limit takes a number of bytes, " + std::to_string(kLeastLog) +
                         " to " + std::to_string(kMaxLog));
    return static_cast<std::size_t>(bytes);
}

/// Checks and completes what depends on several options.
void completeBroker(Options& options, const std::string& tlsDirectory, bool insecure) {
    if (options.base.empty())
        options.base = "gateways/" + options.name;
    if (!options.broker)
        return;
    options.broker->tlsDirectory = tlsDirectory;
    if (options.takesRequests && !options.broker->usesTls() && !insecure)
        throw UsageError(
            "--requests needs --tls DIRECTORY, or --insecure where nobody else can reach the "
            "broker");
}

Options parse(int argc, char** argv) {
    Options options;
    std::string tlsDirectory;
    bool insecure = false;
    const char* needsBroker = nullptr;
    const char* needsRequests = nullptr;
    int found;
    while ((found = nextOption(argc, argv, kOptions, kHelp)) != -1) {
        switch (found) {
        case 'a':
            if (*optarg == '\0')
                throw UsageError("--allow needs the name of a program");
            options.allowed.push_back(optarg);
            break;
        case 'i':
            options.idleLimit = parseSeconds("--idle", optarg);
            break;
        case 'l':
            options.logLimit = parseLogLimit(optarg);
            break;
        case 'm':
            options.broker = parseBrokerAddress(optarg);
            break;
        case 't':
            tlsDirectory = optarg;
            needsBroker = "--tls";
            break;
        case 'b':
            options.base = parseBase(optarg);
            needsBroker = "--base";
            break;
        case 'r':
            options.takesRequests = true;
            needsBroker = "--requests";
            break;
        case 'R':
            if (options.refusedRemotely.erase(optarg) == 0)
                throw UsageError("--remote-allow takes process.run or config.place, once each");
            needsRequests = "--remote-allow";
            break;
        case 'I':
            insecure = true;
            needsRequests = "--insecure";
            break;
        }
    }
    if (argc - optind < 1)
        throw UsageError("the NAME of the socket is missing");
    if (argc - optind > 1)
        throw UsageError("only one NAME is allowed");
    if (needsBroker != nullptr && !options.broker)
        throw UsageError(std::string(needsBroker) + " needs --mqtt HOST:PORT");
    if (needsRequests != nullptr && !options.takesRequests)
        throw UsageError(std::string(needsRequests) + " needs --requests");
    options.name = checkedName(argv[optind]);
    completeBroker(options, tlsDirectory, insecure);
    return options;
}

} // namespace

Options parseOptions(int argc, char** argv) {
    static char program[] = "tavo-agent";
    argv[0] = program; // begins the messages of getopt_long()
    try {
        return parse(argc, argv);
    } catch (const UsageError& error) {
        exitWithUsageError(error, program);
    }
}

} // namespace agent
