#ifndef TAVO_SANDBOX_BUS_ARGUMENTS_H
#define TAVO_SANDBOX_BUS_ARGUMENTS_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <json-c/json.h>

/// What a call's JSON arguments mean to the configuration daemon. Texts end at their first NUL, as
/// on the bus.
namespace bus {

// The daemon's argument tables name a type for each member; a member of another type counts as
// missing. The objects returned belong to `arguments`.

std::optional<std::string> text(json_object* arguments, const char* key);
json_object* table(json_object* arguments, const char* key);
json_object* array(json_object* arguments, const char* key);

/// Members of a table, in their order.
std::vector<std::pair<std::string, json_object*>> members(json_object* table);
/// Elements of an array; those that are null as null pointers.
std::vector<json_object*> elements(json_object* array);

/// The text as which a value is stored; none for null, floats, arrays and tables.
std::optional<std::string> scalar(json_object* value);

} // namespace bus

#endif
