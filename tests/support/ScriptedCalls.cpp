#include "ScriptedCalls.h"

#include "Interposed.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <utility>

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support {
namespace {

constexpr int kCalls = static_cast<int>(Call::waitpid) + 1;

std::mutex guard;
ScriptedCall* scripted[kCalls]; // guarded by the mutex

ScriptedCall*& slotOf(Call call) { return scripted[static_cast<int>(call)]; }

} // namespace

ScriptedCall::ScriptedCall(Call call, Script script) : call_(call), script_(std::move(script)) {
    const std::lock_guard<std::mutex> lock(guard);
    if (slotOf(call_) != nullptr)
        throw std::logic_error("the call has a script already");
    slotOf(call_) = this;
}

ScriptedCall::ScriptedCall(Call call, int error)
    : ScriptedCall(call, [error](int) { return error; }) {}

ScriptedCall::~ScriptedCall() {
    const std::lock_guard<std::mutex> lock(guard);
    slotOf(call_) = nullptr;
}

bool ScriptedCall::fails(Call call) {
    Script script;
    int number = 0;
    {
        // The script runs without the lock, because it may make scripted calls itself.
        const std::lock_guard<std::mutex> lock(guard);
        ScriptedCall* const current = slotOf(call);
        if (current == nullptr)
            return false;
        script = current->script_;
        number = ++current->count_;
    }
    const int error = script(number);
    if (error == kPassOn)
        return false;
    errno = error;
    return true;
}

} // namespace support

using support::Call;
using support::next;
using support::ScriptedCall;

// These replace the C library's functions, also for the library under test. Calls inside the C
// library (such as the fork in popen) do not arrive here.
extern "C" {

int accept(int descriptor, sockaddr* peer, socklen_t* length) {
    if (ScriptedCall::fails(Call::accept))
        return -1;
    return next<decltype(accept)>("accept")(descriptor, peer, length);
}

int bind(int descriptor, const sockaddr* address, socklen_t length) {
    if (ScriptedCall::fails(Call::bind))
        return -1;
    return next<decltype(bind)>("bind")(descriptor, address, length);
}

FILE* fdopen(int descriptor, const char* type) {
    // Never fails an opening for update: the coverage runtime updates its files before an exec.
    if (std::strchr(type, '+') == nullptr && ScriptedCall::fails(Call::fdopen))
        return nullptr;
    return next<decltype(fdopen)>("fdopen")(descriptor, type);
}

pid_t fork() {
    if (ScriptedCall::fails(Call::fork))
        return -1;
    return next<decltype(fork)>("fork")();
}

int listen(int descriptor, int backlog) {
    if (ScriptedCall::fails(Call::listen))
        return -1;
    return next<decltype(listen)>("listen")(descriptor, backlog);
}

int pipe(int* ends) {
    if (ScriptedCall::fails(Call::pipe))
        return -1;
    return next<decltype(pipe)>("pipe")(ends);
}

FILE* popen(const char* command, const char* type) {
    if (ScriptedCall::fails(Call::popen))
        return nullptr;
    return next<decltype(popen)>("popen")(command, type);
}

ssize_t recv(int descriptor, void* buffer, size_t size, int flags) {
    if (ScriptedCall::fails(Call::recv))
        return -1;
    return next<decltype(recv)>("recv")(descriptor, buffer, size, flags);
}

int socket(int family, int type, int protocol) {
    if (ScriptedCall::fails(Call::socket))
        return -1;
    return next<decltype(socket)>("socket")(family, type, protocol);
}

pid_t waitpid(pid_t pid, int* status, int options) {
    if (ScriptedCall::fails(Call::waitpid))
        return -1;
    return next<decltype(waitpid)>("waitpid")(pid, status, options);
}
}
