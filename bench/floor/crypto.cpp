#include "crypto.h"

#include <cstdio>
#include <cstring>

#include <openssl/bio.h>
#include <openssl/evp.h>

namespace bench::floor {

// The contract requires the filter and the memory stream.
std::string encode(const std::string& data) {
    std::string text((data.size() + 2) / 3 * 4, '\0');
    FILE* stream = fmemopen(&text[0], text.size() + 1, "w");
    BIO* filter = BIO_new(BIO_f_base64());
    BIO* chain = BIO_push(filter, BIO_new_fp(stream, BIO_NOCLOSE));
    BIO_set_flags(chain, BIO_FLAGS_BASE64_NO_NL);
    BIO_write(chain, data.data(), static_cast<int>(data.size()));
    (void)BIO_flush(chain);
    BIO_free_all(chain);
    std::fclose(stream);
    return text;
}

std::string decode(const std::string& text) {
    const std::size_t length = std::strlen(text.c_str());
    std::string data(text.size(), '\0');
    BIO* filter = BIO_new(BIO_f_base64());
    BIO* chain = BIO_push(filter, BIO_new_mem_buf(text.c_str(), -1));
    BIO_set_flags(chain, BIO_FLAGS_BASE64_NO_NL);
    (void)BIO_read(chain, &data[0], static_cast<int>(length));
    BIO_free_all(chain);
    std::size_t padding = 0;
    while (padding < 2 && padding < length && text[length - 1 - padding] == '=')
        ++padding;
    data.resize(length * 3 / 4 - padding);
    return data;
}

int encrypt(const unsigned char* plain, int length, const unsigned char* key,
            const unsigned char* vector, unsigned char* secret) {
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    int written = 0;
    int rest = 0;
    const bool done = context != nullptr &&
                      EVP_EncryptInit_ex(context, EVP_aes_256_cbc(), nullptr, key, vector) == 1 &&
                      EVP_EncryptUpdate(context, secret, &written, plain, length) == 1 &&
                      EVP_EncryptFinal_ex(context, secret + written, &rest) == 1;
    EVP_CIPHER_CTX_free(context);
    return done ? written + rest : -1;
}

int decrypt(const unsigned char* secret, int length, const unsigned char* key,
            const unsigned char* vector, unsigned char* plain) {
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    int written = 0;
    int rest = 0;
    const bool done = context != nullptr &&
                      EVP_DecryptInit_ex(context, EVP_aes_256_cbc(), nullptr, key, vector) == 1 &&
                      EVP_DecryptUpdate(context, plain, &written, secret, length) == 1 &&
                      EVP_DecryptFinal_ex(context, plain + written, &rest) == 1;
    EVP_CIPHER_CTX_free(context);
    return done ? written + rest : -1;
}

} // namespace bench::floor
