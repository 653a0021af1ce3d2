#ifndef TAVO_TESTS_FAILING_MEMORY_H
#define TAVO_TESTS_FAILING_MEMORY_H

#include <functional>
#include <map>
#include <set>
#include <string>

/// Memory that runs out. A test program that uses this file replaces the C library's `malloc` and
/// related functions, also for the library under test and its dependencies.
namespace fault {

/// A text that is too long to be stored without an allocation.
extern const std::string kLong;

/// What a trial may return that writes a file and reads it. libc++ opens files by fopen(), which can
/// run out of memory after it has emptied the file; the stream then fails without an exception.
extern const std::set<std::string> kNotOpened;

/// A trial's control of the memory.
class Memory {
public:
    /// From here on, the allocation with the trial's number fails.
    void fail();
    /// Ends fail(): every later allocation succeeds.
    void recover();
    /// Counts the allocations of all threads, not only those of the thread that calls fail().
    void ofAllThreads();
    /// Counts only allocations by `new`: those of C++ code, not those of libraries written in C.
    void ofNewOnly();
    /// Ends a trial that still runs after this time, with the outcome "hangs". Shorter than the
    /// default deadline.
    void giveUpAfter(int milliseconds);
    /// Returns the standard output since the trial began.
    std::string printed() const;
};

/// Uses a class while memory fails and returns the outcome as a text. Runs in a new process each
/// time.
using Trial = std::function<std::string(Memory&)>;

/// How often each outcome occurred. Besides the texts that the trial returns, the outcomes are:
/// - "std::bad_alloc", and the texts of other exceptions
/// - "terminate" for an exception that nothing caught, and "exit"
/// - "signal 11 in libx", with the library that ran, other than the C and C++ libraries
/// - "hangs", and "a forked copy ran on"
///
/// What was not released follows: " (memory kept)", " (1 descriptors kept)".
using Outcomes = std::map<std::string, int>;

/// Whether a trial first runs once with all memory in the same process. What the libraries allocate
/// on first use then exists already and does not count as kept.
enum class First { rehearsed, asItComes };

/// Runs `trial` in new processes. The first allocation fails, then the second, and so on until none
/// fails. One series fails only that allocation, another one also all that follow. With all memory,
/// the trial must return `whole`. With less, the outcome must be `whole`, one of `others`, or
/// "std::bad_alloc". Prints one line for the table of all faults.
void exhaust(const std::string& what, const std::string& whole, const std::set<std::string>& others,
             const Trial& trial, First first = First::rehearsed);

} // namespace fault

#endif
