// Publishes the board's readings over MQTT once a second, and shows the connection with an LED.

#include <kvr/api/com/NQ_Mqtt.h>
#include <kvr/api/datetime/NQ_Time.h>
#include <kvr/api/sys/NQ_Gpio.h>

#include "program.h"

#include <string>
#include <thread>

#include <signal.h>

using kvr::api::com::NQ_Mqtt;
using kvr::api::sys::NQ_Gpio;

namespace {

program::Description self = {
    "telemetry",
    "Usage: telemetry [OPTION...]\n"
    "Publishes the board's temperature, voltage and inputs once a second, until SIGTERM or\n"
    "SIGINT. The uplink LED is lit while the broker is connected.\n"
    "\n"
    "  --broker HOST[:PORT]  the broker (default 127.0.0.1:1883)\n"
    "  --topic PREFIX        publish PREFIX/temperature, /voltage, /bin0 and /bin1, and the\n"
    "                        retained /state, online or offline (default gateway/board)\n"
    "  --help                print this text and exit\n"
    "\n"
    "Exit status: 0 ended by a signal, 2 usage error.\n"};

struct Options {
    std::string host = "127.0.0.1";
    std::string port = "1883";
    std::string topic = "gateway/board";
};

void parseBroker(const std::string& text, Options& options) {
    const std::size_t colon = text.rfind(':');
    options.host = text.substr(0, colon);
    if (colon != std::string::npos)
        options.port = text.substr(colon + 1);
    const bool isNumber = !options.port.empty() && options.port.size() <= 5 &&
                          options.port.find_first_not_of("0123456789") == std::string::npos;
    if (options.host.empty() || !isNumber || std::stoi(options.port) < 1 ||
        std::stoi(options.port) > 65535)
        program::usageError(self, "--broker takes HOST or HOST:PORT");
}

Options parseOptions(int argc, char** argv) {
    static constexpr option kOptions[] = {
        {"broker", required_argument, nullptr, 'b'},
        {"topic", required_argument, nullptr, 't'},
        {"help", no_argument, nullptr, 'h'},
        {nullptr, 0, nullptr, 0},
    };
    Options options;
    int found;
    while ((found = program::nextOption(self, argc, argv, kOptions)) != -1) {
        switch (found) {
        case 'b':
            parseBroker(optarg, options);
            break;
        case 't':
            options.topic = optarg;
            break;
        }
    }
    if (optind != argc)
        program::usageError(self, "unknown argument '" + std::string(argv[optind]) + "'");
    if (options.topic.empty() || options.topic.find_first_of("+#") != std::string::npos)
        program::usageError(self, "the topic is empty or has a wildcard");
    return options;
}

bool publishReadings(NQ_Mqtt& mqtt, const std::string& topic) {
    const auto publish = [&](const char* name, int value) {
        return mqtt.send(topic + "/" + name, std::to_string(value), 0, 0);
    };
    return publish("temperature", NQ_Gpio::getTemperature()) &&
           publish("voltage", NQ_Gpio::getVoltage()) && publish("bin0", NQ_Gpio::getBin0()) &&
           publish("bin1", NQ_Gpio::getBin1());
}

/// Publishes until `keepGoing` is false. While no broker can be reached, it retries.
void publishUntilStopped(const Options& options, bool& keepGoing) {
    NQ_Mqtt mqtt(options.host, "telemetry-" + options.topic);
    mqtt.setConnOpts(options.port, "", "", 5, 1, 20, 1, 1);
    mqtt.setLwt(options.topic + "/state", "offline", "online", 1, 1);
    mqtt.initialise();
    while (mqtt.connect(keepGoing)) {
        NQ_Gpio::setLedWan(kvr::api::sys::GPIO_ON);
        while (keepGoing && publishReadings(mqtt, options.topic))
            kvr::api::datetime::NQ_Time::delay(1000);
        NQ_Gpio::setLedWan(kvr::api::sys::GPIO_OFF);
        if (!keepGoing) {
            // After an orderly disconnect the broker does not publish the will.
            mqtt.send(options.topic + "/state", "offline", 1, 1);
            return;
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    const Options options = parseOptions(argc, argv);
    const sigset_t endSignals = program::blockEndSignals();

    bool keepGoing = true; // a plain bool, as connect() takes it; read within a second
    std::thread publishing([&] { publishUntilStopped(options, keepGoing); });
    program::waitForEnd(endSignals);
    keepGoing = false;
    publishing.join();
    return 0;
}
