#ifndef TAVO_TESTS_CAPTURED_SYSLOG_H
#define TAVO_TESTS_CAPTURED_SYSLOG_H

#include <string>
#include <vector>

namespace support {

/// One record as the system log would have received it.
struct SyslogRecord {
    int priority;
    std::string text;   ///< after the format was applied
    std::string format; ///< as handed over

    bool operator==(const SyslogRecord& other) const {
        return priority == other.priority && text == other.text;
    }
};

/// Stands in for the system log while it lives: a test program that uses this class supplies
/// `syslog` itself, in front of the C library's. Records made while none lives are dropped. One at
/// a time. An `openlog` leaves a record "openlog".
class CapturedSyslog {
public:
    CapturedSyslog();
    ~CapturedSyslog();
    CapturedSyslog(const CapturedSyslog&) = delete;
    CapturedSyslog& operator=(const CapturedSyslog&) = delete;

    std::vector<SyslogRecord> records() const;
    /// The records as lines of "<priority> text", which compare and print well.
    std::vector<std::string> lines() const;
};

} // namespace support

#endif
