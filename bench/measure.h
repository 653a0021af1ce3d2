#ifndef TAVO_BENCH_MEASURE_H
#define TAVO_BENCH_MEASURE_H

#include <string>

#include <valgrind/callgrind.h>

#include <benchmark/benchmark.h>

namespace bench {

/// How often an operation runs.
struct Repeat {
    /// Number of runs over which instructions are counted.
    int counted = 100;
    /// Number of runs for each time taken; 0 leaves the choice to the benchmark library.
    int timed = 0;
};

/// True when this process counts instructions; each operation then runs a fixed number of times.
bool counting();

/// The two sides that every operation has. All other sides are peers.
constexpr char kLibrary[] = "libtavo";
constexpr char kFloor[] = "floor";

/// Registers the benchmark "operation/side", which calls body(state, label).
template <class Body>
void enlist(const std::string& operation, const std::string& side, Repeat repeat, Body body) {
    const std::string name = operation + "/" + side;
    const std::string label = name + "#" + std::to_string(repeat.counted);
    auto* registered = benchmark::RegisterBenchmark(
        name.c_str(), [label, body](benchmark::State& state) { body(state, label); });
    registered->UseRealTime();
    if (counting())
        registered->Iterations(repeat.counted);
    else if (repeat.timed > 0)
        registered->Iterations(repeat.timed);
}

/// Registers one side of an operation. `setUp` prepares the data and returns a callable that runs
/// the operation once; the callable is destroyed after the last run.
///
/// The first runs are not measured: they bind functions and fill caches. Under callgrind the
/// counters are dumped with the name of the benchmark and its number of runs.
template <class SetUp>
void add(const std::string& operation, const std::string& side, SetUp setUp, Repeat repeat = {}) {
    enlist(operation, side, repeat,
           [setUp, repeat](benchmark::State& state, const std::string& label) {
               auto run = setUp();
               for (int i = 0; i < (repeat.counted < 20 ? 1 : 5); ++i)
                   run();
               CALLGRIND_DUMP_STATS;
               for (auto _ : state)
                   run();
               CALLGRIND_DUMP_STATS_AT(label.c_str());
           });
}

/// One side for addPrepared(): `prepare` is called before each `run`, and is not measured.
template <class Prepare, class Run>
struct Steps {
    Prepare prepare;
    Run run;
};
template <class Prepare, class Run>
Steps(Prepare, Run) -> Steps<Prepare, Run>;

/// Like add(), for an operation that consumes its input in each run.
template <class SetUp>
void addPrepared(const std::string& operation, const std::string& side, SetUp setUp,
                 Repeat repeat) {
    enlist(operation, side, repeat, [setUp](benchmark::State& state, const std::string& label) {
        const auto steps = setUp();
        steps.prepare();
        steps.run();
        CALLGRIND_DUMP_STATS;
        for (auto _ : state) {
            state.PauseTiming();
            CALLGRIND_TOGGLE_COLLECT;
            steps.prepare();
            CALLGRIND_TOGGLE_COLLECT;
            state.ResumeTiming();
            steps.run();
        }
        CALLGRIND_DUMP_STATS_AT(label.c_str());
    });
}

// One function for each file of operations.
void addCrypto();
void addDispatch();
void addFiles();
void addInotify();
void addJson();
void addLog();
void addMqtt();
void addProcesses();
void addSockets();
void addStandardInput();
void addText();

} // namespace bench

#endif
