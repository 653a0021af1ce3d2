#include "ForkedChild.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace support {
namespace {

[[noreturn]] void runAndExit(const std::function<void()>& body) {
    int status = 2;
    try {
        body();
        status = testing::Test::HasFailure() ? 1 : 0;
    } catch (const std::exception& error) {
        std::cout << "exception: " << error.what() << std::endl;
    } catch (...) {
        std::cout << "exception of an unknown type" << std::endl;
    }
    std::exit(status);
}

std::string readAll(int descriptor) {
    std::string text;
    char piece[4096];
    ssize_t got;
    while ((got = read(descriptor, piece, sizeof piece)) > 0)
        text.append(piece, static_cast<std::size_t>(got));
    return text;
}

} // namespace

void endWithParent(pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(127); // the parent ended before prctl() took effect
}

ForkedChild inForkedChild(const std::function<void()>& body) {
    std::cout.flush();
    std::fflush(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe2");
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("fork");
    if (child == 0) {
        endWithParent(parent);
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
        runAndExit(body);
    }
    close(ends[1]);
    ForkedChild result{-1, readAll(ends[0])};
    close(ends[0]);
    waitpid(child, &result.status, 0);
    return result;
}

} // namespace support
