#ifndef TAVO_TESTS_CAPTURED_OUTPUT_H
#define TAVO_TESTS_CAPTURED_OUTPUT_H

#include <functional>
#include <string>

namespace support {

/// Redirects one descriptor (standard output by default) to a file while it lives. Works below the
/// C and C++ streams, so what child processes, printf and perror write is seen too, in the order
/// written.
class CapturedOutput {
public:
    explicit CapturedOutput(int descriptor = 1);
    ~CapturedOutput();
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    /// Everything written so far. May be called any number of times, from any thread.
    std::string text() const;

    /// The same, without what the process's own streams still hold: shows what was flushed.
    std::string written() const;

    /// Waits until `expected` has been written (anywhere in the text) or half a minute has passed.
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

/// What `action` writes to standard output. Expectations that follow can print again, which those
/// in the lifetime of a CapturedOutput cannot.
std::string printedBy(const std::function<void()>& action);

/// What `action` writes to standard error.
std::string errorsOf(const std::function<void()>& action);

} // namespace support

#endif
