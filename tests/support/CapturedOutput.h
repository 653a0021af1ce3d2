#ifndef TAVO_TESTS_CAPTURED_OUTPUT_H
#define TAVO_TESTS_CAPTURED_OUTPUT_H

#include <functional>
#include <string>

namespace support {

/// Redirects one descriptor (standard output by default) to a file while an object exists. This
/// works below the C and C++ streams. It therefore also captures child processes, printf and
/// perror, in the order written.
class CapturedOutput {
public:
    explicit CapturedOutput(int descriptor = 1);
    ~CapturedOutput();
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    /// Flushes the process's own streams and returns everything written so far. Thread-safe.
    std::string text() const;

    /// Like text(), but without flushing: shows what the code under test has flushed itself.
    std::string written() const;

    /// Waits up to half a minute until the text contains `expected`.
    bool waitFor(const std::string& expected) const;

private:
    int descriptor_;
    int saved_;
    int file_;
};

/// Captures standard error.
class CapturedErrors : public CapturedOutput {
public:
    CapturedErrors() : CapturedOutput(2) {}
};

/// Returns what `action` writes to standard output. Expectations after it can print again; those in
/// the lifetime of a CapturedOutput cannot.
std::string printedBy(const std::function<void()>& action);

/// Returns what `action` writes to standard error.
std::string errorsOf(const std::function<void()>& action);

} // namespace support

#endif
