#include "StandardInput.h"

#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace support {
namespace {

/// Clears the end-of-file state and discards what was read ahead.
void resetStreams() {
    std::cin.clear();
    std::clearerr(stdin);
    __fpurge(stdin);
}

} // namespace

StandardInput::StandardInput() {
    int ends[2];
    saved_ = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    if (saved_ < 0 || pipe2(ends, O_CLOEXEC) != 0 || dup2(ends[0], STDIN_FILENO) < 0)
        throw std::runtime_error("cannot replace standard input");
    ::close(ends[0]);
    writer_ = ends[1];
    resetStreams();
}

StandardInput::~StandardInput() {
    close();
    dup2(saved_, STDIN_FILENO);
    ::close(saved_);
    resetStreams();
}

void StandardInput::write(const std::string& text) {
    if (::write(writer_, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("cannot write to the pipe");
}

int StandardInput::unread() const {
    int bytes = -1;
    ioctl(STDIN_FILENO, FIONREAD, &bytes);
    return bytes;
}

void StandardInput::replace(int descriptor) {
    close();
    dup2(descriptor, STDIN_FILENO);
}

void StandardInput::close() {
    if (writer_ != -1)
        ::close(writer_);
    writer_ = -1;
}

RecordedPolls::RecordedPolls(Script script)
    : script_(std::move(script)), poll_(interposedPoll,
                                        [this](pollfd* entries, nfds_t count, int milliseconds) {
                                            return poll(entries, count, milliseconds);
                                        }),
      ppoll_(interposedPpoll,
             [this](pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t* mask) {
                 return ppoll(entries, count, timeout, mask);
             }) {}

int RecordedPolls::poll(pollfd* entries, nfds_t count, int milliseconds) {
    polls_.push_back({entries->fd, entries->events, count, milliseconds, 0});
    const std::size_t number = polls_.size();
    int result = script_(static_cast<int>(number));
    if (result == kPassOn)
        result = interposedPoll.real(entries, count, milliseconds);
    polls_[number - 1].result = result;
    return result;
}

int RecordedPolls::ppoll(pollfd* entries, nfds_t count, const timespec* timeout,
                         const sigset_t* mask) {
    const int result = interposedPpoll.real(entries, count, timeout, mask);
    const bool checks = count == 1 && entries->fd == STDIN_FILENO && entries->events == POLLIN &&
                        timeout != nullptr && timeout->tv_sec == 0 && timeout->tv_nsec == 0;
    ppollResults_.push_back(checks ? result : -1);
    return result;
}

} // namespace support
