#ifndef KVR_API_ASYNCWATCHERRUNNER_H
#define KVR_API_ASYNCWATCHERRUNNER_H

#include <kvr/api/FileSystemWatcher.h>
#include <kvr/api/export.h>

#include <thread>

/// Runs the loop of a FileSystemWatcher on a thread of its own, where the callbacks then run.
///
/// Order:   attach through watcher(), startWatcher(), stopWatcher(), destroy. It may be started and
///          stopped again.
/// Failure: destroying a runner that still runs ends the process (std::terminate()), and so does an
///          exception that leaves a callback.
/// Threads: one owner thread starts and stops; no locks.
class TAVO_API AsyncWatcherRunner {
public:
    /// Makes the watcher. No thread is started.
    AsyncWatcherRunner();

    /// The watcher, for attaching and detaching while the loop does not run.
    FileSystemWatcher& watcher();

    /// Starts the thread; does nothing when it is started already. Throws std::system_error when no
    /// thread can be made.
    void startWatcher();

    /// Stops the loop and waits for the thread: up to 500 ms and the time of a callback in
    /// progress. Does nothing when not started. Trap, deliberate: the loop clears the stop flag
    /// when it begins. A call right after startWatcher() can come before that; it then waits until
    /// another thread calls watcher().stop(). Stop only after a callback has run, or after a
    /// second.
    void stopWatcher();

    /// True from startWatcher() until stopWatcher(), whatever the thread does.
    bool isRunning() const;

private:
    // The order is part of the binary interface.
    FileSystemWatcher fsWatcher;
    std::thread workerThread;
    bool running;
};

#endif
