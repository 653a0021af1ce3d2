#ifndef TAVO_TESTS_HELD_THREADS_H
#define TAVO_TESTS_HELD_THREADS_H

/// Decides, while it lives, when the threads that the process makes begin, and sees when one is
/// waited for. A program that has this class supplies pthread_create() and pthread_join() itself,
/// before the C library. One at a time.
class HeldThreads {
public:
    HeldThreads();
    ~HeldThreads();
    HeldThreads(const HeldThreads&) = delete;
    HeldThreads& operator=(const HeldThreads&) = delete;

    /// Threads made from now on wait before they run anything of their own.
    void hold();
    /// Lets them go, and those that follow.
    void release();
    /// Makes the next creations fail with EAGAIN, or succeed again.
    void refuse(bool refused);

    /// Threads made so far, refused ones not counted.
    int made() const;
    /// Waits until a join has been asked for `count` times; false after half a minute.
    bool joinsReach(int count) const;
};

#endif
