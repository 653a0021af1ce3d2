#include "files.h"

#include <cstring>
#include <tuple>

#include <dirent.h>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

namespace bench::floor {

std::vector<std::string> list(const std::string& path) {
    std::vector<std::string> files;
    DIR* directory = opendir(path.c_str());
    if (directory == nullptr)
        return files;
    while (const dirent* entry = readdir(directory)) {
        const char* name = entry->d_name;
        if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
            continue;
        const std::size_t length = std::strlen(name);
        std::string& file = files.emplace_back();
        file.reserve(path.size() + 1 + length);
        file.append(path).append(1, '/').append(name, length);
    }
    closedir(directory);
    return files;
}

int copy(const char* source, const char* destination) {
    const int from = open(source, O_RDONLY);
    const int to = open(destination, O_WRONLY | O_CREAT, 0644);
    struct stat status = {};
    (void)fstat(from, &status);
    std::ignore = sendfile(to, from, nullptr, static_cast<std::size_t>(status.st_size));
    (void)close(from);
    return close(to);
}

} // namespace bench::floor
