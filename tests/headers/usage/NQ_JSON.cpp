// The header provides json-c's functions for the handles, but no macros of its other headers.
#include <kvr/api/data/NQ_JSON.h>

#if defined(MC_ERROR) || defined(JSON_C_VERSION) || defined(LH_PRIME)
#error "users get json-c's macros"
#endif

void fill(kvr::api::data::NQ_JSON& document) {
    json_object* const number = json_object_new_int(5);
    document.addObjtoObj(document.getObj(), "number", json_object_get(number));
    json_object_put(number);
}
