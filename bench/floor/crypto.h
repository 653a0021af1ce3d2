#ifndef TAVO_BENCH_FLOOR_CRYPTO_H
#define TAVO_BENCH_FLOOR_CRYPTO_H

#include <string>

namespace bench::floor {

std::string encode(const std::string& data);
std::string decode(const std::string& text);

/// AES-256-CBC; the results are lengths, or -1.
int encrypt(const unsigned char* plain, int length, const unsigned char* key,
            const unsigned char* vector, unsigned char* secret);
int decrypt(const unsigned char* secret, int length, const unsigned char* key,
            const unsigned char* vector, unsigned char* plain);

} // namespace bench::floor

#endif
