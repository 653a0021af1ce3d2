#ifndef TAVO_SANDBOX_UCI_ERROR_H
#define TAVO_SANDBOX_UCI_ERROR_H

#include <cstddef>
#include <stdexcept>
#include <string>

namespace uci {

/// Why an operation failed; what() is the text that the tools print.
class Error : public std::runtime_error {
public:
    /// The platform's numbers, with which `uci add` exits.
    enum class Kind { InvalidArgument = 2, NotFound = 3, Io = 4, Parse = 5 };

    explicit Error(Kind kind);
    /// For a text that cannot be parsed, at that line (from 1) and byte (from 0, within the
    /// statement).
    Error(const std::string& reason, std::size_t line, std::size_t byte);

    Kind kind() const { return kind_; }

private:
    Kind kind_;
};

} // namespace uci

#endif
