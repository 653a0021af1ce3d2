#ifndef TAVO_AGENT_LOG_H
#define TAVO_AGENT_LOG_H

#include <string>

namespace agent {

/// One line of the gateway's log, marked as the agent's. The text must be one safe line: pass what
/// comes from outside through safeLine(). It must never go to logSysLog(), which takes its text for
/// a format.
void logInfo(const std::string& text);
void logError(const std::string& text);

} // namespace agent

#endif
