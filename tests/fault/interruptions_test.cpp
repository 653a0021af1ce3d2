// Endless signals: each class while a handler without SA_RESTART interrupts its thread about a
// thousand times a second.

#include <kvr/api/FileSystemWatcher.h>
#include <kvr/api/StdInReader.h>
#include <kvr/api/com/NQ_Mqtt.h>
#include <kvr/api/com/NQ_Sockets.h>
#include <kvr/api/data/NQ_JSON.h>
#include <kvr/api/datetime/NQ_Time.h>
#include <kvr/api/file/NQ_Files.h>
#include <kvr/api/log/NQ_Logger.h>
#include <kvr/api/sys/NQ_System.h>

#include "Broker.h"
#include "CapturedOutput.h"
#include "SignalStorm.h"
#include "SocketFile.h"
#include "TempDir.h"
#include "Waiting.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using fault::letSignalsInterrupt;
using fault::SignalStorm;
using kvr::api::com::NQ_Sockets;
using kvr::api::file::NQ_FileUtils;
using kvr::api::file::NQ_Popen;
using support::TempDir;

void report(const std::string& what) { std::cout << "fault: signals: " << what << std::endl; }

std::string lines(int count) {
    std::string text;
    for (int i = 1; i <= count; ++i)
        text += std::to_string(i) + "\n";
    return text;
}

} // namespace

// Reading ends at the interruption, as a loop of fgets() does. The program's next write then ends
// it with SIGPIPE.
TEST(SignalStorm, ExecuteGivesTheOutputUpToTheInterruption) {
    const std::string whole = lines(300);
    int cut = 0;
    for (int round = 0; round < 40; ++round) {
        const SignalStorm storm;
        int status = -2;
        const std::string output = NQ_Popen::execute("seq", {"300"}, status);
        EXPECT_EQ(whole.substr(0, output.size()), output);
        EXPECT_THAT(status, testing::AnyOf(0, SIGPIPE));
        cut += output != whole;
    }
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)); // no child is left
    report("NQ_Popen::execute: 40 programs, " + std::to_string(cut) +
           " outputs cut, every status known, no zombie");
}

TEST(SignalStorm, EveryProgramIsWaitedForToItsEnd) {
    for (int round = 0; round < 5; ++round) {
        const SignalStorm storm;
        int status = -2;
        EXPECT_EQ("", NQ_Popen::execute("sh", {"-c", "sleep 0.05; exit 3"}, status));
        EXPECT_EQ(3 * 256, status);
        EXPECT_GT(storm.count(), 5);
    }
}

TEST(SignalStorm, ShellCommandsGiveAllOfTheirOutputAndTheirStatus) {
    const std::string whole = lines(300);
    for (int round = 0; round < 20; ++round) {
        const SignalStorm storm;
        int status = -2;
        EXPECT_EQ(whole, NQ_Popen::executeInsecure("seq 300; exit 3", status));
        EXPECT_EQ(3, status);
        EXPECT_EQ(3 * 256, kvr::api::sys::NQ_System::runScript("sleep 0.01; exit 3"));
    }
    report("executeInsecure, runScript: 40 commands, all output, every status");
}

TEST(SignalStorm, DelayEndsWithTheFirstSignal) {
    const auto start = std::chrono::steady_clock::now();
    const SignalStorm storm;
    for (int i = 0; i < 10; ++i)
        kvr::api::datetime::NQ_Time::delay(60000);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    report("NQ_Time::delay: each ends with the first signal, as documented");
}

TEST(SignalStorm, FilesAreCompleteAndListed) {
    const TempDir directory;
    const std::string text = lines(10000);
    const SignalStorm storm;
    kvr::api::file::FileWriter(directory / "written") << text;
    EXPECT_EQ(text, support::readFile(directory / "written"));
    EXPECT_EQ(
        0, NQ_FileUtils::Linux_Copy((directory / "written").c_str(), (directory / "copy").c_str()));
    EXPECT_EQ(text, support::readFile(directory / "copy"));
    support::writeFile(directory / "json", "{\"text\":\"" + std::string(100000, 'x') + "\"}");
    EXPECT_EQ(std::string(100000, 'x'),
              kvr::api::data::NQ_JSON::fromFile(directory / "json").get_json_string("text"));
    EXPECT_EQ(3U, NQ_FileUtils::getFilesFromDir(directory.path()).size());
    report("FileWriter, Linux_Copy, fromFile, getFilesFromDir: whole");
}

