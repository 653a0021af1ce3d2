#ifndef TAVO_FUZZ_PLAYED_PROGRAM_H
#define TAVO_FUZZ_PLAYED_PROGRAM_H

#include <string>

namespace fuzzing {

/// While it lives, no program is started: whoever forks one finds `output` in the pipe made last, and
/// status 0 at its end. A target that uses this class has `pipe`, `fork` and `waitpid` in front of the
/// C library's. One at a time.
class PlayedProgram {
public:
    /// `output` must outlive the object, and fit into a pipe.
    explicit PlayedProgram(const std::string& output);
    ~PlayedProgram();
    PlayedProgram(const PlayedProgram&) = delete;
    PlayedProgram& operator=(const PlayedProgram&) = delete;
};

} // namespace fuzzing

#endif
