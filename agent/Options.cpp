#include "Options.h"

#include "rpc/Text.h"

#include <cstdio>
#include <cstdlib>

#include <getopt.h>

namespace agent {
namespace {

/// Keeps the path within the 108 bytes of a socket address.
constexpr std::size_t kLongestName = 64;
constexpr int kLeastLog = 4096;
constexpr int kMostLog = 64 * 1024 * 1024;
constexpr int kMostSeconds = 24 * 60 * 60;

const char kHelp[] =
    "Usage: tavo-agent [OPTION...] NAME\n"
    "Serves management requests (JSON-RPC 2.0) on the socket /tmp/socketDDS/NAME.\n"
    "\n"
    "  --allow PROGRAM   let process.run start PROGRAM, named in requests exactly as\n"
    "                    here; repeatable; none is allowed by default\n"
    "  --idle SECONDS    cut off a client that sends nothing for so long (10 unless\n"
    "                    given, at most 86400)\n"
    "  --log-limit BYTES when the log is longer, keep half as much in /tmp/log.out.1 and\n"
    "                    empty it (1048576 unless given, at least 4096)\n"
    "  --mqtt HOST:PORT  publish every response at this MQTT broker, too, as topic\n"
    "                    gateways/NAME/response; gateways/NAME/state tells\n"
    "                    \"online\" or, by a will, \"offline\"\n"
    "  --help            print this text and exit\n"
    "\n"
    "Each response is one line of JSON on standard output. The progress of requests,\n"
    "and what the commands they run print, goes to standard error. Requests and their\n"
    "outcomes are logged in /tmp/log.out. Send requests with tavo-rpc; the method\n"
    "system.describe lists the others.\n"
    "\n"
    "The socket is for its owner alone. SIGTERM and SIGINT end the agent, after the\n"
    "request in progress.\n"
    "\n"
    "Exit status: 0 ended by a signal, 1 cannot serve, 2 usage error.\n";

[[noreturn]] void usageError(const std::string& problem) {
    if (!problem.empty())
        std::fprintf(stderr, "tavo-agent: %s\n", problem.c_str());
    std::fputs("Try 'tavo-agent --help' for more information.\n", stderr);
    std::exit(2);
}

std::string checkedName(const std::string& name) {
    if (!isName(name, "-.") || name == "." || name == "..")
        usageError("'" + safeLine(name) +
                   "' is no name for a socket: use letters, digits, _, - and .");
    if (name.size() > kLongestName)
        usageError("the name is longer than " + std::to_string(kLongestName) + " characters");
    return name;
}

/// A number written in digits alone; 0 when `text` is none, or not within 1 to `most`.
int parseNumber(const std::string& text, int most) {
    if (text.empty() || text.size() > 8 ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return 0;
    const int number = std::stoi(text);
    return number <= most ? number : 0;
}

std::size_t parseLogLimit(const std::string& text) {
    const int bytes = parseNumber(text, kMostLog);
    if (bytes < kLeastLog)
        usageError("--log-limit takes a number of bytes, " + std::to_string(kLeastLog) + " to " +
                   std::to_string(kMostLog));
    return static_cast<std::size_t>(bytes);
}

std::chrono::seconds parseSeconds(const char* name, const std::string& text) {
    const int seconds = parseNumber(text, kMostSeconds);
    if (seconds == 0)
        usageError(std::string(name) + " takes a number of seconds, 1 to " +
                   std::to_string(kMostSeconds));
    return std::chrono::seconds(seconds);
}

Broker parseBroker(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    const std::string host = text.substr(0, colon);
    const std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
    // Brackets and colons are for IPv6 addresses.
    if (!isName(host, "-.:[]") || parseNumber(port, 65535) == 0)
        usageError("'" + safeLine(text) + "' is no HOST:PORT of a broker");
    return {host, port};
}

} // namespace

Options parseOptions(int argc, char** argv) {
    static const option known[] = {
        {"allow", required_argument, nullptr, 'a'},
        {"idle", required_argument, nullptr, 'i'},
        {"log-limit", required_argument, nullptr, 'l'},
        {"mqtt", required_argument, nullptr, 'm'},
        {"help", no_argument, nullptr, 'h'},
        {nullptr, 0, nullptr, 0},
    };
    Options options;
    int found;
    char programName[] = "tavo-agent";
    argv[0] = programName; // what getopt_long() begins its messages with
    while ((found = getopt_long(argc, argv, "", known, nullptr)) != -1) {
        switch (found) {
        case 'a':
            if (*optarg == '\0')
                usageError("--allow needs the name of a program");
            options.allowed.push_back(optarg);
            break;
        case 'i':
            options.idleLimit = parseSeconds("--idle", optarg);
            break;
        case 'l':
            options.logLimit = parseLogLimit(optarg);
            break;
        case 'm':
            options.broker = parseBroker(optarg);
            break;
        case 'h':
            std::fputs(kHelp, stdout);
            std::exit(0);
        default:
            usageError(""); // getopt_long() has said what is wrong
        }
    }
    if (argc - optind < 1)
        usageError("the NAME of the socket is missing");
    if (argc - optind > 1)
        usageError("more than one NAME");
    options.name = checkedName(argv[optind]);
    return options;
}

} // namespace agent
