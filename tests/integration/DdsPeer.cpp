#include "DdsPeer.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

extern char** environ;

namespace support {
namespace {

// Domains whose ports are below the range of ports that the kernel assigns.
constexpr int kFirstDomain = 20;
constexpr int kDomains = 80;

/// Claims the domain among all tests of the machine with a name that vanishes with the process.
/// Returns -1 when the domain is in use.
int claim(int id) {
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string name = "tavo-test-dds-domain-" + std::to_string(id);
    // The leading zero byte makes the name abstract: no file appears.
    std::memcpy(address.sun_path + 1, name.data(), name.size());
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), size) == 0)
        return descriptor;
    close(descriptor);
    return -1;
}

} // namespace

ReservedDomain::ReservedDomain() {
    for (int i = 0; i < kDomains && reservation_ < 0; ++i) {
        id_ = kFirstDomain + (getpid() + i) % kDomains;
        reservation_ = claim(id_);
    }
    if (reservation_ < 0)
        throw std::runtime_error("no DDS domain is free");
    useInterface("lo");
}

ReservedDomain::~ReservedDomain() {
    unsetenv("CYCLONEDDS_URI");
    close(reservation_);
}

void ReservedDomain::useInterface(const std::string& name) {
    const std::string settings = "<Domain Id=\"" + std::to_string(id_) +
                                 "\"><General><Interfaces><NetworkInterface name=\"" + name +
                                 "\"/></Interfaces><AllowMulticast>false</AllowMulticast></General>"
                                 "<Discovery><ParticipantIndex>auto</ParticipantIndex>"
                                 "<MaxAutoParticipantIndex>100</MaxAutoParticipantIndex>"
                                 "<LeaseDuration>60s</LeaseDuration><Peers><Peer "
                                 "address=\"127.0.0.1\"/></Peers></Discovery></Domain>";
    setenv("CYCLONEDDS_URI", settings.c_str(), 1);
}

DdsPeer::DdsPeer() {
    int toChild[2];
    int fromChild[2];
    if (pipe2(toChild, O_CLOEXEC) != 0 || pipe2(fromChild, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe2");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, toChild[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fromChild[1], STDOUT_FILENO);
    char program[] = TAVO_DDS_WATCHER;
    char* const arguments[] = {program, nullptr};
    const int failed = posix_spawn(&pid_, program, &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(toChild[0]);
    close(fromChild[1]);
    input_ = toChild[1];
    output_ = fromChild[0];
    if (failed != 0)
        throw std::runtime_error(std::string("cannot run ") + program);
    if (next() != "ready")
        throw std::runtime_error("the DDS peer did not join the domain");
}

DdsPeer::~DdsPeer() {
    end();
    close(output_);
}

std::string DdsPeer::next() {
    for (;;) {
        const std::size_t end = unread_.find('\n');
        if (end != std::string::npos) {
            const std::string line = unread_.substr(0, end);
            unread_.erase(0, end + 1);
            return line;
        }
        pollfd waiting = {output_, POLLIN, 0};
        char bytes[512];
        const ssize_t count =
            poll(&waiting, 1, 30000) == 1 ? read(output_, bytes, sizeof bytes) : 0;
        if (count <= 0)
            return "";
        unread_.append(bytes, static_cast<std::size_t>(count));
    }
}

std::string DdsPeer::expectArrival(const std::string& name) {
    const std::string event = next();
    const std::size_t idEnd = event.find(' ', 2);
    EXPECT_EQ("+ ", event.substr(0, 2)) << event;
    if (event.size() < 2 || idEnd == std::string::npos)
        return "";
    EXPECT_EQ(name, event.substr(idEnd + 1));
    return event.substr(2, idEnd - 2);
}

void DdsPeer::expectDeparture(const std::string& id) { EXPECT_EQ("- " + id, next()); }

std::string DdsPeer::remaining() {
    end();
    std::string events;
    for (std::string event = next(); !event.empty(); event = next())
        events += event + "\n";
    return events;
}

void DdsPeer::end() {
    if (pid_ < 0)
        return;
    close(input_);
    int status = 0;
    EXPECT_EQ(pid_, waitpid(pid_, &status, 0));
    EXPECT_EQ(0, status);
    pid_ = -1;
}

} // namespace support
