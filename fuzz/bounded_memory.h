#ifndef TAVO_FUZZ_BOUNDED_MEMORY_H
#define TAVO_FUZZ_BOUNDED_MEMORY_H

namespace fuzzing {

/// While it exists, `operator new` throws for more than 1 MiB, as on a machine with little memory.
///
/// A length prefix announces up to 4 GiB, and the server allocates all of it before it reads the
/// payload. The fuzzer would spend its time on filling memory with zeros. When the allocation
/// fails, the message is handled as on a board without that much memory. Other limits do not help:
/// the sanitizer's shadow memory exceeds any limit of the address space, and libFuzzer's limit ends
/// the run.
class BoundedMemory {
public:
    BoundedMemory();
    ~BoundedMemory();
    BoundedMemory(const BoundedMemory&) = delete;
    BoundedMemory& operator=(const BoundedMemory&) = delete;
};

} // namespace fuzzing

#endif
