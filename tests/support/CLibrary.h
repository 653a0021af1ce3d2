#ifndef TAVO_TESTS_C_LIBRARY_H
#define TAVO_TESTS_C_LIBRARY_H

// How C libraries declare the functions that tests define in front of them.
#include <cstdlib> // defines __GLIBC__ where it is that library

/// On functions that glibc declares as not throwing. Others declare no such thing, and a definition must agree with its
/// declaration.
#ifdef __GLIBC__
#define C_LIBRARY_NOEXCEPT noexcept
#else
#define C_LIBRARY_NOEXCEPT
#endif

#endif
