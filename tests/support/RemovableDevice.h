#ifndef TAVO_TESTS_REMOVABLE_DEVICE_H
#define TAVO_TESTS_REMOVABLE_DEVICE_H

#include "TempDir.h"

#include <string>
#include <vector>

#include <sys/types.h>

namespace support {

/// A removable device: a loop device with a small file system and its own node under /dev, which
/// plugging in creates and unplugging removes. The file system holds one file, "hello". Not plugged
/// in at first. Needs root.
class RemovableDevice {
public:
    /// On failure, problem() names what this machine does not permit.
    RemovableDevice();
    ~RemovableDevice();
    RemovableDevice(const RemovableDevice&) = delete;
    RemovableDevice& operator=(const RemovableDevice&) = delete;

    /// Empty on success.
    const std::string& problem() const { return problem_; }
    /// The name of the node, unique on this machine.
    const std::string& name() const { return name_; }
    std::string node() const { return "/dev/" + name_; }

    void plugIn();
    void unplug();

private:
    bool run(const std::vector<std::string>& command);

    TempDir directory_;
    std::string name_;
    std::string loop_;
    int inUse_ = -1;
    dev_t number_ = 0;
    std::string output_;
    std::string problem_;
};

} // namespace support

#endif
