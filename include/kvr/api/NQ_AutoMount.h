#ifndef KVR_API_NQ_AUTOMOUNT_H
#define KVR_API_NQ_AUTOMOUNT_H

#include <kvr/api/AsyncWatcherRunner.h>
#include <kvr/api/FileSystemWatcher.h>
#include <kvr/api/export.h>

#include <functional>
#include <string>

/// The callback that an AutoMount registers for /dev, with itself as `context`. Prints every event,
/// and mounts or unmounts when `name` is its device. Applications do not call it.
TAVO_API void handleDevEvent(const Watcher& watcher, const std::string& name, unsigned int mask,
                             void* context);

namespace kvr {
namespace api {

/// Mounts one removable block device whenever its node appears under /dev, and unmounts it when the
/// node disappears.
///
/// Output:  every step is printed on standard output.
/// Failure: a mount or unmount command that fails is not reported except by its own output.
///          Statuses are those of system(3): where SIGCHLD is ignored, nothing ever counts as
///          mounted.
/// Threads: the node's events are handled on the object's own thread, and both callbacks run there.
///          The constructor's mount and the destructor's unmount call them on the thread that
///          constructs or destroys the object. A callback must not destroy the object.
///
/// Traps:
/// - The class puts names into shell command lines without quoting: never pass text from outside.
///   `mount` and `umount` are found along PATH: a user who controls that variable chooses them.
/// - An exception that leaves a callback ends the process, also during construction. It passes to
///   the caller only where the application itself calls onDeviceInserted() or onDeviceEjected().
/// - An object that is destroyed right after its construction may hang, as the stop of its thread
///   can be lost (see AsyncWatcherRunner::stopWatcher()). Let at least a second pass: the thread
///   needs about a millisecond to start, and longer on a busy board.
/// - A stick that is pulled while a file on it is open stays mounted. umount(8) reports that the
///   target is busy, `onEjected` is not called, and mount(8) refuses the next insertion as already
///   mounted. Close the files and call onDeviceEjected(), or run `umount -l` yourself.
class TAVO_API AutoMount {
public:
    /// Creates the directory `mountPoint` when it is missing, and starts watching. Mounts the
    /// device when it is present already.
    ///
    /// The directory gets mode 0775, reduced by the umask. Its parents are not created. `device` is
    /// a plain name such as sda1; a name that begins with /dev/ never matches. `onInserted` is
    /// called after every successful mount, `onEjected` after every successful unmount; neither may
    /// be empty. Throws std::runtime_error "Error creating directory 'DIRECTORY'" when the
    /// directory cannot be created.
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
