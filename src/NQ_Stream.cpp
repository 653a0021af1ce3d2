#include <kvr/api/NQ_Stream.h>

#include "detail/console.h"

#include <cstdio>

#include <poll.h>
#include <unistd.h>

namespace {

constexpr int kWaitMilliseconds = 1000;

/// A stream's truth value as a pointer: its address while it is usable, null after a failure.
const std::istream* truthOf(const std::istream& stream) {
    return stream.fail() ? nullptr : &stream;
}

pollfd unbufferedStandardInput() {
    (void)std::setvbuf(stdin, nullptr, _IONBF,
                       0); // a second line of a burst would hide in the buffer
    return {STDIN_FILENO, POLLIN, 0};
}

/// False when the wait was ended by `stop` or by an error.
bool waitForStandardInput(bool& stop) {
    static pollfd standardInput = unbufferedStandardInput();
    for (;;) {
        const int ready = poll(&standardInput, 1, kWaitMilliseconds);
        if (ready == -1 || stop)
            return false;
        if (ready != 0)
            return true;
    }
}

} // namespace

std::string NQ_Stream::readOneLineStream(std::istream& in, bool& stop) {
    std::string line;
    while (line.empty()) {
        // Deliberate: null equals null, so a failed stream is taken for a failed standard input.
        if (truthOf(in) == truthOf(kvr::api::detail::in()) && !waitForStandardInput(stop))
            break;
        std::getline(in, line);
    }
    return line;
}

std::string NQ_Stream::readOneLineStream(std::istream& in) {
    bool never = false;
    return readOneLineStream(in, never);
}

std::string NQ_Stream::forwardAndCopyInput(std::istream& in, bool& stop) {
    std::string line = readOneLineStream(in, stop);
    kvr::api::detail::out() << line << std::endl << std::flush;
    return line;
}

std::string NQ_Stream::forwardAndCopyInput(std::istream& in) {
    bool never = false;
    return forwardAndCopyInput(in, never);
}
