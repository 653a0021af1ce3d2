#ifndef TAVO_TESTS_HELD_THREADS_H
#define TAVO_TESTS_HELD_THREADS_H

namespace support {

/// Controls when new threads of the process start, and counts joins, while an object exists. A
/// program with this class replaces the C library's pthread_create() and pthread_join(). Only one
/// object at a time.
class HeldThreads {
public:
    HeldThreads();
    ~HeldThreads();
    HeldThreads(const HeldThreads&) = delete;
    HeldThreads& operator=(const HeldThreads&) = delete;

    /// Threads created from now on wait before they run their function.
    void hold();
    /// Lets the waiting threads run, and later ones start normally.
    void release();
    /// Makes pthread_create() fail with EAGAIN, or succeed again.
    void refuse(bool refused);

    /// Threads created so far, without the refused ones.
    int made() const;
    /// Waits until pthread_join() has been called `count` times. Returns false after half a minute.
    bool joinsReach(int count) const;
};

} // namespace support

#endif
