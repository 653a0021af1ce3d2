#ifndef TAVO_AGENT_DESCRIPTORS_H
#define TAVO_AGENT_DESCRIPTORS_H

#include <string>

namespace agent {

/// The stream for the responses: standard output as it was when the process started.
///
/// The library and the commands that it runs report their progress on standard output. The agent
/// keeps the original stream for the responses only, one line each, so that a supervisor can read
/// them. Everything else is redirected to standard error.
class ResponseOutput {
public:
    /// Call first in main(). Also replaces standard input with /dev/null, so that started programs
    /// cannot read it. Opens those of the descriptors 0, 1 and 2 that are closed, so that no new
    /// file takes their numbers.
    ResponseOutput();

    /// Writes `line` and a newline. Returns false when no process can read it any more.
    bool write(const std::string& line) const;

private:
    int descriptor_;
};

} // namespace agent

#endif
