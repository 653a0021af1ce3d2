#include "Interposed.h"

#include <unistd.h>

namespace support {

Interposed<ssize_t(int, void*, std::size_t)> interposedRead("read");

} // namespace support

extern "C" ssize_t read(int descriptor, void* buffer, std::size_t size) {
    return support::interposedRead(descriptor, buffer, size);
}
