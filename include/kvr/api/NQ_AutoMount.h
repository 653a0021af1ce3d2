#ifndef KVR_API_NQ_AUTOMOUNT_H
#define KVR_API_NQ_AUTOMOUNT_H

#include <kvr/api/AsyncWatcherRunner.h>
#include <kvr/api/FileSystemWatcher.h>
#include <kvr/api/export.h>

#include <functional>
#include <string>

/// The callback that an AutoMount (`context`) registers for /dev: prints every event, and mounts or
/// unmounts when `name` is its device.
TAVO_API void handleDevEvent(const Watcher& watcher, const std::string& name, unsigned int mask,
                             void* context);

namespace kvr {
namespace api {

/// Mounts one removable block device whenever its node appears under /dev, and unmounts it when the
/// node goes.
///
/// Output:  every step is printed on standard output.
/// Failure: a mount or unmount command that fails leaves no trace but its own output. Statuses are
///          those of system(3): where SIGCHLD is ignored, nothing ever counts as mounted.
/// Threads: the node's events are handled on a thread of the object's own, and both callbacks run
///          there, except those of the constructor's own mount and of the destructor's unmount. A
///          callback must not destroy the object.
/// Traps:   names are put into shell command lines without quoting: give no text from outside. An
///          exception out of a callback ends the process, also during construction. An object
///          destroyed right after its construction may hang, as the stop of its thread can be lost
///          (see AsyncWatcherRunner::stopWatcher()).
class TAVO_API AutoMount {
public:
    /// Makes the directory `mountPoint` when missing (mode 0775 as reduced by the umask, one
    /// level), starts watching, and mounts the device at once when it is present. `device` is a
    /// bare name such as sda1: one with /dev/ in front never matches. `onInserted` is called after
    /// every successful mount, `onEjected` after every successful unmount; neither may be empty.
    /// Throws std::runtime_error "Error creating directory 'DIRECTORY'".
    AutoMount(const std::string& device, const std::string& mountPoint,
              std::function<void()> onInserted, std::function<void()> onEjected);

    /// The same with callbacks that do nothing.
    AutoMount(const std::string& device, const std::string& mountPoint);

    /// Stops watching, then unmounts the device when it is mounted.
    virtual ~AutoMount();

    AutoMount(const AutoMount&) = delete;
    AutoMount& operator=(const AutoMount&) = delete;

    /// Runs the mount command, whether or not the device is mounted; calls `onInserted` when it
    /// succeeds.
    void onDeviceInserted();

    /// Runs the unmount command, whether or not the device is mounted; calls `onEjected` when it
    /// succeeds.
    void onDeviceEjected();

private:
    friend TAVO_API void ::handleDevEvent(const Watcher& watcher, const std::string& name,
                                          unsigned int mask, void* context);

    // The order is part of the binary interface.
    std::string device;
    std::string mountPoint;
    AsyncWatcherRunner runner;
    bool mounted; // plain by design, shared with the runner's thread
    std::function<void()> onInserted;
    std::function<void()> onEjected;
};

} // namespace api
} // namespace kvr

#endif
