#include "Threads.h"

#include "Waiting.h"

#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>

#include <sys/syscall.h>
#include <unistd.h>

namespace support {

std::size_t threadsOfThisProcess() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

std::size_t threadsAfterAFirst() {
    std::string listed;
    std::thread([&listed] {
        listed = "/proc/self/task/" + std::to_string(syscall(SYS_gettid));
    }).join();
    if (!eventually([&listed] { return !std::filesystem::exists(listed); }))
        throw std::runtime_error(listed + " stays");
    return threadsOfThisProcess();
}

bool threadsFallBackTo(std::size_t count) {
    return eventually([count] { return threadsOfThisProcess() == count; });
}

} // namespace support
