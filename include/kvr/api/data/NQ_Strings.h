#ifndef KVR_API_DATA_NQ_STRINGS_H
#define KVR_API_DATA_NQ_STRINGS_H

#include <kvr/api/export.h>

#include <string>
#include <vector>

namespace kvr {
namespace api {
namespace data {

/// Helpers for texts. They work on bytes, whatever the character encoding.
/// Threads: no state; any thread.
class TAVO_API NQ_Strings {
public:
    /// True when both are the blank character (code 32). Tabs and other white space do not count.
    static bool BothAreSpaces(char a, char b);

    /// Replaces every occurrence of `from`, left to right; inserted text is not searched again.
    /// Trap: never returns for an empty `from`, which is found at every position.
    static void replaceAll(std::string& str, const std::string& from, const std::string& to);

    /// Replaces every run of blanks with one blank. Nothing is trimmed; tabs and newlines stay.
    static void reduceSpace(std::string& str);

    /// Removes every character for which isspace(3) holds in the current C locale.
    static void removeSpace(std::string& str);

    /// Appends the fields of `s` between delimiters to `elems`, which is not cleared, and returns
    /// `elems`.
    ///
    /// Fields are those of std::getline(). An empty text has none. Adjacent delimiters enclose an
    /// empty field, and a leading delimiter follows one. A trailing delimiter is followed by none.
    static std::vector<std::string>& split(const std::string& s, char delim,
                                           std::vector<std::string>& elems);

    /// The same fields in a new vector.
    static std::vector<std::string> split(const std::string& s, char delim);
};

} // namespace data
} // namespace api
} // namespace kvr

#endif
