#ifndef TAVO_TESTS_FORKED_CHILD_H
#define TAVO_TESTS_FORKED_CHILD_H

#include <functional>
#include <string>

#include <sys/types.h>

namespace support {

/// Call first in a forked child: it is killed when the thread that forked it ends, so that no
/// process is left of a test that is killed itself. `parent` is the process that forked.
void endWithParent(pid_t parent);

/// How a forked copy of the process ended.
struct ForkedChild {
    int status;         ///< as waitpid() gives it; 0 for an ordinary end without a failure
    std::string output; ///< what it wrote on standard output
};

/// Runs `body` in a forked copy of the process and waits for its end: for state that lives as long
/// as a process, and for what happens when one exits. After `body` the copy calls exit(), with
/// status 1 when one of its expectations failed (the messages are in the output) and 2 when an
/// exception got out.
ForkedChild inForkedChild(const std::function<void()>& body);

} // namespace support

#endif
