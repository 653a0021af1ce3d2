#ifndef TAVO_TESTS_FAKE_PROGRAMS_H
#define TAVO_TESTS_FAKE_PROGRAMS_H

#include "TempDir.h"

#include <string>
#include <vector>

namespace support {

/// Puts programs first in PATH while an object exists. Each records its arguments and then runs its
/// script.
class FakePrograms {
public:
    FakePrograms();
    ~FakePrograms();
    FakePrograms(const FakePrograms&) = delete;
    FakePrograms& operator=(const FakePrograms&) = delete;

    /// Adds a program. `script` is shell code that runs after the call is recorded.
    void add(const std::string& name, const std::string& script = "");

    /// All calls so far, in order: the program's name and its arguments. Each argument is in square
    /// brackets ("ubus [call] [uci]"), which show blanks and quotes.
    std::vector<std::string> calls() const;

    const std::string& directory() const { return bin_.path(); }

private:
    TempDir bin_;
    TempDir log_;
    std::string savedPath_;
};

} // namespace support

#endif
