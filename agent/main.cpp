// A management agent for the gateway. It takes JSON-RPC requests on a local socket and carries them
// out with the library's classes. Options.cpp has its help text.

#include <kvr/api/com/NQ_Sockets.h>

#include "Accept.h"
#include "Agent.h"
#include "Descriptors.h"
#include "Log.h"
#include "Options.h"
#include "OwnerOnly.h"
#include "ServerThread.h"
#include "Signals.h"
#include "SocketDirectory.h"
#include "methods/ProcessRun.h"
#include "mqtt/MqttPublisher.h"
#include "mqtt/RemoteRequests.h"
#include "rpc/Dispatcher.h"
#include "rpc/RequestHandler.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include <unistd.h>

namespace {

using namespace agent;

/// How long a request in progress may take when the agent ends.
constexpr std::chrono::milliseconds kGrace(500);
/// The time from SIGTERM to SIGKILL for a program, and again from SIGKILL until the agent stops
/// waiting.
constexpr std::chrono::milliseconds kProgramGrace(2000);

/// How long the last messages may take. A broker that does not answer takes longer.
constexpr std::chrono::milliseconds kBrokerGrace(3000);

/// Waits for the request in progress. Ends the request's program with SIGTERM, then with SIGKILL.
void awaitRequest(RequestHandler& handler, ProcessRun& program) {
    if (handler.waitUntilIdle(kGrace))
        return;
    program.signalProgram(SIGTERM);
    if (handler.waitUntilIdle(kProgramGrace))
        return;
    program.signalProgram(SIGKILL);
    if (handler.waitUntilIdle(kProgramGrace))
        return;
    program.abandon(); // a child of the program still holds its output
}

/// Null when there is no broker.
std::unique_ptr<Publisher> makePublisher(const Options& options, RequestHandler& handler) {
    if (!options.broker)
        return nullptr;
    if (options.takesRequests)
        return std::make_unique<RemoteRequests>(*options.broker, options.name, options.base,
                                                options.refusedRemotely, handler);
    return std::make_unique<MqttPublisher>(*options.broker, options.name, options.base);
}

int serve(const Options& options, const ResponseOutput& output) {
    openLog(options.logLimit);
    makeSocketDirectory();
    const std::string problem = socketDirectoryProblem();
    if (!problem.empty())
        throw std::runtime_error(problem);
    const std::string tls = options.broker ? tlsProblem(*options.broker) : "";
    if (!tls.empty())
        throw std::runtime_error(tls);
    const std::string path = socketPath(options.name);
    if (isServed(path)) {
        std::fprintf(stderr, "tavo-agent: another process already serves %s\n", path.c_str());
        return 1;
    }
    prepareSignals();
    logInfo("serving " + path);

    Dispatcher dispatcher(options.allowed);
    dispatcher.RegisterMethods();
    RequestHandler handler(dispatcher);
    const std::unique_ptr<Publisher> publisher = makePublisher(options, handler);
    Connections connections(path, options.idleLimit);
    Agent agent(handler, connections, output, publisher.get());
    std::optional<kvr::api::com::NQ_Sockets> server;
    std::optional<ServerThread> thread;
    {
        const OwnerOnly ownerOnly;
        server.emplace(options.name.c_str());
        server->attach(&agent);
        thread.emplace(*server, connections, path);
    }
    if (publisher)
        publisher->start();

    const int signal = awaitEndSignal();
    handler.refuseRequests();
    thread->beginEnd();
    awaitRequest(handler, dispatcher.processRun());
    thread.reset();
    if (publisher)
        publisher->beginEnd();
    const bool published = !publisher || publisher->endsWithin(kBrokerGrace);
    logInfo(std::string("ended by ") + (signal == SIGTERM ? "SIGTERM" : "SIGINT"));
    if (dispatcher.processRun().hasAbandoned() || !published)
        _exit(0); // a thread still waits, so nothing that it uses may be destroyed
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const Options options = parseOptions(argc, argv);
    const ResponseOutput output;
    try {
        return serve(options, output);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tavo-agent: %s\n", error.what());
        return 1;
    }
}
