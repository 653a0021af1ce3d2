// SHA1_* are deprecated since OpenSSL 3, but the keys of existing installations are derived by
// them.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "kvr/api/crypto/NQ_Crypto.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/sha.h>

namespace kvr::api::crypto {
namespace {

constexpr int kKeyLength = 32;
constexpr int kVectorLength = 16;
constexpr int kHexDigits = 2 * SHA_DIGEST_LENGTH;

struct FreeContext {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using Context = std::unique_ptr<EVP_CIPHER_CTX, FreeContext>;

struct FreeChain {
    void operator()(BIO* chain) const { BIO_free_all(chain); }
};
using Chain = std::unique_ptr<BIO, FreeChain>;

/// OpenSSL's three calls for one direction.
struct Cipher {
    decltype(&EVP_EncryptInit_ex) init;
    decltype(&EVP_EncryptUpdate) update;
    decltype(&EVP_EncryptFinal_ex) final;
};
constexpr Cipher kEncryption = {EVP_EncryptInit_ex, EVP_EncryptUpdate, EVP_EncryptFinal_ex};
constexpr Cipher kDecryption = {EVP_DecryptInit_ex, EVP_DecryptUpdate, EVP_DecryptFinal_ex};

/// Number of bytes written to `out`, or -1 with the reasons in OpenSSL's queue.
int transform(const Cipher& cipher, const unsigned char* in, int inLength, const unsigned char* key,
              const unsigned char* iv, unsigned char* out) {
    const Context context(EVP_CIPHER_CTX_new());
    int written = 0;
    int rest = 0;
    if (context == nullptr ||
        cipher.init(context.get(), EVP_aes_256_cbc(), nullptr, key, iv) != 1 ||
        cipher.update(context.get(), out, &written, in, inLength) != 1 ||
        cipher.final(context.get(), out + written, &rest) != 1)
        return -1;
    return written + rest;
}

struct CloseStream {
    void operator()(FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<FILE, CloseStream>;

/// Returns a base64 filter without line breaks, chained to `end`. It takes ownership of `end`; both
/// are freed together. Throws std::bad_alloc when one of them could not be created.
Chain base64Chain(BIO* end) {
    Chain rest(end);
    Chain filter(BIO_new(BIO_f_base64()));
    if (rest == nullptr || filter == nullptr)
        throw std::bad_alloc();
    BIO_set_flags(filter.get(), BIO_FLAGS_BASE64_NO_NL);
    BIO_push(filter.get(), rest.release());
    return filter;
}

std::size_t encodedLength(std::size_t length) {
    return static_cast<std::size_t>(std::ceil(static_cast<double>(length) / 3.0)) * 4;
}

} // namespace

int NQ_Crypto::init(std::vector<std::string>& parts) {
    std::string text;
    for (const std::string& part : parts)
        text += part;
    computeSHA256(text.c_str(), key, kKeyLength);
    std::reverse(text.begin(), text.end());
    computeSHA256(text.c_str(), iv, kVectorLength);
    return 0;
}

int NQ_Crypto::computeSHA256(const char* text, unsigned char* out, int n) {
    unsigned char digest[SHA_DIGEST_LENGTH];
    SHA_CTX context;
    SHA1_Init(&context);
    SHA1_Update(&context, text, std::strlen(text));
    SHA1_Final(digest, &context);

    char hex[kHexDigits + 1];
    for (std::size_t i = 0; i < SHA_DIGEST_LENGTH; ++i)
        (void)std::snprintf(hex + 2 * i, 3, "%02x", static_cast<unsigned int>(digest[i]));
    std::copy_n(hex, std::max(0, std::min(n, kHexDigits)), out);
    return 0;
}

void NQ_Crypto::zeroize() {
    // Not std::fill, which a compiler may drop when the object is destroyed next.
    OPENSSL_cleanse(key, sizeof key);
    OPENSSL_cleanse(iv, sizeof iv);
}

int NQ_Crypto::encrypt(unsigned char* plaintext, int plaintextLen, unsigned char* withKey,
                       unsigned char* withIv, unsigned char* ciphertext) {
    const int length = transform(kEncryption, plaintext, plaintextLen, withKey, withIv, ciphertext);
    if (length < 0)
        handleErrors();
    return length;
}

int NQ_Crypto::decrypt(unsigned char* ciphertext, int ciphertextLen, unsigned char* withKey,
                       unsigned char* withIv, unsigned char* plaintext) {
    const int length =
        transform(kDecryption, ciphertext, ciphertextLen, withKey, withIv, plaintext);
    if (length < 0)
        handleErrors();
    return length;
}

int NQ_Crypto::encrypt(unsigned char* plaintext, int plaintextLen, unsigned char* ciphertext) {
    return encrypt(plaintext, plaintextLen, key, iv, ciphertext);
}

int NQ_Crypto::decrypt(unsigned char* ciphertext, int ciphertextLen, unsigned char* plaintext) {
    return decrypt(ciphertext, ciphertextLen, key, iv, plaintext);
}

void NQ_Crypto::handleErrors() {
    ERR_print_errors_fp(stderr);
    std::abort();
}

std::string NQ_Base64::base64_encode(const std::string& data) {
    std::string text(encodedLength(data.size()), '\0');
    // The terminator that the memory stream writes falls on the string's own.
    Base64Encode(data.data(), static_cast<unsigned int>(data.size()), &text[0]);
    return text;
}

std::string NQ_Base64::base64_decode(const std::string& text) {
    // Surplus padding makes the filter yield more bytes than computed, but never more than the text
    // has.
    std::string data(text.size(), '\0');
    unsigned int ignored = 0;
    Base64Decode(text.c_str(), &data[0], &ignored);
    data.resize(calcDecodeLength(text.c_str()));
    return data;
}

int NQ_Base64::Base64Encode(const char* buffer, unsigned int length, char* b64text) {
    *b64text = '\0'; // for no input at all: the memory stream terminates only what was written
    const Stream stream(fmemopen(b64text, encodedLength(length) + 1, "w"));
    if (stream == nullptr)
        throw std::bad_alloc();
    const Chain chain =
        base64Chain(BIO_new_fp(stream.get(), BIO_NOCLOSE)); // freed before the stream
    BIO_write(chain.get(), buffer, static_cast<int>(length));
    (void)BIO_flush(chain.get()); // writes the last group and its padding
    return 0;
}

int NQ_Base64::Base64Decode(const char* b64message, char* buffer, unsigned int* length) {
    const Chain chain = base64Chain(BIO_new_mem_buf(b64message, -1));
    *length = static_cast<unsigned int>(
        BIO_read(chain.get(), buffer, static_cast<int>(std::strlen(b64message))));
    return 0;
}

unsigned int NQ_Base64::calcDecodeLength(const char* b64input) {
    const auto length = static_cast<unsigned int>(std::strlen(b64input));
    unsigned int padding = 0;
    while (padding < 2 && padding < length && b64input[length - 1 - padding] == '=')
        ++padding;
    const unsigned int unpadded = length * 3 / 4;
    return unpadded > padding ? unpadded - padding : 0;
}

} // namespace kvr::api::crypto
