#ifndef TAVO_TESTS_AGENT_IN_SANDBOX_H
#define TAVO_TESTS_AGENT_IN_SANDBOX_H

#include "RunProgram.h"
#include "TempDir.h"

#include <memory>
#include <string>
#include <vector>

/// A client of the agent's socket, closed at the end of its scope.
class Client {
public:
    explicit Client(const std::string& path);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Sends `payload` with its length in front, in one call. False when it was not taken whole.
    bool send(const std::string& payload);
    /// Sends bytes as they are.
    bool sendRaw(const std::string& bytes);
    /// The next message that the agent sends on this connection; empty when none comes or it is
    /// cut.
    std::string receive();

private:
    int descriptor_;
};

/// The agent, as a process of its own in a gateway of its own, serving the name "agent".
class AgentInSandbox {
public:
    /// Starts the agent and waits until it takes requests. `arguments` go before the name.
    explicit AgentInSandbox(const std::vector<std::string>& arguments = {});
    /// The same, through the shell command line `wrapper`, which ends in the agent's ("$@").
    AgentInSandbox(const std::string& wrapper, const std::vector<std::string>& arguments);

    /// Path of the gateway's file `path` as seen from here.
    std::string file(const std::string& path) const { return root_ / "gateway" + path; }
    std::string read(const std::string& path) const { return support::readFile(file(path)); }
    std::string socketPath() const { return file("/tmp/socketDDS/agent"); }

    /// Sends one message and gives the response line to it, without its newline.
    std::string call(const std::string& message);
    /// The same for a message that gets no response: sends it, and returns whether none came before
    /// the one to a following message.
    bool isUnanswered(const std::string& message);

    /// All response lines so far.
    std::vector<std::string> responses() const;
    /// Waits until there are `count` response lines.
    bool waitForResponses(std::size_t count) const;
    /// Diagnostics of the library and the commands.
    std::string errors() const { return program_->errSoFar(); }
    /// The command lines that the library has run.
    std::vector<std::string> commands() const;
    bool waitForErrors(const std::string& expected) const;
    /// Waits until the agent waits for a client, `times` times since its start.
    bool waitUntilIdle(std::size_t times) const;
    /// Lines of the gateway's log.
    std::string log() const { return read("/tmp/log.out"); }

    /// Sends a signal, waits for the end and gives its exit status and outputs.
    support::Ran end(int signal);
    void signal(int signal);
    support::Ran wait() { return program_->wait(); }

private:
    support::TempDir root_;
    std::unique_ptr<support::RunningProgram> program_;
};

/// A program of this build run in a gateway of its own.
support::Ran runInSandbox(const std::vector<std::string>& arguments);

/// A request as JSON text.
std::string request(const std::string& method, const std::string& params, int id = 1);

/// A request of the method uci.apply.
std::string apply(const std::string& params);

/// Responses as JSON text.
std::string result(const std::string& value, int id = 1);
std::string error(const std::string& id, int code, const std::string& message,
                  const std::string& data);
std::string invalidParams(const std::string& data);
std::string failed(const std::string& data);

#endif
