#include "Watch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace bench::floor {

Watch::Watch() : descriptor_(inotify_init()) {}

Watch::~Watch() { close(descriptor_); }

void Watch::attach(const Registration& registration) {
    registrations_.emplace_back(
        inotify_add_watch(descriptor_, registration.path.c_str(), registration.mask), registration);
}

void Watch::run(bool& stop) {
    while (!stop) {
        pollfd events = {descriptor_, POLLIN, 0};
        if (poll(&events, 1, 500) > 0)
            read();
    }
}

void Watch::read() {
    alignas(inotify_event) char buffer[4601];
    const ssize_t length = ::read(descriptor_, buffer, sizeof buffer - 1);
    if (length <= 0)
        return;
    buffer[length] = '\0';
    for (const char *at = buffer, *end = buffer + length; at < end;) {
        const auto* event = static_cast<const inotify_event*>(static_cast<const void*>(at));
        at += sizeof(inotify_event) + event->len;
        for (std::size_t i = 0; i < registrations_.size(); ++i) {
            if (registrations_[i].first != event->wd || (event->mask & IN_IGNORED) != 0)
                continue;
            const Registration& registration = registrations_[i].second;
            registration.callback(registration, event->name, event->mask, registration.context);
        }
    }
}

} // namespace bench::floor
