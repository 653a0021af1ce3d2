#ifndef KVR_API_ASYNCWATCHERRUNNER_H
#define KVR_API_ASYNCWATCHERRUNNER_H

#include <kvr/api/FileSystemWatcher.h>
#include <kvr/api/export.h>

#include <thread>

/// Runs the loop of a FileSystemWatcher on a thread of its own, where the callbacks then run.
///
/// Order:   attach through watcher(), startWatcher(), stopWatcher(), destroy. May be started and
///          stopped again.
/// Failure: destroying a runner that runs ends the process (std::terminate()), and so does an
///          exception that leaves a callback.
/// Threads: one owner thread starts and stops; no locks.
class TAVO_API AsyncWatcherRunner {
public:
    /// Makes the watcher. No thread is started.
    AsyncWatcherRunner();

    /// The watcher, for attaching and detaching while the loop does not run.
    FileSystemWatcher& watcher();

    /// Starts the thread; does nothing when it was started already. Throws std::system_error when
    /// no thread can be made.
    void startWatcher();

    /// Stops the loop and waits for the thread, about 500 ms and the time of a callback in
    /// progress. Does nothing when not started. Deliberate trap: right after startWatcher() the
    /// loop may not have begun yet, which then clears the flag; this call waits until somebody
    /// calls watcher().stop() again.
    void stopWatcher();

    /// True from startWatcher() until stopWatcher(); the thread itself is not asked.
    bool isRunning() const;

private:
    // The order is part of the binary interface.
    FileSystemWatcher fsWatcher;
    std::thread workerThread;
    bool running;
};

#endif
