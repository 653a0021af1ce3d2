#ifndef TAVO_BENCH_FLOOR_LOG_H
#define TAVO_BENCH_FLOOR_LOG_H

#include <fstream>
#include <mutex>
#include <string>
#include <vector>

namespace bench::floor {

/// Lines appended to a file under one lock, each flushed.
class Log {
public:
    explicit Log(const std::string& path);
    void line(const std::string& message, const std::string& level);
    void lines(const std::vector<std::string>& messages, const std::string& level);

private:
    void write(const std::string& message, const std::string& level);

    std::mutex mutex_;
    std::ofstream file_;
};

} // namespace bench::floor

#endif
