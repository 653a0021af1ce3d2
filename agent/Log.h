#ifndef TAVO_AGENT_LOG_H
#define TAVO_AGENT_LOG_H

#include <cstddef>
#include <string>

namespace agent {

/// Opens the gateway's log, /tmp/log.out, or creates it. Throws std::runtime_error, with a readable
/// reason, for a FIFO or another special file, and for a link that another user may have created.
/// Opening a FIFO can block, and a link can lead to any file. Call it while signals can still end
/// the process, and before threads start.
///
/// The length of the log is checked after each line of the agent. Above `limit` bytes, the last
/// lines, at most half of the limit, are copied to /tmp/log.out.1, and the log is emptied. Programs
/// that have the log open keep appending to it. Lines that they append during the copy may be lost.
void openLog(std::size_t limit);

/// One line of the log, marked as the agent's. The text must be one safe line: pass text from
/// outside through safeLine(). It must never reach logSysLog(), which uses its text as a format.
/// Any thread may call it after openLog().
void logInfo(const std::string& text);
void logError(const std::string& text);

} // namespace agent

#endif
