#include "rpc/Json.h"

#include <algorithm>
#include <cstring>
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

bool isOneOf(char c, const char* characters) {
    return c != '\0' && std::strchr(characters, c) != nullptr;
}

constexpr char kDigits[] = "0123456789";
constexpr char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

/// Returns the position at which a text that json-c has accepted is not JSON; npos when it is JSON.
/// Even when strict, json-c accepts NaN, Infinity, "1.", control characters in texts, and keys in
/// single quotes. It prints most of them unchanged.
std::size_t firstNonJson(const std::string& text) {
    bool inText = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inText) {
            if (static_cast<unsigned char>(c) < 0x20)
                return i;
            if (c == '\\')
                ++i; // the escaped character, which may be a quote
            inText = c != '"';
            continue;
        }
        inText = c == '"';
        const bool inNumber = i > 0 && isOneOf(text[i - 1], kDigits); // where e and E may follow
        if (c == '\'' || (c == '.' && !isOneOf(text[i + 1], kDigits)))
            return i;
        if (isOneOf(c, kLetters) && !inNumber) {
            const std::size_t end = std::min(text.find_first_not_of(kLetters, i), text.size());
            const std::string word = text.substr(i, end - i);
            if (word != "true" && word != "false" && word != "null")
                return i;
            i = end - 1;
        }
    }
    return std::string::npos;
}

} // namespace

std::string oneLine(json_object* value) { return json_object_to_json_string_ext(value, kOneLine); }

ParsedJson parseJson(const std::string& text) {
    const Tokener tokener(json_tokener_new(), &json_tokener_free);
    if (tokener == nullptr)
        throw std::bad_alloc();
    json_tokener_set_flags(tokener.get(), JSON_TOKENER_STRICT);

    // The terminator is passed, too: with it json-c knows that a number, true, false or null at the
    // top level is complete.
    ParsedJson result;
    result.value.reset(
        json_tokener_parse_ex(tokener.get(), text.c_str(), static_cast<int>(text.size() + 1)));
    const json_tokener_error error = json_tokener_get_error(tokener.get());
    // The older generation of json-c has no function that reads this field.
    const auto end = static_cast<std::size_t>(tokener->char_offset);
    if (error == json_tokener_error_depth)
        return failed("nested deeper than " + std::to_string(JSON_TOKENER_DEFAULT_DEPTH) +
                      " levels");
    if (error == json_tokener_continue)
        return failed("unexpected end of data");
    if (error != json_tokener_success)
        return failed(json_tokener_error_desc(error) + at(end));
    // Older generations of json-c ignore text after the value, also when strict.
    const std::size_t rest = text.find_first_not_of(" \t\r\n", end);
    if (rest != std::string::npos)
        return failed("unexpected text after the value" + at(rest));
    const std::size_t wrong = firstNonJson(text);
    if (wrong != std::string::npos)
        return failed("unexpected character" + at(wrong));
    result.valid = true;
    return result;
}

} // namespace agent
