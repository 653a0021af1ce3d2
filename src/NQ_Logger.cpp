#include "kvr/api/log/NQ_Logger.h"

#include "detail/console.h"

#include <stdexcept>

#include <syslog.h>

namespace kvr::api::log {

/// Deletes the instance when the process exits.
class NQ_Logger::Cleanup {
public:
    ~Cleanup() {
        const std::lock_guard<std::mutex> lock(sMutex);
        delete pInstance;
        pInstance = nullptr;
    }
};

const char* const NQ_Logger::kLogFileName = "/tmp/log.out";
std::string NQ_Logger::kLogLevelDebug = "DEBUG";
std::string NQ_Logger::kLogLevelInfo = "INFO";
std::string NQ_Logger::kLogLevelError = "ERROR";
NQ_Logger* NQ_Logger::pInstance = nullptr;
std::mutex NQ_Logger::sMutex;

NQ_Logger* NQ_Logger::instance() {
    static Cleanup cleanup;
    const std::lock_guard<std::mutex> lock(sMutex);
    if (pInstance == nullptr)
        pInstance = new NQ_Logger();
    return pInstance;
}

NQ_Logger::NQ_Logger() : logFile(kLogFileName, std::ios::out | std::ios::app) {
    if (!logFile.good())
        throw std::runtime_error("Unable to initialize the NQ_Logger!");
}

NQ_Logger::~NQ_Logger() { logFile.close(); }

void NQ_Logger::log(const std::string& message, const std::string& level) {
    const std::lock_guard<std::mutex> lock(sMutex);
    logHelper(message, level);
}

void NQ_Logger::log(const std::vector<std::string>& messages, const std::string& level) {
    const std::lock_guard<std::mutex> lock(sMutex);
    for (const std::string& message : messages)
        logHelper(message, level);
}

void NQ_Logger::logHelper(const std::string& message, const std::string& level) {
    detail::writeLine(logFile, {level, ": ", message});
}

void NQ_Logger::logSysLog(char priority, const char* message) {
// Deliberate: the message is the format. Callers rely on percent signs being interpreted.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    syslog(priority, message);
#pragma GCC diagnostic pop
}

} // namespace kvr::api::log
