#ifndef KVR_API_LOG_NQ_LOGGER_H
#define KVR_API_LOG_NQ_LOGGER_H

#include <kvr/api/export.h>

#include <fstream>
#include <mutex>
#include <string>
#include <vector>

namespace kvr {
namespace api {
namespace log {

/// The process-wide logger: appends lines "LEVEL: message" to /tmp/log.out, and passes records to
/// the system log.
///
/// Ownership: the one instance belongs to the library and is deleted when the process exits. Do not
///            delete it.
/// Failure:   instance() throws while the file cannot be opened. Errors of later writes are not
///            detected and not reported. After one, such as a full disk, this process logs nothing
///            more. A lock that fails throws std::system_error.
/// Encoding:  bytes as given, without time or quoting. A message with newlines becomes several
///            lines.
/// Threads:   any thread may call instance(), log() and logSysLog() concurrently; one lock keeps
///            lines whole. Processes that share the file do not lock each other out. Another
///            process can write between a message of 1 KiB or more and its newline.
/// Size:      the file grows without end, and /tmp is often in memory. Truncating it in place is
///            safe, as every write appends. Renaming it is not: the process keeps writing to the
///            renamed file.
/// Security:  the name is trusted. A user who creates the file or a link of that name first can
///            read the log or redirect it. So create the file as root when the system starts.
class TAVO_API NQ_Logger {
public:
    /// "/tmp/log.out".
    static const char* const kLogFileName;

    /// "DEBUG", a usual level. Any other text may be used as a level; nothing is filtered by it.
    static std::string kLogLevelDebug;
    /// "INFO", a usual level.
    static std::string kLogLevelInfo;
    /// "ERROR", a usual level.
    static std::string kLogLevelError;

    /// The logger, created by the first call: the file is opened for appending, or created. Throws
    /// std::runtime_error "Unable to initialize the NQ_Logger!" when that fails; a later call tries
    /// again.
    static NQ_Logger* instance();

    /// Closes the file. Called by the library when the process exits.
    virtual ~NQ_Logger();

    NQ_Logger(const NQ_Logger&) = delete;
    NQ_Logger& operator=(const NQ_Logger&) = delete;

    /// Appends one line and flushes it.
    void log(const std::string& message, const std::string& level);

    /// Appends one line per message, all of one level, with no line of another thread in between.
    /// Flushes each line.
    void log(const std::vector<std::string>& messages, const std::string& level);

    /// Appends one line without taking the lock. Only for a caller that knows that no other thread
    /// is logging.
    void logHelper(const std::string& message, const std::string& level);

    /// Calls syslog(3) with `priority` (6 is LOG_INFO, 3 is LOG_ERR). Writes nothing to the file.
    /// The process's own openlog() settings apply. Deliberate: `message` is the format string, so a
    /// percent sign in it is interpreted. Never pass text from outside.
    void logSysLog(char priority, const char* message);

private:
    class Cleanup;

    NQ_Logger();

    static NQ_Logger* pInstance; // guarded by sMutex
    static std::mutex sMutex;

    std::ofstream logFile; // guarded by sMutex
};

} // namespace log
} // namespace api
} // namespace kvr

#endif
