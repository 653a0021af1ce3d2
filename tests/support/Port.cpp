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

/// The lowest port that the kernel assigns by itself, to connections and to port 0.
int lowestEphemeral() {
    std::ifstream range("/proc/sys/net/ipv4/ip_local_port_range");
    int lowest = 0;
    return range >> lowest && lowest > kLowest ? lowest : kUsualEphemeral;
}

/// Claims the port among the tests with an abstract socket name. Like ports, such names belong to a
/// network namespace, and the kernel frees them when the process ends. Returns -1 when another test
/// holds the port.
int claim(int number) {
    const std::string name = "tavo-test-port-" + std::to_string(number);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path + 1, sizeof address.sun_path - 1); // a leading zero: abstract
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    const int claimed = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(claimed, reinterpret_cast<const sockaddr*>(&address), length) == 0)
        return claimed;
    close(claimed);
    return -1;
}

/// Returns false when another program listens there that is not a test.
bool isFree(int number) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(number));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int yes = 1; // as brokers set it: old connections in TIME_WAIT do not count
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
