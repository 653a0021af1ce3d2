#include "process.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>
#include <utility>

#include <sys/wait.h>
#include <unistd.h>

namespace bench::floor {
namespace {

FILE* start(const std::string& command, const std::vector<std::string>& args, pid_t& child) {
    int ends[2];
    if (pipe(ends) != 0)
        std::abort();
    child = fork();
    if (child == -1)
        std::abort();
    if (child == 0) {
        close(ends[0]);
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
        std::vector<char*> argv;
        argv.reserve(args.size() + 2);
        argv.push_back(const_cast<char*>(command.c_str()));
        for (const std::string& arg : args)
            argv.push_back(const_cast<char*>(arg.c_str()));
        argv.push_back(nullptr);
        execvp(command.c_str(), argv.data());
        std::perror("execvp");
        _exit(127);
    }
    close(ends[1]);
    return fdopen(ends[0], "r");
}

int finish(FILE* stream, pid_t child) {
    std::fclose(stream);
    int status = 0;
    while (waitpid(child, &status, 0) == -1)
        if (errno != EINTR)
            return -1;
    return status;
}

} // namespace

std::string execute(const std::string& command, const std::vector<std::string>& args, int& status) {
    pid_t child = 0;
    FILE* stream = start(command, args, child);
    std::string output;
    char buffer[255];
    while (std::fgets(buffer, sizeof buffer, stream) != nullptr)
        output += buffer;
    status = finish(stream, child);
    return output;
}

// The contract requires the shared owner.
std::string executeInsecure(const std::string& command, int& status) {
    std::string output;
    const std::shared_ptr<FILE> stream(popen(command.c_str(), "r"), [&status](FILE* opened) {
        if (opened != nullptr)
            status = (pclose(opened) >> 8) & 0xFF;
    });
    if (stream == nullptr)
        std::abort();
    char buffer[128];
    while (std::feof(stream.get()) == 0)
        if (std::fgets(buffer, sizeof buffer, stream.get()) != nullptr)
            output += buffer;
    return output;
}

void executeNonblock(const std::string& command, const std::vector<std::string>& args,
                     std::function<void(const std::string&)> onOutput,
                     std::function<void(int)> onExit) {
    std::thread([command, args, onOutput = std::move(onOutput), onExit = std::move(onExit)] {
        pid_t child = 0;
        FILE* stream = start(command, args, child);
        char buffer[255];
        while (std::fgets(buffer, sizeof buffer, stream) != nullptr)
            onOutput(buffer);
        onExit(finish(stream, child));
    }).detach();
}

} // namespace bench::floor
