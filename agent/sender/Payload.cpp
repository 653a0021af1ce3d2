#include "sender/Payload.h"

#include "rpc/Params.h"
#include "rpc/Request.h"
#include "rpc/Rpc.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <iterator>
#include <limits>
#include <memory>
#include <stdexcept>

namespace agent {
namespace {

[[noreturn]] void fail(const std::string& problem) { throw std::runtime_error(problem); }

std::string readAll(const std::string& file) {
    if (file == "-")
        return std::string(std::istreambuf_iterator<char>(std::cin), {});
    const std::unique_ptr<FILE, int (*)(FILE*)> stream(std::fopen(file.c_str(), "rbe"),
                                                       std::fclose);
    if (stream == nullptr)
        fail(file + ": " + std::strerror(errno));
    std::string content;
    char piece[4096];
    while (const std::size_t length = std::fread(piece, 1, sizeof piece, stream.get()))
        content.append(piece, length);
    // A directory can be opened, but not read. Not every C++ library's streams report that.
    if (std::ferror(stream.get()) != 0)
        fail(file + ": " + std::strerror(errno));
    return content;
}

} // namespace

Payload readPayload(const std::string& file) {
    Payload payload;
    payload.label = file == "-" ? "standard input" : file;
    payload.text = readAll(file);
    if (payload.text.empty())
        fail(payload.label + ": empty (an empty message would end the connection)");
    if (payload.text.size() > std::numeric_limits<std::uint32_t>::max())
        fail(payload.label + ": too large for a message");
    return payload;
}

void askForAnswer(Payload& payload) {
    try {
        const Request request(payload.text);
        payload.getsAnswer = request.wantsAnswer();
        const Params members(request.tree());
        if (request.isNotification() || members.has("answer"))
            return;
        // The text is edited because printing the tree could change numbers. A request with an id
        // has other members, so a comma follows.
        payload.text.insert(payload.text.find('{') + 1, "\"answer\":true,");
        payload.getsAnswer = Request(payload.text).wantsAnswer(); // it may have become too long
    } catch (const RpcError& error) {
        fail(payload.label + ": " + messageOf(error.code()) + ": " + error.what() +
             " (--no-answer sends it nevertheless)");
    }
}

} // namespace agent
