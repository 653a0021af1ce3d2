// Linked into programs that use the system's Cyclone DDS, which is not instrumented. The thread
// sanitizer sees its accesses through the C library, but not the atomic operations that order them.
#ifdef __SANITIZE_THREAD__
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() { return "ignore_noninstrumented_modules=1"; }
#endif
