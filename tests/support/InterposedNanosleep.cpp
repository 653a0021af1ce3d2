#include "Interposed.h"

namespace support {
Interposed<int(const timespec*, timespec*)> interposedNanosleep("nanosleep");
}

extern "C" int nanosleep(const timespec* pause, timespec* remainder) {
    return support::interposedNanosleep(pause, remainder);
}
