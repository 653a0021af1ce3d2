#ifndef TAVO_TESTS_DESCRIPTORS_H
#define TAVO_TESTS_DESCRIPTORS_H

#include <set>

namespace support {

/// The process's open descriptors. Comparing the sets before and after a call shows what it left
/// open.
std::set<int> openDescriptors();

/// The descriptors that are open now and were not in `earlier`.
std::set<int> openedSince(const std::set<int>& earlier);

} // namespace support

#endif
