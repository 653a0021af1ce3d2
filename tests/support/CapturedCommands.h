#ifndef TAVO_TESTS_CAPTURED_COMMANDS_H
#define TAVO_TESTS_CAPTURED_COMMANDS_H

#include <functional>
#include <string>
#include <vector>

namespace support {

/// Records the command lines given to system() while it lives: a test program that uses this class
/// supplies `system` itself, in front of the C library's. For commands that must not run on the
/// host, and for seeing a line before the shell takes it apart. One at a time.
class CapturedCommands {
public:
    enum Mode { runNothing, runAll };

    /// With `runNothing`, no command runs and `status` is what system() returns.
    explicit CapturedCommands(Mode mode = runNothing, int status = 0);
    ~CapturedCommands();
    CapturedCommands(const CapturedCommands&) = delete;
    CapturedCommands& operator=(const CapturedCommands&) = delete;

    std::vector<std::string> lines() const;

    /// Runs at each use of system(), before the command: shows what has happened by then.
    void beforeEach(std::function<void()> action);
};

} // namespace support

#endif
