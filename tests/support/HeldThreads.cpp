#include "HeldThreads.h"

#include "CLibrary.h"
#include "Interposed.h"
#include "Waiting.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <memory>
#include <mutex>

#include <pthread.h>

namespace support {
namespace {

std::mutex guard;
std::condition_variable released;
bool held = false; // guarded by the mutex

std::atomic<bool> refusing{false};
std::atomic<int> creations{0};
std::atomic<int> joins{0};

struct Start {
    void* (*body)(void*);
    void* argument;
    bool waits; ///< decided at creation: hold() does not affect threads created earlier
};

void* beginWhenReleased(void* given) {
    const std::unique_ptr<Start> start(static_cast<Start*>(given));
    {
        std::unique_lock<std::mutex> lock(guard);
        released.wait(lock, [&] { return !held || !start->waits; });
    }
    return start->body(start->argument);
}

void setHeld(bool value) {
    const std::lock_guard<std::mutex> lock(guard);
    held = value;
    released.notify_all();
}

bool isHeld() {
    const std::lock_guard<std::mutex> lock(guard);
    return held;
}

} // namespace

HeldThreads::HeldThreads() {
    creations = 0;
    joins = 0;
}

HeldThreads::~HeldThreads() {
    refuse(false);
    release();
}

void HeldThreads::hold() { setHeld(true); }

void HeldThreads::release() { setHeld(false); }

void HeldThreads::refuse(bool refused) { refusing = refused; }

int HeldThreads::made() const { return creations; }

bool HeldThreads::joinsReach(int count) const {
    return eventually([&] { return joins >= count; });
}

} // namespace support

extern "C" {

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) C_LIBRARY_NOEXCEPT {
    using namespace support;
    if (refusing)
        return EAGAIN;
    auto start = std::make_unique<Start>(Start{body, argument, isHeld()});
    const int result = next<decltype(pthread_create)>("pthread_create")(
        thread, attributes, beginWhenReleased, start.get());
    if (result == 0) {
        (void)start.release();
        ++creations;
    }
    return result;
}

int pthread_join(pthread_t thread, void** result) {
    ++support::joins;
    return support::next<decltype(pthread_join)>("pthread_join")(thread, result);
}
}
