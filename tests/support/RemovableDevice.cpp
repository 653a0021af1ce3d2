#include "RemovableDevice.h"

#include "RunProgram.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace support {

RemovableDevice::RemovableDevice() : name_("tavo" + std::to_string(getpid())) {
    const std::string image = directory_ / "image";
    std::filesystem::create_directory(directory_ / "content");
    writeFile(directory_ / "content/hello", "from the device\n");
    writeFile(image, "");
    std::filesystem::resize_file(image, 1024 * 1024);
    if (!run({"mke2fs", "-q", "-F", "-d", directory_ / "content", image}))
        return;
    if (!run({"losetup", "--find", "--show", image}))
        return;
    loop_ = output_.substr(0, output_.find('\n'));
    struct stat status = {};
    if (stat(loop_.c_str(), &status) != 0 || !S_ISBLK(status.st_mode)) {
        problem_ = "losetup names no device: " + output_;
        return;
    }
    number_ = status.st_rdev;
    // The kernel detaches the loop device when this descriptor closes, however the test ends.
    inUse_ = open(loop_.c_str(), O_RDONLY | O_CLOEXEC);
    if (inUse_ < 0 || !run({"losetup", "--detach", loop_}))
        return;
    plugIn();
    if (problem_.empty())
        unplug();
}

RemovableDevice::~RemovableDevice() {
    unplug();
    if (inUse_ >= 0)
        close(inUse_);
}

void RemovableDevice::plugIn() {
    if (mknod(node().c_str(), S_IFBLK | 0600, number_) != 0)
        problem_ = "mknod " + node() + ": " + std::strerror(errno);
}

void RemovableDevice::unplug() { (void)unlink(node().c_str()); }

bool RemovableDevice::run(const std::vector<std::string>& command) {
    const char* const path = std::getenv("PATH");
    const support::ProgramResult ran =
        runProgram(command, {std::string("PATH=") + (path ? path : "") + ":/usr/sbin:/sbin"});
    output_ = ran.out;
    if (ran.status != 0)
        problem_ = command[0] + ": " + ran.err;
    return ran.status == 0;
}

} // namespace support
