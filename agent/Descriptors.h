#ifndef TAVO_AGENT_DESCRIPTORS_H
#define TAVO_AGENT_DESCRIPTORS_H

#include <string>

namespace agent {

/// Where the responses go: what was standard output when the process started.
///
/// The library and the commands that it runs report their progress on standard output. The agent
/// keeps that stream for the responses alone, one line each, so that a supervisor can read them.
/// Everything else is moved to standard error.
class ResponseOutput {
public:
    /// Call first in main(). Also replaces standard input by /dev/null, so that started programs
    /// cannot read it. Opens those of the descriptors 0, 1 and 2 that are closed, so that no new
    /// file takes their numbers.
    ResponseOutput();

    /// Writes `line` and a newline. False when nobody can read it any more.
    bool write(const std::string& line) const;

private:
    int descriptor_;
};

} // namespace agent

#endif
