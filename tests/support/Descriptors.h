#ifndef TAVO_TESTS_DESCRIPTORS_H
#define TAVO_TESTS_DESCRIPTORS_H

#include <set>

namespace support {

/// The process's open descriptors: taken before and after, they show what was left open.
std::set<int> openDescriptors();

/// Those open now that were not open in `earlier`.
std::set<int> openedSince(const std::set<int>& earlier);

} // namespace support

#endif
