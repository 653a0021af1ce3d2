#ifndef TAVO_TESTS_PRIVATE_MOUNTS_H
#define TAVO_TESTS_PRIVATE_MOUNTS_H

#include <functional>
#include <initializer_list>
#include <string>

namespace support {

/// Runs `body` in a forked copy of the process that has a mount namespace of its own, in which a
/// fresh, empty file system covers each of `directories`; the host's stay as they are. Expectations
/// that fail in it fail the running test. Skips the running test where the machine allows no such
/// namespace (neither as root nor through a user namespace).
void inPrivateMounts(std::initializer_list<std::string> directories,
                     const std::function<void()>& body);

} // namespace support

#endif
