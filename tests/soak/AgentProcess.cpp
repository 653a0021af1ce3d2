#include "AgentProcess.h"

#include <cctype>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <system_error>

namespace soak {
namespace {

namespace fs = std::filesystem;

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

/// Calls `action` for each process until it returns false.
void forEachProcess(const std::function<bool(const std::string& number)>& action) {
    std::error_code gone;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc", gone)) {
        const std::string name = entry.path().filename().string();
        if (std::isdigit(static_cast<unsigned char>(name[0])) != 0 && !action(name))
            return;
    }
}

/// Returns the number after a key of /proc/PID/status.
long numberOf(const std::string& status, const std::string& key) {
    const std::size_t at = status.find("\n" + key + ":");
    return at == std::string::npos ? 0 : std::stol(status.substr(at + key.size() + 2));
}

} // namespace

pid_t find(const std::string& program, const std::string& argument) {
    pid_t found = 0;
    forEachProcess([&](const std::string& number) {
        std::error_code gone;
        const std::string runs = fs::read_symlink("/proc/" + number + "/exe", gone).string();
        if (fs::path(runs).filename() == fs::path(program).filename() &&
            contentOf("/proc/" + number + "/cmdline").find(argument) != std::string::npos)
            found = std::stoi(number);
        return found == 0;
    });
    return found;
}

Usage usageOf(pid_t process) {
    const std::string directory = "/proc/" + std::to_string(process);
    const std::string status = contentOf(directory + "/status");
    Usage usage;
    usage.residentKiB = numberOf(status, "VmRSS");
    usage.threads = static_cast<int>(numberOf(status, "Threads"));
    std::error_code gone;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory + "/fd", gone)) {
        (void)entry;
        ++usage.descriptors;
    }
    return usage;
}

int zombiesOf(pid_t process) {
    int count = 0;
    forEachProcess([&](const std::string& number) {
        const std::string status = contentOf("/proc/" + number + "/status");
        count +=
            numberOf(status, "PPid") == process && status.find("\nState:\tZ") != std::string::npos;
        return true;
    });
    return count;
}

} // namespace soak
