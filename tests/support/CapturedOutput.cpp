#include "CapturedOutput.h"

#include "Waiting.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <stdexcept>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace support {
namespace {

void flushStreams() {
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
}

} // namespace

CapturedOutput::CapturedOutput(int descriptor) : descriptor_(descriptor) {
    flushStreams();
    char name[] = "/tmp/tavo-capture-XXXXXX";
    file_ = mkostemp(name, O_APPEND | O_CLOEXEC);
    saved_ = fcntl(descriptor_, F_DUPFD_CLOEXEC, 3);
    if (file_ < 0 || saved_ < 0 || dup2(file_, descriptor_) < 0)
        throw std::runtime_error("cannot capture output");
    unlink(name);
}

CapturedOutput::~CapturedOutput() {
    const std::string captured = text();
    dup2(saved_, descriptor_);
    // The messages of failed expectations are in the file, too.
    if (descriptor_ == 1 && testing::Test::HasFailure()) {
        std::cout << captured;
        std::cout.flush();
    }
    close(saved_);
    close(file_);
}

std::string CapturedOutput::text() const {
    flushStreams();
    return written();
}

std::string CapturedOutput::written() const {
    struct stat status = {};
    fstat(file_, &status);
    std::string content(static_cast<std::size_t>(status.st_size), '\0');
    // pread() does not move the file position, and writers with O_APPEND do not use it.
    const ssize_t got = pread(file_, &content[0], content.size(), 0);
    content.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return content;
}

bool CapturedOutput::waitFor(const std::string& expected) const {
    return eventually([&] { return text().find(expected) != std::string::npos; });
}

std::string printedBy(const std::function<void()>& action) {
    const CapturedOutput output;
    action();
    return output.text();
}

std::string errorsOf(const std::function<void()>& action) {
    const CapturedErrors errors;
    action();
    return errors.text();
}

} // namespace support
