// Runs operations of the library beside their floors and their peers. It takes the options of
// Google Benchmark. TAVO_BENCH_COUNT in the environment fixes the number of runs, for callgrind.
#include "measure.h"

#include <cstdlib>

namespace bench {

bool counting() {
    static const bool fixed = std::getenv("TAVO_BENCH_COUNT") != nullptr;
    return fixed;
}

} // namespace bench

int main(int argc, char* argv[]) {
    bench::addJson();
    bench::addDispatch();
    bench::addLog();
    bench::addText();
    bench::addStandardInput();
    bench::addSockets();
    bench::addProcesses();
    bench::addFiles();
    bench::addCrypto();
    bench::addMqtt();
    bench::addInotify();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
