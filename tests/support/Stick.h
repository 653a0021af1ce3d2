#ifndef TAVO_TESTS_STICK_H
#define TAVO_TESTS_STICK_H

#include "TempDir.h"

#include <string>
#include <vector>

#include <sys/types.h>

namespace support {

/// A removable device: a loop device with a small file system, and a node for it under /dev that
/// comes and goes. The file system holds one file, "hello". Not plugged in at first. Needs root.
class Stick {
public:
    /// Sets problem() to what this machine refuses.
    Stick();
    ~Stick();
    Stick(const Stick&) = delete;
    Stick& operator=(const Stick&) = delete;

    /// Empty when all went well.
    const std::string& problem() const { return problem_; }
    /// Of the node, which nobody else has.
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
    std::string said_;
    std::string problem_;
};

} // namespace support

#endif
