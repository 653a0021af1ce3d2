#include "RunProgram.h"

#include "ForkedChild.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support {

namespace {

int memoryFile(const std::string& content = "") {
    const int file = memfd_create("test", MFD_CLOEXEC);
    if (file < 0 || pwrite(file, content.data(), content.size(), 0) < 0)
        throw std::runtime_error("memory file");
    return file;
}

std::string contentOf(int file) {
    std::string content;
    char piece[4096];
    for (;;) {
        const ssize_t got = pread(file, piece, sizeof piece, static_cast<off_t>(content.size()));
        if (got <= 0)
            return content;
        content.append(piece, static_cast<std::size_t>(got));
    }
}

} // namespace

RunningProgram::RunningProgram(const std::vector<std::string>& arguments,
                               const std::vector<std::string>& environment,
                               const std::string& input)
    : in_(memoryFile(input)), out_(memoryFile()), err_(memoryFile()) {
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ < 0)
        throw std::runtime_error("fork");
    if (pid_ == 0) {
        endWithParent(parent);
        for (const std::string& variable : environment)
            putenv(const_cast<char*>(variable.c_str()));
        dup2(in_, 0);
        dup2(out_, 1);
        dup2(err_, 2);
        execvp(argv[0], argv.data());
        _exit(127);
    }
}

RunningProgram::~RunningProgram() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(in_);
    close(out_);
    close(err_);
}

std::string RunningProgram::outSoFar() const { return contentOf(out_); }

std::string RunningProgram::errSoFar() const { return contentOf(err_); }

ProgramResult RunningProgram::wait() {
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR)
        continue;
    pid_ = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), contentOf(out_),
            contentOf(err_)};
}

ProgramResult runProgram(const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment, const std::string& input) {
    return RunningProgram(arguments, environment, input).wait();
}

} // namespace support
