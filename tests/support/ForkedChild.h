#ifndef TAVO_TESTS_FORKED_CHILD_H
#define TAVO_TESTS_FORKED_CHILD_H

#include <functional>
#include <string>

#include <sys/types.h>

namespace support {

/// Call first in a forked child. The kernel then kills the child when the thread that forked it
/// ends, so a killed test leaves no process behind. `parent` is the process that forked.
void endWithParent(pid_t parent);

/// The result of a forked copy of the process.
struct ForkedChild {
    int status;         ///< as waitpid() reports it; 0 after exit status 0
    std::string output; ///< what it wrote to standard output
};

/// Runs `body` in a forked copy of the process and waits for its end. Use it for state that lasts
/// as long as a process, and for what happens at exit. After `body` the copy calls exit(). The
/// status is 1 when an expectation failed (`output` holds the messages) and 2 when `body` threw.
ForkedChild inForkedChild(const std::function<void()>& body);

} // namespace support

#endif
