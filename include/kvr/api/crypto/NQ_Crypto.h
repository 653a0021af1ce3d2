#ifndef KVR_API_CRYPTO_NQ_CRYPTO_H
#define KVR_API_CRYPTO_NQ_CRYPTO_H

#include <kvr/api/export.h>

#include <string>
#include <vector>

namespace kvr {
namespace api {
namespace crypto {

/// AES-256 in CBC mode with PKCS#7 padding, with a key and an initialisation vector derived from
/// texts that both sides know.
///
/// Order:   init(), any number of encrypt() and decrypt(), zeroize().
/// Failure: every failure of OpenSSL prints its error queue on standard error and ABORTS THE
///          PROCESS. So does decrypting with a wrong key or damaged data when the last block's
///          padding is then invalid; otherwise decrypt() returns wrong bytes. Decrypt only data
///          that is known to be intact, or decrypt in a forked child.
/// Limits:  nothing is authenticated, and the vector is the same for every text of one key. Equal
///          texts encrypt to equal bytes.
/// Threads: an object is used by one thread at a time.
class TAVO_API NQ_Crypto {
public:
    /// Derives key and vector from the texts of `parts`, joined in order without separators. The
    /// key is the first 32 hexadecimal digits of the joined text's SHA-1 digest. The vector is the
    /// first 16 digits of the reversed text's digest. Always returns 0. Trap: a digest covers its
    /// text only up to the first NUL byte. So with a NUL byte in the joined text, the key ignores
    /// what follows it and the vector ignores what precedes it.
    int init(std::vector<std::string>& parts);

    /// Writes the first `n` (0 to 40, others are clamped) lowercase hexadecimal digits of the
    /// digest of `text` to `out`, without a terminator. Always returns 0. Deliberate: the digest is
    /// SHA-1, despite the name; keys in the field depend on it.
    int computeSHA256(const char* text, unsigned char* out, int n);

    /// Clears key and vector. encrypt() and decrypt() then use zero bytes.
    void zeroize();

    /// Encrypts `plaintextLen` bytes and returns the number of bytes written to `ciphertext`. This
    /// is the length rounded up to the next multiple of 16. When the length is a multiple already,
    /// a full block is added. `key` has 32 bytes, `iv` 16.
    int encrypt(unsigned char* plaintext, int plaintextLen, unsigned char* key, unsigned char* iv,
                unsigned char* ciphertext);

    /// Decrypts `ciphertextLen` bytes and returns the number of bytes written to `plaintext`, which
    /// must have room for `ciphertextLen`.
    int decrypt(unsigned char* ciphertext, int ciphertextLen, unsigned char* key, unsigned char* iv,
                unsigned char* plaintext);

    /// The same with the key and the vector of init().
    int encrypt(unsigned char* plaintext, int plaintextLen, unsigned char* ciphertext);
    /// The same with the key and the vector of init().
    int decrypt(unsigned char* ciphertext, int ciphertextLen, unsigned char* plaintext);

    /// Prints OpenSSL's error queue on standard error and aborts the process.
    [[noreturn]] void handleErrors();

private:
    // The order is part of the binary interface.
    unsigned char key[256] = {}; // of which the cipher reads 32
    unsigned char iv[128] = {};  // of which the cipher reads 16
};

/// Base64 (RFC 4648, with padding) on one line: line breaks are not written and not accepted.
/// Failure: throws std::bad_alloc when memory is exhausted; nothing else is reported. The part of
///          an invalid text that cannot be decoded reads as zero bytes. To check a text, encode the
///          result again and compare.
/// Threads: no state; any thread, concurrently.
class TAVO_API NQ_Base64 {
public:
    /// Base64 text of any bytes.
    static std::string base64_encode(const std::string& data);

    /// Bytes of a base64 text, always calcDecodeLength() of them.
    static std::string base64_decode(const std::string& text);

    /// Writes the base64 text of `length` bytes and a terminator to `b64text`, which must have room
    /// for 4 * ceil(length / 3) + 1 bytes. Always returns 0.
    static int Base64Encode(const char* buffer, unsigned int length, char* b64text);

    /// Decodes a zero-terminated text into `buffer` and stores the result of BIO_read(), the count
    /// of bytes, in `*length`. For an invalid text that result can be negative, and then wraps.
    /// Always returns 0. `buffer` needs calcDecodeLength() bytes for a well-formed text. Where the
    /// text may have surplus padding, it needs as many bytes as the text has.
    static int Base64Decode(const char* b64message, char* buffer, unsigned int* length);

    /// Size of the decoded bytes, computed from the text's length and its padding only.
    static unsigned int calcDecodeLength(const char* b64input);
};

} // namespace crypto
} // namespace api
} // namespace kvr

#endif
