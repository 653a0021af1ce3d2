#include "LineReader.h"

#include "print.h"

#include <iostream>

#include <poll.h>
#include <unistd.h>

namespace bench::floor {

LineListener::~LineListener() = default;

LineReader::LineReader(LineListener* listener) : listener_(listener) {}

void LineReader::loop(bool& stop) {
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    while (!stop) {
        lastLine.clear();
        while (lastLine.empty()) {
            int ready = 0;
            while (ready == 0) {
                ready = poll(&input, 1, 1000);
                if (ready == -1 || stop)
                    return;
            }
            std::getline(std::cin, lastLine);
        }
        printLine({lastLine});
        std::cout.flush(); // the contract has a second one
        listener_->received(this);
    }
}

} // namespace bench::floor
