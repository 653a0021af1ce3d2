#include "CapturedCommands.h"

#include "Interposed.h"

#include <cstdlib>
#include <mutex>
#include <utility>

namespace support {
namespace {

std::mutex guard;
bool capturing = false;
bool running = true;
int given = 0;
std::vector<std::string> captured;
std::function<void()> before;

/// Returns true when the command must run.
bool record(const char* command) {
    std::function<void()> action;
    {
        const std::lock_guard<std::mutex> lock(guard);
        if (!capturing)
            return true;
        captured.push_back(command);
        action = before;
    }
    if (action)
        action(); // without the lock, because it may read the lines
    return running;
}

} // namespace

CapturedCommands::CapturedCommands(Mode mode, int status) {
    const std::lock_guard<std::mutex> lock(guard);
    captured.clear();
    before = nullptr;
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

void CapturedCommands::beforeEach(std::function<void()> action) {
    const std::lock_guard<std::mutex> lock(guard);
    before = std::move(action);
}

} // namespace support

extern "C" int system(const char* command) {
    if (!support::record(command))
        return support::given;
    return support::next<decltype(system)>("system")(command);
}
