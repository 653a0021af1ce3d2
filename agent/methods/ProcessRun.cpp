#include "methods/ProcessRun.h"

#include <kvr/api/file/NQ_Files.h>

#include "rpc/Rpc.h"
#include "rpc/Text.h"

#include <condition_variable>
#include <csignal>

#include <sys/wait.h>

namespace agent {
namespace {

/// The most output that an answer carries. A program that prints more keeps running, and the rest
/// is dropped.
constexpr std::size_t kMaxOutput = 256 * 1024;

Json numberOrNull(bool known, int number) { return known ? newInt(number) : nullptr; }

} // namespace

/// One running program. Shared with the library's thread, which may outlive the request.
struct ProcessRun::Execution {
    std::mutex mutex;
    std::condition_variable ended;
    int pid = 0; ///< 0 while no program runs
    bool finished = false;
    bool abandoned = false;
    bool truncated = false;
    int status = -1; ///< raw wait status
    std::string output;
};

ProcessRun::ProcessRun(const std::vector<std::string>& allowed)
    : Method("process.run", "runs one of the allowed programs: command, arguments"),
      allowed_(allowed.begin(), allowed.end()) {}

void ProcessRun::setCurrent(const std::shared_ptr<Execution>& execution) {
    const std::lock_guard<std::mutex> lock(mutex_);
    current_ = execution;
}

void ProcessRun::signalProgram(int signal) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (current_ == nullptr)
        return;
    const std::lock_guard<std::mutex> executionLock(current_->mutex);
    if (current_->pid > 0)
        kill(current_->pid, signal);
}

void ProcessRun::abandon() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (current_ == nullptr)
        return;
    const std::lock_guard<std::mutex> executionLock(current_->mutex);
    abandoned_ = current_->abandoned = true;
    current_->ended.notify_all();
}

bool ProcessRun::hasAbandoned() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return abandoned_;
}

Json ProcessRun::run(const Params& params) {
    params.allowOnly({"command", "arguments"});
    const std::string command = params.text("command");
    const std::vector<std::string> arguments = params.textsOrNone("arguments");
    if (allowed_.count(command) == 0)
        refuseParam("program \"" + safeLine(command, 60) + "\" is not allowed");

    // The blocking execute() is not used: it reports no process id, and a program that never ends
    // would keep the agent from ending.
    const auto execution = std::make_shared<Execution>();
    setCurrent(execution);
    kvr::api::file::NQ_Popen::executeNonblock(
        command, arguments,
        [execution](const std::string& piece) {
            const std::lock_guard<std::mutex> lock(execution->mutex);
            const std::size_t room = kMaxOutput - execution->output.size();
            execution->output.append(piece, 0, room);
            execution->truncated |= piece.size() > room;
        },
        [execution](int status) {
            const std::lock_guard<std::mutex> lock(execution->mutex);
            execution->pid = 0;
            execution->status = status;
            execution->finished = true;
            execution->ended.notify_all();
        },
        [execution](int pid) {
            const std::lock_guard<std::mutex> lock(execution->mutex);
            execution->pid = pid;
        });

    std::unique_lock<std::mutex> lock(execution->mutex);
    execution->ended.wait(lock, [&] { return execution->finished || execution->abandoned; });
    const bool finished = execution->finished;
    const int status = execution->status;
    const bool exited = status != -1 && WIFEXITED(status);
    const bool killed = status != -1 && WIFSIGNALED(status);
    Json result = newObject();
    put(result, "output", newText(execution->output));
    put(result, "truncated", newBool(execution->truncated));
    put(result, "raw_status", newInt(status));
    put(result, "exit_code", numberOrNull(exited, exited ? WEXITSTATUS(status) : 0));
    put(result, "signal", numberOrNull(killed, killed ? WTERMSIG(status) : 0));
    lock.unlock();
    setCurrent(nullptr);
    if (!finished)
        throw RpcError(ErrorCode::Failed,
                       "the agent ended before the program's output was complete");
    return result;
}

} // namespace agent
