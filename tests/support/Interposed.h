#ifndef TAVO_TESTS_INTERPOSED_H
#define TAVO_TESTS_INTERPOSED_H

#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

#include <dlfcn.h>
#include <poll.h>
#include <sys/types.h>
#include <time.h>

namespace support {

/// Finds the next definition after the test program's: a sanitizer's, or the one in the C library.
template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

template <class Signature>
class Stub;

/// A function of the C library that the test program replaces, also for the library under test. It
/// calls the original unless a Stub exists.
template <class Signature>
class Interposed;

template <class Result, class... Arguments>
class Interposed<Result(Arguments...)> {
public:
    using Answer = std::function<Result(Arguments...)>;

    constexpr explicit Interposed(const char* name) : name_(name) {}

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
    friend class Stub<Result(Arguments...)>;

    const char* name_;
    std::atomic<const Answer*> answer_{nullptr};
};

/// Answers all calls of one function while an object exists. The answer runs on the calling thread,
/// without a lock; it may call the original with real(). Only one stub per function at a time.
template <class Signature>
class Stub {
public:
    Stub(Interposed<Signature>& function, typename Interposed<Signature>::Answer answer)
        : function_(function), answer_(std::move(answer)) {
        function_.answer_ = &answer_;
    }
    ~Stub() { function_.answer_ = nullptr; }
    Stub(const Stub&) = delete;
    Stub& operator=(const Stub&) = delete;

private:
    Interposed<Signature>& function_;
    const typename Interposed<Signature>::Answer answer_;
};

// A test program that refers to one of these replaces that function.
extern Interposed<int(int)> interposedClose;
extern Interposed<int()> interposedInotifyInit;
extern Interposed<int(int, const char*, std::uint32_t)> interposedInotifyAddWatch;
extern Interposed<int(int, int)> interposedInotifyRmWatch;
extern Interposed<int(const timespec*, timespec*)> interposedNanosleep;
extern Interposed<int(pollfd*, nfds_t, int)> interposedPoll;
extern Interposed<int(pollfd*, nfds_t, const timespec*, const sigset_t*)> interposedPpoll;
extern Interposed<ssize_t(int, void*, std::size_t)> interposedRead;

} // namespace support

#endif
