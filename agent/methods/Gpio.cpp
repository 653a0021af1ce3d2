#include "methods/Gpio.h"

#include <kvr/api/sys/NQ_Gpio.h>

#include "rpc/Rpc.h"

#include <cerrno>
#include <cstring>

namespace agent {
namespace {

using kvr::api::sys::Gpio_State;
using kvr::api::sys::NQ_Gpio;

struct Reader {
    const char* name;
    int (*read)();
};
constexpr Reader kReaders[] = {{"out0", NQ_Gpio::getOut0},
                               {"bin0", NQ_Gpio::getBin0},
                               {"bin1", NQ_Gpio::getBin1},
                               {"temperature", NQ_Gpio::getTemperature},
                               {"voltage", NQ_Gpio::getVoltage}};

struct Setter {
    const char* name;
    int (*set)(Gpio_State);
};
constexpr Setter kSetters[] = {{"led_sim", NQ_Gpio::setLedSim},
                               {"led_wan", NQ_Gpio::setLedWan},
                               {"led_usr", NQ_Gpio::setLedUsr},
                               {"led_pwr", NQ_Gpio::setLedPwr},
                               {"out0", NQ_Gpio::setOut0}};

template <class Signal, std::size_t count>
std::string namesOf(const Signal (&signals)[count]) {
    std::string names;
    for (const Signal& signal : signals)
        names += (names.empty() ? "" : ", ") + std::string(signal.name);
    return names;
}

/// The signal that "name" names.
template <class Signal, std::size_t count>
const Signal& find(const Params& params, const Signal (&signals)[count]) {
    const std::string name = params.text("name");
    for (const Signal& signal : signals)
        if (name == signal.name)
            return signal;
    refuseParam("\"name\" must be one of " + namesOf(signals));
}

Json resultOf(const char* name, int value) {
    if (value < 0)
        throw RpcError(ErrorCode::Failed,
                       std::string(name) + ": the board does not answer: " + std::strerror(errno));
    Json result = newObject();
    put(result, "name", newText(name));
    put(result, "value", newInt(value));
    return result;
}

} // namespace

GpioGet::GpioGet() : Method("gpio.get", "reads a signal: name (" + namesOf(kReaders) + ")") {}

Json GpioGet::run(const Params& params) {
    params.allowOnly({"name"});
    const Reader& reader = find(params, kReaders);
    return resultOf(reader.name, reader.read());
}

GpioSet::GpioSet()
    : Method("gpio.set", "sets a signal: name (" + namesOf(kSetters) + "), value (0 or 1)") {}

Json GpioSet::run(const Params& params) {
    params.allowOnly({"name", "value"});
    const Setter& setter = find(params, kSetters);
    const int value = params.integer("value", 0, 1);
    const int status = setter.set(static_cast<Gpio_State>(value));
    return resultOf(setter.name, status < 0 ? status : value);
}

} // namespace agent
