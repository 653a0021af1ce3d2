// Any bytes as a file that examples/secret_file.cpp decrypts, and as the content of one.
//
// With a damaged file the library aborts the process. The program therefore decrypts in a child;
// here the abort returns to the target instead.

// The program itself, so that its format is the one in use.
#define main secretFileMain
int secretFileMain(int argc, char** argv);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#include "../examples/secret_file.cpp"
#pragma GCC diagnostic pop
#undef main

#include "fuzzing.h"

#include <csetjmp>
#include <cstddef>
#include <cstdint>

#include <dlfcn.h>

#include <openssl/err.h>

namespace {

std::jmp_buf atAbort;
bool mayAbort = false;

} // namespace

// Replace the libraries' functions for the library under test.
extern "C" {

void abort() noexcept {
    if (mayAbort)
        std::longjmp(atAbort, 1); // the frames between have nothing left to destroy
    reinterpret_cast<void (*)()>(dlsym(RTLD_NEXT, "abort"))();
    __builtin_unreachable();
}

void ERR_print_errors_fp(FILE*) { ERR_clear_error(); }
}

namespace {

/// False when the library ended the process.
bool decrypts(NQ_Crypto& crypto, std::string& cipher, std::string& plain, int& length) {
    mayAbort = true;
    const bool aborted = setjmp(atAbort) != 0;
    if (!aborted)
        length = crypto.decrypt(bytesOf(cipher), static_cast<int>(cipher.size()), bytesOf(plain));
    mayAbort = false;
    return !aborted;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static NQ_Crypto crypto;
    static std::vector<std::string> parts = {"gateway 7", "serial ABC123"};
    static const int ready = crypto.init(parts);
    (void)ready;

    const std::string bytes(reinterpret_cast<const char*>(data), size);
    std::string cipher = bytes;
    std::string plain(cipher.size(), '\0'); // all the room that decrypt() requires
    int length = 0;
    if (decrypts(crypto, cipher, plain, length)) {
        fuzzing::require(length >= 0 && static_cast<std::size_t>(length) <= size,
                         "a plain text is no longer than the encrypted one");
        plain.resize(static_cast<std::size_t>(length));
        // The vector is fixed, so equal texts have equal encrypted forms. An empty input is an
        // exception: it decrypts to an empty text, whose encrypted form is one block.
        fuzzing::require(size == 0 || encrypted(crypto, plain) == bytes,
                         "only text encrypted with this key is decrypted");
    }

    std::string file = encrypted(crypto, kMarker + bytes);
    fuzzing::require(file.size() == (kMarker.size() + size) / 16 * 16 + 16,
                     "padded to whole blocks");
    std::string back(file.size(), '\0');
    fuzzing::require(decrypts(crypto, file, back, length), "what was encrypted can be decrypted");
    back.resize(static_cast<std::size_t>(length));
    fuzzing::require(back == kMarker + bytes, "a round trip is exact");
    return 0;
}