TEST(SignalStorm, LoggerLosesNoLine) {
    using kvr::api::log::NQ_Logger;
    NQ_Logger::instance();
    std::string expected = support::readFile(NQ_Logger::kLogFileName);
    {
        const SignalStorm storm;
        for (int i = 0; i < 20000; ++i) {
            NQ_Logger::instance()->log(std::to_string(i), NQ_Logger::kLogLevelInfo);
            expected += "INFO: " + std::to_string(i) + "\n";
        }
    }
    EXPECT_TRUE(support::readFile(NQ_Logger::kLogFileName) == expected);
    (void)unlink(NQ_Logger::kLogFileName);
    report("NQ_Logger: 20000 of 20000 lines");
}

namespace {

struct Seen {
    std::vector<std::string> names;
    std::size_t wanted = 0;
    bool stop = false;
};

void noteName(const Watcher&, const std::string& name, unsigned int, void* context) {
    auto* const seen = static_cast<Seen*>(context);
    seen->names.push_back(name);
    seen->stop = seen->names.size() == seen->wanted;
}

} // namespace

TEST(SignalStorm, WatcherSeesEveryEvent) {
    const TempDir directory;
    Seen seen;
    std::vector<std::string> names;
    for (int i = 0; i < 500; ++i)
        names.push_back("file" + std::to_string(i));
    seen.wanted = names.size();
    FileSystemWatcher watcher;
    watcher.attachWatcher(Watcher(directory.path(), IN_CREATE, noteName, &seen));
    std::thread creating([&] {
        for (const std::string& name : names)
            support::writeFile(directory / name, "");
    });
    {
        const SignalStorm storm;
        watcher.run(seen.stop);
    }
    creating.join();
    EXPECT_EQ(names, seen.names);
    report("FileSystemWatcher: 500 of 500 events, in order");
}

namespace {

/// A server in its own thread, whose blocking calls can be interrupted one by one.
class Server : kvr::api::iot::Observer<NQ_Sockets> {
public:
    Server() : output_(std::make_unique<support::CapturedOutput>()), server_(file_.name()) {
        letSignalsInterrupt();
        server_.attach(this);
        thread_ = std::thread([this] { server_.loop(stop_); });
    }
    ~Server() override {
        stop_ = true;
        close(client()); // the connection that the loop waits for
        thread_.join();
    }

    int client() const {
        const int made = file_.connect();
        EXPECT_NE(-1, made);
        return made;
    }

    /// Sends a signal. Sends another one only if the first came before the call and interrupted
    /// nothing.
    void interruptUntil(const std::string& expected) {
        for (int i = 0; i < 10 && output_->text() != expected; ++i) {
            pthread_kill(thread_.native_handle(), SIGUSR1);
            support::eventually([&] { return output_->text() == expected; },
                                std::chrono::seconds(3));
        }
        EXPECT_EQ(expected, output_->text());
    }

    bool printed(const std::string& text) const {
        return support::eventually([&] { return output_->text() == text; });
    }

private:
    void update(NQ_Sockets*) override {}

    support::SocketFile file_{"tavo-storm-" + std::to_string(getpid())};
    std::unique_ptr<support::CapturedOutput> output_;
    NQ_Sockets server_;
    bool stop_ = false;
    std::thread thread_;
};

} // namespace

