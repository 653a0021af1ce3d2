#include "kvr/api/NQ_AutoMount.h"

#include "detail/console.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <utility>

#include <sys/inotify.h>
#include <sys/stat.h>

namespace {

bool isDirectory(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool runs(const std::string& command) {
    kvr::api::detail::out() << "Running: " << command << std::endl;
    return std::system(command.c_str()) == 0;
}

} // namespace

void handleDevEvent(const Watcher&, const std::string& name, unsigned int mask, void* context) {
    // Deliberate: the spelling "HAPPNED" is part of the printed text.
    kvr::api::detail::out() << "SOMETHING HAPPNED: " << name << std::endl;
    kvr::api::detail::printLine({"WHAT: ", kvr::api::detail::Decimal(mask)});
    auto* autoMount = static_cast<kvr::api::AutoMount*>(context);
    if (name != autoMount->device)
        return;
    if ((mask & IN_CREATE) != 0)
        autoMount->onDeviceInserted();
    else if ((mask & IN_DELETE) != 0)
        autoMount->onDeviceEjected();
}

namespace kvr::api {

AutoMount::AutoMount(const std::string& deviceName, const std::string& directory,
                     std::function<void()> inserted, std::function<void()> ejected)
    : device(deviceName), mountPoint(directory), mounted(false), onInserted(std::move(inserted)),
      onEjected(std::move(ejected)) {
    detail::out() << "AutoMount(PARS)" << std::endl;
    if (!isDirectory(mountPoint)) {
        detail::out() << "Directory " << mountPoint << " does not exist, creating it..."
                      << std::endl;
        if (mkdir(mountPoint.c_str(), 0775) == -1)
            throw std::runtime_error("Error creating directory '" + mountPoint + "'");
    }
    runner.watcher().attachWatcher(Watcher("/dev", IN_CREATE | IN_DELETE, handleDevEvent, this));
    // Both may throw, which would end the process while the thread runs.
    const std::string path = "/dev/" + device;
    std::ifstream node;
    runner.startWatcher();
    // Deliberate: this check follows the start of the watcher, so that no device is missed. When
    // both see the device, the second mount fails and does no harm.
    node.open(path);
    const bool canBeRead = node.good();
    node.close(); // the mount command must not inherit the descriptor
    if (canBeRead)
        onDeviceInserted();
}

AutoMount::AutoMount(const std::string& deviceName, const std::string& directory)
    : AutoMount(
          deviceName, directory, [] {}, [] {}) {
    detail::out() << "AutoMount()" << std::endl;
}

AutoMount::~AutoMount() {
    detail::out() << "~AutoMount()" << std::endl;
    runner.stopWatcher();
    if (mounted)
        onDeviceEjected();
}

void AutoMount::onDeviceInserted() {
    if (!runs("mount /dev/" + device + " " + mountPoint))
        return;
    mounted = true;
    onInserted();
}

void AutoMount::onDeviceEjected() {
    if (!runs("umount " + mountPoint))
        return;
    mounted = false;
    onEjected();
}

} // namespace kvr::api
