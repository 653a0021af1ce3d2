// Memory that runs out: the log, programs, files and devices.

#include <kvr/api/AsyncWatcherRunner.h>
#include <kvr/api/NQ_AutoMount.h>
#include <kvr/api/file/NQ_Files.h>
#include <kvr/api/log/NQ_Logger.h>
#include <kvr/api/sys/NQ_Gpio.h>
#include <kvr/api/sys/NQ_System.h>

#include "FailingMemory.h"
#include "FakePrograms.h"
#include "Interposed.h"
#include "TempDir.h"
#include "Threads.h"
#include "Waiting.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <future>
#include <set>
#include <string>
#include <vector>

#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

using fault::AtLeast;
using fault::exhaust;
using fault::kLong;
using fault::Memory;
using kvr::api::file::FileWriter;
using kvr::api::file::NQ_FileUtils;
using kvr::api::file::NQ_Popen;
using kvr::api::sys::NQ_System;

TEST(OutOfMemory, Logger) {
    using kvr::api::log::NQ_Logger;
    // The instance and its file stay until the process exits.
    exhaust(
        "NQ_Logger::instance", AtLeast{2}, "opened (memory kept) (1 descriptors kept)",
        {"exception: Unable to initialize the NQ_Logger!"},
        [](Memory& memory) {
            memory.fail();
            NQ_Logger* const logger = NQ_Logger::instance();
            memory.recover();
            return logger == NQ_Logger::instance() ? "opened" : "two instances";
        },
        fault::WarmUp::no);
    const auto writeLines = [](Memory& memory) {
        support::writeFile(NQ_Logger::kLogFileName, "");
        NQ_Logger* const logger = NQ_Logger::instance();
        const std::vector<std::string> batch = {"one", "two"};
        memory.fail();
        logger->log(kLong, NQ_Logger::kLogLevelInfo);
        logger->log(batch, NQ_Logger::kLogLevelError);
        logger->logSysLog(LOG_DEBUG, kLong.c_str());
        memory.recover();
        return support::readFile(NQ_Logger::kLogFileName) ==
                       "INFO: " + kLong + "\nERROR: one\nERROR: two\n"
                   ? "whole"
                   : "not whole";
    };
    exhaust("NQ_Logger::log, logSysLog", AtLeast{0}, "whole", {}, writeLines);
    (void)unlink(NQ_Logger::kLogFileName);
}

// The status is the raw one: 13 (SIGPIPE) if nobody reads the program's output, 127 * 256 if it
// could not be started.
TEST(OutOfMemory, Programs) {
    const std::string printed = "0:" + kLong + "|";
    const std::string notStarted = std::string("execvp: ") + std::strerror(ENOMEM) + "|";
    const std::set<std::string> others = {"0:", "13:", "32512:", "32512:" + notStarted};
    exhaust("NQ_Popen::execute", AtLeast{7}, printed, others, [](Memory& memory) {
        int status = -2;
        memory.fail();
        const std::string text = NQ_Popen::execute("echo", {kLong}, status);
        memory.recover();
        return std::to_string(status) + ":" + text;
    });
    exhaust("NQ_Popen::executeInsecure", AtLeast{3}, printed, {"exception: popen() failed!"},
            [](Memory& memory) {
                const std::string command = "echo " + kLong;
                int status = -2;
                memory.fail();
                const std::string text = NQ_Popen::executeInsecure(command, status);
                memory.recover();
                return std::to_string(status) + ":" + text;
            });
    exhaust("popen2", AtLeast{6}, "256", {"null 256", "null 32512", "32512"}, [](Memory& memory) {
        int pid = -2;
        const std::string write = "w";
        memory.fail();
        FILE* const stream = popen2("cat", {kLong}, write, pid); // cat fails: no such file
        memory.recover();
        if (pid == 0)
            _exit(127); // as every direct caller must
        const bool made = stream != nullptr;
        const int status = pclose2(stream, pid);
        return (made ? "" : "null ") + std::to_string(status);
    });
    std::set<std::string> onThread = others;
    onThread.insert({"terminate", // nobody can catch what the thread throws
                     "exception: Resource temporarily unavailable"});
    exhaust("NQ_Popen::executeNonblock", AtLeast{10}, printed, onThread, [](Memory& memory) {
        std::string text;
        std::promise<int> ended;
        memory.ofAllThreads();
        memory.fail();
        NQ_Popen::executeNonblock(
            "echo", {kLong}, [&](const std::string& piece) { text += piece; },
            [&](int status) {
                memory.recover();
                ended.set_value_at_thread_exit(status);
            });
        const int status = ended.get_future().get();
        EXPECT_TRUE(support::threadsFallBackTo(1)); // its entry in /proc is gone, too
        return std::to_string(status) + ":" + text;
    });
}

