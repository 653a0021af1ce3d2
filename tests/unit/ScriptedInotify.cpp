#include "ScriptedInotify.h"

#include "CLibrary.h"
#include "Interposed.h"

#include <atomic>

#include <sys/inotify.h>
#include <unistd.h>

using support::interposedClose;
using support::interposedPoll;
using support::next;

namespace {

std::atomic<const InotifyCalls*> scripted{nullptr};

/// Returns the answer to one call, or null when the kernel must answer.
template <class Answer>
const Answer* answerTo(Answer InotifyCalls::*call) {
    const InotifyCalls* const calls = scripted;
    return calls != nullptr && calls->*call ? &(calls->*call) : nullptr;
}

// They look up the script at each use, because a test may set an answer later.
const support::Interposed<int(pollfd*, nfds_t, int)>::Answer pollAnswer =
    [](pollfd* polled, nfds_t count, int timeout) {
        const auto* const answer = answerTo(&InotifyCalls::poll);
        return answer != nullptr ? (*answer)(polled, count, timeout)
                                 : interposedPoll.real(polled, count, timeout);
    };
const support::Interposed<int(int)>::Answer closeAnswer = [](int descriptor) {
    const auto* const answer = answerTo(&InotifyCalls::close);
    return answer != nullptr ? (*answer)(descriptor) : interposedClose.real(descriptor);
};

} // namespace

ScriptedInotify::ScriptedInotify(const InotifyCalls& calls) {
    scripted = &calls;
    interposedPoll.answerBy(&pollAnswer);
    interposedClose.answerBy(&closeAnswer);
}

ScriptedInotify::~ScriptedInotify() {
    interposedClose.answerBy(nullptr);
    interposedPoll.answerBy(nullptr);
    scripted = nullptr;
}

int kernelAddWatch(int descriptor, const std::string& path, std::uint32_t mask) {
    return next<decltype(inotify_add_watch)>("inotify_add_watch")(descriptor, path.c_str(), mask);
}

int kernelPoll(pollfd* polled, nfds_t count, int timeout) {
    return interposedPoll.real(polled, count, timeout);
}

int kernelClose(int descriptor) { return interposedClose.real(descriptor); }

extern "C" {

int inotify_init() C_LIBRARY_NOEXCEPT {
    if (const auto* answer = answerTo(&InotifyCalls::init))
        return (*answer)();
    return next<decltype(inotify_init)>("inotify_init")();
}

int inotify_add_watch(int descriptor, const char* path, std::uint32_t mask) C_LIBRARY_NOEXCEPT {
    if (const auto* answer = answerTo(&InotifyCalls::addWatch))
        return (*answer)(descriptor, path, mask);
    return kernelAddWatch(descriptor, path, mask);
}

int inotify_rm_watch(int descriptor, int watch) C_LIBRARY_NOEXCEPT {
    if (const auto* answer = answerTo(&InotifyCalls::removeWatch))
        return (*answer)(descriptor, watch);
    return next<decltype(inotify_rm_watch)>("inotify_rm_watch")(descriptor, watch);
}

ssize_t read(int descriptor, void* buffer, std::size_t size) {
    if (const auto* answer = answerTo(&InotifyCalls::read))
        return (*answer)(descriptor, buffer, size);
    return next<decltype(read)>("read")(descriptor, buffer, size);
}
}
