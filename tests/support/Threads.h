#ifndef TAVO_TESTS_THREADS_H
#define TAVO_TESTS_THREADS_H

#include <cstddef>

namespace support {

/// How many the kernel lists. One that was joined may be listed for a while longer, under an
/// emulator most of all.
std::size_t threadsOfThisProcess();

/// How many there are once a thread has come and gone: the first of a process may bring one of a
/// sanitizer's with it.
std::size_t threadsAfterAFirst();

/// Waits until there are `count`; tells whether that came to be.
bool threadsFallBackTo(std::size_t count);

} // namespace support

#endif
