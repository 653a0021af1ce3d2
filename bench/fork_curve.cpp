// Prints, as JSON, how many milliseconds each way of starting a program takes, by the memory that
// the caller has in use.
#include <kvr/api/file/NQ_Files.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

namespace {

using kvr::api::file::NQ_Popen;

constexpr int kRounds = 11;
constexpr std::size_t kMebibyte = 1u << 20;
constexpr std::size_t kMebibytesInUse[] = {1, 4, 16, 64, 256, 1024};

void execute() { NQ_Popen::execute("true", {}); }

void executeInsecure() { NQ_Popen::executeInsecure("true"); }

void spawn() {
    std::string command = "true";
    char* argv[] = {&command[0], nullptr};
    pid_t child = 0;
    if (posix_spawnp(&child, argv[0], nullptr, nullptr, argv, environ) != 0)
        std::abort();
    waitpid(child, nullptr, 0);
}

struct Way {
    const char* name;
    void (*start)();
    std::vector<double> times;
};

double millisecondsOf(void (*start)()) {
    const auto begin = std::chrono::steady_clock::now();
    start();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin)
        .count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main() {
    std::printf("{");
    std::vector<char> used;
    const char* separator = "";
    for (const std::size_t mebibytes : kMebibytesInUse) {
        used.resize(mebibytes * kMebibyte, 'm'); // written, so that the kernel allocates it
        Way ways[] = {{"execute", &execute, {}},
                      {"executeInsecure", &executeInsecure, {}},
                      {"posix_spawn", &spawn, {}}};
        for (int round = 0; round < kRounds; ++round)
            for (Way& way : ways)
                way.times.push_back(millisecondsOf(way.start));
        std::printf("%s\"%zu\": {", separator, mebibytes);
        separator = ", ";
        for (const Way& way : ways)
            std::printf("%s\"%s\": %.3f", &way == ways ? "" : ", ", way.name, median(way.times));
        std::printf("}");
    }
    std::printf("}\n");
    return 0;
}
