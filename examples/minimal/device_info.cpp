// Prints what a program can find out about itself and its gateway.
// On a desktop: sandbox/run build/release/examples/minimal/device_info

#include <kvr/api/sys/NQ_System.h>

#include <iostream>
#include <stdexcept>

using kvr::api::sys::NQ_System;

int main() {
    if (NQ_System::appAlreadyRunning()) { // locks /tmp/device_info.pid while it runs
        std::cerr << "already running\n";
        return 1;
    }
    std::cout << NQ_System::getAppName() << " in " << NQ_System::getAppDir() << '\n';
    try {
        std::cout << "serial number " << NQ_System::getDeviceSerialNumber() << '\n';
    } catch (const std::out_of_range&) { // the boot environment has no "sn"
        std::cout << "no serial number\n";
    }
    std::cout << "serial port " << NQ_System::getPortIdName() << '\n';
    std::cout << "modem: " << (NQ_System::hasCellularModem() ? "yes" : "no") << '\n';
    std::cout << "Node-RED: " << (NQ_System::hasNodeRedApp() ? "yes" : "no") << '\n';
}
