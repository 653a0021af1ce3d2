#ifndef TAVO_BENCH_FLOOR_PROCESS_H
#define TAVO_BENCH_FLOOR_PROCESS_H

#include <functional>
#include <string>
#include <vector>

namespace bench::floor {

std::string execute(const std::string& command, const std::vector<std::string>& args, int& status);
std::string executeInsecure(const std::string& command, int& status);
void executeNonblock(const std::string& command, const std::vector<std::string>& args,
                     std::function<void(const std::string&)> onOutput,
                     std::function<void(int)> onExit);

} // namespace bench::floor

#endif
