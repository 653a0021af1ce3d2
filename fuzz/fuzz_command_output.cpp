// Any bytes as what fw_printenv, ubus, pidof or a shell's command prints. No program is started:
// the calls that would start one are replaced, and the pipe holds the bytes.
#include <kvr/api/file/NQ_Files.h>
#include <kvr/api/mng/NQ_UBUS.h>
#include <kvr/api/sys/NQ_System.h>

#include "fuzzing.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include <dlfcn.h>
#include <sys/types.h>
#include <unistd.h>

using kvr::api::file::NQ_Popen;
using kvr::api::mng::NQ_UBUS;
using kvr::api::sys::NQ_System;

namespace {

constexpr pid_t kProgram = 1 << 30; // above every process id

template <class Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// The one input, while the library may ask for it.
const std::string* printed = nullptr;
int pipeEnds[2] = {-1, -1};
int commandsRun = 0;

void print(int end) {
    fuzzing::require(write(end, printed->data(), printed->size()) ==
                         static_cast<ssize_t>(printed->size()),
                     "the pipe has room");
}

} // namespace

// In front of the C library's, for the library under test.
extern "C" {

int pipe(int* ends) noexcept {
    const int result = real<int(int*)>("pipe")(ends);
    std::copy_n(ends, 2, pipeEnds);
    return result;
}

pid_t fork() noexcept {
    if (printed == nullptr)
        return real<pid_t()>("fork")();
    print(pipeEnds[1]);
    return kProgram;
}

pid_t waitpid(pid_t pid, int* status, int options) {
    if (pid != kProgram)
        return real<pid_t(pid_t, int*, int)>("waitpid")(pid, status, options);
    *status = 0;
    return pid;
}

FILE* popen(const char*, const char*) {
    int ends[2];
    if (pipe(ends) != 0)
        return nullptr;
    print(ends[1]);
    close(ends[1]);
    return fdopen(ends[0], "r");
}

int pclose(FILE* stream) { return std::fclose(stream); }

int system(const char*) {
    ++commandsRun;
    return 0;
}
}

namespace {

/// What a loop of fgets() with a buffer of `size` makes of a text, each piece ending at its first
/// zero byte. At most `pieces`.
std::string readByPieces(const std::string& text, std::size_t size, std::size_t pieces = SIZE_MAX) {
    std::string result;
    for (std::size_t start = 0; start < text.size() && pieces > 0; --pieces) {
        const std::size_t newline = text.find('\n', start);
        const std::size_t lineEnd = newline == std::string::npos ? text.size() : newline + 1;
        const std::size_t end = std::min(lineEnd, start + size - 1);
        result += text.substr(start, end - start).c_str();
        start = end;
    }
    return result;
}

void readVariable(const std::string& output) {
    const std::size_t first = output.find('=');
    std::string value;
    try {
        value = NQ_System::getDeviceSerialNumber();
    } catch (const std::out_of_range& error) {
        fuzzing::require(first == std::string::npos || first + 1 == output.size(),
                         "a value that is there is found");
        const std::string fields = output.empty() ? "0" : "1";
        fuzzing::require("vector::_M_range_check: __n (which is 1) >= this->size() (which is " +
                                 fields + ")" ==
                             error.what(),
                         "as documented");
        return;
    }
    fuzzing::require(first != std::string::npos, "a value comes from behind a =");
    std::string expected = output.substr(first + 1, output.find('=', first + 1) - first - 1);
    expected.erase(std::remove(expected.begin(), expected.end(), '\n'), expected.end());
    fuzzing::require(value == expected, "a value ends at the next =");
}

void applySection(const std::string& output) {
    NQ_UBUS section;
    section.init(R"({"config":"network","section":"lan","values":{"mtu":"1500"}})");
    fuzzing::require(section.getSystemCfg() == output, "the section's text comes as it is");
    commandsRun = 0;
    section.applyConfig();
    fuzzing::require(commandsRun == (output.empty() ? 2 : 1), "only a missing section is added");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzing::silenceOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    printed = &text;
    const std::string output = readByPieces(text, 255);
    readVariable(output);
    applySection(output);
    const std::string line = readByPieces(text, 512, 1);
    fuzzing::require(NQ_System::getProcIdByName("any") ==
                         static_cast<int>(std::strtoul(line.c_str(), nullptr, 10)),
                     "a process id is the number that a line begins with");
    fuzzing::require(NQ_Popen::executeInsecure("any") == readByPieces(text, 128),
                     "a shell's output comes as it is");
    printed = nullptr;
    return 0;
}
