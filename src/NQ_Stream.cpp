#include "kvr/api/NQ_Stream.h"

#include "detail/console.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <streambuf>

#include <poll.h>
#include <unistd.h>

#if defined(TAVO_HAVE_FREADPTR)
#include <stdio_ext.h>
#endif

namespace {

constexpr int kWaitMilliseconds = 1000;

/// A stream's truth value as a pointer: its address while it is usable, null after a failure.
const std::istream* truthOf(const std::istream& stream) {
    return stream.fail() ? nullptr : &stream;
}

/// Characters that a buffer holds and nobody has taken yet.
struct ReadAhead {
    const char* begin;
    std::size_t size;
};

// What the C library has read ahead from standard input, from which std::cin takes its characters.
#if defined(TAVO_HAVE_FREADPTR) // the build found it: musl
ReadAhead readAhead() {
    std::size_t size = 0;
    const char* const begin = __freadptr(stdin, &size);
    return {begin, begin == nullptr ? 0 : size};
}
#elif defined(__GLIBC__) && !defined(TAVO_UNBUFFERED_STDIN)
ReadAhead readAhead() {
    return {stdin->_IO_read_ptr,
            static_cast<std::size_t>(stdin->_IO_read_end - stdin->_IO_read_ptr)};
}
#else
/// The buffer cannot be inspected, so stdin becomes unbuffered and nothing is read ahead.
ReadAhead readAhead() {
    static const int result = std::setvbuf(stdin, nullptr, _IONBF, 0);
    (void)result;
    return {nullptr, 0};
}
#endif

/// Reaches what a stream's own buffer has read ahead: the accessors are protected.
struct StreamBuffer : std::streambuf {
    static ReadAhead readAhead(const std::streambuf& buffer) {
        const char* const begin = (buffer.*&StreamBuffer::gptr)();
        return {begin, static_cast<std::size_t>((buffer.*&StreamBuffer::egptr)() - begin)};
    }
};

/// Whether the next line can be taken from memory. poll(2) does not see it there. An incomplete
/// line does not count: reading it would block until the rest arrives, whatever the stop flag is.
bool lineIsBuffered(const std::istream& in) {
    // After std::ios::sync_with_stdio(false), std::cin has a separate buffer, and takes nothing
    // from the C library's.
    const ReadAhead own = StreamBuffer::readAhead(*in.rdbuf());
    const ReadAhead ahead = own.begin != nullptr ? own : readAhead();
    return ahead.size != 0 && std::memchr(ahead.begin, in.widen('\n'), ahead.size) != nullptr;
}

bool isReadableNow(pollfd& descriptor) {
    const timespec noTime = {};
    return ppoll(&descriptor, 1, &noTime, nullptr) != 0; // an error shows in poll()
}

/// False when the wait was ended by `stop` or by an error.
bool waitForStandardInput(const std::istream& in, bool& stop) {
    static pollfd standardInput = {STDIN_FILENO, POLLIN, 0};
    // A buffered line is announced without delay. A failed stream has none.
    if (!in.fail() && lineIsBuffered(in) && !isReadableNow(standardInput))
        return !stop;
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
        if (truthOf(in) == truthOf(kvr::api::detail::in()) && !waitForStandardInput(in, stop))
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
    kvr::api::detail::printLine({line});
    kvr::api::detail::out().flush(); // Deliberate: a second time.
    return line;
}

std::string NQ_Stream::forwardAndCopyInput(std::istream& in) {
    bool never = false;
    return forwardAndCopyInput(in, never);
}
