#ifndef TAVO_AGENT_PARAMS_H
#define TAVO_AGENT_PARAMS_H

#include "rpc/Json.h"

#include <string>
#include <vector>

namespace agent {

/// Reads and checks the parameters of a request. A missing or wrong one throws an RpcError (invalid
/// params) that names it.
class Params {
public:
    /// `object` is null where the request has no parameters; it must outlive this reader.
    explicit Params(json_object* object) : object_(object) {}

    /// Refuses every parameter that is not named in `known`, so that a misspelt one is noticed.
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

/// Throws the error of a parameter.
[[noreturn]] void refuseParam(const std::string& why);

} // namespace agent

#endif
