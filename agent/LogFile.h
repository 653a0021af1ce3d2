#ifndef TAVO_AGENT_LOG_FILE_H
#define TAVO_AGENT_LOG_FILE_H

#include <cstddef>
#include <string>

namespace agent {

/// Returns why the agent must not append to the file `path`. Returns an empty text when it may, or
/// when the file is missing.
std::string logFileProblem(const std::string& path);

/// What cutLogFile() did.
struct LogCut {
    bool cut = false;
    std::string problem; ///< why there is no copy; empty when there is one
};

/// When the file `path` is longer than `limit` bytes: copies its last whole lines, at most half of
/// `limit`, to `copy`, and empties it. The file is emptied in place, so programs that have it open
/// keep writing to it.
LogCut cutLogFile(const std::string& path, const std::string& copy, std::size_t limit);

} // namespace agent

#endif
