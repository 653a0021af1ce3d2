// Any bytes as a file of UCI configuration, read by the sandbox's tools.
#include "../sandbox/uci_error.h"
#include "../sandbox/uci_file.h"
#include "../sandbox/uci_words.h"
#include "fuzzing.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace {

void checkNames(const uci::Package& package) {
    for (const uci::Section& section : package.sections) {
        fuzzing::require(uci::isTypeName(section.type), "a type is a name");
        fuzzing::require(uci::isName(section.name), "every section has a name");
        for (const uci::Option& option : section.options) {
            fuzzing::require(uci::isName(option.name), "an option has a name");
            fuzzing::require(!option.values.empty(), "an option has a value");
            fuzzing::require(option.isList || option.values.size() == 1,
                             "only lists have several values");
        }
    }
}

bool sameOptions(const std::vector<uci::Option>& a, const std::vector<uci::Option>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const uci::Option& one, const uci::Option& other) {
                          return one.name == other.name && one.isList == other.isList &&
                                 one.values == other.values;
                      });
}

bool isSame(const uci::Section& one, const uci::Section& other) {
    return one.name == other.name && one.type == other.type && one.anonymous == other.anonymous &&
           sameOptions(one.options, other.options);
}

bool hasPlainType(const uci::Section& section) {
    return section.type.find_first_of("'\"\\#;") == std::string::npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    uci::Package package;
    try {
        package = uci::parse(text);
    } catch (const uci::Error& error) {
        fuzzing::require(std::string(error.what()).compare(0, 13, "Parse error (") == 0,
                         "a refused text has a reason");
        return 0;
    }
    checkNames(package);
    if (!std::all_of(package.sections.begin(), package.sections.end(), hasPlainType))
        return 0; // the platform writes types without quotes
    const std::string written = uci::format(package);
    const uci::Package again = uci::parse(written);
    fuzzing::require(uci::format(again) == written, "written text is read back unchanged");
    fuzzing::require(std::equal(package.sections.begin(), package.sections.end(),
                                again.sections.begin(), again.sections.end(), isSame),
                     "no section is lost");
    return 0;
}