TEST(SignalStorm, ServerReportsEachInterruptionAndServesTheNextClient) {
    const std::string waiting = "Waiting for a connection...\n";
    const std::string caught = "Some error on kvr::api::com::NQ_Sockets::loop\n";
    {
        Server server;
        std::string printed = waiting;
        EXPECT_TRUE(server.printed(printed));
        for (int i = 0; i < 50; ++i) {
            printed += caught + "Error accepting socket connection\n\n" + waiting;
            server.interruptUntil(printed);
        }
        const int abandoned = server.client();
        printed += "Connected.\n";
        EXPECT_TRUE(server.printed(printed));
        printed += caught + "Error receiving socket data length\n\n" + waiting;
        server.interruptUntil(printed);
        const int served = server.client();
        EXPECT_EQ(9, send(served, "\5\0\0\0hello", 9, MSG_NOSIGNAL));
        printed += "Connected.\nReceiving: 5 bytes\nReceive result:5\nReceived:hello\n";
        EXPECT_TRUE(server.printed(printed));
        const int half = served;
        EXPECT_EQ(4, send(half, "\5\0\0\0", 4, MSG_NOSIGNAL));
        printed += "Receiving: 5 bytes\n";
        EXPECT_TRUE(server.printed(printed));
        printed +=
            "Receive result:-1\n" + caught + "Error receiving socket data buffer\n\n" + waiting;
        server.interruptUntil(printed);
        close(abandoned);
        close(served);
    }
    report(
        "NQ_Sockets::loop: 50 accepts and both reads interrupted, each reported once, then served");
}

namespace {

struct LineObserver : kvr::api::iot::Observer<StdInReader> {
    void update(StdInReader* reader) override {
        received.push_back(reader->getLastLine());
        stop = received.size() == wanted;
    }
    std::vector<std::string> received;
    std::size_t wanted = 0;
    bool stop = false;
};

} // namespace

TEST(SignalStorm, ReaderAnnouncesEveryLineAndAnEmptyOneForEachInterruption) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    dup2(ends[0], STDIN_FILENO);
    std::vector<std::string> written;
    for (int i = 1; i <= 200; ++i)
        written.push_back("line " + std::to_string(i));
    LineObserver observer;
    observer.wanted = written.size();
    StdInReader reader;
    reader.attach(&observer);
    std::string echoed;
    long empty = 0;
    long signals = 0;
    {
        const support::CapturedOutput output;
        std::thread supervisor([&] {
            for (const std::string& line : written) {
                EXPECT_EQ(static_cast<ssize_t>(line.size() + 1),
                          write(ends[1], (line + "\n").data(), line.size() + 1));
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
        const SignalStorm storm;
        reader.loop(observer.stop);
        supervisor.join();
        signals = storm.count();
        echoed = output.text();
    }
    EXPECT_EQ(written, observer.received);
    std::string expected;
    for (const std::string& line : written)
        expected += line + "\n";
    std::string withoutEmpty;
    for (std::size_t i = 0; i < echoed.size(); ++i) {
        if (echoed[i] == '\n' && (i == 0 || echoed[i - 1] == '\n'))
            ++empty;
        else
            withoutEmpty += echoed[i];
    }
    EXPECT_EQ(expected, withoutEmpty);
    EXPECT_GT(empty, 0);
    EXPECT_LE(empty, signals);
    report("StdInReader: 200 of 200 lines; " + std::to_string(empty) + " empty lines for " +
           std::to_string(signals) + " signals");
}

TEST(SignalStorm, PublisherDeliversEveryMessageOnce) {
    const support::Broker broker;
    broker.createSession("storm", "t");
    kvr::api::com::NQ_Mqtt mqtt("127.0.0.1", "gateway");
    mqtt.setConnOpts(std::to_string(broker.port()), "", "", 10, 1, 20, 1, 1);
    mqtt.initialise();
    bool once = false;
    ASSERT_TRUE(mqtt.connect(once));
    std::vector<std::string> sent;
    {
        const SignalStorm storm;
        for (int i = 0; i < 30; ++i) {
            EXPECT_TRUE(mqtt.send("t", std::to_string(i), 1, 0));
            sent.push_back("t 1 0 " + std::to_string(i));
        }
    }
    EXPECT_EQ(sent, broker.receiveQueued("storm", "t", 30));
    report("NQ_Mqtt::send: 30 of 30 messages of QoS 1, each once");
}
