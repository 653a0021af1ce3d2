#ifndef KVR_API_SYS_NQ_GPIO_H
#define KVR_API_SYS_NQ_GPIO_H

#include <kvr/api/export.h>

namespace kvr {
namespace api {
namespace sys {

/// The state of an LED or of the output. The number is passed to the board's driver unchanged; cast
/// further values that a driver knows, such as blink modes.
enum Gpio_State : int { GPIO_OFF = 0, GPIO_ON = 1 };

/// The board's LEDs, its digital output and inputs, temperature and supply voltage, through
/// ioctl(2) on /dev/gpio.
///
/// The first call opens the device, which stays open until the process ends. When that fails, the
/// next call tries again.
/// Failure: nothing is printed. Without the device, or when the driver refuses, operations return
///          -1 with errno set. The three digital readers return 0 instead: a missing board reads as
///          a low level. Check that /dev/gpio can be opened where that matters.
/// Threads: any thread, concurrently. Two concurrent first calls may open the device twice; one
///          descriptor is then left unused.
class TAVO_API NQ_Gpio {
public:
    /// Sets the LED of the SIM; the result of ioctl(2).
    static int setLedSim(Gpio_State state);
    /// Sets the LED of the uplink; the result of ioctl(2).
    static int setLedWan(Gpio_State state);
    /// Sets the LED that applications may use; returns the result of ioctl(2).
    static int setLedUsr(Gpio_State state);
    /// Sets the power LED; the result of ioctl(2).
    static int setLedPwr(Gpio_State state);
    /// Sets the digital output; the result of ioctl(2).
    static int setOut0(Gpio_State state);

    /// Level of the digital output, read back; 0 also on failure.
    static int getOut0();
    /// Level of the first digital input; 0 also on failure.
    static int getBin0();
    /// Level of the second digital input; 0 also on failure.
    static int getBin1();

    /// Board temperature in the driver's unit; negative results pass unchanged, -1 also on failure.
    static int getTemperature();
    /// Supply voltage in the driver's unit; negative results pass unchanged, -1 also on failure.
    static int getVoltage();
};

} // namespace sys
} // namespace api
} // namespace kvr

#endif
