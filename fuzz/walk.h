#ifndef TAVO_FUZZ_WALK_H
#define TAVO_FUZZ_WALK_H

#include <kvr/api/data/NQ_JSON.h>

namespace fuzzing {

/// Uses every reader and flattener of NQ_JSON on a value and on all that it contains, and checks
/// what they promise. Needs no more stack than json-c's limit on nesting allows.
void walk(const kvr::api::data::NQ_JSON& value);

} // namespace fuzzing

#endif
