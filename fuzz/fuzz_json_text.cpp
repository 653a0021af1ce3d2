// Any bytes as the text of an NQ_JSON, read by every reader and changed by the builders.
#include "fuzzing.h"
#include "walk.h"

#include <cstddef>
#include <cstdint>
#include <string>

#include <json-c/json.h>

using kvr::api::data::NQ_JSON;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzing::silenceOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    NQ_JSON json(text);
    fuzzing::walk(json);

    // The text again as key, value and element, also of containers of the wrong type.
    json_object* array = json.newArray();
    json.addStringtoObj(array, text.c_str());
    json.addStringtoObj(json.getObj(), text.c_str());
    json.addKeyVal(text, text);
    json.addKeyValtoObj(array, text.c_str(), "value");
    json.addObjtoObj(json.getObj(), "array", array);
    fuzzing::walk(json);
    return 0;
}
