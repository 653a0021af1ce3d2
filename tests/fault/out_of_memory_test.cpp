// Memory that runs out in every class: each allocation of a representative operation fails, in a
// new process.
//
// If a dependency crashes, the outcome names it. In a trial that starts a program, allocations of
// the forked copy fail too, until it executes the program.

#include <kvr/api/AsyncWatcherRunner.h>
#include <kvr/api/NQ_AutoMount.h>
#include <kvr/api/NQ_JsonRPC.h>
#include <kvr/api/NQ_Stream.h>
#include <kvr/api/com/NQ_Mqtt.h>
#include <kvr/api/com/NQ_Sockets.h>
#include <kvr/api/crypto/NQ_Crypto.h>
#include <kvr/api/data/NQ_JSON.h>
#include <kvr/api/data/NQ_Strings.h>
#include <kvr/api/datetime/NQ_Time.h>
#include <kvr/api/file/NQ_Files.h>
#include <kvr/api/log/NQ_Logger.h>
#include <kvr/api/mng/NQ_Config.h>
#include <kvr/api/mng/NQ_UBUS.h>
#include <kvr/api/sys/NQ_Gpio.h>
#include <kvr/api/sys/NQ_System.h>

#include "FailingMemory.h"
#include "FakePrograms.h"
#include "TempDir.h"
#include "Threads.h"
#include "Waiting.h"

#include <future>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <json-c/json.h>

using fault::exhaust;
using fault::Memory;
using kvr::api::data::NQ_JSON;
using kvr::api::data::NQ_Strings;
using kvr::api::file::FileWriter;
using kvr::api::file::NQ_FileUtils;
using kvr::api::file::NQ_Popen;
using kvr::api::sys::NQ_System;

namespace {

const std::string kDocument = R"({"config":"network","values":{"ipaddr":"10.0.0.1","x":""},)"
                              R"("l":[1,2.5,"three",true]})";
const std::string kLong(100, 'x'); // too long to be stored without an allocation

/// Describes what json-c parsed: the whole document, or how much of it.
std::string verdictOn(const NQ_JSON& json, const Memory& memory) {
    static const std::string whole = NQ_JSON(kDocument).asString();
    if (json.getObj() == nullptr)
        return std::string("no value") + (memory.printed().empty() ? "" : ", reported");
    return json.asString() == whole ? "whole" : "json-c: without a member or an element";
}

// OpenSSL loads the texts of its errors at the first error and keeps them.
const std::string kErrorTexts = "std::bad_alloc (memory kept)";
// Outcomes of json-c with too little memory. json-c does not report these failures, so the library
// cannot either.
const std::set<std::string> kParsing = {"no value", "no value (memory kept)", "no value, reported",
                                        "json-c: without a member or an element (memory kept)",
                                        "signal 11 in libjson-c"};
const std::string kNoText = "exception: kvr::api::data::NQ_JSON: a text is null";

} // namespace

