#include "LineReader.h"

#include "print.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <iostream>

#include <poll.h>
#include <unistd.h>

namespace bench::floor {
namespace {

/// Whether the next line is in glibc's buffer already, where poll(2) does not see it.
bool lineIsBuffered() {
    const char* next = stdin->_IO_read_ptr;
    const auto size = static_cast<std::size_t>(stdin->_IO_read_end - next);
    return size != 0 && std::memchr(next, '\n', size) != nullptr;
}

} // namespace

LineListener::~LineListener() = default;

LineReader::LineReader(LineListener* listener) : listener_(listener) {}

void LineReader::loop(bool& stop) {
    while (!stop) {
        lastLine = readLine(stop);
        printLine({lastLine});
        std::cout.flush(); // the contract has a second one
        if (!lastLine.empty())
            listener_->received(this);
    }
}

// Returns a new text for each line, as the contract's function does.
std::string LineReader::readLine(const bool& stop) {
    static pollfd input = {STDIN_FILENO, POLLIN, 0};
    const timespec noTime = {};
    std::string line;
    while (line.empty()) {
        int ready = lineIsBuffered() && ppoll(&input, 1, &noTime, nullptr) == 0 ? 1 : 0;
        while (ready == 0 && !stop)
            ready = poll(&input, 1, 1000);
        if (ready == -1 || stop)
            break;
        std::getline(std::cin, line);
    }
    return line;
}

} // namespace bench::floor
