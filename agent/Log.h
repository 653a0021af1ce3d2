#ifndef TAVO_AGENT_LOG_H
#define TAVO_AGENT_LOG_H

#include <cstddef>
#include <string>

namespace agent {

/// Opens the gateway's log, /tmp/log.out, or creates it. Raises std::runtime_error, with a reason
/// for people, when the path is a FIFO or another special file, or a link that another user may
/// have made: opening a FIFO can block, and a link can lead to any file. Call it while signals can
/// still end the process, and before threads start.
///
/// Once the log is longer than `limit` bytes after a line of the agent's, its last part, half of
/// the limit, is copied to /tmp/log.out.1, and the log is emptied. Programs that have the log open
/// keep appending to it. What they append in between may be lost.
void openLog(std::size_t limit);

/// One line of the log, marked as the agent's. The text must be one safe line: pass what comes from
/// outside through safeLine(). It must never reach logSysLog(), which takes its text for a format.
/// From any thread, after openLog().
void logInfo(const std::string& text);
void logError(const std::string& text);

} // namespace agent

#endif
