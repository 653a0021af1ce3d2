// Descriptors and processes used up. Each test checks a class while there are none, and again after
// some are free.

#include <kvr/api/AsyncWatcherRunner.h>
#include <kvr/api/NQ_AutoMount.h>
#include <kvr/api/com/NQ_Mqtt.h>
#include <kvr/api/com/NQ_Sockets.h>
#include <kvr/api/data/NQ_JSON.h>
#include <kvr/api/file/NQ_Files.h>
#include <kvr/api/log/NQ_Logger.h>
#include <kvr/api/mng/NQ_Config.h>
#include <kvr/api/mng/NQ_UBUS.h>
#include <kvr/api/sys/NQ_Gpio.h>
#include <kvr/api/sys/NQ_System.h>

#include "Broker.h"
#include "CapturedOutput.h"
#include "FakePrograms.h"
#include "ForkedChild.h"
#include "Interposed.h"
#include "SocketFile.h"
#include "TempDir.h"
#include "Threads.h"
#include "Waiting.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <future>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::data::NQ_JSON;
using kvr::api::file::FileWriter;
using kvr::api::file::NQ_FileUtils;
using kvr::api::file::NQ_Popen;
using kvr::api::log::NQ_Logger;
using kvr::api::sys::NQ_Gpio;
using kvr::api::sys::NQ_System;
using support::errorsOf;
using support::inForkedChild;
using support::printedBy;
using support::TempDir;

void report(const std::string& what) { std::cout << "fault: " << what << std::endl; }

/// Uses up all descriptors but `spare` while an object exists.
class NoDescriptors {
public:
    explicit NoDescriptors(int spare = 0) {
        rlimit limit = {};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = 64; // opening thousands takes a long time
        setrlimit(RLIMIT_NOFILE, &limit);
        for (int made; (made = open("/dev/null", O_RDONLY | O_CLOEXEC)) != -1;)
            taken_.push_back(made);
        giveBack(spare);
    }
    ~NoDescriptors() { giveBack(static_cast<int>(taken_.size())); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

    void giveBack(int count) {
        for (; count > 0; --count) {
            close(taken_.back());
            taken_.pop_back();
        }
    }

private:
    std::vector<int> taken_;
};

/// What `action` prints with no descriptor left. The capture opens its files before that.
struct Printed {
    std::string out;
    std::string errors;
};

std::string tooManyOpenFiles() { return std::strerror(EMFILE); } // musl has another text

Printed withoutDescriptors(const std::function<void()>& action, int spare = 0) {
    Printed printed;
    printed.errors = errorsOf([&] {
        printed.out = printedBy([&] {
            const NoDescriptors none(spare);
            action();
        });
    });
    return printed;
}

} // namespace

TEST(NoDescriptors, LoggerThrowsUntilThereIsOne) {
    withoutDescriptors([] {
        for (int i = 0; i < 2; ++i)
            EXPECT_THROW(NQ_Logger::instance(), std::runtime_error);
    });
    EXPECT_NO_THROW(NQ_Logger::instance());
    (void)unlink(NQ_Logger::kLogFileName);
    report("no descriptors: NQ_Logger::instance: throws, works later");
}

TEST(NoDescriptors, ProgramRunsButItsOutputIsNotRead) {
    int status = -2;
    std::string output;
    // The failure of pipe() is not detected. The program writes to the caller's output.
    const Printed printed =
        withoutDescriptors([&] { output = NQ_Popen::execute("echo", {"lost"}, status); });
    EXPECT_EQ("", output);
    EXPECT_EQ(0, status);
    EXPECT_EQ("lost\n", printed.out);
    EXPECT_EQ("found\n", NQ_Popen::execute("echo", {"found"}));
    report("no descriptors: NQ_Popen::execute: \"\", the program's own status, its output with the "
           "caller's");
}

TEST(NoDescriptors, ShellCommandIsRefused) {
    withoutDescriptors([] {
        try {
            NQ_Popen::executeInsecure("echo");
            ADD_FAILURE() << "the command ran";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ("popen() failed!", error.what());
        }
    });
    report("no descriptors: NQ_Popen::executeInsecure: throws \"popen() failed!\"");
}

TEST(NoDescriptors, ThreadOfAProgramEndsWithItsStatus) {
    int status = -2;
    std::string output;
    withoutDescriptors([&] {
        std::promise<int> ended;
        NQ_Popen::executeNonblock(
            "true", {}, [&](const std::string& piece) { output += piece; },
            [&](int raw) { ended.set_value_at_thread_exit(raw); });
        status = ended.get_future().get();
    });
    EXPECT_EQ(0, status);
    EXPECT_EQ("", output);
}

