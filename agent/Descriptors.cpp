#include "Descriptors.h"

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace agent {
namespace {

void ignoreBrokenPipe(int) {}

} // namespace

ResponseOutput::ResponseOutput() {
    // Fills the lowest free numbers until 0 to 2 are taken.
    int null;
    while ((null = open("/dev/null", O_RDWR)) >= 0 && null <= STDERR_FILENO) {
    }
    dup2(null, STDIN_FILENO);
    close(null);
    descriptor_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    dup2(STDERR_FILENO, STDOUT_FILENO);

    // The agent must not end because a reader has disconnected. A handler is used rather than
    // SIG_IGN, which started programs would inherit.
    struct sigaction action = {};
    action.sa_handler = ignoreBrokenPipe;
    action.sa_flags = SA_RESTART;
    sigaction(SIGPIPE, &action, nullptr);
}

bool ResponseOutput::write(const std::string& line) const {
    const std::string text = line + "\n";
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t result = ::write(descriptor_, text.data() + done, text.size() - done);
        if (result < 0 && errno != EINTR)
            return false;
        if (result > 0)
            done += static_cast<std::size_t>(result);
    }
    return true;
}

} // namespace agent
