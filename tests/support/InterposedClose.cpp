#include "Interposed.h"

#include <unistd.h>

namespace support {
Interposed<int(int)> interposedClose("close");
}

extern "C" int close(int descriptor) { return support::interposedClose(descriptor); }
