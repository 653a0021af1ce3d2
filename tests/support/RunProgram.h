#ifndef TAVO_TESTS_RUN_PROGRAM_H
#define TAVO_TESTS_RUN_PROGRAM_H

#include <string>
#include <vector>

#include <sys/types.h>

namespace support {

/// What a program left behind.
struct Ran {
    int status;      ///< exit status, or 128 and the signal's number, as a shell counts
    std::string out; ///< all of its standard output
    std::string err; ///< all of its standard error
};

/// A child process with its output kept apart. Killed at the end of the scope if it still runs, and
/// with the thread that started it.
class RunningProgram {
public:
    /// Starts `arguments[0]` (looked up in PATH) with `environment` ("NAME=value") added and
    /// `input` as its standard input.
    explicit RunningProgram(const std::vector<std::string>& arguments,
                            const std::vector<std::string>& environment = {},
                            const std::string& input = "");
    ~RunningProgram();
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    pid_t pid() const { return pid_; }
    /// What standard output holds so far.
    std::string outSoFar() const;
    /// What standard error holds so far.
    std::string errSoFar() const;
    /// Waits for the end. To be called once.
    Ran wait();

private:
    pid_t pid_ = -1;
    int in_;
    int out_;
    int err_;
};

/// Starts a program and waits for its end.
Ran runProgram(const std::vector<std::string>& arguments,
               const std::vector<std::string>& environment = {}, const std::string& input = "");

} // namespace support

#endif
