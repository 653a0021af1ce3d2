#ifndef TAVO_RMI_RUNTIME_OPTIONS_H
#define TAVO_RMI_RUNTIME_OPTIONS_H

namespace org::opensplice::DDS_RMI {

/// Returns whether the options known here have valid values. Prints one line on standard error for
/// the first that has not. argv[0] is a program name.
bool checkOptions(int argc, const char* const argv[]);

} // namespace org::opensplice::DDS_RMI

#endif
