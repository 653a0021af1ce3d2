#ifndef TAVO_FUZZ_FAKE_PROGRAM_H
#define TAVO_FUZZ_FAKE_PROGRAM_H

#include <string>

namespace fuzzing {

/// While it exists, no program is started. A caller that forks one reads `output` from the pipe
/// made last, and then gets status 0. This replaces `pipe`, `fork` and `waitpid` in a target that
/// uses it. Only one object may exist.
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
