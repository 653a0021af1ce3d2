#ifndef KVR_API_FILESYSTEMWATCHER_H
#define KVR_API_FILESYSTEMWATCHER_H

#include <kvr/api/export.h>

#include <string>
#include <utility>
#include <vector>

/// A registration with a FileSystemWatcher: what to watch, and whom to call.
class TAVO_API Watcher {
public:
    /// Called for every event of a registration, on the thread that runs the watcher's loop.
    ///
    /// `watcher` is the entry of the watcher's own list: it is invalid once the callback attaches
    /// or detaches anything. `name` is the entry of a watched directory that is concerned; without
    /// such a name its content is unspecified. `mask` is the event's whole mask, IN_ISDIR and the
    /// like included. `context` is what the registration was given. An exception leaves the loop.
    typedef void (*Callback)(const Watcher& watcher, const std::string& name, unsigned int mask,
                             void* context);

    /// `mask` is an inotify(7) event mask. `context` is handed back to the callback and otherwise
    /// not touched.
    Watcher(const std::string& path, unsigned int mask, Callback callback, void* context);

    // The order is part of the binary interface.
    std::string path;  ///< file or directory, as given to the kernel
    unsigned int mask; ///< inotify event mask
    Callback callback; ///< called for every event
    void* context;     ///< handed back to the callback
};

/// Registrations are equal when their paths are; nothing else counts.
TAVO_API bool operator==(const Watcher& a, const Watcher& b);

/// Watches files and directories by one inotify(7) instance, and calls back for every event.
///
/// Ownership: registrations are copied. Callbacks and contexts must outlive them.
/// Failure:   nothing throws. A refused registration and a failing read are printed on standard
///            output, other failures pass silently. When the constructor's inotify_init() fails, it
///            prints a perror() line "Couldn't initialize inotify" on standard error; the object
///            then stays usable in form, and nothing can be attached.
/// Threads:   run() is called on the thread that is to get the callbacks. While it runs, only
///            stop() may be called from another thread; callbacks may attach and detach. The stop
///            flags are plain by design, read once per pass of at most 500 ms.
class TAVO_API FileSystemWatcher {
public:
    /// Makes the inotify instance; nothing is registered yet.
    FileSystemWatcher();

    /// Removes every watch. The loop must have ended.
    virtual ~FileSystemWatcher();

    FileSystemWatcher(const FileSystemWatcher&) = delete;
    FileSystemWatcher& operator=(const FileSystemWatcher&) = delete;

    /// Registers `w`. A path may be registered more than once; the kernel keeps one watch (with the
    /// mask of the last), and every registration is called. Prints "Couldn't add watch to PATH
    /// ERROR: REASON" when the kernel refuses.
    void attachWatcher(const Watcher& w);

    /// Unregisters `path`: removes the kernel's watch of the first entry with that path, and the
    /// entries equal to it in number and path that follow it directly. Deliberate: the entries
    /// behind those are compared with the one that has moved into the found entry's place. So an
    /// equal entry farther behind stays in the list, without a watch, and copies of the entry that
    /// moved go as well. Does nothing when there is no such path.
    void detachWatcher(const std::string& path);

    /// The same for the path of `w`.
    void detachWatcher(const Watcher& w);

    /// Whether `path` is registered.
    bool watcherExists(const std::string& path) const;

    /// Makes a new inotify instance and registers every entry there anew. run() does so when the
    /// kernel dropped a watch. Prints nothing: entries whose path is gone stay, with the watch
    /// number -1, and match the kernel's notice of lost events, which has that number.
    void resetState();

    /// Calls back for every event until `stop` is found true, at the latest 500 ms after it was
    /// set, plus the time of a callback in progress. Returns at once when it is true already.
    void run(bool& stop);

    /// The same until stop(). Trap: clears the flag on entry, so an earlier stop() is lost.
    void run();

    /// Ends run(), from any thread.
    void stop();

private:
    void readEvents();

    // The order is part of the binary interface.
    int inotifyFd;
    std::vector<std::pair<int, Watcher>> watchers;
    bool stopRequested;
};

#endif
