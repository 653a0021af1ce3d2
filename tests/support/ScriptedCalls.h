#ifndef TAVO_TESTS_SCRIPTED_CALLS_H
#define TAVO_TESTS_SCRIPTED_CALLS_H

#include <atomic>
#include <functional>

namespace support {

/// Functions of the C library that a test can script.
enum class Call { accept, bind, fdopen, fork, listen, pipe, popen, recv, socket, waitpid };

/// Decides about each call of one C library function while the object exists. A test program that
/// uses this class replaces all these functions; without a script each calls the original. Only one
/// script per function at a time.
class ScriptedCall {
public:
    /// Runs on the calling thread just before the call and receives the call's number (1, 2, ...).
    /// Returns kPassOn, or the error number with which the call must fail.
    using Script = std::function<int(int)>;
    static constexpr int kPassOn = 0;

    ScriptedCall(Call call, Script script);
    /// Fails each call with `error`.
    ScriptedCall(Call call, int error);
    ~ScriptedCall();
    ScriptedCall(const ScriptedCall&) = delete;
    ScriptedCall& operator=(const ScriptedCall&) = delete;

    /// Calls so far.
    int count() const { return count_; }

    /// For the replacement functions: runs the script of `call`, if there is one. Returns true,
    /// with errno set, when the call must fail.
    static bool fails(Call call);

private:
    Call call_;
    Script script_;
    std::atomic<int> count_{0};
};

} // namespace support

#endif
