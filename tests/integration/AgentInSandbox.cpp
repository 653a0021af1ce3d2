#include "AgentInSandbox.h"

#include "Waiting.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <sstream>
#include <stdexcept>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace support {
namespace {

const std::string kBuild = std::string("TAVO_BUILD_DIR=") + TAVO_BUILD;
// Ample time, because the machine may be busy.
constexpr std::chrono::seconds kDeadline(30);
constexpr char kWaiting[] = "Waiting for a connection...\n";

std::vector<std::string> joined(std::vector<std::string> first,
                                const std::vector<std::string>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

} // namespace

std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

Client::Client(const std::string& path) : descriptor_(socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::copy(path.begin(), path.end(), address.sun_path);
    timeval limit = {};
    limit.tv_sec = 2; // the server does not close an abandoned connection
    setsockopt(descriptor_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    limit.tv_sec = kDeadline.count();
    setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    if (connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("cannot connect to " + path);
}

Client::~Client() { close(descriptor_); }

bool Client::send(const std::string& payload) {
    const auto length = static_cast<std::uint32_t>(payload.size());
    return sendRaw(std::string(reinterpret_cast<const char*>(&length), sizeof length) + payload);
}

bool Client::sendRaw(const std::string& bytes) {
    return ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

std::string Client::receive() {
    std::uint32_t length = 0;
    if (recv(descriptor_, &length, sizeof length, MSG_WAITALL) != sizeof length)
        return "";
    std::string message(length, '\0');
    const ssize_t received = recv(descriptor_, &message[0], length, MSG_WAITALL);
    return received == static_cast<ssize_t>(length) ? message : "";
}

AgentInSandbox::AgentInSandbox(const std::vector<std::string>& arguments)
    : AgentInSandbox("exec \"$@\"", arguments) {}

AgentInSandbox::AgentInSandbox(const std::string& wrapper,
                               const std::vector<std::string>& arguments) {
    // If the tests were started in the background, SIGINT may be ignored, and shells pass that on.
    const std::vector<std::string> command = {"env",
                                              "--default-signal=INT,QUIT",
                                              TAVO_SANDBOX_RUN,
                                              "--root",
                                              root_ / "gateway",
                                              "sh",
                                              "-c",
                                              wrapper,
                                              "sh",
                                              TAVO_AGENT};
    program_ = std::make_unique<RunningProgram>(joined(joined(command, arguments), {"agent"}),
                                                std::vector<std::string>{kBuild});
    if (!waitUntilIdle(1))
        throw std::runtime_error("the agent does not start: " + errors());
}

std::string AgentInSandbox::call(const std::string& message) {
    const std::size_t before = responses().size();
    if (!Client(socketPath()).send(message) || !waitForResponses(before + 1))
        return "no response; diagnostics: " + errors();
    return responses()[before];
}

bool AgentInSandbox::isUnanswered(const std::string& message) {
    const std::size_t before = responses().size();
    Client client(socketPath());
    return client.send(message) && client.send(request("none", "{}", 4711)) &&
           waitForResponses(before + 1) &&
           responses()[before].find("\"id\":4711,") != std::string::npos;
}

std::vector<std::string> AgentInSandbox::responses() const {
    std::vector<std::string> lines;
    std::istringstream out(program_->outSoFar());
    for (std::string line; std::getline(out, line) && !out.eof();) // complete lines only
        lines.push_back(line);
    return lines;
}

bool AgentInSandbox::waitForResponses(std::size_t count) const {
    return eventually([&] { return responses().size() >= count; }, kDeadline);
}

std::vector<std::string> AgentInSandbox::commands() const {
    const std::string before = "Calling: ";
    std::vector<std::string> lines;
    std::istringstream errors(program_->errSoFar());
    for (std::string line; std::getline(errors, line);)
        if (line.rfind(before, 0) == 0)
            lines.push_back(line.substr(before.size()));
    return lines;
}

bool AgentInSandbox::waitForErrors(const std::string& expected) const {
    return eventually([&] { return errors().find(expected) != std::string::npos; }, kDeadline);
}

bool AgentInSandbox::waitUntilIdle(std::size_t times) const {
    return eventually([&] { return occurrences(errors(), kWaiting) >= times; }, kDeadline);
}

void AgentInSandbox::signal(int signal) { kill(program_->pid(), signal); }

ProgramResult AgentInSandbox::end(int signalNumber) {
    signal(signalNumber);
    return wait();
}

ProgramResult runInSandbox(const std::vector<std::string>& arguments) {
    return runProgram(joined({TAVO_SANDBOX_RUN}, arguments), {kBuild});
}

std::string request(const std::string& method, const std::string& params, int id) {
    return "{\"jsonrpc\":\"2.0\",\"id\":" + std::to_string(id) + ",\"method\":\"" + method +
           "\",\"params\":" + params + "}";
}

std::string apply(const std::string& params) { return request("uci.apply", params); }

std::string result(const std::string& value, int id) {
    return "{\"jsonrpc\":\"2.0\",\"id\":" + std::to_string(id) + ",\"result\":" + value + "}";
}

std::string error(const std::string& id, int code, const std::string& message,
                  const std::string& data) {
    return "{\"jsonrpc\":\"2.0\",\"id\":" + id + ",\"error\":{\"code\":" + std::to_string(code) +
           ",\"message\":\"" + message + "\",\"data\":\"" + data + "\"}}";
}

std::string invalidParams(const std::string& data) {
    return error("1", -32602, "Invalid params", data);
}

std::string failed(const std::string& data) { return error("1", -32000, "Failed", data); }

} // namespace support
