#include "kvr/api/sys/NQ_Gpio.h"

#include <atomic>

#include <fcntl.h>
#include <sys/ioctl.h>

namespace kvr::api::sys {
namespace {

// Request words of the board's driver: direction bits, type letter 'B', signal number in the low
// byte, no size.
enum class Request : unsigned {
    SetLedUsr = 0x40004203u,
    SetLedPwr = 0x40004204u,
    SetLedWan = 0x40004205u,
    SetOut0 = 0x40004206u,
    SetLedSim = 0x40004210u,
    GetOut0 = 0x80004206u,
    GetBin0 = 0x80004207u,
    GetTemperature = 0x80004211u,
    GetVoltage = 0x80004212u,
    GetBin1 = 0x8000421Bu
};

// The type of ioctl()'s request: unsigned long in glibc, int in musl.
template <class Type>
Type requestTypeOf(int (*)(int, Type, ...));
using RequestWord = decltype(requestTypeOf(&ioctl));

int gpio_ioctl(int request, unsigned int value) {
    // Opened once and never closed. Atomic only so that concurrent first calls are defined; it
    // costs no more than an int. Deliberate: they may both open the device.
    static std::atomic<int> cached{-1};
    int device = cached.load(std::memory_order_relaxed);
    if (device < 0) {
        device = open("/dev/gpio", O_RDWR);
        cached.store(device, std::memory_order_relaxed);
        if (device < 0)
            return -1;
    }
    // Cast to unsigned int first: the top bit of the read requests must not be sign-extended into a
    // 64-bit request word. The driver takes the argument as a long.
    return ioctl(device, static_cast<RequestWord>(static_cast<unsigned int>(request)),
                 static_cast<unsigned long>(value));
}

int drive(Request request, Gpio_State state) {
    return gpio_ioctl(static_cast<int>(request), static_cast<unsigned int>(state));
}

int sense(Request request) { return gpio_ioctl(static_cast<int>(request), 0); }

int lowWhenFailed(int result) { return result < 0 ? 0 : result; }

} // namespace

int NQ_Gpio::setLedSim(Gpio_State state) { return drive(Request::SetLedSim, state); }
int NQ_Gpio::setLedWan(Gpio_State state) { return drive(Request::SetLedWan, state); }
int NQ_Gpio::setLedUsr(Gpio_State state) { return drive(Request::SetLedUsr, state); }
int NQ_Gpio::setLedPwr(Gpio_State state) { return drive(Request::SetLedPwr, state); }
int NQ_Gpio::setOut0(Gpio_State state) { return drive(Request::SetOut0, state); }

int NQ_Gpio::getOut0() { return lowWhenFailed(sense(Request::GetOut0)); }
int NQ_Gpio::getBin0() { return lowWhenFailed(sense(Request::GetBin0)); }
int NQ_Gpio::getBin1() { return lowWhenFailed(sense(Request::GetBin1)); }

int NQ_Gpio::getTemperature() { return sense(Request::GetTemperature); }
int NQ_Gpio::getVoltage() { return sense(Request::GetVoltage); }

} // namespace kvr::api::sys
