#include "Port.h"

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace support {
namespace {

constexpr int kLowest = 10000;
constexpr int kUsualEphemeral = 32768;

/// The kernel gives ports from this one on to whoever connects or asks for any.
int lowestEphemeral() {
    std::ifstream range("/proc/sys/net/ipv4/ip_local_port_range");
    int lowest = 0;
    return range >> lowest && lowest > kLowest ? lowest : kUsualEphemeral;
}

/// Takes the port among the tests: a socket name without a file. Like the ports, such names belong
/// to a network namespace, and the kernel drops them with their process. -1 when another test has
/// the port.
int claim(int number) {
    const std::string name = "tavo-test-port-" + std::to_string(number);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path + 1, sizeof address.sun_path - 1); // the first byte stays zero
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    const int claimed = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(claimed, reinterpret_cast<const sockaddr*>(&address), length) == 0)
        return claimed;
    close(claimed);
    return -1;
}

/// False when a program that is no test listens there.
bool isFree(int number) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(number));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int yes = 1; // as brokers do: earlier connections that wait for their end do not count
    setsockopt(probe, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    const bool free = bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    return free;
}

} // namespace

Port::Port() {
    const int count = lowestEphemeral() - kLowest;
    for (int i = 0; i < count; ++i) {
        number_ = kLowest + (getpid() + i) % count;
        claim_ = claim(number_);
        if (claim_ == -1)
            continue;
        if (isFree(number_))
            return;
        close(claim_);
    }
    throw std::runtime_error("no port");
}

Port::~Port() { close(claim_); }

} // namespace support
