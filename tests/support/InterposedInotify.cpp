#include "CLibrary.h"
#include "Interposed.h"

#include <sys/inotify.h>

namespace support {

Interposed<int()> interposedInotifyInit("inotify_init");
Interposed<int(int, const char*, std::uint32_t)> interposedInotifyAddWatch("inotify_add_watch");
Interposed<int(int, int)> interposedInotifyRmWatch("inotify_rm_watch");

} // namespace support

extern "C" {

int inotify_init() C_LIBRARY_NOEXCEPT { return support::interposedInotifyInit(); }

int inotify_add_watch(int descriptor, const char* path, std::uint32_t mask) C_LIBRARY_NOEXCEPT {
    return support::interposedInotifyAddWatch(descriptor, path, mask);
}

int inotify_rm_watch(int descriptor, int watch) C_LIBRARY_NOEXCEPT {
    return support::interposedInotifyRmWatch(descriptor, watch);
}
}
