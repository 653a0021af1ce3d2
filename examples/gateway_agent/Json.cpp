#include "Json.h"

#include <new>

namespace agent {
namespace {

using Tokener = std::unique_ptr<json_tokener, decltype(&json_tokener_free)>;

// Older generations of json-c always write a slash as \/, which is the same JSON.
#ifdef JSON_C_TO_STRING_NOSLASHESCAPE
constexpr int kOneLine = JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE;
#else
constexpr int kOneLine = JSON_C_TO_STRING_PLAIN;
#endif

ParsedJson failed(const std::string& problem) {
    ParsedJson result;
    result.problem = problem;
    return result;
}

std::string at(std::size_t offset) { return " at byte " + std::to_string(offset); }

} // namespace

std::string oneLine(json_object* value) { return json_object_to_json_string_ext(value, kOneLine); }

ParsedJson parseJson(const std::string& text) {
    const Tokener tokener(json_tokener_new(), &json_tokener_free);
    if (tokener == nullptr)
        throw std::bad_alloc();
    json_tokener_set_flags(tokener.get(), JSON_TOKENER_STRICT);

    // The terminator is handed over too: it tells json-c that a number, true, false or null at the
    // top has ended.
    ParsedJson result;
    result.value.reset(
        json_tokener_parse_ex(tokener.get(), text.c_str(), static_cast<int>(text.size() + 1)));
    const json_tokener_error error = json_tokener_get_error(tokener.get());
    // The field rather than its newer reader, which the older generation of json-c lacks.
    const auto end = static_cast<std::size_t>(tokener->char_offset);
    if (error == json_tokener_error_depth)
        return failed("nested deeper than " + std::to_string(JSON_TOKENER_DEFAULT_DEPTH) +
                      " levels");
    if (error == json_tokener_continue)
        return failed("ends too early");
    if (error != json_tokener_success)
        return failed(json_tokener_error_desc(error) + at(end));
    // Older generations of json-c ignore what follows, also when strict.
    const std::size_t rest = text.find_first_not_of(" \t\r\n", end);
    if (rest != std::string::npos)
        return failed("something follows the value" + at(rest));
    result.valid = true;
    return result;
}

} // namespace agent