TEST(OutOfMemory, Json) {
    exhaust("NQ_JSON(text)", "whole", kParsing, [](Memory& memory) {
        memory.fail();
        const NQ_JSON json(kDocument);
        memory.recover();
        return verdictOn(json, memory);
    });
    const support::TempDir directory;
    support::writeFile(directory / "file", kDocument);
    exhaust("NQ_JSON::fromFile", "whole", kParsing, [&](Memory& memory) {
        const std::string path = directory / "file";
        memory.fail();
        const NQ_JSON json = NQ_JSON::fromFile(path);
        memory.recover();
        return verdictOn(json, memory);
    });
    exhaust("NQ_JSON()", "{ }", {}, [](Memory& memory) {
        memory.fail();
        const NQ_JSON json;
        memory.recover();
        return json.asString();
    });
    exhaust("NQ_JSON readers", "network{\"ipaddr\":\"10.0.0.1\",\"x\":\"\"}four", {kNoText},
            [](Memory& memory) {
                const NQ_JSON json(kDocument);
                memory.fail();
                std::string text = json.get_json_string("config");
                text += json.get_json_obj_as_string("values");
                const NQ_JSON list = json.get_json_object("l");
                text += list.getArraySize() == 4 ? "four" : "";
                memory.recover();
                return text;
            });
    exhaust("NQ_JSON::asString", "whole", {kNoText, "json-c: a text with a gap"},
            [](Memory& memory) {
                const NQ_JSON json(kDocument);
                memory.fail();
                const std::string text = json.asString();
                memory.recover();
                return text == json.asString() ? "whole" : "json-c: a text with a gap";
            });
    exhaust("NQ_JSON builders", "{ \"key\": \"value\", \"list\": [ \"one\", \"two\" ] }", {},
            [](Memory& memory) {
                NQ_JSON json;
                memory.fail();
                json.addKeyVal("key", "value");
                json_object* const list = json.newArray();
                json.addObjtoObj(json.getObj(), "list", list);
                json.addStringtoObj(list, "one");
                json.addStringtoObj(list, "two");
                memory.recover();
                return json.asString();
            });
    exhaust("NQ_JSON::asMap", "2", {kNoText}, [](Memory& memory) {
        const NQ_JSON json(R"({"a":"one","b":2})");
        std::map<std::string, std::string> fields;
        memory.fail();
        json.asMap(fields);
        memory.recover();
        return std::to_string(fields.size());
    });
    exhaust("NQ_JSON::emptyFields", "1ip=10.0.0.1|", {}, [](Memory& memory) {
        const NQ_JSON json("{\"" + kLong + "\":\"\",\"ip\":\"10.0.0.1\"}");
        std::vector<std::string> empty;
        memory.fail();
        json.emptyFields(empty, json.getObj());
        memory.recover();
        return std::to_string(empty.size()) + memory.printed();
    });
}

TEST(OutOfMemory, Texts) {
    exhaust("NQ_Strings", "3" + std::string(200, 'y'), {}, [](Memory& memory) {
        std::string text = kLong;
        memory.fail();
        const std::size_t fields = NQ_Strings::split("a,,b", ',').size();
        NQ_Strings::replaceAll(text, "x", "yy");
        memory.recover();
        return std::to_string(fields) + text;
    });
    exhaust("NQ_Time", "1970-01-01T00:00:01.500Z1", {}, [](Memory& memory) {
        memory.fail();
        std::string text = kvr::api::datetime::NQ_Time::tvToDateStr({1, 500000});
        const timeval back = kvr::api::datetime::NQ_Time::dateStrToTv(text);
        memory.recover();
        return text + std::to_string(back.tv_sec);
    });
    // The stream fails. It is not standard input, so the call does not return.
    exhaust("NQ_Stream, another stream", kLong + "|" + kLong, {"hangs"}, [](Memory& memory) {
        std::istringstream in("\n" + kLong + "\n");
        memory.giveUpAfter(500);
        memory.fail();
        const std::string line = NQ_Stream::forwardAndCopyInput(in);
        memory.recover();
        return memory.printed() + line;
    });
}

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

namespace {

class Echo : public kvr::api::CallbackMethod {
public:
    bool Call(const NQ_JSON& request, NQ_JSON& response) override {
        response.addKeyVal("result", request.get_json_string("params"));
        return true;
    }
    std::string GetName() const override { return "a name that no string holds by itself"; }
    std::string GetDescription() const override { return ""; }
};

class Dispatcher : public kvr::api::NQ_RPCHandler {
public:
    void RegisterMethods() override { AddMethod(new Echo); }
};

} // namespace

TEST(OutOfMemory, JsonRpc) {
    const std::set<std::string> ofJsonC = {
        "false{ }", "false{ } (memory kept)", "true{ \"result\": \"\" } (memory kept)",
        "std::bad_alloc (memory kept)", "signal 11 in libjson-c"};
    std::set<std::string> others = ofJsonC;
    others.insert("exception: kvr::api::NQ_RPCHandler: \"params\" is null");
    exhaust("NQ_RPCHandler", "true{ \"result\": \"5\" }", others, [](Memory& memory) {
        Dispatcher dispatcher;
        dispatcher.RegisterMethods();
        NQ_JSON response;
        memory.fail();
        const bool done = dispatcher.Process(
            R"({"method":"a name that no string holds by itself","params":5})", response);
        memory.recover();
        return (done ? "true" : "false") + response.asString();
    });
}

