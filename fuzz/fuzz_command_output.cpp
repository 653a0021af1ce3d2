// Any bytes as the output of fw_printenv, ubus, pidof or a shell's command. No program is started:
// the calls that would start one are replaced, and the pipe holds the bytes.
#include <kvr/api/file/NQ_Files.h>
#include <kvr/api/mng/NQ_UBUS.h>
#include <kvr/api/sys/NQ_System.h>

#include "fake_program.h"
#include "fuzzing.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include <unistd.h>

using kvr::api::file::NQ_Popen;
using kvr::api::mng::NQ_UBUS;
using kvr::api::sys::NQ_System;

namespace {

/// The input, while the library may read it.
const std::string* printed = nullptr;
int commandsRun = 0;

} // namespace

// Replace the C library's functions for the library under test.
extern "C" {

FILE* popen(const char*, const char*) {
    int ends[2];
    if (pipe(ends) != 0)
        return nullptr;
    fuzzing::require(write(ends[1], printed->data(), printed->size()) ==
                         static_cast<ssize_t>(printed->size()),
                     "the pipe has room");
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
                         "an existing value is found");
        const std::string fields = output.empty() ? "0" : "1";
        fuzzing::require("vector::_M_range_check: __n (which is 1) >= this->size() (which is " +
                                 fields + ")" ==
                             error.what(),
                         "as documented");
        return;
    }
    fuzzing::require(first != std::string::npos, "a value follows a =");
    std::string expected = output.substr(first + 1, output.find('=', first + 1) - first - 1);
    expected.erase(std::remove(expected.begin(), expected.end(), '\n'), expected.end());
    fuzzing::require(value == expected, "a value ends at the next =");
}

void applySection(const std::string& output) {
    NQ_UBUS section;
    section.init(R"({"config":"network","section":"lan","values":{"mtu":"1500"}})");
    fuzzing::require(section.getSystemCfg() == output, "the section's text is unchanged");
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
    const fuzzing::FakeProgram program(text);
    const std::string output = readByPieces(text, 255);
    readVariable(output);
    applySection(output);
    const std::string line = readByPieces(text, 512, 1);
    fuzzing::require(NQ_System::getProcIdByName("any") ==
                         static_cast<int>(std::strtoul(line.c_str(), nullptr, 10)),
                     "a process id is the number that a line begins with");
    fuzzing::require(NQ_Popen::executeInsecure("any") == readByPieces(text, 128),
                     "a shell's output is unchanged");
    printed = nullptr;
    return 0;
}
