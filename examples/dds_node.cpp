// Takes part in a DDS domain as an RMI client or server until a signal ends it. Use it as the frame
// of a program that offers or calls services.

#include <kvr/api/mdw/NQ_DDS_RMI.h>

#include "program.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include <signal.h>

namespace {

program::Description self = {
    "dds_node", "Usage: dds_node [OPTION...] client|server\n"
                "Starts the DDS RMI runtime in the given role and stops it on SIGTERM or SIGINT.\n"
                "\n"
                "  --local DOMAIN   join this DDS domain (0 to 230) on this machine only; needs\n"
                "                   a library built with Cyclone DDS\n"
                "  --help           print this text and exit\n"
                "\n"
                "Without --local, the DDS configuration selects the domain and its networks;\n"
                "Cyclone DDS takes it from the environment variable CYCLONEDDS_URI. The library\n"
                "reports each step to the system log.\n"
                "\n"
                "Exit status: 0 ended by a signal, 1 cannot start or stop, 2 usage error.\n"};

/// Highest domain whose ports exist for all participants that --local allows for.
constexpr int kLastDomain = 230;

int parseDomain(const std::string& text) {
    const bool isNumber = !text.empty() && text.size() <= 3 &&
                          text.find_first_not_of("0123456789") == std::string::npos;
    if (!isNumber || std::stoi(text) > kLastDomain)
        program::usageError(self,
                            "the DOMAIN is not a number from 0 to " + std::to_string(kLastDomain));
    return std::stoi(text);
}

/// Makes this domain the default one of the process, on the loopback interface only. Loopback has
/// no multicast, so participants find each other by trying the machine's ports one by one.
void useLocalDomain(int domain) {
    const std::string settings =
        "<Domain Id=\"" + std::to_string(domain) +
        "\"><General><Interfaces><NetworkInterface name=\"lo\"/></Interfaces>"
        "<AllowMulticast>false</AllowMulticast></General>"
        "<Discovery><ParticipantIndex>auto</ParticipantIndex>"
        "<MaxAutoParticipantIndex>100</MaxAutoParticipantIndex>"
        "<Peers><Peer address=\"127.0.0.1\"/></Peers></Discovery></Domain>";
    setenv("CYCLONEDDS_URI", settings.c_str(), 1);
}

/// Returns whether the role is that of a client.
bool parseOptions(int argc, char** argv) {
    static constexpr option kOptions[] = {
        {"local", required_argument, nullptr, 'l'},
        {"help", no_argument, nullptr, 'h'},
        {nullptr, 0, nullptr, 0},
    };
    int found;
    while ((found = program::nextOption(self, argc, argv, kOptions)) != -1) {
        switch (found) {
        case 'l':
            useLocalDomain(parseDomain(optarg));
            break;
        }
    }
    if (argc - optind != 1)
        program::usageError(self, "one role is needed: client or server");
    const std::string role = argv[optind];
    if (role != "client" && role != "server")
        program::usageError(self, "the role is neither client nor server");
    return role == "client";
}

} // namespace

int main(int argc, char** argv) {
    const bool isClient = parseOptions(argc, argv);
    const sigset_t endSignals = program::blockEndSignals();

    kvr::api::mdw::NQ_DDS_RMI_RUNTIME runtime;
    if (runtime.startRUNTIME(isClient) != 0) {
        std::fputs("dds_node: the DDS RMI runtime did not start\n", stderr);
        return 1;
    }
    program::say(isClient ? "running as client" : "running as server");

    program::waitForEnd(endSignals);

    // Without this the process would stay in its peers' lists for some more seconds.
    if (!runtime.stopRUNTIME()) {
        std::fputs("dds_node: the DDS RMI runtime did not stop\n", stderr);
        return 1;
    }
    program::say("stopped");
    return 0;
}