TEST(OutOfMemory, Files) {
    const support::TempDir directory;
    support::writeFile(directory / "a", kLong);
    (void)!mkdir((directory / "d").c_str(), 0755);
    support::writeFile(directory / "d/b", kLong);
    exhaust("NQ_FileUtils::getFilesFromDir", AtLeast{7}, "2",
            {"0", "1"}, // a directory that cannot be opened is reported and adds nothing
            [&](Memory& memory) {
                memory.fail();
                const std::size_t count =
                    NQ_FileUtils::getFilesFromDir(directory.path(), true).size();
                memory.recover();
                return std::to_string(count);
            });
    exhaust("FileWriter", AtLeast{2}, kLong, fault::kEmptyFile, [&](Memory& memory) {
        const std::string path = directory / "written";
        memory.fail();
        FileWriter(path) << kLong;
        memory.recover();
        return support::readFile(path);
    });
    exhaust("NQ_FileUtils::Linux_Copy", AtLeast{0}, "0" + kLong, {}, [&](Memory& memory) {
        const std::string from = directory / "a";
        const std::string to = directory / "copy";
        memory.fail();
        const int result = NQ_FileUtils::Linux_Copy(from.c_str(), to.c_str());
        memory.recover();
        return std::to_string(result) + support::readFile(to);
    });
}

TEST(OutOfMemory, System) {
    support::FakePrograms programs;
    programs.add("fw_printenv", "echo sn=" + kLong);
    programs.add("pidof", "echo 4711");
    const std::string noField = "exception: vector::_M_range_check: __n (which is 1) >= "
                                "this->size() (which is ";
    exhaust("NQ_System::getDeviceSerialNumber", AtLeast{8}, kLong, {noField + "0)", noField + "1)"},
            [](Memory& memory) {
                memory.fail();
                const std::string value = NQ_System::getDeviceSerialNumber();
                memory.recover();
                return value;
            });
    exhaust("NQ_System::getProcIdByName", AtLeast{1}, "4711", {"0"}, [](Memory& memory) {
        memory.fail();
        const int pid = NQ_System::getProcIdByName("any");
        memory.recover();
        return std::to_string(pid);
    });
    exhaust("NQ_System::getAppName", AtLeast{1}, "out_of_memory_test", {}, [](Memory& memory) {
        memory.fail();
        std::string name = NQ_System::getAppName();
        memory.recover();
        return name;
    });
    exhaust("NQ_System::appAlreadyRunning", AtLeast{2}, "no", {}, [](Memory& memory) {
        memory.fail();
        const bool another = NQ_System::appAlreadyRunning();
        memory.recover();
        return another ? "yes" : "no";
    });
    (void)unlink("/tmp/out_of_memory_test.pid");
    exhaust("NQ_System::hasCellularModem", AtLeast{1}, "no", {}, [](Memory& memory) {
        memory.fail();
        const bool modem = NQ_System::hasCellularModem();
        memory.recover();
        return modem ? "yes" : "no";
    });
    exhaust("NQ_System::runScript", AtLeast{0}, "768", {}, [](Memory& memory) {
        kvr::api::log::NQ_Logger::instance();
        memory.fail();
        const int status = NQ_System::runScript("exit 3");
        memory.recover();
        return std::to_string(status);
    });
    (void)unlink(kvr::api::log::NQ_Logger::kLogFileName);
    exhaust("NQ_Gpio", AtLeast{0}, "-10", {}, [](Memory& memory) {
        memory.fail();
        const int temperature = kvr::api::sys::NQ_Gpio::getTemperature();
        const int input = kvr::api::sys::NQ_Gpio::getBin0();
        memory.recover();
        return std::to_string(temperature) + std::to_string(input);
    });
}

