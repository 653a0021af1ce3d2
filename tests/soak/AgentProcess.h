#ifndef TAVO_TESTS_AGENT_PROCESS_H
#define TAVO_TESTS_AGENT_PROCESS_H

#include <string>

#include <sys/types.h>

namespace soak {

/// The resources that a process uses at one moment.
struct Usage {
    long residentKiB = 0;
    int descriptors = 0;
    int threads = 0;
};

/// Returns the process of `program` that has `argument` in its command line, or 0.
pid_t find(const std::string& program, const std::string& argument);

Usage usageOf(pid_t process);

/// Returns the number of ended children that have not been reaped.
int zombiesOf(pid_t process);

} // namespace soak

#endif
