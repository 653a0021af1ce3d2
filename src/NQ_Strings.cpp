#include "kvr/api/data/NQ_Strings.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <functional>

namespace kvr::api::data {

bool NQ_Strings::BothAreSpaces(char a, char b) { return a == ' ' && b == a; }

void NQ_Strings::replaceAll(std::string& str, const std::string& from, const std::string& to) {
    for (std::size_t at = 0; (at = str.find(from, at)) != std::string::npos; at += to.length())
        str.replace(at, from.length(), to);
}

void NQ_Strings::reduceSpace(std::string& str) {
    str.erase(std::unique(str.begin(), str.end(), BothAreSpaces), str.end());
}

void NQ_Strings::removeSpace(std::string& str) {
    const auto isSpace = [](unsigned char c) { return std::isspace(c) != 0; };
    str.erase(std::remove_if(str.begin(), str.end(), isSpace), str.end());
}

std::vector<std::string>& NQ_Strings::split(const std::string& s, char delim,
                                            std::vector<std::string>& elems) {
    // When `elems` grows, its elements move, and `s` may be one of them.
    const std::less<const std::string*> before;
    if (!before(&s, elems.data()) && before(&s, elems.data() + elems.size()))
        return split(std::string(s), delim, elems);

    for (std::size_t start = 0; start < s.size();) {
        const std::size_t end = std::min(s.find(delim, start), s.size());
        elems.emplace_back(s, start, end - start);
        start = end + 1;
    }
    return elems;
}

std::vector<std::string> NQ_Strings::split(const std::string& s, char delim) {
    std::vector<std::string> elems;
    split(s, delim, elems);
    return elems;
}

} // namespace kvr::api::data
