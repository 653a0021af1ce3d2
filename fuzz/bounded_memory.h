#ifndef TAVO_FUZZ_BOUNDED_MEMORY_H
#define TAVO_FUZZ_BOUNDED_MEMORY_H

namespace fuzzing {

/// While it lives, the machine is one on which 1 MiB is too much to ask for: `operator new` throws.
///
/// A length prefix announces up to 4 GiB, and a server that is handed one allocates all of it
/// before it looks at the payload: a fuzzer would do little else than fill memory with zeros.
/// Refused, such a message takes the way that it takes on a board without that much memory.
/// Neither a limit on the process's address space nor libFuzzer's own on allocations would do: the
/// sanitizer's shadow exceeds the first, and the second ends the run.
class BoundedMemory {
public:
    BoundedMemory();
    ~BoundedMemory();
    BoundedMemory(const BoundedMemory&) = delete;
    BoundedMemory& operator=(const BoundedMemory&) = delete;
};

} // namespace fuzzing

#endif