TEST(NoDescriptors, FilesAreNeitherListedNorReadNorWrittenNorCopied) {
    const TempDir directory;
    support::writeFile(directory / "from", "content");
    const std::string path = directory.path();
    const Printed listed =
        withoutDescriptors([&] { EXPECT_TRUE(NQ_FileUtils::getFilesFromDir(path, true).empty()); });
    EXPECT_EQ("opendir: Path does not exist or could not be read.: " + tooManyOpenFiles() + "\n",
              listed.errors);
    const Printed parsed =
        withoutDescriptors([&] { EXPECT_EQ(nullptr, NQ_JSON::fromFile(path + "/from").getObj()); });
    EXPECT_EQ("Unable to parse json\n", parsed.out);
    for (int spare : {0, 1}) { // with one, the source can be opened
        withoutDescriptors(
            [&] {
                EXPECT_EQ(
                    -1, NQ_FileUtils::Linux_Copy((path + "/from").c_str(), (path + "/to").c_str()));
            },
            spare);
        EXPECT_FALSE(support::exists(directory / "to"));
    }
    withoutDescriptors([&] { FileWriter(path + "/to") << "lost"; });
    EXPECT_FALSE(support::exists(directory / "to"));
    report("no descriptors: listing is empty, copying gives -1, writing and reading do nothing");
}

TEST(NoDescriptors, NoCompanionOrModemIsFound) {
    support::FakePrograms programs;
    programs.add("fw_printenv", "echo sn=ABC123");
    programs.add("pidof", "echo 1");
    withoutDescriptors([] {
        EXPECT_FALSE(NQ_System::appAlreadyRunning());
        EXPECT_FALSE(NQ_System::hasCellularModem());
        EXPECT_EQ(0, NQ_System::getProcIdByName("any"));
        EXPECT_EQ("RS485", NQ_System::getPortIdName());
        EXPECT_EQ("exhaustion_test", NQ_System::getAppName());
        EXPECT_THROW(NQ_System::getDeviceSerialNumber(), std::out_of_range);
        EXPECT_EQ(-1, NQ_Gpio::getTemperature());
        EXPECT_EQ(0, NQ_Gpio::getBin0());
    });
    EXPECT_EQ("ABC123", NQ_System::getDeviceSerialNumber());
    report("no descriptors: NQ_System and NQ_Gpio return what they return on a bare device");
}

TEST(NoDescriptors, WatcherReportsThatItSeesNothing) {
    const Printed printed = withoutDescriptors([] {
        FileSystemWatcher watcher;
        watcher.attachWatcher(Watcher("/tmp", IN_CREATE, nullptr, nullptr));
        EXPECT_FALSE(watcher.watcherExists("/tmp"));
        bool stop = true;
        watcher.run(stop);
    });
    EXPECT_EQ("Couldn't initialize inotify: " + tooManyOpenFiles() + "\n", printed.errors);
    EXPECT_EQ("Couldn't add watch to /tmp ERROR: Bad file descriptor\n", printed.out);
    report("no descriptors: FileSystemWatcher: both messages, an object that sees nothing");
}

TEST(NoDescriptors, AutoMountReportsThatItSeesNothingAndMountsNothing) {
    std::atomic<bool> loops{false}; // an earlier stop would be lost
    const support::Stub polling(support::interposedPoll,
                                [&](pollfd* descriptors, nfds_t count, int limit) {
                                    loops = true;
                                    return support::interposedPoll.real(descriptors, count, limit);
                                });
    const Printed printed = withoutDescriptors([&] {
        const kvr::api::AutoMount object("null", "/tmp"); // a device that is present
        EXPECT_TRUE(support::eventually([&] { return loops.load(); }));
    });
    EXPECT_EQ("Couldn't initialize inotify: " + tooManyOpenFiles() + "\n", printed.errors);
    EXPECT_EQ("AutoMount(PARS)\nCouldn't add watch to /dev ERROR: Bad file descriptor\n"
              "AutoMount()\n~AutoMount()\n",
              printed.out);
    report("no descriptors: AutoMount: both messages, a device that is present is not mounted");
}

TEST(NoDescriptors, PublisherConnectsLater) {
    const support::Broker broker;
    kvr::api::com::NQ_Mqtt mqtt("127.0.0.1", "gateway");
    mqtt.setConnOpts(std::to_string(broker.port()), "", "", 10, 1, 20, 1, 1);
    mqtt.initialise();
    bool keepTrying = false;
    withoutDescriptors([&] { EXPECT_FALSE(mqtt.connect(keepTrying)); });
    EXPECT_TRUE(mqtt.connect(keepTrying));
    EXPECT_TRUE(mqtt.send("t", "text", 1, 0));
    report("no descriptors: NQ_Mqtt::connect: false, connects later");
}

TEST(NoDescriptors, ServerCannotBeMade) {
    const support::SocketFile file("tavo-none"); // its directory exists before the failure
    const support::ForkedChild child = inForkedChild([&] {
        dup2(STDOUT_FILENO, STDERR_FILENO);
        const NoDescriptors none;
        const kvr::api::com::NQ_Sockets server(file.name());
    });
    EXPECT_EQ(256, child.status);
    EXPECT_EQ("socket: " + tooManyOpenFiles() + "\n", child.output);
    report("no descriptors: NQ_Sockets(): \"socket: Too many open files\", exit status 1");
}

