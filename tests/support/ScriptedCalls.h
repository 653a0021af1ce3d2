#ifndef TAVO_TESTS_SCRIPTED_CALLS_H
#define TAVO_TESTS_SCRIPTED_CALLS_H

#include <atomic>
#include <functional>

namespace support {

/// Calls of the C library that a test can script.
enum class Call { accept, bind, fdopen, fork, listen, pipe, popen, recv, socket, waitpid };

/// Decides, while it lives, about each use of one call: a test program that uses this class
/// supplies the calls itself, in front of the C library's. Without a script each reaches the C
/// library. One script per call at a time.
class ScriptedCall {
public:
    /// Runs on the thread that makes the call, just before it, and receives the number of the use
    /// (1, 2, ...). Returns kPassOn, or the error number with which the call fails instead.
    using Script = std::function<int(int)>;
    static constexpr int kPassOn = 0;

    ScriptedCall(Call call, Script script);
    /// Fails each use with `error`.
    ScriptedCall(Call call, int error);
    ~ScriptedCall();
    ScriptedCall(const ScriptedCall&) = delete;
    ScriptedCall& operator=(const ScriptedCall&) = delete;

    /// Uses so far.
    int count() const { return count_; }

    /// For the stand-ins: runs the script of `call`, if there is one. True, with errno set, when
    /// the call is to fail.
    static bool fails(Call call);

private:
    Call call_;
    Script script_;
    std::atomic<int> count_{0};
};

} // namespace support

#endif
