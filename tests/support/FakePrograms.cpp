#include "FakePrograms.h"

#include <cstdlib>
#include <sstream>

namespace support {

FakePrograms::FakePrograms() {
    const char* path = std::getenv("PATH");
    savedPath_ = path ? path : "/usr/bin:/bin";
    setenv("PATH", (bin_.path() + ":" + savedPath_).c_str(), 1);
}

FakePrograms::~FakePrograms() { setenv("PATH", savedPath_.c_str(), 1); }

void FakePrograms::add(const std::string& name, const std::string& script) {
    writeFile(bin_ / name,
              "#!/bin/sh\n"
              "line=" +
                  name +
                  "\n"
                  "for argument in \"$@\"; do line=\"$line [$argument]\"; done\n"
                  "printf '%s\\n' \"$line\" >> " +
                  (log_ / "calls") + "\n" + script + "\n",
              0755);
}

std::vector<std::string> FakePrograms::calls() const {
    std::vector<std::string> result;
    if (!exists(log_ / "calls"))
        return result;
    std::istringstream lines(readFile(log_ / "calls"));
    for (std::string line; std::getline(lines, line);)
        result.push_back(line);
    return result;
}

} // namespace support
