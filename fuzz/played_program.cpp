#include "played_program.h"

#include "fuzzing.h"

#include <algorithm>

#include <dlfcn.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

constexpr pid_t kProgram = 1 << 30; // above every process id

const std::string* played = nullptr;
thread_local int pipeEnds[2] = {-1, -1};

template <class Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

namespace fuzzing {

PlayedProgram::PlayedProgram(const std::string& output) { played = &output; }

PlayedProgram::~PlayedProgram() { played = nullptr; }

} // namespace fuzzing

extern "C" {

int pipe(int* ends) noexcept {
    const int result = real<int(int*)>("pipe")(ends);
    std::copy_n(ends, 2, pipeEnds);
    return result;
}

pid_t fork() noexcept {
    if (played == nullptr)
        return real<pid_t()>("fork")();
    fuzzing::require(write(pipeEnds[1], played->data(), played->size()) ==
                         static_cast<ssize_t>(played->size()),
                     "the pipe has room");
    return kProgram;
}

pid_t waitpid(pid_t pid, int* status, int options) {
    if (pid != kProgram)
        return real<pid_t(pid_t, int*, int)>("waitpid")(pid, status, options);
    *status = 0;
    return pid;
}
}
