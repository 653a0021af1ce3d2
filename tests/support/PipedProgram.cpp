#include "PipedProgram.h"

#include "Waiting.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace support {
namespace {

std::string makeFifo(const std::string& path) {
    EXPECT_EQ(0, mkfifo(path.c_str(), 0600));
    return path;
}

std::vector<std::string> readingFrom(const std::string& file,
                                     const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {"sh", "-c", "exec \"$@\" <\"$0\"", file};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

} // namespace

PipedProgram::PipedProgram(const std::vector<std::string>& arguments)
    : fifo_(makeFifo(directory_ / "input")), program_(readingFrom(fifo_, arguments)),
      writer_(open(fifo_.c_str(), O_WRONLY | O_CLOEXEC)) {}

PipedProgram::~PipedProgram() { hangUp(); }

void PipedProgram::write(const std::string& text) const {
    EXPECT_EQ(static_cast<ssize_t>(text.size()), ::write(writer_, text.data(), text.size()));
}

void PipedProgram::hangUp() {
    if (writer_ != -1)
        close(writer_);
    writer_ = -1;
}

bool PipedProgram::prints(const std::string& text) const {
    return eventually([&] { return program_.outSoFar().find(text) != std::string::npos; });
}

} // namespace support
