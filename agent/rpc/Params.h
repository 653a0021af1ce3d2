#ifndef TAVO_AGENT_PARAMS_H
#define TAVO_AGENT_PARAMS_H

#include "rpc/Json.h"

#include <string>
#include <vector>

namespace agent {

/// The parameters of a request, read with their checks. What is missing or wrong raises RpcError
/// (invalid params) that names the parameter.
class Params {
public:
    /// `object` is null where the request has no parameters; it must outlive this reader.
    explicit Params(json_object* object) : object_(object) {}

    /// Refuses every parameter not named in `known`: a misspelt one must not stay unnoticed.
    void allowOnly(const std::vector<std::string>& known) const;

    bool has(const char* name) const;
    json_object* get(const char* name) const; ///< null when missing

    std::string text(const char* name) const;
    std::string textOr(const char* name, const std::string& fallback) const;
    bool flagOr(const char* name, bool fallback) const;
    int integer(const char* name, int least, int most) const;
    json_object* object(const char* name) const;
    std::vector<std::string> textsOrNone(const char* name) const;

    /// A text that isName() with the characters of `extra`.
    std::string name(const char* name, const char* extra) const;

private:
    json_object* object_;
};

/// Raises the error of a parameter.
[[noreturn]] void refuseParam(const std::string& why);

} // namespace agent

#endif
