#include <kvr/api/crypto/NQ_Crypto.h>

#include "floor/crypto.h"
#include "measure.h"

#include <memory>
#include <string>
#include <vector>

#include <openssl/evp.h>

namespace bench {
namespace {

using benchmark::DoNotOptimize;
using kvr::api::crypto::NQ_Base64;
using kvr::api::crypto::NQ_Crypto;

struct Size {
    const char* name;
    std::size_t bytes;
    Repeat repeat;
};

constexpr unsigned char kKey[] = "0123456789abcdef0123456789abcdef";
constexpr unsigned char kVector[] = "0123456789abcdef";

std::string bytes(std::size_t size) {
    std::string data(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        data[i] = static_cast<char>(i * 7 % 251);
    return data;
}

void addBase64(const Size& size) {
    const std::string encode = std::string("base64 encode ") + size.name;
    const std::string data = bytes(size.bytes);
    add(
        encode, kLibrary,
        [data] { return [data] { DoNotOptimize(NQ_Base64::base64_encode(data)); }; }, size.repeat);
    add(
        encode, kFloor, [data] { return [data] { DoNotOptimize(floor::encode(data)); }; },
        size.repeat);
    add(
        encode, "EVP_EncodeBlock",
        [data] {
            return [data] {
                std::string text((data.size() + 2) / 3 * 4 + 1, '\0');
                EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&text[0]),
                                reinterpret_cast<const unsigned char*>(data.data()),
                                static_cast<int>(data.size()));
                text.pop_back();
                DoNotOptimize(text);
            };
        },
        size.repeat);

    const std::string decode = std::string("base64 decode ") + size.name;
    const std::string text = NQ_Base64::base64_encode(data);
    add(
        decode, kLibrary,
        [text] { return [text] { DoNotOptimize(NQ_Base64::base64_decode(text)); }; }, size.repeat);
    add(
        decode, kFloor, [text] { return [text] { DoNotOptimize(floor::decode(text)); }; },
        size.repeat);
    add(
        decode, "EVP_DecodeBlock",
        [text] {
            return [text] {
                std::string plain(text.size() / 4 * 3, '\0');
                EVP_DecodeBlock(reinterpret_cast<unsigned char*>(&plain[0]),
                                reinterpret_cast<const unsigned char*>(text.data()),
                                static_cast<int>(text.size()));
                DoNotOptimize(plain);
            };
        },
        size.repeat);
}

/// The data of both directions: a plain text with its cipher text, and room for either.
struct Buffers {
    explicit Buffers(std::size_t size) : plain(size, 'p'), secret(size + 16), room(size + 32) {
        secretLength =
            floor::encrypt(plain.data(), static_cast<int>(size), kKey, kVector, secret.data());
    }
    int length() const { return static_cast<int>(plain.size()); }

    std::vector<unsigned char> plain;
    std::vector<unsigned char> secret;
    std::vector<unsigned char> room;
    int secretLength;
    unsigned char key[sizeof kKey] = {};
    unsigned char vector[sizeof kVector] = {};
};

void addCipher(const Size& size) {
    const std::string encrypt = std::string("AES encrypt ") + size.name;
    const std::string decrypt = std::string("AES decrypt ") + size.name;
    const auto buffers = [bytes = size.bytes] {
        auto made = std::make_shared<Buffers>(bytes);
        std::copy(std::begin(kKey), std::end(kKey), made->key);
        std::copy(std::begin(kVector), std::end(kVector), made->vector);
        return made;
    };
    add(
        encrypt, kLibrary,
        [buffers] {
            return [at = buffers(), crypto = std::make_shared<NQ_Crypto>()] {
                DoNotOptimize(crypto->encrypt(at->plain.data(), at->length(), at->key, at->vector,
                                              at->room.data()));
            };
        },
        size.repeat);
    add(
        encrypt, kFloor,
        [buffers] {
            return [at = buffers()] {
                DoNotOptimize(floor::encrypt(at->plain.data(), at->length(), at->key, at->vector,
                                             at->room.data()));
            };
        },
        size.repeat);
    add(
        decrypt, kLibrary,
        [buffers] {
            return [at = buffers(), crypto = std::make_shared<NQ_Crypto>()] {
                DoNotOptimize(crypto->decrypt(at->secret.data(), at->secretLength, at->key,
                                              at->vector, at->room.data()));
            };
        },
        size.repeat);
    add(
        decrypt, kFloor,
        [buffers] {
            return [at = buffers()] {
                DoNotOptimize(floor::decrypt(at->secret.data(), at->secretLength, at->key,
                                             at->vector, at->room.data()));
            };
        },
        size.repeat);

    // One context for all messages, as a program that calls OpenSSL itself may keep.
    const auto kept = [](auto init, auto update, auto finish) {
        return [=](Buffers& at, const unsigned char* in, int length) {
            static const std::shared_ptr<EVP_CIPHER_CTX> context(EVP_CIPHER_CTX_new(),
                                                                 &EVP_CIPHER_CTX_free);
            int written = 0;
            int rest = 0;
            init(context.get(), EVP_aes_256_cbc(), nullptr, at.key, at.vector);
            update(context.get(), at.room.data(), &written, in, length);
            finish(context.get(), at.room.data() + written, &rest);
            DoNotOptimize(written + rest);
        };
    };
    const char* const peer = "EVP, context kept";
    add(
        encrypt, peer,
        [buffers, run = kept(&EVP_EncryptInit_ex, &EVP_EncryptUpdate, &EVP_EncryptFinal_ex)] {
            return [at = buffers(), run] { run(*at, at->plain.data(), at->length()); };
        },
        size.repeat);
    add(
        decrypt, peer,
        [buffers, run = kept(&EVP_DecryptInit_ex, &EVP_DecryptUpdate, &EVP_DecryptFinal_ex)] {
            return [at = buffers(), run] { run(*at, at->secret.data(), at->secretLength); };
        },
        size.repeat);
}

} // namespace

void addCrypto() {
    const Size sizes[] = {{"48 B", 48, {100}}, {"1 KiB", 1024, {50}}, {"1 MiB", 1 << 20, {2}}};
    for (const Size& size : sizes) {
        addBase64(size);
        addCipher(size);
    }
}

} // namespace bench
