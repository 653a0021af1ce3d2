// Any bytes as base64 text, and the same bytes encoded and decoded again.
#include <kvr/api/crypto/NQ_Crypto.h>

#include "fuzzing.h"

#include <cstddef>
#include <cstdint>
#include <string>

using kvr::api::crypto::NQ_Base64;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::string decoded = NQ_Base64::base64_decode(bytes);
    fuzzing::require(decoded.size() == NQ_Base64::calcDecodeLength(bytes.c_str()),
                     "the size is the one computed from the text");

    const std::string text = NQ_Base64::base64_encode(bytes);
    fuzzing::require(text.size() == (size + 2) / 3 * 4, "four characters for three bytes");
    fuzzing::require(NQ_Base64::base64_decode(text) == bytes, "a round trip is exact");
    return 0;
}
