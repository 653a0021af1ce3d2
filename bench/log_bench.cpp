#include <kvr/api/log/NQ_Logger.h>

#include "TempDir.h"
#include "floor/Log.h"
#include "measure.h"

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

namespace bench {
namespace {

using kvr::api::log::NQ_Logger;

const std::string kMessage = "request 7 uci.apply: done";
const std::string kLevel = "INFO";
constexpr int kThreads = 8;
constexpr int kLinesPerThread = 200;

// All sides append to the library's only log file: the time of a write depends on the file too.
constexpr const char* kPath = "/tmp/log.out";

NQ_Logger* libraryLog() { return NQ_Logger::instance(); }

std::shared_ptr<floor::Log> floorLog() { return std::make_shared<floor::Log>(kPath); }

/// The same lines. Each is flushed, as the library's are, or only a full buffer is.
std::shared_ptr<spdlog::logger> spdlogLog(bool flushed) {
    auto log = std::make_shared<spdlog::logger>(
        "bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(kPath));
    log->set_pattern("%l: %v");
    if (flushed)
        log->flush_on(spdlog::level::trace);
    return log;
}

template <class Line>
void onThreads(const Line& line) {
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&line] {
            for (int k = 0; k < kLinesPerThread; ++k)
                line();
        });
    for (std::thread& thread : threads)
        thread.join();
}

void addLine() {
    const std::string operation = "log line";
    add(operation, kLibrary, [] { return [log = libraryLog()] { log->log(kMessage, kLevel); }; });
    add(operation, kFloor, [] { return [log = floorLog()] { log->line(kMessage, kLevel); }; });
    add(operation, "spdlog, each line flushed",
        [] { return [log = spdlogLog(true)] { log->info(kMessage); }; });
    add(operation, "spdlog", [] { return [log = spdlogLog(false)] { log->info(kMessage); }; });
}

void addThreads() {
    const std::string operation = "log lines by 8 threads";
    const Repeat repeat = {2};
    add(
        operation, kLibrary,
        [] { return [log = libraryLog()] { onThreads([&] { log->log(kMessage, kLevel); }); }; },
        repeat);
    add(
        operation, kFloor,
        [] { return [log = floorLog()] { onThreads([&] { log->line(kMessage, kLevel); }); }; },
        repeat);
    add(
        operation, "spdlog, each line flushed",
        [] { return [log = spdlogLog(true)] { onThreads([&] { log->info(kMessage); }); }; },
        repeat);
    add(
        operation, "spdlog",
        [] { return [log = spdlogLog(false)] { onThreads([&] { log->info(kMessage); }); }; },
        repeat);
}

void addBatch() {
    const std::string operation = "log batch of 10 lines";
    const std::vector<std::string> batch(10, kMessage);
    add(operation, kLibrary,
        [batch] { return [batch, log = libraryLog()] { log->log(batch, kLevel); }; });
    add(operation, kFloor,
        [batch] { return [batch, log = floorLog()] { log->lines(batch, kLevel); }; });
    add(operation, "spdlog, flushed once", [batch] {
        return [batch, log = spdlogLog(false)] {
            for (const std::string& message : batch)
                log->info(message);
            log->flush();
        };
    });
}

} // namespace

void addLog() {
    addLine();
    addThreads();
    addBatch();
}

} // namespace bench
