#include <kvr/api/file/NQ_Files.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

namespace {

void Execute(benchmark::State& state) {
    int status = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(kvr::api::file::NQ_Popen::execute("echo", {"hello"}, status));
}
BENCHMARK(Execute)->UseRealTime();

void Execute_floor(benchmark::State& state) {
    for (auto _ : state) {
        int ends[2];
        if (pipe(ends) != 0)
            state.SkipWithError("pipe");
        const pid_t child = fork();
        if (child == 0) {
            close(ends[0]);
            dup2(ends[1], 1);
            dup2(ends[1], 2);
            close(ends[1]);
            execlp("echo", "echo", "hello", static_cast<char*>(nullptr));
            _exit(127);
        }
        close(ends[1]);
        FILE* stream = fdopen(ends[0], "r");
        std::string output;
        char buffer[255];
        while (std::fgets(buffer, sizeof buffer, stream) != nullptr)
            output += buffer;
        std::fclose(stream);
        int status = 0;
        waitpid(child, &status, 0);
        benchmark::DoNotOptimize(output);
    }
}
BENCHMARK(Execute_floor)->UseRealTime();

} // namespace
