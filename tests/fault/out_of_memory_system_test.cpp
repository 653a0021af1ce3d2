// Memory that runs out: the log, programs, files and devices.

#include <kvr/api/AsyncWatcherRunner.h>
#include <kvr/api/NQ_AutoMount.h>
#include <kvr/api/file/NQ_Files.h>
#include <kvr/api/log/NQ_Logger.h>
#include <kvr/api/sys/NQ_Gpio.h>
#include <kvr/api/sys/NQ_System.h>

#include "FailingMemory.h"
#include "FakePrograms.h"
#include "TempDir.h"
#include "Threads.h"

#include <cerrno>
#include <cstring>
#include <future>
#include <set>
#include <string>
#include <vector>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

using fault::exhaust;
using fault::kLong;
using fault::Memory;
using kvr::api::file::FileWriter;
using kvr::api::file::NQ_FileUtils;
using kvr::api::file::NQ_Popen;
using kvr::api::sys::NQ_System;

TEST(OutOfMemory, Logger) {
    using kvr::api::log::NQ_Logger;
    const auto writeLines = [](Memory& memory) {
        support::writeFile(NQ_Logger::kLogFileName, "");
        memory.fail();
        NQ_Logger* const logger = NQ_Logger::instance();
        logger->log(kLong, NQ_Logger::kLogLevelInfo);
        logger->log(std::vector<std::string>{"one", "two"}, NQ_Logger::kLogLevelError);
        memory.recover();
        return support::readFile(NQ_Logger::kLogFileName) ==
                       "INFO: " + kLong + "\nERROR: one\nERROR: two\n"
                   ? "whole"
                   : "not whole";
    };
    exhaust("NQ_Logger", "whole", {}, writeLines);
    (void)unlink(NQ_Logger::kLogFileName);
}

// The status is the raw one: 13 (SIGPIPE) if nobody reads the program's output, 127 * 256 if it
// could not be started.
TEST(OutOfMemory, Programs) {
    const std::string printed = "0:" + kLong + "|";
    const std::string notStarted = std::string("execvp: ") + std::strerror(ENOMEM) + "|";
    const std::set<std::string> others = {"0:", "13:", "32512:", "32512:" + notStarted};
    exhaust("NQ_Popen::execute", printed, others, [](Memory& memory) {
        int status = -2;
        memory.fail();
        const std::string text = NQ_Popen::execute("echo", {kLong}, status);
        memory.recover();
        return std::to_string(status) + ":" + text;
    });
    exhaust("NQ_Popen::executeInsecure", printed, {"exception: popen() failed!"},
            [](Memory& memory) {
                const std::string command = "echo " + kLong;
                int status = -2;
                memory.fail();
                const std::string text = NQ_Popen::executeInsecure(command, status);
                memory.recover();
                return std::to_string(status) + ":" + text;
            });
    exhaust("popen2", "256", {"null 0", "null 256", "null 32512", "32512"}, [](Memory& memory) {
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
    exhaust("NQ_Popen::executeNonblock", printed, onThread, [](Memory& memory) {
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
    exhaust("NQ_FileUtils::getFilesFromDir", "2",
            {"0", "1"}, // a directory that cannot be opened is reported and adds nothing
            [&](Memory& memory) {
                memory.fail();
                const std::size_t count =
                    NQ_FileUtils::getFilesFromDir(directory.path(), true).size();
                memory.recover();
                return std::to_string(count);
            });
    exhaust("FileWriter", kLong, fault::kEmptyFile, [&](Memory& memory) {
        const std::string path = directory / "written";
        memory.fail();
        FileWriter(path) << kLong;
        memory.recover();
        return support::readFile(path);
    });
    exhaust("NQ_FileUtils::Linux_Copy", "0" + kLong, {}, [&](Memory& memory) {
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
    exhaust("NQ_System::getDeviceSerialNumber", kLong, {noField + "0)", noField + "1)"},
            [](Memory& memory) {
                memory.fail();
                const std::string value = NQ_System::getDeviceSerialNumber();
                memory.recover();
                return value;
            });
    exhaust("NQ_System::getProcIdByName", "4711", {"0"}, [](Memory& memory) {
        memory.fail();
        const int pid = NQ_System::getProcIdByName("any");
        memory.recover();
        return std::to_string(pid);
    });
    exhaust("NQ_System::getAppName", "out_of_memory_test", {}, [](Memory& memory) {
        memory.fail();
        std::string name = NQ_System::getAppName();
        memory.recover();
        return name;
    });
    exhaust("NQ_System::runScript", "768", {}, [](Memory& memory) {
        kvr::api::log::NQ_Logger::instance();
        memory.fail();
        const int status = NQ_System::runScript("exit 3");
        memory.recover();
        return std::to_string(status);
    });
    (void)unlink(kvr::api::log::NQ_Logger::kLogFileName);
    exhaust("NQ_Gpio", "-10", {}, [](Memory& memory) {
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
    exhaust("FileSystemWatcher", kLong, {}, [&](Memory& memory) {
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
    exhaust("AsyncWatcherRunner", kLong, {"terminate"}, [&](Memory& memory) {
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

TEST(OutOfMemory, AutoMount) {
    support::FakePrograms programs;
    programs.add("mount");
    exhaust("AutoMount::onDeviceInserted", "Running: mount /dev/tavo-none /tmp|mounted", {},
            [](Memory& memory) {
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
