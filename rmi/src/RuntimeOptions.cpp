#include "RuntimeOptions.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string_view>

namespace org::opensplice::DDS_RMI {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// True for a whole number of at least 1, however many digits it has. Its value is not used.
bool isSeconds(std::string_view value) {
    return std::all_of(value.begin(), value.end(), isDigit) &&
           value.find_first_not_of('0') != std::string_view::npos;
}

bool isThreadingModel(std::string_view value) { return value == "ST" || value == "MT"; }

struct Option {
    std::string_view name;
    bool (*accepts)(std::string_view value);
    const char* expected;
};

constexpr Option kOptions[] = {
    {"--RMIServiceDiscoveryTimeout", isSeconds, "whole seconds, at least 1"},
    {"--RMIClientThreadingModel", isThreadingModel, "ST or MT"},
};

/// An option without "=" has an empty value.
bool checkOption(std::string_view text) {
    const std::size_t end = std::min(text.find('='), text.size());
    const std::string_view name = text.substr(0, end);
    const auto option = std::find_if(std::begin(kOptions), std::end(kOptions),
                                     [name](const Option& known) { return known.name == name; });
    if (option == std::end(kOptions))
        return true;
    const std::string_view value = text.substr(std::min(end + 1, text.size()));
    if (option->accepts(value))
        return true;
    std::fprintf(stderr, "DDS RMI runtime: bad value \"%.*s\" of %s, expected %s\n",
                 static_cast<int>(value.size()), value.data(), option->name.data(),
                 option->expected);
    return false;
}

} // namespace

bool checkOptions(int argc, const char* const argv[]) {
    for (int i = 1; i < argc; ++i) {
        if (argv[i] != nullptr && !checkOption(argv[i]))
            return false;
    }
    return true;
}

} // namespace org::opensplice::DDS_RMI
