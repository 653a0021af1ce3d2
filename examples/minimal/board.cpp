// Lets the user LED follow an input for a while, and prints the temperature.
// On a desktop: sandbox/run build/release/examples/minimal/board

#include <kvr/api/datetime/NQ_Time.h>
#include <kvr/api/sys/NQ_Gpio.h>

#include <cstring>
#include <iostream>

#include <errno.h>

using kvr::api::datetime::NQ_Time;
using kvr::api::sys::NQ_Gpio;

int main() {
    for (int i = 0; i < 10; ++i) {
        // A missing board reads as a low input: only the setters report it.
        const bool on = NQ_Gpio::getBin0() != 0;
        if (NQ_Gpio::setLedUsr(on ? kvr::api::sys::GPIO_ON : kvr::api::sys::GPIO_OFF) == -1) {
            std::cerr << "no LED: " << std::strerror(errno) << '\n';
            return 1;
        }
        NQ_Time::delay(20);
    }
    std::cout << "temperature " << NQ_Gpio::getTemperature() << '\n';
}
