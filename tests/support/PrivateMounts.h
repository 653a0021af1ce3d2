#ifndef TAVO_TESTS_PRIVATE_MOUNTS_H
#define TAVO_TESTS_PRIVATE_MOUNTS_H

#include <functional>
#include <initializer_list>
#include <string>

namespace support {

/// Runs `body` in a forked copy of the process with its own mount namespace. There an empty file
/// system covers each of `directories`; the host's directories do not change. Sources and
/// build tree stay reachable. An expectation that fails in `body` fails the running test. Skips the
/// running test where the machine permits no such namespace (neither as root nor through a user
/// namespace).
void inPrivateMounts(std::initializer_list<std::string> directories,
                     const std::function<void()>& body);

} // namespace support

#endif
