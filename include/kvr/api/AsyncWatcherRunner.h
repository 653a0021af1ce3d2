#ifndef KVR_API_ASYNCWATCHERRUNNER_H
#define KVR_API_ASYNCWATCHERRUNNER_H

#include <kvr/api/FileSystemWatcher.h>
#include <kvr/api/export.h>

#include <thread>

/// Runs the loop of a FileSystemWatcher on a separate thread. The callbacks run there.
///
/// Order:   attach through watcher(), startWatcher(), stopWatcher(), destroy. The thread may be
///          started and stopped again.
/// Failure: destroying a runner that still runs ends the process (std::terminate()), and so does an
///          exception that leaves a callback.
/// Threads: one owner thread starts and stops; no locks.
class TAVO_API AsyncWatcherRunner {
public:
    /// Creates the watcher; starts no thread.
    AsyncWatcherRunner();

    /// The watcher, for attaching and detaching while the loop does not run.
    FileSystemWatcher& watcher();

    /// Starts the thread. Does nothing when it has been started already. Throws std::system_error
    /// when the thread cannot be created.
    void startWatcher();

    /// Stops the loop and waits for the thread: up to 500 ms and the time of a callback in
    /// progress. Does nothing when not started. Trap, deliberate: the loop clears the stop flag
    /// when it begins. A call directly after startWatcher() can set the flag before that. It then
    /// blocks until another thread calls watcher().stop(). Call it only after a callback has run,
    /// or after a second.
    void stopWatcher();

    /// True from startWatcher() until stopWatcher(), even while the loop does not run.
    bool isRunning() const;

private:
    // The order is part of the binary interface.
    FileSystemWatcher fsWatcher;
    std::thread workerThread;
    bool running;
};

#endif
