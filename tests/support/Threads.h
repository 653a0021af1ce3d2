#ifndef TAVO_TESTS_THREADS_H
#define TAVO_TESTS_THREADS_H

#include <cstddef>

namespace support {

/// The number of threads that the kernel lists. A joined thread may stay listed for a while,
/// especially under an emulator.
std::size_t threadsOfThisProcess();

/// The number of threads after one has started and ended. The first thread of a process may start
/// another one of a sanitizer.
std::size_t threadsAfterAFirst();

/// Waits until there are `count` threads. Returns false when the deadline passes first.
bool threadsFallBackTo(std::size_t count);

} // namespace support

#endif
