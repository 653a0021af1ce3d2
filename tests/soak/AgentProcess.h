#ifndef TAVO_TESTS_AGENT_PROCESS_H
#define TAVO_TESTS_AGENT_PROCESS_H

#include <string>

#include <sys/types.h>

namespace soak {

/// What a process uses at one moment.
struct Usage {
    long residentKiB = 0;
    int descriptors = 0;
    int threads = 0;
};

/// The process of `program` that has `argument` in its command line; 0 when there is none.
pid_t find(const std::string& program, const std::string& argument);

Usage usageOf(pid_t process);

/// Children that have ended and that nobody has waited for.
int zombiesOf(pid_t process);

} // namespace soak

#endif
