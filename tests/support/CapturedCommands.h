#ifndef TAVO_TESTS_CAPTURED_COMMANDS_H
#define TAVO_TESTS_CAPTURED_COMMANDS_H

#include <functional>
#include <string>
#include <vector>

namespace support {

/// Records the command lines passed to system() while an object exists. A test program that uses
/// this class replaces the C library's `system`. For commands that must not run on the host, and
/// for checks of a line before the shell parses it. Only one object at a time.
class CapturedCommands {
public:
    enum Mode { runNothing, runAll };

    /// In mode `runNothing`, no command runs and system() returns `status`.
    explicit CapturedCommands(Mode mode = runNothing, int status = 0);
    ~CapturedCommands();
    CapturedCommands(const CapturedCommands&) = delete;
    CapturedCommands& operator=(const CapturedCommands&) = delete;

    std::vector<std::string> lines() const;

    /// Runs `action` at each call of system(), before the command, to check what has happened so
    /// far.
    void beforeEach(std::function<void()> action);
};

} // namespace support

#endif
