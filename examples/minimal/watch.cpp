// Prints the names of the files that are written in a directory, for some seconds.
// Usage: watch DIRECTORY [SECONDS]

#include <kvr/api/AsyncWatcherRunner.h>
#include <kvr/api/datetime/NQ_Time.h>

#include <cstdlib>
#include <iostream>
#include <string>

#include <sys/inotify.h>

// Called on the runner's thread.
void onWritten(const Watcher& watcher, const std::string& name, unsigned int, void*) {
    std::cout << watcher.path << '/' << name << std::endl;
}

int main(int argc, char** argv) {
    const std::string directory = argc > 1 ? argv[1] : ".";
    AsyncWatcherRunner runner;
    runner.watcher().attachWatcher(Watcher(directory, IN_CLOSE_WRITE, onWritten, nullptr));
    if (!runner.watcher().watcherExists(directory))
        return 1; // the library has printed the reason
    runner.startWatcher();
    std::cout << "watching" << std::endl;
    kvr::api::datetime::NQ_Time::delay(argc > 2 ? std::atoi(argv[2]) * 1000 : 10000);
    runner.stopWatcher(); // takes up to half a second
}
