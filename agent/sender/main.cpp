// tavo-rpc: sends messages to a program that serves NQ_Sockets: for each, the length in four bytes, host byte
// order, then the bytes.

#include "SocketDirectory.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <getopt.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

const char kHelp[] =
    "Usage: tavo-rpc NAME [FILE...]\n"
    "Sends each FILE as one message to the socket /tmp/socketDDS/NAME; with no FILE,\n"
    "or when FILE is -, what standard input holds.\n"
    "\n"
    "  --help   print this text and exit\n"
    "\n"
    "The server takes a message by a single read, so it must arrive at once: up to\n"
    "32 KiB always do, more may be cut (tavo-rpc then warns), and above some 200 KiB\n"
    "is cut for certain. Nothing comes back on the socket.\n"
    "\n"
    "Exit status: 0 all sent, 1 something could not be sent, 2 usage error.\n";

/// The kernel queues what one send() gives in pieces of at least this size; the server may find
/// only the first one.
constexpr std::size_t kSafeSize = 32 * 1024;

/// A server that has given up a connection does not close it: sending would wait for ever.
constexpr int kSendLimitSeconds = 5;

[[noreturn]] void usageError(const std::string& problem) {
    if (!problem.empty())
        std::cerr << "tavo-rpc: " << problem << '\n';
    std::cerr << "Try 'tavo-rpc --help' for more information.\n";
    std::exit(2);
}

[[noreturn]] void fail(const std::string& problem) {
    std::cerr << "tavo-rpc: " << problem << '\n';
    std::exit(1);
}

[[noreturn]] void failWithReason(const std::string& problem) {
    fail(problem + ": " + std::strerror(errno));
}

std::string readAll(const std::string& file) {
    if (file == "-")
        return std::string(std::istreambuf_iterator<char>(std::cin), {});
    const std::unique_ptr<FILE, int (*)(FILE*)> stream(std::fopen(file.c_str(), "rb"), std::fclose);
    if (stream == nullptr)
        failWithReason(file);
    std::string content;
    char piece[4096];
    while (const std::size_t length = std::fread(piece, 1, sizeof piece, stream.get()))
        content.append(piece, length);
    // A directory can be opened, but not read. Not every library's streams tell that from its end.
    if (std::ferror(stream.get()) != 0)
        failWithReason(file);
    return content;
}

const char* labelOf(const std::string& file) {
    return file == "-" ? "standard input" : file.c_str();
}

std::string readPayload(const std::string& file) {
    const std::string payload = readAll(file);
    if (payload.empty())
        fail(std::string(labelOf(file)) + ": empty (an empty message would end the connection)");
    if (payload.size() > std::numeric_limits<std::uint32_t>::max())
        fail(std::string(labelOf(file)) + ": too large for a message");
    return payload;
}

int connectTo(const std::string& name) {
    const std::string path = agent::socketPath(name);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        fail("the name is too long for a socket");
    const std::string problem = agent::socketDirectoryProblem();
    if (!problem.empty())
        fail(problem);
    std::copy(path.begin(), path.end(), address.sun_path);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    if (descriptor == -1)
        failWithReason("socket");
    timeval limit = {};
    limit.tv_sec = kSendLimitSeconds;
    setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1)
        failWithReason(path);
    return descriptor;
}

void sendMessage(int descriptor, const std::string& label, const std::string& payload) {
    const auto length = static_cast<std::uint32_t>(payload.size());
    std::string message(reinterpret_cast<const char*>(&length), sizeof length);
    message += payload;
    if (message.size() > kSafeSize)
        std::cerr << "tavo-rpc: " << label << ": " << payload.size()
                  << " bytes may not arrive in one piece\n";

    // In one call, so that the server finds all of it. A blocking send comes back short only when
    // the time limit has passed.
    const ssize_t sent = send(descriptor, message.data(), message.size(), MSG_NOSIGNAL);
    if (sent == -1 && errno != EAGAIN)
        failWithReason(label);
    if (sent != static_cast<ssize_t>(message.size()))
        fail(label + ": the server does not take the whole message");
}

} // namespace

int main(int argc, char** argv) {
    static const option known[] = {{"help", no_argument, nullptr, 'h'}, {nullptr, 0, nullptr, 0}};
    char programName[] = "tavo-rpc";
    argv[0] = programName; // what getopt_long() begins its messages with
    int found;
    while ((found = getopt_long(argc, argv, "", known, nullptr)) != -1) {
        if (found != 'h')
            usageError("");
        std::fputs(kHelp, stdout);
        return 0;
    }
    if (optind == argc)
        usageError("the NAME of the socket is missing");
    const std::string name = argv[optind];
    std::vector<std::string> files(argv + optind + 1, argv + argc);
    if (files.empty())
        files.emplace_back("-");

    // All are read first: what cannot be read must not leave half of the messages sent.
    std::vector<std::string> payloads;
    std::transform(files.begin(), files.end(), std::back_inserter(payloads), readPayload);
    const int descriptor = connectTo(name);
    for (std::size_t i = 0; i < files.size(); ++i)
        sendMessage(descriptor, labelOf(files[i]), payloads[i]);
    close(descriptor);
    return 0;
}
