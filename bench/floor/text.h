#ifndef TAVO_BENCH_FLOOR_TEXT_H
#define TAVO_BENCH_FLOOR_TEXT_H

#include <string>
#include <vector>

#include <sys/time.h>

namespace bench::floor {

std::vector<std::string> split(const std::string& text, char delimiter);
std::string timeText(const timeval& time);
timeval timeOf(const std::string& text);

} // namespace bench::floor

#endif
