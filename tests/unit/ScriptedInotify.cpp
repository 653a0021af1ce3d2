#include "ScriptedInotify.h"

#include "CLibrary.h"

#include <atomic>

#include <dlfcn.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

std::atomic<const InotifyCalls*> scripted{nullptr};

/// The definition behind the one in this file: a sanitizer's or the C library's.
template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// The answer to one call, or null when the kernel is to give it.
template <class Answer>
const Answer* answerTo(Answer InotifyCalls::*call) {
    const InotifyCalls* const calls = scripted;
    return calls != nullptr && calls->*call ? &(calls->*call) : nullptr;
}

} // namespace

ScriptedInotify::ScriptedInotify(const InotifyCalls& calls) { scripted = &calls; }

ScriptedInotify::~ScriptedInotify() { scripted = nullptr; }

int kernelAddWatch(int descriptor, const std::string& path, std::uint32_t mask) {
    return next<decltype(inotify_add_watch)>("inotify_add_watch")(descriptor, path.c_str(), mask);
}

int kernelPoll(pollfd* polled, nfds_t count, int timeout) {
    return next<decltype(poll)>("poll")(polled, count, timeout);
}

int kernelClose(int descriptor) { return next<decltype(close)>("close")(descriptor); }

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

int poll(pollfd* polled, nfds_t count, int timeout) {
    if (const auto* answer = answerTo(&InotifyCalls::poll))
        return (*answer)(polled, count, timeout);
    return kernelPoll(polled, count, timeout);
}

ssize_t read(int descriptor, void* buffer, std::size_t size) {
    if (const auto* answer = answerTo(&InotifyCalls::read))
        return (*answer)(descriptor, buffer, size);
    return next<decltype(read)>("read")(descriptor, buffer, size);
}

int close(int descriptor) {
    if (const auto* answer = answerTo(&InotifyCalls::close))
        return (*answer)(descriptor);
    return kernelClose(descriptor);
}
}
