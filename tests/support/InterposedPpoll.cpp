#include "Interposed.h"

namespace support {

Interposed<int(pollfd*, nfds_t, const timespec*, const sigset_t*)> interposedPpoll("ppoll");

} // namespace support

extern "C" int ppoll(pollfd* entries, nfds_t count, const timespec* limit, const sigset_t* mask) {
    return support::interposedPpoll(entries, count, limit, mask);
}
