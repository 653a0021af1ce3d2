#ifndef TAVO_TESTS_CAPTURED_SYSLOG_H
#define TAVO_TESTS_CAPTURED_SYSLOG_H

#include <string>
#include <vector>

namespace support {

/// One record as the system log would receive it.
struct SyslogRecord {
    int priority;
    std::string text;   ///< after formatting
    std::string format; ///< as passed by the caller

    bool operator==(const SyslogRecord& other) const {
        return priority == other.priority && text == other.text;
    }
};

/// Replaces the system log while an object exists. A test program that uses this class replaces the
/// C library's `syslog`, and drops records while no object exists. A call of `openlog` adds a
/// record "openlog". Only one object at a time.
class CapturedSyslog {
public:
    CapturedSyslog();
    ~CapturedSyslog();
    CapturedSyslog(const CapturedSyslog&) = delete;
    CapturedSyslog& operator=(const CapturedSyslog&) = delete;

    std::vector<SyslogRecord> records() const;
    /// The records as lines "<priority> text", which are easy to compare and print.
    std::vector<std::string> lines() const;
};

} // namespace support

#endif
