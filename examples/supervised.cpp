// A program that exchanges lines with its supervisor on standard input and output.
//
// The reader echoes every line that is not empty, and the answer follows:
//
//     supervisor writes    program writes
//     ping                 ping
//                          = pong
//
// It shows two things that a program must do itself around StdInReader. It must stop the reader at
// the end of the input, where the reader otherwise loops at full speed, and handle signals.

#include <kvr/api/StdInReader.h>
#include <kvr/api/datetime/NQ_Time.h>
#include <kvr/api/sys/NQ_System.h>

#include "program.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>
#include <tuple>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

program::Description self = {
    "supervised",
    "Usage: supervised\n"
    "Answers the lines that a supervisor writes to its standard input, which must be\n"
    "a pipe or a socket. To try it by hand: cat | supervised\n"
    "\n"
    "  --help   print this text and exit\n"
    "\n"
    "Each line is echoed; the answer follows on a line that begins with \"= \":\n"
    "  ping     pong\n"
    "  name     name of this program\n"
    "  time     the time, UTC\n"
    "  quit     bye, then the program ends\n"
    "The program also ends, within about a second, at the end of its input and on\n"
    "SIGTERM or SIGINT. It then writes an empty line.\n"
    "\n"
    "Exit status: 0 ended as requested, 1 failed, 2 usage error.\n"};

/// Answers the lines, on the thread that runs the reader's loop.
class Commands : public kvr::api::iot::Observer<StdInReader> {
public:
    explicit Commands(bool& stop) : stop_(stop) {}

    void update(StdInReader* reader) override {
        std::string line = reader->getLastLine();
        if (!line.empty() && line.back() == '\r') // the reader does not remove it
            line.pop_back();
        std::cout << "= " << answer(line) << std::endl;
        if (!std::cout) // the supervisor no longer reads
            stop_ = true;
    }

private:
    std::string answer(const std::string& line) {
        if (line == "ping")
            return "pong";
        if (line == "name")
            return kvr::api::sys::NQ_System::getAppName();
        if (line == "time") {
            timeval now = {};
            gettimeofday(&now, nullptr);
            return kvr::api::datetime::NQ_Time::tvToDateStr(now);
        }
        if (line == "quit") {
            stop_ = true;
            return "bye";
        }
        return "unknown command: " + line;
    }

    bool& stop_; // the loop's flag
};

/// Sets the loop's flag from a separate thread. It does so when the supervisor has closed its end
/// and all of its lines are read, or when a signal requests the end.
class Watch {
public:
    explicit Watch(bool& stop) : stop_(stop) {
        // Before the thread starts, so that it inherits the mask. The signals then only arrive
        // through signals_.
        const sigset_t signals = program::blockEndSignals();
        signals_ = signalfd(-1, &signals, SFD_CLOEXEC);
        end_ = eventfd(0, EFD_CLOEXEC);
        if (signals_ == -1 || end_ == -1)
            program::failWithReason(self, "cannot wait for signals");
        thread_ = std::thread([this] { run(); });
    }

    ~Watch() {
        const std::uint64_t one = 1;
        std::ignore = write(end_, &one, sizeof one);
        thread_.join();
        close(signals_);
        close(end_);
    }

    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

private:
    void run() {
        // Waits only for the hang-up of standard input. POLLRDHUP requests it for a socket; for a
        // pipe it is always reported.
        pollfd entries[] = {{STDIN_FILENO, POLLRDHUP, 0}, {signals_, POLLIN, 0}, {end_, POLLIN, 0}};
        while (poll(entries, 3, -1) == -1) {
            if (errno != EINTR)
                return;
        }
        // The C library reads ahead, so the pipe may be empty while lines wait in memory. feof() is
        // true when all of them have been read.
        if (entries[1].revents == 0 && entries[2].revents == 0) {
            while (!std::feof(stdin) && poll(&entries[1], 2, 10) == 0) {
            }
        }
        stop_ = true;
    }

    bool& stop_; // the loop's flag
    int signals_;
    int end_;
    std::thread thread_;
};

void requirePipe() {
    struct stat input = {};
    if (fstat(STDIN_FILENO, &input) != 0)
        program::failWithReason(self, "standard input");
    // For the end of a file, or of input at a terminal, poll() reports no hang-up.
    if (!S_ISFIFO(input.st_mode) && !S_ISSOCK(input.st_mode))
        program::fail(self,
                      "standard input is neither a pipe nor a socket (by hand: cat | supervised)");
}

} // namespace

int main(int argc, char** argv) {
    program::parseHelpOnly(self, argc, argv);
    if (optind != argc)
        program::usageError(self, "unexpected argument '" + std::string(argv[optind]) + "'");
    requirePipe();
    std::signal(SIGPIPE, SIG_IGN); // std::cout fails when the supervisor has ended

    bool stop = false;
    StdInReader reader;
    Commands commands(stop);
    reader.attach(&commands);
    const Watch watch(stop);
    reader.loop(stop);
    return 0;
}
