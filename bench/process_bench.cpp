#include <kvr/api/file/NQ_Files.h>

#include "TempDir.h"
#include "floor/process.h"
#include "measure.h"

#include <cstdio>
#include <fstream>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace bench {
namespace {

using benchmark::DoNotOptimize;
using kvr::api::file::NQ_Popen;

constexpr std::size_t kInUse = 200u << 20;

/// A program with its arguments, and the equivalent command line for the shell.
struct Program {
    std::string command;
    std::vector<std::string> args;
    std::string line() const {
        std::string text = command;
        for (const std::string& arg : args)
            text += " " + arg;
        return text;
    }
};

/// Gives the process memory that it really uses: every page is written. The block stays for the
/// next side of the operation, so that all sides fork the same page tables.
void useMemory(std::size_t bytes) {
    static std::vector<char> used;
    if (used.size() != bytes)
        used = std::vector<char>(bytes, 'm');
}

/// Reads the output in large blocks, for the peers.
std::string readAll(int descriptor) {
    std::string output;
    char buffer[16384];
    for (ssize_t length; (length = read(descriptor, buffer, sizeof buffer)) > 0;)
        output.append(buffer, static_cast<std::size_t>(length));
    return output;
}

std::string spawned(const Program& program) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        std::abort();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    std::vector<char*> argv = {const_cast<char*>(program.command.c_str())};
    for (const std::string& arg : program.args)
        argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    pid_t child = 0;
    if (posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ) != 0)
        std::abort();
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    std::string output = readAll(ends[0]);
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return output;
}

std::string opened(const std::string& line) {
    FILE* stream = popen(line.c_str(), "r");
    if (stream == nullptr)
        std::abort();
    std::string output = readAll(fileno(stream));
    pclose(stream);
    return output;
}

template <class Start>
void untilExit(const Start& start) {
    std::promise<int> exited;
    std::string output;
    start([&output](const std::string& piece) { output += piece; },
          [&exited](int status) { exited.set_value(status); });
    DoNotOptimize(exited.get_future().get());
}

/// Registers one kind of run for all its sides. `makeProgram` returns the program and everything
/// that must live as long.
template <class MakeProgram>
void addRuns(const std::string& kind, std::size_t inUse, Repeat repeat, MakeProgram makeProgram) {
    const auto side = [&](const std::string& operation, const char* name, auto run) {
        add(
            operation + ", " + kind, name,
            [inUse, makeProgram, run] {
                useMemory(inUse);
                return [program = makeProgram(), run] { run(*program); };
            },
            repeat);
    };
    side("execute", kLibrary, [](const Program& program) {
        int status = 0;
        DoNotOptimize(NQ_Popen::execute(program.command, program.args, status));
    });
    side("execute", kFloor, [](const Program& program) {
        int status = 0;
        DoNotOptimize(floor::execute(program.command, program.args, status));
    });
    side("execute", "posix_spawn", [](const Program& program) { DoNotOptimize(spawned(program)); });

    side("executeInsecure", kLibrary, [](const Program& program) {
        int status = 0;
        DoNotOptimize(NQ_Popen::executeInsecure(program.line(), status));
    });
    side("executeInsecure", kFloor, [](const Program& program) {
        int status = 0;
        DoNotOptimize(floor::executeInsecure(program.line(), status));
    });
    side("executeInsecure", "popen",
         [](const Program& program) { DoNotOptimize(opened(program.line())); });

    side("executeNonblock", kLibrary, [](const Program& program) {
        untilExit([&](auto onOutput, auto onExit) {
            NQ_Popen::executeNonblock(program.command, program.args, onOutput, onExit);
        });
    });
    side("executeNonblock", kFloor, [](const Program& program) {
        untilExit([&](auto onOutput, auto onExit) {
            floor::executeNonblock(program.command, program.args, onOutput, onExit);
        });
    });
    side("executeNonblock", "posix_spawn", [](const Program& program) {
        untilExit([&](auto onOutput, auto onExit) {
            std::thread([program, onOutput, onExit] {
                onOutput(spawned(program));
                onExit(0);
            }).detach();
        });
    });
}

/// A program that prints a file, which exists as long as the object.
struct Printer : Program {
    TempDir directory;
};

} // namespace

void addProcesses() {
    const auto small = [] {
        auto program = std::make_shared<Program>();
        program->command = "echo";
        program->args = {"hello"};
        return program;
    };
    const auto lines = [] {
        auto program = std::make_shared<Printer>();
        const std::string path = program->directory.file("lines");
        std::ofstream file(path);
        for (int i = 0; i < 20000; ++i)
            file << "1234\n";
        program->command = "cat";
        program->args = {path};
        return program;
    };
    addRuns("small output", 0, {20, 10}, small);
    addRuns("100 KB in 20,000 lines", 0, {3, 10}, lines);
    addRuns("200 MiB in use", kInUse, {10, 4}, small);
}

} // namespace bench
