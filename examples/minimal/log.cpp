// Appends lines with levels to /tmp/log.out, and sends a record to the system log.

#include <kvr/api/log/NQ_Logger.h>

#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <syslog.h>

using kvr::api::log::NQ_Logger;

int main() {
    try {
        NQ_Logger* logger = NQ_Logger::instance();
        logger->log("started", NQ_Logger::kLogLevelInfo);
        logger->log("answer took 12 ms", NQ_Logger::kLogLevelDebug);
        logger->log("no answer", NQ_Logger::kLogLevelError);
        // No line of another thread appears between these two.
        const std::vector<std::string> state = {"state: idle", "clients: 0"};
        logger->log(state, NQ_Logger::kLogLevelDebug);
        // The text is a format: never pass one with a percent sign from outside.
        logger->logSysLog(LOG_INFO, "started");
    } catch (const std::runtime_error& error) { // the file cannot be opened
        std::cerr << error.what() << '\n';
        return 1;
    }
}
