#include "kvr/api/AsyncWatcherRunner.h"

AsyncWatcherRunner::AsyncWatcherRunner() : running(false) {}

FileSystemWatcher& AsyncWatcherRunner::watcher() { return fsWatcher; }

void AsyncWatcherRunner::startWatcher() {
    if (running)
        return;
    workerThread = std::thread([this] { fsWatcher.run(); });
    running = true;
}

void AsyncWatcherRunner::stopWatcher() {
    if (!running)
        return;
    fsWatcher.stop(); // Deliberate: lost when the thread has not reached its loop yet
    workerThread.join();
    running = false;
}

bool AsyncWatcherRunner::isRunning() const { return running; }
