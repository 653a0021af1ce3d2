// Memory that runs out: standard input and sockets.

#include <kvr/api/NQ_Stream.h>
#include <kvr/api/StdInReader.h>
#include <kvr/api/com/NQ_Sockets.h>
#include <kvr/api/iot/Subject.h>

#include "FailingMemory.h"
#include "Interposed.h"
#include "SocketFile.h"
#include "Waiting.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include <poll.h>
#include <unistd.h>

#include <gtest/gtest.h>

using fault::AtLeast;
using fault::exhaust;
using fault::kLong;
using fault::Memory;

namespace {

/// Counts the lines, and stops the reader at the last of them.
struct LineCounter : kvr::api::iot::Observer<StdInReader> {
    explicit LineCounter(int count) : last(count) {}
    void update(StdInReader*) override { stop = ++lines == last; }
    const int last;
    int lines = 0;
    bool stop = false;
};

/// Replaces standard input with a pipe that holds `text`.
void makeStandardInput(const std::string& text) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    ASSERT_EQ(static_cast<ssize_t>(text.size()), write(ends[1], text.data(), text.size()));
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
    close(ends[1]);
}

} // namespace

TEST(OutOfMemory, StandardInput) {
    // The line that finds no memory is cut, and std::cin has failed: all later lines are lost. The
    // loop then runs without a pause until it is stopped, as at the end of the input.
    const std::string cut = "the line is cut, the later one is lost, stop ends the loop";
    exhaust("StdInReader::loop", AtLeast{3}, "three lines", {cut}, [&](Memory& memory) {
        makeStandardInput("first\n\n" + kLong + "\nlast\n");
        StdInReader reader;
        LineCounter counter(3);
        reader.attach(&counter);
        int polls = 0;
        const support::Stub polling(
            support::interposedPoll, [&](pollfd* descriptors, nfds_t count, int limit) {
                counter.stop = ++polls == 10; // with all memory there is one poll, or a few
                return support::interposedPoll.real(descriptors, count, limit);
            });
        memory.fail();
        try {
            reader.loop(counter.stop);
        } catch (const std::bad_alloc&) {
            memory.recover();
            return std::string("ends by std::bad_alloc"); // exhaust() would accept the exception
        }
        memory.recover();
        const std::string printed = memory.printed();
        if (counter.lines == 3 && printed == "first\n" + kLong + "\nlast\n")
            return std::string("three lines");
        const std::size_t length =
            printed.size() - std::min(printed.size(), std::strlen("first\n\n\n"));
        const bool isCut = counter.lines == 2 && polls == 10 && length < kLong.size() &&
                           printed == "first\n" + kLong.substr(0, length) + "\n\n";
        return isCut ? cut : std::to_string(counter.lines) + " lines: " + printed;
    });
}

TEST(OutOfMemory, Streams) {
    // The stream fails. With an empty line the call does not return, as the stream is not standard
    // input. libc++ keeps the part of the line that it had memory for, and the call returns it.
    const std::string part = "a part of the line";
    exhaust("NQ_Stream, another stream", AtLeast{1}, kLong + "|" + kLong, {"hangs", part},
            [&](Memory& memory) {
                std::istringstream in("\n" + kLong + "\n");
                memory.setDeadline(500);
                memory.fail();
                const std::string line = NQ_Stream::forwardAndCopyInput(in);
                memory.recover();
                if (!line.empty() && line.size() < kLong.size() && memory.printed() == line + "\n")
                    return part;
                return memory.printed() + line;
            });
}

namespace {

struct Sender : kvr::api::iot::Subject<Sender> {
    void send() { notify(); }
};

struct Receiver : kvr::api::iot::Observer<Sender> {
    void update(Sender*) override { ++calls; }
    int calls = 0;
};

} // namespace

TEST(OutOfMemory, Observers) {
    exhaust("Subject::attach", AtLeast{2}, "2", {}, [](Memory& memory) {
        Receiver receiver;
        Sender sender;
        memory.fail();
        sender.attach(&receiver);
        sender.attach(&receiver);
        memory.recover();
        sender.send();
        return std::to_string(receiver.calls);
    });
}

namespace {

struct Counter : kvr::api::iot::Observer<kvr::api::com::NQ_Sockets> {
    void update(kvr::api::com::NQ_Sockets*) override { ++messages; }
    int messages = 0;
};

void sendTwoMessages(const support::SocketFile& file, bool& stop, const Memory& memory) {
    // Not to the constructor's socket, which becomes unreachable when the loop binds its own.
    EXPECT_TRUE(support::eventually(
        [&] { return memory.printed().find("Waiting for a connection") != std::string::npos; }));
    const int client = file.connect();
    EXPECT_NE(-1, client);
    stop = true;
    for (int i = 0; i < 2; ++i)
        (void)support::sendMessage(client, kLong);
    close(client);
}

} // namespace

TEST(OutOfMemory, Sockets) {
    using kvr::api::com::NQ_Sockets;
    const support::SocketFile file("tavo-memory-" + std::to_string(getpid()));
    // The listening sockets of constructor and loop, and the client's socket, are never closed.
    exhaust("NQ_Sockets()", AtLeast{1}, " (1 descriptors kept)",
            {"Some error on kvr::api::com::NQ_Sockets::NQ_Sockets|"}, [&](Memory& memory) {
                memory.fail();
                const NQ_Sockets server(file.name());
                memory.recover();
                return memory.printed();
            });
    exhaust("NQ_Sockets::loop", AtLeast{2}, "2 (3 descriptors kept)",
            {"0 (3 descriptors kept)", "1 (3 descriptors kept)"}, [&](Memory& memory) {
                NQ_Sockets server(file.name());
                Counter counter;
                server.attach(&counter);
                bool stop = false;
                std::thread client([&] { sendTwoMessages(file, stop, memory); });
                memory.fail();
                server.loop(stop);
                memory.recover();
                client.join();
                return std::to_string(counter.messages);
            });
}
