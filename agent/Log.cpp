#include "Log.h"

#include <kvr/api/log/NQ_Logger.h>

#include "LogFile.h"

#include <mutex>
#include <stdexcept>

namespace agent {
namespace {

using kvr::api::log::NQ_Logger;

std::mutex cutting;
std::size_t longest = 0; // set before threads start

void append(const std::string& text, const std::string& level) {
    NQ_Logger::instance()->log("tavo-agent: " + text, level);
}

void log(const std::string& text, const std::string& level) {
    append(text, level);
    const std::lock_guard<std::mutex> lock(cutting);
    const std::string copy = std::string(NQ_Logger::kLogFileName) + ".1";
    const LogCut done = cutLogFile(NQ_Logger::kLogFileName, copy, longest);
    if (!done.cut)
        return;
    if (done.problem.empty())
        append("earlier lines are in " + copy, NQ_Logger::kLogLevelInfo);
    else
        append("earlier lines are lost: " + copy + ": " + done.problem, NQ_Logger::kLogLevelError);
}

} // namespace

void openLog(std::size_t limit) {
    const std::string problem = logFileProblem(NQ_Logger::kLogFileName);
    if (!problem.empty())
        throw std::runtime_error(problem);
    longest = limit;
    NQ_Logger::instance();
}

void logInfo(const std::string& text) { log(text, NQ_Logger::kLogLevelInfo); }

void logError(const std::string& text) { log(text, NQ_Logger::kLogLevelError); }

} // namespace agent
