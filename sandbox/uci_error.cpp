#include "uci_error.h"

namespace uci {

namespace {

const char* textOf(Error::Kind kind) {
    switch (kind) {
    case Error::Kind::InvalidArgument:
        return "Invalid argument";
    case Error::Kind::NotFound:
        return "Entry not found";
    case Error::Kind::Io:
        return "I/O error";
    case Error::Kind::Parse:
        break;
    }
    return "Parse error";
}

} // namespace

Error::Error(Kind kind) : std::runtime_error(textOf(kind)), kind_(kind) {}

Error::Error(const std::string& reason, std::size_t line, std::size_t byte)
    : std::runtime_error("Parse error (" + reason + ") at line " + std::to_string(line) +
                         ", byte " + std::to_string(byte)),
      kind_(Kind::Parse) {}

} // namespace uci
