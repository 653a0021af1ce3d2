#ifndef TAVO_AGENT_PROCESS_RUN_H
#define TAVO_AGENT_PROCESS_RUN_H

#include "methods/Method.h"

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace agent {

/// process.run: runs a program, waits for its end, and answers with its output and status. It runs
/// only programs that the agent's command line allows, under exactly that name, without a shell.
class ProcessRun : public Method {
public:
    explicit ProcessRun(const std::vector<std::string>& allowed);

    /// Sends `signal` to the program that is running, if any. From any thread.
    void signalProgram(int signal);
    /// Ends a request that still waits. Its program keeps running. Any thread may call this.
    void abandon();
    /// Whether abandon() has ended a request.
    bool hasAbandoned() const;

private:
    struct Execution;

    Json run(const Params& params) override;
    void setCurrent(const std::shared_ptr<Execution>& execution);

    std::set<std::string> allowed_;
    mutable std::mutex mutex_;
    std::shared_ptr<Execution> current_; // guarded by mutex_
    bool abandoned_ = false;             // guarded by mutex_
};

} // namespace agent

#endif
