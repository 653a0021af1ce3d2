#ifndef TAVO_TESTS_PIPED_PROGRAM_H
#define TAVO_TESTS_PIPED_PROGRAM_H

#include "RunProgram.h"
#include "TempDir.h"

#include <string>
#include <vector>

namespace support {

/// A program whose standard input is a pipe that the test writes to. No other child process
/// inherits the writing end.
class PipedProgram {
public:
    explicit PipedProgram(const std::vector<std::string>& arguments);
    ~PipedProgram();
    PipedProgram(const PipedProgram&) = delete;
    PipedProgram& operator=(const PipedProgram&) = delete;

    RunningProgram& program() { return program_; }
    void write(const std::string& text) const;
    /// Closes the writing end, which ends the input.
    void hangUp();

    /// Waits until its standard output contains `text`. Returns false after a deadline.
    bool prints(const std::string& text) const;

private:
    TempDir directory_;
    std::string fifo_;
    RunningProgram program_;
    int writer_;
};

} // namespace support

#endif
