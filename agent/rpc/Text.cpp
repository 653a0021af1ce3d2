#include "rpc/Text.h"

#include <cstdio>
#include <cstring>

namespace agent {
namespace {

/// Length of the well-formed character that begins at `position`; 0 when none does.
std::size_t characterLength(const std::string& text, std::size_t position) {
    const auto byte = [&](std::size_t offset) -> unsigned {
        // A position after the end counts as 0, which continues no character.
        return position + offset < text.size() ? static_cast<unsigned char>(text[position + offset])
                                               : 0u;
    };
    const auto continues = [&](std::size_t offset) { return (byte(offset) & 0xC0u) == 0x80u; };

    const unsigned first = byte(0);
    if (first < 0x80)
        return 1;
    if (first >= 0xC2 && first <= 0xDF)
        return continues(1) ? 2 : 0;
    if (first >= 0xE0 && first <= 0xEF) {
        const bool overlong = first == 0xE0 && byte(1) < 0xA0;
        const bool surrogate = first == 0xED && byte(1) > 0x9F;
        return continues(1) && continues(2) && !overlong && !surrogate ? 3 : 0;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        const bool overlong = first == 0xF0 && byte(1) < 0x90;
        const bool tooLarge = first == 0xF4 && byte(1) > 0x8F;
        return continues(1) && continues(2) && continues(3) && !overlong && !tooLarge ? 4 : 0;
    }
    return 0;
}

std::string escapedByte(char c) {
    switch (c) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    default:
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\x%02x",
                      static_cast<unsigned>(static_cast<unsigned char>(c)));
        return escape;
    }
}

/// The controls of both ASCII and Latin-1 (U+0080 to U+009F); terminals act on either.
bool isControl(const std::string& text, std::size_t position, std::size_t length) {
    const auto first = static_cast<unsigned char>(text[position]);
    if (length == 1)
        return first < 0x20 || first == 0x7F;
    return length == 2 && first == 0xC2 && static_cast<unsigned char>(text[position + 1]) < 0xA0;
}

} // namespace

bool isUtf8(const std::string& text) {
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = characterLength(text, i);
        if (length == 0)
            return false;
        i += length;
    }
    return true;
}

std::string repairedUtf8(const std::string& text) {
    std::string repaired;
    repaired.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = characterLength(text, i);
        if (length == 0)
            repaired += "\xEF\xBF\xBD";
        else
            repaired.append(text, i, length);
        i += length == 0 ? 1 : length;
    }
    return repaired;
}

std::string safeLine(const std::string& text, std::size_t limit) {
    std::string line;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = characterLength(text, i);
        const std::size_t taken = length == 0 ? 1 : length;
        std::string piece;
        if (length == 0 || isControl(text, i, length)) {
            for (std::size_t k = 0; k < taken; ++k)
                piece += escapedByte(text[i + k]);
        } else {
            piece = text.substr(i, taken);
        }
        if (line.size() + piece.size() > limit)
            return line + "...";
        line += piece;
        i += taken;
    }
    return line;
}

bool isName(const std::string& text, const char* extra) {
    if (text.empty() || text[0] == '-')
        return false;
    for (const char c : text) {
        const bool plain =
            (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
        if (!plain && (c == '\0' || std::strchr(extra, c) == nullptr))
            return false;
    }
    return true;
}

} // namespace agent
