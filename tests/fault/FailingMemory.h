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

/// The additional outcome of a trial that returns the content of a file it has written. libc++ opens
/// files with fopen(), which can run out of memory after it has emptied the file. The stream then
/// fails without an exception. Not possible with other C++ libraries, so the set is empty there.
extern const std::set<std::string> kEmptyFile;

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
    /// Ends a trial that still runs after this time, with the outcome "hangs". The time must be
    /// shorter than the default deadline of 20 seconds.
    void setDeadline(int milliseconds);
    /// Returns the standard output since the trial began.
    std::string printed() const;
};

/// Uses a class while memory fails and returns the outcome as a text. Runs in a new process each
/// time.
using Trial = std::function<std::string(Memory&)>;

/// How often each outcome occurred. "unaffected" is the outcome with all memory. Besides the texts
/// that the trial returns, the outcomes are:
/// - "std::bad_alloc", and the texts of other exceptions
/// - "terminate" for an exception that nothing caught, and "exit"
/// - "signal 11 in libx", with the library that ran, other than the C and C++ libraries
/// - "hangs", and "a forked child continued"
///
/// What was not released follows: " (memory kept)", " (1 descriptors kept)".
using Outcomes = std::map<std::string, int>;

/// Whether a trial first runs once with all memory in the same process. What the libraries allocate
/// on first use is then already allocated, and does not count as kept.
enum class WarmUp { yes, no };

/// The least number of allocations in a trial, so that an operation that is not reached shows. 0 is
/// for an operation that must not allocate.
struct AtLeast {
    long allocations;
};

/// Runs `trial` in new processes. The first allocation fails, then the second, and so on until none
/// fails. One series fails only that allocation, another one also all that follow. With all memory,
/// the trial must return `whole`. With less, the outcome must be `whole`, one of `others`, or
/// "std::bad_alloc". Prints one line for the table of all faults.
void exhaust(const std::string& what, AtLeast least, const std::string& whole,
             const std::set<std::string>& others, const Trial& trial, WarmUp warmUp = WarmUp::yes);

} // namespace fault

#endif