namespace {

struct Seen {
    std::string name;
    bool stop = false;
};

void noteEvent(const Watcher&, const std::string& name, unsigned int, void* context) {
    auto* const seen = static_cast<Seen*>(context);
    seen->stop = true;
    seen->name = name;
}

} // namespace

TEST(OutOfMemory, Watching) {
    const support::TempDir directory;
    const std::string file = directory / kLong;
    exhaust("FileSystemWatcher", AtLeast{3}, kLong, {}, [&](Memory& memory) {
        Seen seen;
        memory.fail();
        FileSystemWatcher watcher;
        watcher.attachWatcher(Watcher(directory.path(), IN_CLOSE_WRITE, noteEvent, &seen));
        memory.recover();
        support::writeFile(file, "");
        memory.fail();
        watcher.run(seen.stop);
        memory.recover();
        return seen.name;
    });
    exhaust("AsyncWatcherRunner", AtLeast{1}, kLong, {"terminate"}, [&](Memory& memory) {
        Seen seen;
        memory.ofAllThreads();
        AsyncWatcherRunner runner;
        runner.watcher().attachWatcher(Watcher(directory.path(), IN_CLOSE_WRITE, noteEvent, &seen));
        memory.fail();
        runner.startWatcher();
        memory.recover();
        support::writeFile(file, "");
        memory.fail();
        while (!seen.stop) // a stop before the loop starts would have no effect
            usleep(1000);
        memory.recover();
        runner.stopWatcher();
        return seen.name;
    });
}

namespace {

/// Makes an AutoMount while memory fails, and destroys it when its loop runs, as an earlier stop
/// would be lost. Returns whether it has mounted its device.
bool lifetimeOf(const std::string& device, Memory& memory) {
    bool mounted = false;
    std::atomic<bool> loops{false};
    const support::Stub polling(support::interposedPoll,
                                [&](pollfd* descriptors, nfds_t count, int) {
                                    loops = true;
                                    return support::interposedPoll.real(descriptors, count, 5);
                                });
    const std::string mountPoint = "/tmp";
    memory.fail();
    const kvr::api::AutoMount object(
        device, mountPoint, [&] { mounted = true; }, [] {});
    memory.recover();
    EXPECT_TRUE(support::eventually([&] { return loops.load(); }));
    return mounted;
}

} // namespace

TEST(OutOfMemory, AutoMount) {
    support::FakePrograms programs;
    programs.add("mount");
    programs.add("umount");
    const std::string absent = "tavo-" + kLong;
    exhaust("AutoMount()", AtLeast{4}, "watching", {},
            [&](Memory& memory) { return lifetimeOf(absent, memory) ? "mounted" : "watching"; });
    // A device that exists on every machine. No memory for its mount command ends the process.
    exhaust("AutoMount(), the device is present", AtLeast{4}, "mounted", {"watching", "terminate"},
            [](Memory& memory) { return lifetimeOf("null", memory) ? "mounted" : "watching"; });
    exhaust("AutoMount::onDeviceInserted", AtLeast{1}, "Running: mount /dev/tavo-none /tmp|mounted",
            {}, [](Memory& memory) {
                static bool mounted;
                mounted = false;
                // Never destroyed: its thread may not have reached its loop yet.
                static auto* const object = new kvr::api::AutoMount(
                    "tavo-none", "/tmp", [] { mounted = true; }, [] {});
                const std::size_t before = memory.printed().size();
                memory.fail();
                object->onDeviceInserted();
                memory.recover();
                return memory.printed().substr(before) + (mounted ? "mounted" : "");
            });
}
