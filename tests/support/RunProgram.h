#ifndef TAVO_TESTS_RUN_PROGRAM_H
#define TAVO_TESTS_RUN_PROGRAM_H

#include <string>
#include <vector>

#include <sys/types.h>

namespace support {

/// The result of a program.
struct ProgramResult {
    int status;      ///< exit status, or 128 plus the signal's number as in a shell
    std::string out; ///< all of its standard output
    std::string err; ///< all of its standard error
};

/// A child process whose output and errors are captured separately. It is killed if it still runs
/// when the object is destroyed, or when the thread that started it ends.
class RunningProgram {
public:
    /// Starts `arguments[0]` (found through PATH) with `environment` ("NAME=value") added and
    /// `input` as its standard input.
    explicit RunningProgram(const std::vector<std::string>& arguments,
                            const std::vector<std::string>& environment = {},
                            const std::string& input = "");
    ~RunningProgram();
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    pid_t pid() const { return pid_; }
    /// Returns its standard output so far.
    std::string outSoFar() const;
    /// Returns its standard error so far.
    std::string errSoFar() const;
    /// Waits for the end of the program. Call it only once.
    ProgramResult wait();

private:
    pid_t pid_ = -1;
    int in_;
    int out_;
    int err_;
};

/// Starts a program and waits for its end.
ProgramResult runProgram(const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment = {},
                         const std::string& input = "");

} // namespace support

#endif
