#include "Descriptors.h"

#include <cstdlib>
#include <stdexcept>

#include <dirent.h>

namespace support {

std::set<int> openDescriptors() {
    DIR* const directory = opendir("/proc/self/fd");
    if (directory == nullptr)
        throw std::runtime_error("cannot read /proc/self/fd");
    std::set<int> descriptors;
    while (const dirent* entry = readdir(directory)) {
        if (entry->d_name[0] != '.')
            descriptors.insert(std::atoi(entry->d_name));
    }
    descriptors.erase(dirfd(directory));
    closedir(directory);
    return descriptors;
}

std::set<int> openedSince(const std::set<int>& earlier) {
    std::set<int> opened;
    for (const int descriptor : openDescriptors()) {
        if (earlier.count(descriptor) == 0)
            opened.insert(descriptor);
    }
    return opened;
}

} // namespace support
