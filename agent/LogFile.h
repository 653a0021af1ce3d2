#ifndef TAVO_AGENT_LOG_FILE_H
#define TAVO_AGENT_LOG_FILE_H

#include <cstddef>
#include <string>

namespace agent {

/// Why nothing may be appended to the file `path`; empty when it may, or when it is missing.
std::string logFileProblem(const std::string& path);

/// What cutLogFile() did.
struct LogCut {
    bool cut = false;
    std::string problem; ///< why there is no copy; empty when there is one
};

/// When the file `path` is longer than `limit` bytes: copies its last whole lines, at most half of
/// `limit`, to `copy`, and empties it. It stays the same file, for those who have it open.
LogCut cutLogFile(const std::string& path, const std::string& copy, std::size_t limit);

} // namespace agent

#endif
