#ifndef TAVO_AGENT_DESCRIPTORS_H
#define TAVO_AGENT_DESCRIPTORS_H

#include <string>

namespace agent {

/// Where the responses go: what was standard output when the process started.
///
/// The library reports its progress on standard output, and so do the commands it runs. Here that
/// is for the responses alone, one line each, so that a supervisor can read them: everything else
/// is moved to standard error.
class ResponseOutput {
public:
    /// Call first in main(). Also replaces standard input by /dev/null, so that a program that is
    /// run takes nothing that is meant for another one. Opens what the process was started without:
    /// a new file must not become descriptor 0, 1 or 2.
    ResponseOutput();

    /// Writes `line` and a newline. False when nobody can read it any more.
    bool write(const std::string& line) const;

private:
    int descriptor_;
};

} // namespace agent

#endif