namespace {

struct Counter : kvr::api::iot::Observer<kvr::api::com::NQ_Sockets> {
    void update(kvr::api::com::NQ_Sockets*) override { ++messages; }
    int messages = 0;
};

void sendTwoMessages(const std::string& path, bool& stop, const Memory& memory) {
    // Not to the constructor's socket, which becomes unreachable when the loop binds its own.
    EXPECT_TRUE(support::eventually(
        [&] { return memory.printed().find("Waiting for a connection") != std::string::npos; }));
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(0, connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    stop = true;
    for (int i = 0; i < 2; ++i) {
        const std::uint32_t length = static_cast<std::uint32_t>(kLong.size());
        (void)!send(client, &length, sizeof length, MSG_NOSIGNAL);
        (void)!send(client, kLong.data(), kLong.size(), MSG_NOSIGNAL);
    }
    close(client);
}

} // namespace

TEST(OutOfMemory, Sockets) {
    using kvr::api::com::NQ_Sockets;
    const std::string name = "tavo-memory-" + std::to_string(getpid());
    // The listening sockets of constructor and loop, and the client's socket, are never closed.
    exhaust("NQ_Sockets()", " (1 descriptors kept)",
            {"Some error on kvr::api::com::NQ_Sockets::NQ_Sockets|"}, [&](Memory& memory) {
                memory.fail();
                const NQ_Sockets server(name.c_str());
                memory.recover();
                return memory.printed();
            });
    exhaust("NQ_Sockets::loop", "2 (3 descriptors kept)",
            {"0 (3 descriptors kept)", "1 (3 descriptors kept)"}, [&](Memory& memory) {
                NQ_Sockets server(name.c_str());
                Counter counter;
                server.attach(&counter);
                bool stop = false;
                std::thread client(
                    [&] { sendTwoMessages("/tmp/socketDDS/" + name, stop, memory); });
                memory.fail();
                server.loop(stop);
                memory.recover();
                client.join();
                return std::to_string(counter.messages);
            });
    (void)unlink(("/tmp/socketDDS/" + name).c_str());
}

// Paho ends the process when it has no memory for a client, also during a connect.
TEST(OutOfMemory, Mqtt) {
    using kvr::api::com::NQ_Mqtt;
    const std::string made = "tcp://127.0.0.1:1883";
    exhaust("NQ_Mqtt::initialise", made + " (memory kept)",
            {made, "signal 11 in libpaho-mqtt3cs", "signal 6 in libpaho-mqtt3cs"},
            [](Memory& memory) {
                memory.fail();
                NQ_Mqtt mqtt("127.0.0.1", "gateway");
                mqtt.setConnOpts("1883", kLong, kLong, 1, 1, 20, 1, 1);
                mqtt.setLwt(kLong, kLong, kLong, 0, 0);
                mqtt.initialise();
                memory.recover();
                return mqtt.getServerUri();
            });
}

// The status is the raw one: 13 (SIGPIPE) if nobody reads the program's output, 127 * 256 if it
// could not be started.
TEST(OutOfMemory, Programs) {
    const std::string printed = "0:" + kLong + "|";
    const std::set<std::string> others = {
        "0:", "13:", "32512:", "32512:execvp: Cannot allocate memory|"};
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
    exhaust("FileWriter", kLong, {}, [&](Memory& memory) {
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
    exhaust("NQ_Gpio", "-10", {}, [](Memory& memory) {
        memory.fail();
        const int temperature = kvr::api::sys::NQ_Gpio::getTemperature();
        const int input = kvr::api::sys::NQ_Gpio::getBin0();
        memory.recover();
        return std::to_string(temperature) + std::to_string(input);
    });
}

TEST(OutOfMemory, Uci) {
    support::FakePrograms programs;
    programs.add("ubus", "[ \"$3\" != get ] || echo section");
    programs.add("uci");
    const std::string gap = "json-c: without a member or an element";
    exhaust(
        "NQ_UBUS::init and checkConfig", "whole",
        {"not valid", "not valid (memory kept)", gap + " (memory kept)",
         "std::bad_alloc (memory kept)", "signal 11 in libjson-c", kNoText, "whole (memory kept)"},
        [&](Memory& memory) {
            kvr::api::mng::NQ_UBUS section;
            memory.fail();
            section.init(R"({"config":"network","section":"lan","values":{"ipaddr":"10.0.0.1"}})");
            const bool valid = section.checkConfig();
            memory.recover();
            if (!valid)
                return std::string("not valid");
            const bool whole = section.getConfigField() == "network" &&
                               section.getSectionField() == "lan" &&
                               section.getValuesField() == "{ \"ipaddr\": \"10.0.0.1\" }";
            return whole ? "whole" : gap;
        });
    exhaust("NQ_UBUS::makeDeleteConfig", "whole", {kNoText, "json-c: a text with a gap"},
            [](Memory& memory) {
                kvr::api::mng::NQ_UBUS section;
                section.init(R"({"config":"network","section":"lan","values":{"gateway":""}})");
                section.checkConfig();
                memory.fail();
                const std::string text = section.makeDeleteConfig();
                memory.recover();
                return text == section.makeDeleteConfig() ? "whole" : "json-c: a text with a gap";
            });
    exhaust("NQ_UBUS::applyConfig", "true", {}, [](Memory& memory) {
        kvr::api::mng::NQ_UBUS section;
        section.init(R"({"config":"network","section":"lan","values":{"ipaddr":"10.0.0.1"}})");
        memory.fail();
        const bool done = section.applyConfig();
        memory.recover();
        return done ? "true" : "false";
    });
}

TEST(OutOfMemory, Config) {
    const support::TempDir root;
    for (const bool isBase64 : {false, true}) {
        const std::string what = isBase64 ? "NQ_Config, base64" : "NQ_Config, plain";
        exhaust(what, kLong, {kErrorTexts}, [&](Memory& memory) {
            const std::string content =
                isBase64 ? kvr::api::crypto::NQ_Base64::base64_encode(kLong) : kLong;
            kvr::api::mng::NQ_Config config(root.path());
            memory.fail();
            config.init("app", "", "cfg", "file", content, isBase64);
            config.applyConfig();
            memory.recover();
            return support::readFile(root / "app/cfg/file");
        });
    }
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

TEST(OutOfMemory, Cryptography) {
    using kvr::api::crypto::NQ_Base64;
    using kvr::api::crypto::NQ_Crypto;
    // On any failure of OpenSSL the class ends the process.
    exhaust("NQ_Crypto", "32" + kLong.substr(0, 20), {"signal 6 in libtavo"}, [](Memory& memory) {
        std::vector<std::string> parts = {kLong, kLong};
        unsigned char plain[32] = "xxxxxxxxxxxxxxxxxxxx";
        unsigned char cipher[48];
        NQ_Crypto crypto;
        memory.fail();
        crypto.init(parts);
        const int length = crypto.encrypt(plain, 20, cipher);
        crypto.decrypt(cipher, length, plain);
        memory.recover();
        return std::to_string(length) + reinterpret_cast<char*>(plain);
    });
    exhaust("NQ_Base64::base64_encode", NQ_Base64::base64_encode(kLong), {kErrorTexts},
            [](Memory& memory) {
                memory.fail();
                std::string text = NQ_Base64::base64_encode(kLong);
                memory.recover();
                return text;
            });
    exhaust("NQ_Base64::base64_decode", kLong, {kErrorTexts}, [](Memory& memory) {
        const std::string text = NQ_Base64::base64_encode(kLong);
        memory.fail();
        std::string bytes = NQ_Base64::base64_decode(text);
        memory.recover();
        return bytes;
    });
}
