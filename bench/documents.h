#ifndef TAVO_BENCH_DOCUMENTS_H
#define TAVO_BENCH_DOCUMENTS_H

#include <string>

namespace bench {

/// A request to an agent, of about 200 bytes.
const std::string& smallDocument();

/// A list of 450 devices, of about 90 KB.
const std::string& largeDocument();

/// An object of 20 members that are texts, every fifth empty.
const std::string& flatDocument();

} // namespace bench

#endif
