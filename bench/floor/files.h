#ifndef TAVO_BENCH_FLOOR_FILES_H
#define TAVO_BENCH_FLOOR_FILES_H

#include <string>
#include <vector>

namespace bench::floor {

std::vector<std::string> list(const std::string& path);
int copy(const char* source, const char* destination);

} // namespace bench::floor

#endif
