// The version is available as numbers for the preprocessor and as a text for the program.
#include <kvr/api/version.h>

#if TAVO_VERSION_MAJOR < 1 || TAVO_VERSION_MINOR < 0 || TAVO_VERSION_PATCH < 0
#error "no version"
#endif

const char* version() { return "built with libtavo " TAVO_VERSION; }
