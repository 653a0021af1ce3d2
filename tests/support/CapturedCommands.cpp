#include "CapturedCommands.h"

#include <cstdlib>
#include <mutex>

#include <dlfcn.h>

namespace support {
namespace {

std::mutex guard;
bool capturing = false;
bool running = true;
int given = 0;
std::vector<std::string> captured;

/// True when the command is to run.
bool record(const char* command) {
    const std::lock_guard<std::mutex> lock(guard);
    if (!capturing)
        return true;
    captured.push_back(command);
    return running;
}

} // namespace

CapturedCommands::CapturedCommands(Mode mode, int status) {
    const std::lock_guard<std::mutex> lock(guard);
    captured.clear();
    capturing = true;
    running = mode == runAll;
    given = status;
}

CapturedCommands::~CapturedCommands() {
    const std::lock_guard<std::mutex> lock(guard);
    capturing = false;
}

std::vector<std::string> CapturedCommands::lines() const {
    const std::lock_guard<std::mutex> lock(guard);
    return captured;
}

} // namespace support

extern "C" int system(const char* command) {
    if (!support::record(command))
        return support::given;
    return reinterpret_cast<decltype(system)*>(dlsym(RTLD_NEXT, "system"))(command);
}
