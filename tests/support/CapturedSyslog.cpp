#include "CapturedSyslog.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace support {
namespace {

std::mutex guard;
bool capturing = false;
std::vector<SyslogRecord> captured;

void record(int priority, const char* format, va_list arguments) {
    char text[4096];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::vsnprintf(text, sizeof text, format, arguments);
#pragma GCC diagnostic pop
    const std::lock_guard<std::mutex> lock(guard);
    if (capturing)
        captured.push_back({priority, text, format});
}

// The application chooses the identity in the system log; the library must not set it.
void recordOpening(const char* name, int options) {
    const std::lock_guard<std::mutex> lock(guard);
    if (capturing)
        captured.push_back({options, "openlog", name ? name : ""});
}

} // namespace

CapturedSyslog::CapturedSyslog() {
    const std::lock_guard<std::mutex> lock(guard);
    captured.clear();
    capturing = true;
}

CapturedSyslog::~CapturedSyslog() {
    const std::lock_guard<std::mutex> lock(guard);
    capturing = false;
}

std::vector<SyslogRecord> CapturedSyslog::records() const {
    const std::lock_guard<std::mutex> lock(guard);
    return captured;
}

std::vector<std::string> CapturedSyslog::lines() const {
    std::vector<std::string> result;
    for (const SyslogRecord& entry : records())
        result.push_back("<" + std::to_string(entry.priority) + "> " + entry.text);
    return result;
}

} // namespace support

// These replace the C library's functions, also for the library under test. Fortified builds call
// the names with _chk.
extern "C" {
void openlog(const char* name, int options, int facility);
void syslog(int priority, const char* format, ...);
void __syslog_chk(int priority, int flag, const char* format, ...);

void openlog(const char* name, int options, int) { support::recordOpening(name, options); }

void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    support::record(priority, format, arguments);
    va_end(arguments);
}

void __syslog_chk(int priority, int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    support::record(priority, format, arguments);
    va_end(arguments);
}
}
