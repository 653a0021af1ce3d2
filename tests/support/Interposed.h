#ifndef TAVO_TESTS_INTERPOSED_H
#define TAVO_TESTS_INTERPOSED_H

#include <atomic>
#include <functional>

#include <dlfcn.h>
#include <poll.h>
#include <time.h>

namespace support {

/// Finds the next definition after the test program's: a sanitizer's, or the one in the C library.
template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// A function of the C library that the test program replaces, also for the library under test. It
/// calls the original unless the test supplies an answer.
template <class Signature>
class Interposed;

template <class Result, class... Arguments>
class Interposed<Result(Arguments...)> {
public:
    using Answer = std::function<Result(Arguments...)>;

    constexpr explicit Interposed(const char* name) : name_(name) {}

    /// Passes every later call to `answer`, until the next answerBy(); null restores the original.
    /// `answer` must exist until then. It runs on the calling thread, without a lock.
    void answerBy(const Answer* answer) { answer_ = answer; }

    /// Passes a call to the answer, or to the original.
    Result operator()(Arguments... arguments) const {
        const Answer* const answer = answer_;
        return answer != nullptr ? (*answer)(arguments...) : real(arguments...);
    }

    /// Calls the original.
    Result real(Arguments... arguments) const {
        return next<Result(Arguments...)>(name_)(arguments...);
    }

private:
    const char* name_;
    std::atomic<const Answer*> answer_{nullptr};
};

// A test program that refers to one of these replaces that function.
extern Interposed<int(int)> interposedClose;
extern Interposed<int(const timespec*, timespec*)> interposedNanosleep;
extern Interposed<int(pollfd*, nfds_t, int)> interposedPoll;

} // namespace support

#endif
