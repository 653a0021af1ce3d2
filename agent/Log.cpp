#include "Log.h"

#include <kvr/api/log/NQ_Logger.h>

namespace agent {
namespace {

using kvr::api::log::NQ_Logger;

void log(const std::string& text, const std::string& level) {
    NQ_Logger::instance()->log("tavo-agent: " + text, level);
}

} // namespace

void logInfo(const std::string& text) { log(text, NQ_Logger::kLogLevelInfo); }

void logError(const std::string& text) { log(text, NQ_Logger::kLogLevelError); }

} // namespace agent
