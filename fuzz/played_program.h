#ifndef TAVO_FUZZ_PLAYED_PROGRAM_H
#define TAVO_FUZZ_PLAYED_PROGRAM_H

#include <string>

namespace fuzzing {

/// While it exists, no program is started. A caller that forks one reads `output` from the pipe
/// made last, and then gets status 0. This replaces `pipe`, `fork` and `waitpid` in a target that
/// uses it. Only one object may exist.
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
