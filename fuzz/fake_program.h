#ifndef TAVO_FUZZ_FAKE_PROGRAM_H
#define TAVO_FUZZ_FAKE_PROGRAM_H

#include <string>

namespace fuzzing {

/// Replaces the programs that the calling thread starts while an object exists: fork() starts no
/// process. Its caller reads `output` from the pipe made last, and waitpid() returns status 0. A
/// target that uses this class replaces `pipe`, `fork` and `waitpid`. Only one object at a time.
class FakeProgram {
public:
    /// `output` must outlive the object, and fit into a pipe.
    explicit FakeProgram(const std::string& output);
    ~FakeProgram();
    FakeProgram(const FakeProgram&) = delete;
    FakeProgram& operator=(const FakeProgram&) = delete;
};

} // namespace fuzzing

#endif
