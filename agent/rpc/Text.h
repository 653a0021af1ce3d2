#ifndef TAVO_AGENT_TEXT_H
#define TAVO_AGENT_TEXT_H

#include <cstddef>
#include <string>

namespace agent {

/// True when `text` is well-formed UTF-8: no stray or missing continuation bytes, no overlong
/// forms, no surrogates, nothing above U+10FFFF.
bool isUtf8(const std::string& text);

/// Returns `text` with U+FFFD in place of every byte that belongs to no well-formed character.
std::string repairedUtf8(const std::string& text);

/// Returns `text` as one line that is safe to print and to log. Control characters and bytes that
/// are not UTF-8 become escapes such as \n and \x1b. Text beyond `limit` bytes is cut and marked by
/// "...".
std::string safeLine(const std::string& text, std::size_t limit = 200);

/// True when `text` is not empty and holds only A-Z, a-z, 0-9, '_' and the characters of `extra`.
/// It may not begin with '-', which would make it an option to tools.
bool isName(const std::string& text, const char* extra);

} // namespace agent

#endif
