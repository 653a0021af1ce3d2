#include "CommandLine.h"

#include "rpc/Text.h"

#include <cstdio>
#include <cstdlib>

namespace agent {
namespace {

constexpr int kMaxSeconds = 24 * 60 * 60;

} // namespace

void exitWithUsageError(const UsageError& error, const char* program) {
    if (*error.what() != '\0')
        std::fprintf(stderr, "%s: %s\n", program, error.what());
    std::fprintf(stderr, "Try '%s --help' for more information.\n", program);
    std::exit(kUsageStatus);
}

int nextOption(int argc, char** argv, const option* options, const char* help) {
    const int found = getopt_long(argc, argv, "", options, nullptr);
    if (found == 'h') {
        std::fputs(help, stdout);
        std::exit(0);
    }
    if (found == '?')
        throw UsageError(""); // getopt_long() has printed the reason
    return found;
}

int parseNumber(const std::string& text, int most) {
    if (text.empty() || text.size() > 8 ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return 0;
    const int number = std::stoi(text);
    return number <= most ? number : 0;
}

std::chrono::seconds parseSeconds(const char* name, const std::string& text) {
    const int seconds = parseNumber(text, kMaxSeconds);
    if (seconds == 0)
        throw UsageError(std::string(name) + " takes a number of seconds, 1 to " +
                         std::to_string(kMaxSeconds));
    return std::chrono::seconds(seconds);
}

Broker parseBrokerAddress(const std::string& text) {
    const std::optional<Broker> broker = parseBroker(text);
    if (!broker)
        throw UsageError("'" + safeLine(text) + "' is not a valid HOST:PORT");
    return *broker;
}

std::string parseBase(const std::string& text) {
    if (!isTopic(text))
        throw UsageError("'" + safeLine(text) +
                         "' is not a valid topic: use letters, digits, _, -, . and / between them");
    return text;
}

} // namespace agent
