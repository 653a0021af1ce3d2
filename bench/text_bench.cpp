#include <kvr/api/crypto/NQ_Crypto.h>
#include <kvr/api/data/NQ_Strings.h>
#include <kvr/api/datetime/NQ_Time.h>

#include <benchmark/benchmark.h>
#include <openssl/bio.h>
#include <openssl/evp.h>

#include <cstdio>
#include <ctime>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string kFields = "name=value=another=more=and=the=last";

void Split(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(kvr::api::data::NQ_Strings::split(kFields, '='));
}
BENCHMARK(Split);

void Split_floor(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<std::string> fields;
        for (std::size_t start = 0; start < kFields.size();) {
            std::size_t end = kFields.find('=', start);
            if (end == std::string::npos)
                end = kFields.size();
            fields.emplace_back(kFields, start, end - start);
            start = end + 1;
        }
        benchmark::DoNotOptimize(fields);
    }
}
BENCHMARK(Split_floor);

void TimeText(benchmark::State& state) {
    const timeval time = {1577934245, 123000};
    for (auto _ : state)
        benchmark::DoNotOptimize(kvr::api::datetime::NQ_Time::tvToDateStr(time));
}
BENCHMARK(TimeText);

void TimeText_floor(benchmark::State& state) {
    const timeval time = {1577934245, 123000};
    for (auto _ : state) {
        char date[26];
        char fraction[24];
        tm parts;
        gmtime_r(&time.tv_sec, &parts);
        std::string text(date, std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts));
        std::snprintf(fraction, sizeof fraction, ".%03ldZ", static_cast<long>(time.tv_usec / 1000));
        benchmark::DoNotOptimize(text += fraction);
    }
}
BENCHMARK(TimeText_floor);

const std::string kBytes(3000, 'x');

void Base64(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(kvr::api::crypto::NQ_Base64::base64_encode(kBytes));
}
BENCHMARK(Base64);

// The contract names the filter and the memory stream, so the floor uses them too.
void Base64_floor(benchmark::State& state) {
    for (auto _ : state) {
        std::string text(4 * kBytes.size() / 3, '\0');
        FILE* stream = fmemopen(&text[0], text.size() + 1, "w");
        BIO* chain = BIO_push(BIO_new(BIO_f_base64()), BIO_new_fp(stream, BIO_NOCLOSE));
        BIO_set_flags(chain, BIO_FLAGS_BASE64_NO_NL);
        BIO_write(chain, kBytes.data(), static_cast<int>(kBytes.size()));
        (void)BIO_flush(chain);
        BIO_free_all(chain);
        std::fclose(stream);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(Base64_floor);

void Encrypt(benchmark::State& state) {
    kvr::api::crypto::NQ_Crypto crypto;
    std::vector<std::string> parts = {"device", "tenant"};
    crypto.init(parts);
    std::vector<unsigned char> plain(1024, 'p');
    std::vector<unsigned char> secret(plain.size() + 16);
    for (auto _ : state)
        benchmark::DoNotOptimize(
            crypto.encrypt(plain.data(), static_cast<int>(plain.size()), secret.data()));
}
BENCHMARK(Encrypt);

void Encrypt_floor(benchmark::State& state) {
    const unsigned char key[32] = {1};
    const unsigned char iv[16] = {2};
    std::vector<unsigned char> plain(1024, 'p');
    std::vector<unsigned char> secret(plain.size() + 16);
    for (auto _ : state) {
        EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
        int length = 0;
        int rest = 0;
        EVP_EncryptInit_ex(context, EVP_aes_256_cbc(), nullptr, key, iv);
        EVP_EncryptUpdate(context, secret.data(), &length, plain.data(),
                          static_cast<int>(plain.size()));
        EVP_EncryptFinal_ex(context, secret.data() + length, &rest);
        EVP_CIPHER_CTX_free(context);
        benchmark::DoNotOptimize(length + rest);
    }
}
BENCHMARK(Encrypt_floor);

} // namespace
