#ifndef TAVO_SANDBOX_UCI_OBJECT_H
#define TAVO_SANDBOX_UCI_OBJECT_H

#include "uci_store.h"

#include <string>

struct json_object;

/// The bus object called "uci", the configuration daemon's: its methods on JSON arguments.
namespace uci {

/// The bus's own numbers.
enum class Status {
    Ok = 0,
    InvalidArgument = 2,
    MethodNotFound = 3,
    NotFound = 4,
    PermissionDenied = 6,
    UnknownError = 9,
    ParseError = 12
};

/// A call's outcome. `reply` is the JSON text that the bus tool prints, empty for no reply.
struct Outcome {
    Status status;
    std::string reply;
};

/// Calls a method. `arguments` is a JSON object; it stays the caller's.
Outcome call(const Store& store, const std::string& method, json_object* arguments,
             bool inOneLine = false);

} // namespace uci

#endif