TEST(NoDescriptors, ServerRefusesClientsUntilThereIsOneAndLosesNone) {
    const support::SocketFile file("tavo-exhausted-" + std::to_string(getpid()));
    kvr::api::com::NQ_Sockets server(file.name());
    bool stop = false;
    auto captured = std::make_unique<support::CapturedOutput>();
    const support::CapturedOutput& output = *captured;
    std::thread serving([&] { server.loop(stop); });
    EXPECT_TRUE(output.waitFor("Waiting for a connection...\n"));
    const std::string refused = "Waiting for a connection...\n"
                                "Some error on kvr::api::com::NQ_Sockets::loop\n"
                                "Error accepting socket connection\n\n";
    {
        NoDescriptors none(2);
        const int first = file.connect();
        int second = file.connect();
        // An accept() that waits has reserved its descriptor. One that begins later takes another.
        for (; second == -1; second = file.connect())
            none.giveBack(1);
        EXPECT_TRUE(support::sendMessage(second, "kept"));
        EXPECT_TRUE(
            support::sendMessage(first, "")); // ends the connection; its descriptors stay open
        EXPECT_TRUE(output.waitFor(refused + refused)); // repeatedly, without a pause
        none.giveBack(2); // one for each client, as the first may not have been served yet
        EXPECT_TRUE(output.waitFor("Received:kept\n"));
        stop = true;
        close(first);
        close(second);
    }
    serving.join();
    captured.reset();
    report(
        "no descriptors: NQ_Sockets::loop: error lines without a pause, then the client is served");
}

namespace {

/// Forbids this process's user any further process or thread. Only for a forked copy, because it
/// cannot be undone.
void useUpProcesses() {
    // Root has no such limit.
    if (geteuid() == 0) {
        ASSERT_EQ(0, setresuid(65533, 65533, 65533)) << std::strerror(errno);
    }
    const rlimit none = {0, 0};
    ASSERT_EQ(0, setrlimit(RLIMIT_NPROC, &none)) << std::strerror(errno);
}

support::ForkedChild withoutProcesses(const std::function<void()>& action) {
    return inForkedChild([&] {
        dup2(STDOUT_FILENO, STDERR_FILENO);
        useUpProcesses();
        action();
    });
}

const char kUnavailable[] = "Resource temporarily unavailable";

} // namespace

TEST(NoProcesses, ExecuteEndsTheProcess) {
    const support::ForkedChild child = withoutProcesses([] {
        NQ_Popen::execute("echo", {});
        ADD_FAILURE() << "the process continues";
    });
    EXPECT_EQ(256, child.status);
    EXPECT_EQ(std::string("fork: ") + kUnavailable + "\n", child.output);
    report(
        "no processes: NQ_Popen::execute, popen2: \"fork: Resource temporarily unavailable\", exit "
        "status 1");
}

TEST(NoProcesses, ShellCommandsAreNotRun) {
    NQ_Logger::instance(); // opened first, because the file belongs to another user
    const support::ForkedChild child = withoutProcesses([] {
        EXPECT_THROW(NQ_Popen::executeInsecure("echo"), std::runtime_error);
        // The result of the C library's system(): -1 with musl, 127 * 256 with glibc.
        EXPECT_THAT(NQ_System::runScript("echo"), testing::AnyOf(-1, 127 * 256));
        EXPECT_EQ(0, NQ_System::getProcIdByName("any"));
        kvr::api::mng::NQ_UBUS section;
        section.init(R"({"config":"network","section":"lan","values":{}})");
        EXPECT_TRUE(section.applyConfig());
    });
    EXPECT_EQ(0, child.status) << child.output;
    EXPECT_EQ("Calling: ubus call uci delete '{ \"config\": \"network\", \"section\": \"lan\" }'; "
              "uci commit network\n",
              child.output);
    (void)unlink(NQ_Logger::kLogFileName);
    report("no processes: executeInsecure throws, runScript returns 32512 (musl: -1), "
           "getProcIdByName 0, applyConfig true");
}

TEST(NoProcesses, ThreadsAreRefusedToTheCaller) {
    const support::ForkedChild child = withoutProcesses([] {
        try {
            NQ_Popen::executeNonblock(
                "echo", {}, [](const std::string&) {}, [](int) {});
            ADD_FAILURE() << "a thread started";
        } catch (const std::system_error& error) {
            EXPECT_EQ(EAGAIN, error.code().value());
        }
        AsyncWatcherRunner runner;
        EXPECT_THROW(runner.startWatcher(), std::system_error);
        EXPECT_FALSE(runner.isRunning());
        runner.stopWatcher();
    });
    EXPECT_EQ(0, child.status) << child.output;
    report(
        "no processes: executeNonblock, startWatcher, AutoMount: std::system_error, nothing runs");
}

TEST(NoProcesses, AutoMountIsNotMade) {
    const support::ForkedChild child = withoutProcesses(
        [] { EXPECT_THROW(kvr::api::AutoMount("tavo-none", "/tmp"), std::system_error); });
    EXPECT_EQ(0, child.status) << child.output;
    EXPECT_EQ("AutoMount(PARS)\n", child.output); // the destructor must not print its lines
}
