#include "Interposed.h"

namespace support {
Interposed<int(pollfd*, nfds_t, int)> interposedPoll("poll");
}

extern "C" int poll(pollfd* entries, nfds_t count, int milliseconds) {
    return support::interposedPoll(entries, count, milliseconds);
}
