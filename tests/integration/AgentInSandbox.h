#ifndef TAVO_TESTS_AGENT_IN_SANDBOX_H
#define TAVO_TESTS_AGENT_IN_SANDBOX_H

#include "RunProgram.h"
#include "TempDir.h"

#include <memory>
#include <string>
#include <vector>

namespace support {

std::size_t occurrences(const std::string& text, const std::string& part);

/// A client of the agent's socket. The destructor closes the connection.
class Client {
public:
    explicit Client(const std::string& path);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Sends `payload` after its length, in one call. Returns false when not all bytes were
    /// accepted.
    bool send(const std::string& payload);
    /// Sends bytes without a length.
    bool sendRaw(const std::string& bytes);
    /// Returns the next message from the agent on this connection. Returns "" when none arrives or
    /// the message is incomplete.
    std::string receive();

private:
    int descriptor_;
};

/// The agent as a separate process in its own simulated gateway, with the name "agent".
class AgentInSandbox {
public:
    /// Starts the agent and waits until it accepts requests. `arguments` precede the name.
    explicit AgentInSandbox(const std::vector<std::string>& arguments = {});
    /// The same through the shell command line `wrapper`, which must end by executing "$@".
    AgentInSandbox(const std::string& wrapper, const std::vector<std::string>& arguments);

    /// Returns the path on this machine of the gateway's file `path`.
    std::string file(const std::string& path) const { return root_ / "gateway" + path; }
    std::string read(const std::string& path) const { return readFile(file(path)); }
    std::string socketPath() const { return file("/tmp/socketDDS/agent"); }

    /// Sends one message and returns its response line, without the newline.
    std::string call(const std::string& message);
    /// Sends a message that must get no response. Returns true when the first response belongs to a
    /// message sent after it.
    bool isUnanswered(const std::string& message);

    /// Returns all response lines so far.
    std::vector<std::string> responses() const;
    /// Waits until there are `count` response lines.
    bool waitForResponses(std::size_t count) const;
    /// Returns the diagnostics of the library and of its commands.
    std::string errors() const { return program_->errSoFar(); }
    /// Returns the command lines that the library has run.
    std::vector<std::string> commands() const;
    bool waitForErrors(const std::string& expected) const;
    /// Waits until the agent has started to wait for a client `times` times since its start.
    bool waitUntilIdle(std::size_t times) const;
    /// Returns the content of the gateway's log.
    std::string log() const { return read("/tmp/log.out"); }

    /// Sends a signal, waits for the end and returns exit status and outputs.
    ProgramResult end(int signal);
    void signal(int signal);
    ProgramResult wait() { return program_->wait(); }

private:
    TempDir root_;
    std::unique_ptr<RunningProgram> program_;
};

/// Runs a program of this build in its own simulated gateway.
ProgramResult runInSandbox(const std::vector<std::string>& arguments);

/// Returns a request as JSON text.
std::string request(const std::string& method, const std::string& params, int id = 1);

/// Returns a request for the method uci.apply.
std::string apply(const std::string& params);

/// These return responses as JSON text.
std::string result(const std::string& value, int id = 1);
std::string error(const std::string& id, int code, const std::string& message,
                  const std::string& data);
std::string invalidParams(const std::string& data);
std::string failed(const std::string& data);

} // namespace support

#endif
