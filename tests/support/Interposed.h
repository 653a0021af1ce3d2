#ifndef TAVO_TESTS_INTERPOSED_H
#define TAVO_TESTS_INTERPOSED_H

#include <atomic>
#include <functional>

#include <dlfcn.h>
#include <poll.h>
#include <time.h>

namespace support {

/// The definition behind the one in a test program: a sanitizer's, or the library's that has it.
template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// A call that the test program supplies itself, in front of the C library's, so that the library
/// under test reaches it, too. Without an answer of the test's the call behind it is made.
template <class Signature>
class Interposed;

template <class Result, class... Arguments>
class Interposed<Result(Arguments...)> {
public:
    using Answer = std::function<Result(Arguments...)>;

    constexpr explicit Interposed(const char* name) : name_(name) {}

    /// Gives every use from now on to `answer`, which must stay until another one, or null, is set.
    /// It runs on the thread that makes the call, without a lock.
    void answerBy(const Answer* answer) { answer_ = answer; }

    /// One use.
    Result operator()(Arguments... arguments) const {
        const Answer* const answer = answer_;
        return answer != nullptr ? (*answer)(arguments...) : real(arguments...);
    }

    /// The call behind this one.
    Result real(Arguments... arguments) const {
        return next<Result(Arguments...)>(name_)(arguments...);
    }

private:
    const char* name_;
    std::atomic<const Answer*> answer_{nullptr};
};

// A program that names one of these supplies the call.
extern Interposed<int(int)> interposedClose;
extern Interposed<int(const timespec*, timespec*)> interposedNanosleep;
extern Interposed<int(pollfd*, nfds_t, int)> interposedPoll;

} // namespace support

#endif
