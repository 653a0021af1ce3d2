#ifndef KVR_API_FILESYSTEMWATCHER_H
#define KVR_API_FILESYSTEMWATCHER_H

#include <kvr/api/export.h>

#include <string>
#include <utility>
#include <vector>

#include <sys/inotify.h>

/// A registration with a FileSystemWatcher: what to watch, and which function to call.
class TAVO_API Watcher {
public:
    /// Called for every event of a registration, on the thread that runs the watcher's loop.
    ///
    /// - `watcher`: the entry in the watcher's own list; invalid as soon as the callback attaches
    ///   or detaches anything.
    /// - `name`: the entry of the watched directory that the event is about; unspecified for an
    ///   event of the watched path itself.
    /// - `mask`: the event's whole mask, with bits such as IN_ISDIR.
    /// - `context`: the pointer given when the path was registered.
    ///
    /// An exception leaves the loop.
    typedef void (*Callback)(const Watcher& watcher, const std::string& name, unsigned int mask,
                             void* context);

    /// `mask` is an inotify(7) event mask, such as IN_CREATE | IN_DELETE. `context` is passed to
    /// the callback and not used otherwise.
    Watcher(const std::string& path, unsigned int mask, Callback callback, void* context);

    // The order is part of the binary interface.
    std::string path;  ///< file or directory, as given to the kernel
    unsigned int mask; ///< inotify event mask
    Callback callback; ///< called for every event
    void* context;     ///< passed to the callback
};

/// Registrations are equal when their paths are equal. Mask, callback and context do not count.
TAVO_API bool operator==(const Watcher& a, const Watcher& b);

/// Registrations differ when their paths differ.
inline bool operator!=(const Watcher& a, const Watcher& b) { return !(a == b); }

/// Watches files and directories with one inotify(7) instance, and calls a function for every
/// event.
///
/// Ownership: registrations are copied. Callbacks and contexts must outlive them.
/// Failure:   nothing throws. A refused registration and a failing read are printed on standard
///            output; other failures are silent. When inotify_init() fails, the constructor prints
///            a perror() line "Couldn't initialize inotify" on standard error, and every
///            registration is refused.
/// Losses:    when the kernel's queue overflows (fs.inotify.max_queued_events), events are dropped
///            and no callback runs. Keep callbacks short, and list the directory again where a
///            missed event matters. A rebuild (see resetState()) also drops the queued events.
/// Threads:   run() calls the callbacks on its caller's thread. While it runs, another thread may
///            only call stop(); callbacks may attach and detach. The stop flags are plain by design
///            and read once per pass of at most 500 ms (docs/threads.md).
class TAVO_API FileSystemWatcher {
public:
    /// Creates the inotify instance, without registrations.
    FileSystemWatcher();

    /// Removes every watch. The loop must have ended.
    virtual ~FileSystemWatcher();

    FileSystemWatcher(const FileSystemWatcher&) = delete;
    FileSystemWatcher& operator=(const FileSystemWatcher&) = delete;

    /// Registers `w`. A path may be registered more than once; the kernel keeps one watch (with the
    /// mask of the last), and every registration is called. Prints "Couldn't add watch to PATH
    /// ERROR: REASON" when the kernel refuses.
    void attachWatcher(const Watcher& w);

    /// Unregisters `path`: removes the kernel's watch of the first entry with that path, that
    /// entry, and the equal ones directly after it. Does nothing when there is no such path.
    ///
    /// Deliberate: the entries after those are compared with the entry that has moved into the
    /// first one's place. So an equal entry farther back stays in the list, without a watch, and
    /// copies of the moved entry are removed too. Register each path once to avoid this.
    void detachWatcher(const std::string& path);

    /// The same for the path of `w`.
    void detachWatcher(const Watcher& w);

    /// Whether `path` is registered.
    bool watcherExists(const std::string& path) const;

    /// Creates a new inotify instance and registers every entry there. run() does so when the
    /// kernel has dropped a watch, for instance because its path was deleted. Prints nothing.
    ///
    /// An entry whose path does not exist stays in the list without a watch. When the path is
    /// created again, it is watched only after the next such rebuild. Until then the entry's
    /// callback is called for a queue overflow (IN_Q_OVERFLOW).
    void resetState();

    /// Calls the callbacks for every event until `stop` is true. Returns at most 500 ms after the
    /// flag was set, plus the time of a callback in progress. Returns immediately when the flag is
    /// true already.
    void run(bool& stop);

    /// The same until stop(). Trap: the call clears the flag when it begins, so an earlier stop()
    /// is lost.
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
