#include "SignalStorm.h"

#include <chrono>
#include <csignal>

namespace fault {

void letSignalsInterrupt() {
    struct sigaction nothing = {};
    nothing.sa_handler = [](int) {};
    sigaction(SIGUSR1, &nothing, nullptr); // without SA_RESTART
}

SignalStorm::SignalStorm(pthread_t target) {
    letSignalsInterrupt();
    thread_ = std::thread([this, target] {
        while (!over_) {
            pthread_kill(target, SIGUSR1);
            ++count_;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
}

SignalStorm::~SignalStorm() {
    over_ = true;
    thread_.join();
}

} // namespace fault
