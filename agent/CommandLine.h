#ifndef TAVO_AGENT_COMMAND_LINE_H
#define TAVO_AGENT_COMMAND_LINE_H

#include "mqtt/Broker.h"

#include <chrono>
#include <stdexcept>
#include <string>

#include <getopt.h>

namespace agent {

/// The exit status of a usage error.
constexpr int kUsageStatus = 2;

/// The command line is invalid. what() is one readable sentence, or empty when the reason has been
/// printed already.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Prints the reason and a hint at --help, and ends the process with kUsageStatus.
[[noreturn]] void exitWithUsageError(const UsageError& error, const char* program);

/// Returns the next option as getopt_long() does, -1 after the last. For 'h' (--help), prints
/// `help` and ends the process with status 0. Throws UsageError for an option that is not in
/// `options` or lacks its argument.
int nextOption(int argc, char** argv, const option* options, const char* help);

// Each converts the text of an option. All but parseNumber() throw UsageError for invalid text.

/// Returns the number from 1 to `most` that `text` holds, in digits only; 0 for any other text.
int parseNumber(const std::string& text, int most);

/// Returns a time of one second to one day. `name` is the option, for the message.
std::chrono::seconds parseSeconds(const char* name, const std::string& text);

/// Reads HOST:PORT. The result has no TLS directory yet.
Broker parseBrokerAddress(const std::string& text);

/// Returns the beginning of the topics.
std::string parseBase(const std::string& text);

} // namespace agent

#endif
