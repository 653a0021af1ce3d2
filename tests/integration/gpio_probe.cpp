// Sets and reads the board's signals from the command line, through the library. Tests use it to
// check what reaches the device.
#include <kvr/api/sys/NQ_Gpio.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

using kvr::api::sys::Gpio_State;
using kvr::api::sys::NQ_Gpio;

namespace {

const std::map<std::string, int (*)(Gpio_State)> kSetters = {{"led_sim", NQ_Gpio::setLedSim},
                                                             {"led_wan", NQ_Gpio::setLedWan},
                                                             {"led_usr", NQ_Gpio::setLedUsr},
                                                             {"led_pwr", NQ_Gpio::setLedPwr},
                                                             {"out0", NQ_Gpio::setOut0}};
const std::map<std::string, int (*)()> kGetters = {{"out0", NQ_Gpio::getOut0},
                                                   {"bin0", NQ_Gpio::getBin0},
                                                   {"bin1", NQ_Gpio::getBin1},
                                                   {"temperature", NQ_Gpio::getTemperature},
                                                   {"voltage", NQ_Gpio::getVoltage}};

constexpr int kInherited = 9;

// The type of ioctl()'s request: unsigned long in glibc, int in musl.
template <class Type>
Type requestTypeOf(int (*)(int, Type, ...));
using RequestWord = decltype(requestTypeOf(&ioctl));

// Opens the device for programs that are executed later.
void hold() {
    errno = 0;
    const int device = open("/dev/gpio", O_RDWR);
    std::printf("%s\n", std::strerror(errno));
    if (device >= 0)
        dup2(device, kInherited);
}

// Makes one request directly, on descriptor 9 if the caller provides it, else on a new one.
int raw(unsigned long request) {
    const int device = fcntl(kInherited, F_GETFD) < 0 ? open("/dev/gpio", O_RDWR) : kInherited;
    errno = 0;
    const int result = ioctl(device, static_cast<RequestWord>(request), 1);
    std::printf("%d %s\n", result, std::strerror(errno));
    return 0;
}

} // namespace

int main(int argc, char* argv[]) {
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const std::size_t equals = word.find('=');
        std::fflush(stdout);
        if (word.rfind("sh:", 0) == 0) // a shell command between two accesses
            (void)!std::system(argv[i] + 3);
        else if (word == "hold")
            hold();
        else if (word.rfind("0x", 0) == 0)
            raw(std::strtoul(argv[i], nullptr, 16));
        else if (equals != std::string::npos)
            std::printf("%d\n", kSetters.at(word.substr(0, equals))(
                                    static_cast<Gpio_State>(std::atoi(word.c_str() + equals + 1))));
        else
            std::printf("%d\n", kGetters.at(word)());
    }
    return 0;
}
