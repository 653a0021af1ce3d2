#ifndef TAVO_RMI_RUNTIME_OPTIONS_H
#define TAVO_RMI_RUNTIME_OPTIONS_H

namespace org::opensplice::DDS_RMI {

/// Whether the options that mean something here have values that mean something. The first that has
/// not is reported on standard error, in one line. argv[0] is a program name.
bool checkOptions(int argc, const char* const argv[]);

} // namespace org::opensplice::DDS_RMI

#endif
