#ifndef TAVO_FUZZ_FUZZING_H
#define TAVO_FUZZ_FUZZING_H

#include <cstdio>
#include <cstdlib>

namespace fuzzing {

/// Discards what the library prints. libFuzzer itself reports on standard error.
inline void silenceOutput() {
    if (std::freopen("/dev/null", "w", stdout) == nullptr)
        std::abort();
}

/// Ends the run as a finding when a promise of the library does not hold.
inline void require(bool holds, const char* promise) {
    if (!holds) {
        std::fprintf(stderr, "Contract violated: %s\n", promise);
        std::abort();
    }
}

} // namespace fuzzing

#endif
