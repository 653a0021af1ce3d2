#ifndef TAVO_BENCH_FLOOR_WATCH_H
#define TAVO_BENCH_FLOOR_WATCH_H

#include <string>
#include <utility>
#include <vector>

namespace bench::floor {

/// Passes inotify events to callbacks, with the interface of FileSystemWatcher.
class Watch {
public:
    struct Registration {
        using Callback = void (*)(const Registration& registration, const std::string& name,
                                  unsigned int mask, void* context);
        std::string path;
        unsigned int mask;
        Callback callback;
        void* context;
    };

    Watch();
    ~Watch();
    void attach(const Registration& registration);
    void run(bool& stop);

private:
    void read();

    int descriptor_;
    std::vector<std::pair<int, Registration>> registrations_;
};

} // namespace bench::floor

#endif
