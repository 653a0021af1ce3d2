#ifndef TAVO_TESTS_FAILING_MEMORY_H
#define TAVO_TESTS_FAILING_MEMORY_H

#include <functional>
#include <map>
#include <set>
#include <string>

/// Memory that runs out: a test program that uses this file supplies `malloc` and its relatives
/// itself, in front of the C library's, for the library under test and for all that it calls.
namespace fault {

/// What a trial may do with the memory.
class Memory {
public:
    /// From here on, the allocation of the trial's number fails.
    void fail();
    /// Until here. All of what follows has memory again.
    void recover();
    /// Counts the allocations of all threads, and not only of the one that calls fail().
    void ofAllThreads();
    /// Has the outcome "hangs" when the trial has not ended by then: sooner than by itself.
    void giveUpAfter(int milliseconds);
    /// What was printed on standard output since the trial began.
    std::string printed() const;
};

/// Uses a class while memory fails, and says what came of it. Runs in a process of its own each
/// time.
using Trial = std::function<std::string(Memory&)>;

/// How often each outcome came. Besides what the trial returns there are "std::bad_alloc", other
/// exceptions by their text, "terminate" for one that nobody caught, "exit", "signal 11 in libx"
/// (the library that was running, the C and C++ libraries aside), "hangs", and "a forked copy ran
/// on". Behind it stands what was left over: " (memory kept)", " (1 descriptors kept)".
using Outcomes = std::map<std::string, int>;

/// Whether a trial runs once with all memory before, in the same process, so that what the
/// libraries make on first use is there and does not count as left over.
enum class First { rehearsed, asItComes };

/// Fails the first allocation of `trial`, in a run of its own, then the second and so on, until
/// none fails any more: once only that one, and once all that follow as well. With all memory, the
/// trial must give `whole`. With less, it must give that too, one of `others`, or "std::bad_alloc".
/// Prints one line for the table of all faults.
void exhaust(const std::string& what, const std::string& whole, const std::set<std::string>& others,
             const Trial& trial, First first = First::rehearsed);

} // namespace fault

#endif
