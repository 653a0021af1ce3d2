#include <kvr/api/crypto/NQ_Crypto.h>

#include "CapturedOutput.h"
#include "Interposed.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <random>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evp.h>

namespace {

std::set<EVP_CIPHER_CTX*> contexts; // those not yet freed
std::string failing;                // this call does its work and then returns `failure`
int failure = 0;

int reported(const char* name, int result) { return failing == name ? failure : result; }

} // namespace

// These replace OpenSSL's functions, to track contexts and to make each step fail.
extern "C" {

EVP_CIPHER_CTX* EVP_CIPHER_CTX_new() {
    if (failing == "EVP_CIPHER_CTX_new")
        return nullptr;
    EVP_CIPHER_CTX* const context =
        support::next<decltype(EVP_CIPHER_CTX_new)>("EVP_CIPHER_CTX_new")();
    contexts.insert(context);
    return context;
}

void EVP_CIPHER_CTX_free(EVP_CIPHER_CTX* context) {
    contexts.erase(context);
    support::next<decltype(EVP_CIPHER_CTX_free)>("EVP_CIPHER_CTX_free")(context);
}

int EVP_EncryptInit_ex(EVP_CIPHER_CTX* context, const EVP_CIPHER* cipher, ENGINE* engine,
                       const unsigned char* key, const unsigned char* iv) {
    return reported(__func__, support::next<decltype(EVP_EncryptInit_ex)>(__func__)(
                                  context, cipher, engine, key, iv));
}

int EVP_EncryptUpdate(EVP_CIPHER_CTX* context, unsigned char* out, int* outLength,
                      const unsigned char* in, int inLength) {
    return reported(__func__, support::next<decltype(EVP_EncryptUpdate)>(__func__)(
                                  context, out, outLength, in, inLength));
}

int EVP_EncryptFinal_ex(EVP_CIPHER_CTX* context, unsigned char* out, int* outLength) {
    return reported(
        __func__, support::next<decltype(EVP_EncryptFinal_ex)>(__func__)(context, out, outLength));
}

int EVP_DecryptInit_ex(EVP_CIPHER_CTX* context, const EVP_CIPHER* cipher, ENGINE* engine,
                       const unsigned char* key, const unsigned char* iv) {
    return reported(__func__, support::next<decltype(EVP_DecryptInit_ex)>(__func__)(
                                  context, cipher, engine, key, iv));
}

int EVP_DecryptUpdate(EVP_CIPHER_CTX* context, unsigned char* out, int* outLength,
                      const unsigned char* in, int inLength) {
    return reported(__func__, support::next<decltype(EVP_DecryptUpdate)>(__func__)(
                                  context, out, outLength, in, inLength));
}

int EVP_DecryptFinal_ex(EVP_CIPHER_CTX* context, unsigned char* out, int* outLength) {
    return reported(
        __func__, support::next<decltype(EVP_DecryptFinal_ex)>(__func__)(context, out, outLength));
}
}

namespace {

using kvr::api::crypto::NQ_Crypto;
using Bytes = std::vector<unsigned char>;

static_assert(std::is_standard_layout<NQ_Crypto>::value, "the fields can be looked at");
static_assert(sizeof(NQ_Crypto) == 256 + 128, "key and vector, nothing else");

constexpr std::size_t kVectorAt = 256;

/// All bytes of the object: the key's buffer, then the vector's.
std::string fieldsOf(const NQ_Crypto& crypto) {
    return std::string(reinterpret_cast<const char*>(&crypto), sizeof crypto);
}

NQ_Crypto initialised(std::vector<std::string> parts) {
    NQ_Crypto crypto;
    EXPECT_EQ(0, crypto.init(parts));
    return crypto;
}

std::string keyOf(const NQ_Crypto& crypto) { return fieldsOf(crypto).substr(0, 32); }
std::string vectorOf(const NQ_Crypto& crypto) { return fieldsOf(crypto).substr(kVectorAt, 16); }

std::string digestOf(const std::string& text) {
    unsigned char hex[40];
    EXPECT_EQ(0, NQ_Crypto().computeSHA256(text.c_str(), hex, 40));
    return std::string(hex, hex + 40);
}

/// The digest of all bytes, computed with another interface of OpenSSL.
std::string sha1(const std::string& bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha1(), nullptr);
    std::string hex;
    for (unsigned int i = 0; i < length; ++i) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", static_cast<unsigned int>(digest[i]));
        hex += pair;
    }
    return hex;
}

std::string reversed(std::string text) {
    std::reverse(text.begin(), text.end());
    return text;
}

Bytes fromHex(const std::string& hex) {
    Bytes bytes;
    for (std::size_t i = 0; i < hex.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

Bytes randomBytes(std::size_t size, unsigned int seed) {
    std::mt19937 random(seed);
    Bytes bytes(size);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(random());
    return bytes;
}

constexpr unsigned char kGuard = 0xA5;

/// Cuts `buffer` to the `length` that was returned and checks that the bytes after it are
/// unchanged.
Bytes written(Bytes buffer, int length) {
    const auto end = buffer.begin() + length;
    EXPECT_TRUE(std::all_of(end, buffer.end(), [](unsigned char b) { return b == kGuard; }));
    return Bytes(buffer.begin(), end);
}

Bytes encrypted(NQ_Crypto& crypto, Bytes plain) {
    Bytes out(plain.size() + 64, kGuard);
    plain.push_back(0); // so that data() is valid for empty input
    const int length = crypto.encrypt(plain.data(), static_cast<int>(plain.size()) - 1, out.data());
    return written(out, length);
}

/// Decryption may write to a buffer as large as the ciphertext, so there are no guard bytes to
/// check.
Bytes decrypted(NQ_Crypto& crypto, Bytes cipher) {
    Bytes out(cipher.size());
    const int length = crypto.decrypt(cipher.data(), static_cast<int>(cipher.size()), out.data());
    out.resize(static_cast<std::size_t>(length));
    return out;
}

// computeSHA256 -----------------------------------------------------------------------------------

TEST(NQ_Crypto, TheDigestIsThatOfThePublishedExamples) {
    EXPECT_EQ("da39a3ee5e6b4b0d3255bfef95601890afd80709", digestOf(""));
    EXPECT_EQ("a9993e364706816aba3e25717850c26c9cd0d89d", digestOf("abc"));
    EXPECT_EQ("84983e441c3bd26ebaae4aa1f95129e5e54670f1",
              digestOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"));
    EXPECT_EQ("34aa973cd4c4daa4f61eeb2bdbad27316534016f", digestOf(std::string(1000000, 'a')));
}

TEST(NQ_Crypto, TheDigestOfAnyTextIsSha1) {
    std::mt19937 random(3);
    for (std::size_t size = 0; size < 200; ++size) {
        std::string text(size, '\0');
        for (char& c : text)
            c = static_cast<char>(1 + random() % 255);
        ASSERT_EQ(sha1(text), digestOf(text)) << "of " << size << " bytes";
    }
}

TEST(NQ_Crypto, OnlyTheDigitsAskedForAreWrittenAndNoTerminator) {
    const std::string digits = sha1("abc");
    for (const int n : {0, 1, 7, 16, 32, 39, 40}) {
        Bytes out(64, kGuard);
        EXPECT_EQ(0, NQ_Crypto().computeSHA256("abc", out.data(), n));
        const Bytes got = written(out, n);
        EXPECT_EQ(digits.substr(0, static_cast<std::size_t>(n)),
                  std::string(got.begin(), got.end()));
    }
}

TEST(NQ_Crypto, CountsOfDigitsOutOfRangeAreClamped) {
    const std::string digits = sha1("abc");
    for (const int n : {41, 1000, 2147483647}) {
        Bytes out(64, kGuard);
        EXPECT_EQ(0, NQ_Crypto().computeSHA256("abc", out.data(), n));
        const Bytes got = written(out, 40);
        EXPECT_EQ(digits, std::string(got.begin(), got.end()));
    }
    for (const int n : {-1, -2147483647}) {
        Bytes out(64, kGuard);
        EXPECT_EQ(0, NQ_Crypto().computeSHA256("abc", out.data(), n));
        written(out, 0);
    }
}

// init --------------------------------------------------------------------------------------------

TEST(NQ_Crypto, KeyAndVectorAreDigitsOfTheDigestsOfTheTextForwardAndBackward) {
    const NQ_Crypto crypto = initialised({"abc"});
    EXPECT_EQ("a9993e364706816aba3e25717850c26c", keyOf(crypto));
    EXPECT_EQ(sha1("cba").substr(0, 16), vectorOf(crypto));
}

TEST(NQ_Crypto, TheRestOfBothBuffersStaysUntouched) {
    NQ_Crypto crypto;
    std::memset(reinterpret_cast<unsigned char*>(&crypto), kGuard, sizeof crypto);
    std::vector<std::string> parts = {"abc"};
    EXPECT_EQ(0, crypto.init(parts));
    const std::string rest(256, static_cast<char>(kGuard));
    EXPECT_EQ(rest.substr(0, 256 - 32), fieldsOf(crypto).substr(32, 256 - 32));
    EXPECT_EQ(rest.substr(0, 128 - 16), fieldsOf(crypto).substr(kVectorAt + 16));
}

TEST(NQ_Crypto, PartsAreJoinedInOrderWithoutSeparators) {
    const std::string whole = fieldsOf(initialised({"abc"}));
    EXPECT_EQ(whole, fieldsOf(initialised({"a", "bc"})));
    EXPECT_EQ(whole, fieldsOf(initialised({"", "ab", "", "c"})));
    EXPECT_NE(whole, fieldsOf(initialised({"bc", "a"})));
}

TEST(NQ_Crypto, PartsAreNotChanged) {
    std::vector<std::string> parts = {"a", "bc"};
    NQ_Crypto().init(parts);
    EXPECT_EQ((std::vector<std::string>{"a", "bc"}), parts);
}

TEST(NQ_Crypto, NoPartsGiveTheDigestOfTheEmptyText) {
    const NQ_Crypto crypto = initialised({});
    EXPECT_EQ("da39a3ee5e6b4b0d3255bfef95601890", keyOf(crypto));
    EXPECT_EQ("da39a3ee5e6b4b0d", vectorOf(crypto));
    EXPECT_EQ(fieldsOf(crypto), fieldsOf(initialised({""})));
}

TEST(NQ_Crypto, ATextCountsUpToItsFirstZeroByteFromEitherEnd) {
    const NQ_Crypto crypto = initialised({std::string("ab\0cd", 5)});
    EXPECT_EQ(sha1("ab").substr(0, 32), keyOf(crypto));
    EXPECT_EQ(sha1("dc").substr(0, 16), vectorOf(crypto));
}

TEST(NQ_Crypto, BytesOutsideAsciiCountAsTheyAre) {
    const std::string text = "schl\xc3\xbcssel\xff";
    const NQ_Crypto crypto = initialised({text});
    EXPECT_EQ(sha1(text).substr(0, 32), keyOf(crypto));
    EXPECT_EQ(sha1(reversed(text)).substr(0, 16), vectorOf(crypto));
}

TEST(NQ_Crypto, InitAgainReplacesKeyAndVector) {
    NQ_Crypto crypto = initialised({"something else"});
    std::vector<std::string> parts = {"abc"};
    EXPECT_EQ(0, crypto.init(parts));
    EXPECT_EQ(fieldsOf(initialised({"abc"})), fieldsOf(crypto));
}

// zeroize -----------------------------------------------------------------------------------------

TEST(NQ_Crypto, ZeroizeClearsBothBuffersWhole) {
    NQ_Crypto crypto;
    std::memset(reinterpret_cast<unsigned char*>(&crypto), kGuard, sizeof crypto);
    crypto.zeroize();
    EXPECT_EQ(std::string(256 + 128, '\0'), fieldsOf(crypto));
}

TEST(NQ_Crypto, AfterZeroizeKeyAndVectorAreZeroBytes) {
    NQ_Crypto crypto = initialised({"abc"});
    crypto.zeroize();
    Bytes zeros(32, 0);
    Bytes plain = randomBytes(50, 4);
    Bytes expected(64);
    ASSERT_EQ(64, crypto.encrypt(plain.data(), 50, zeros.data(), zeros.data(), expected.data()));
    EXPECT_EQ(expected, encrypted(crypto, plain));
}

// encrypt and decrypt -----------------------------------------------------------------------------

TEST(NQ_Crypto, EncryptionIsThatOfThePublishedExample) {
    // NIST SP 800-38A, F.2.5: AES-256 in CBC mode.
    Bytes key = fromHex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
    Bytes iv = fromHex("000102030405060708090a0b0c0d0e0f");
    Bytes plain = fromHex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                          "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
    const Bytes cipher =
        fromHex("f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
                "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b");
    NQ_Crypto crypto;
    Bytes out(plain.size() + 64, kGuard);
    const int length = crypto.encrypt(plain.data(), 64, key.data(), iv.data(), out.data());
    ASSERT_EQ(80, length); // with a block of padding, which the example lacks
    Bytes got = written(out, length);
    EXPECT_EQ(cipher, Bytes(got.begin(), got.begin() + 64));
    Bytes back(80);
    ASSERT_EQ(64, crypto.decrypt(got.data(), 80, key.data(), iv.data(), back.data()));
    back.resize(64);
    EXPECT_EQ(plain, back);
}

TEST(NQ_Crypto, LengthsAreRoundedUpToTheNextBlockAndComeBackExact) {
    NQ_Crypto crypto = initialised({"device", "0815"});
    for (std::size_t size = 0; size <= 100; ++size) {
        const Bytes plain = randomBytes(size, static_cast<unsigned int>(size));
        const Bytes cipher = encrypted(crypto, plain);
        ASSERT_EQ((size / 16 + 1) * 16, cipher.size()) << size;
        ASSERT_EQ(plain, decrypted(crypto, cipher)) << size;
    }
}

TEST(NQ_Crypto, LargeDataComesBackExact) {
    NQ_Crypto crypto = initialised({"abc"});
    const Bytes plain = randomBytes(3000001, 5);
    EXPECT_EQ(plain, decrypted(crypto, encrypted(crypto, plain)));
}

TEST(NQ_Crypto, TheShortFormsUseKeyAndVectorOfInit) {
    NQ_Crypto crypto = initialised({"abc"});
    std::string key = sha1("abc").substr(0, 32);
    std::string iv = sha1("cba").substr(0, 16);
    auto* const keyBytes = reinterpret_cast<unsigned char*>(&key[0]);
    auto* const ivBytes = reinterpret_cast<unsigned char*>(&iv[0]);
    Bytes plain = randomBytes(77, 6);
    Bytes cipher(80);
    NQ_Crypto other;
    ASSERT_EQ(80, other.encrypt(plain.data(), 77, keyBytes, ivBytes, cipher.data()));
    EXPECT_EQ(cipher, encrypted(crypto, plain));
    Bytes back(80);
    ASSERT_EQ(77, other.decrypt(cipher.data(), 80, keyBytes, ivBytes, back.data()));
    back.resize(77);
    EXPECT_EQ(plain, back);
    EXPECT_EQ(plain, decrypted(crypto, cipher));
}

TEST(NQ_Crypto, OnlyThirtyTwoBytesOfTheKeyAndSixteenOfTheVectorAreRead) {
    // Exact sizes, so that the address sanitizer reports a read of one byte too many.
    Bytes key = randomBytes(32, 7);
    Bytes iv = randomBytes(16, 8);
    Bytes plain = randomBytes(16, 9);
    Bytes cipher(32);
    EXPECT_EQ(32, NQ_Crypto().encrypt(plain.data(), 16, key.data(), iv.data(), cipher.data()));
}

TEST(NQ_Crypto, CallsAreIndependentOfEachOther) {
    NQ_Crypto crypto = initialised({"abc"});
    const Bytes plain = randomBytes(40, 10);
    const Bytes first = encrypted(crypto, plain);
    encrypted(crypto, randomBytes(99, 11));
    EXPECT_EQ(first, encrypted(crypto, plain));
}

TEST(NQ_Crypto, DamageBeforeTheLastTwoBlocksIsNotNoticed) {
    NQ_Crypto crypto = initialised({"abc"});
    const Bytes plain = randomBytes(64, 12);
    Bytes cipher = encrypted(crypto, plain);
    cipher[3] ^= 1;
    const Bytes back = decrypted(crypto, cipher);
    ASSERT_EQ(64u, back.size());
    EXPECT_NE(Bytes(plain.begin(), plain.begin() + 16), Bytes(back.begin(), back.begin() + 16));
    EXPECT_EQ(Bytes(plain.begin() + 32, plain.end()), Bytes(back.begin() + 32, back.end()));
}

TEST(NQ_Crypto, EveryContextIsFreed) {
    NQ_Crypto crypto = initialised({"abc"});
    const Bytes cipher = encrypted(crypto, randomBytes(20, 14));
    EXPECT_THAT(contexts, testing::IsEmpty());
    decrypted(crypto, cipher);
    EXPECT_THAT(contexts, testing::IsEmpty());
}

TEST(NQ_Crypto, NothingIsPrintedAndNoErrorIsLeftInTheQueue) {
    const auto work = [] {
        NQ_Crypto crypto = initialised({"abc"});
        decrypted(crypto, encrypted(crypto, randomBytes(20, 13)));
        crypto.zeroize();
    };
    EXPECT_EQ("", support::printedBy(work));
    EXPECT_EQ("", support::errorsOf(work));
    EXPECT_EQ(0ul, ERR_peek_error());
}

// the end of the process --------------------------------------------------------------------------

// An emulator prints its own message about the abort.
const std::string kEnd = "(qemu: uncaught target signal 6 [^\n]*\n)?$";
const std::string kNothing = "^" + kEnd;

/// Returns the one record of OpenSSL's queue, with no other output: thread, code, place and reason.
std::string onlyRecord(const std::string& reason) {
    return "^[0-9A-F]+:error:[0-9A-F]+:[^\n]*:" + reason + ":[^\n]*\n" + kEnd;
}

class NQ_CryptoDeathTest : public testing::Test {
protected:
    void SetUp() override { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }

    NQ_Crypto crypto = initialised({"abc"});
    Bytes cipher = encrypted(crypto, Bytes(40, 'x'));
};

TEST_F(NQ_CryptoDeathTest, AWrongKeyAbortsTheProcess) {
    NQ_Crypto other = initialised({"abd"});
    EXPECT_EXIT(decrypted(other, cipher), testing::KilledBySignal(SIGABRT),
                onlyRecord("bad decrypt"));
}

TEST_F(NQ_CryptoDeathTest, AWrongVectorOfASingleBlockAbortsTheProcess) {
    Bytes single = encrypted(crypto, Bytes(3, 'x'));
    std::string key = keyOf(crypto);
    Bytes iv(16, 0);
    Bytes out(16);
    EXPECT_EXIT(crypto.decrypt(single.data(), 16, reinterpret_cast<unsigned char*>(&key[0]),
                               iv.data(), out.data()),
                testing::KilledBySignal(SIGABRT), onlyRecord("bad decrypt"));
}

TEST_F(NQ_CryptoDeathTest, ADamagedLastBlockAbortsTheProcess) {
    cipher.back() ^= 1;
    EXPECT_EXIT(decrypted(crypto, cipher), testing::KilledBySignal(SIGABRT),
                onlyRecord("bad decrypt"));
}

TEST_F(NQ_CryptoDeathTest, ALengthThatIsNotOfWholeBlocksAbortsTheProcess) {
    for (const std::size_t length : {std::size_t{47}, std::size_t{1}}) {
        cipher.resize(length);
        EXPECT_EXIT(decrypted(crypto, cipher), testing::KilledBySignal(SIGABRT),
                    onlyRecord("wrong final block length"));
    }
}

TEST_F(NQ_CryptoDeathTest, NoCiphertextAtAllAbortsTheProcess) {
    EXPECT_EXIT(crypto.decrypt(cipher.data(), 0, cipher.data()), testing::KilledBySignal(SIGABRT),
                onlyRecord("wrong final block length"));
}

TEST_F(NQ_CryptoDeathTest, ANegativeLengthAbortsTheProcess) {
    EXPECT_EXIT(crypto.encrypt(cipher.data(), -1, cipher.data()), testing::KilledBySignal(SIGABRT),
                "");
    EXPECT_EXIT(crypto.decrypt(cipher.data(), -16, cipher.data()), testing::KilledBySignal(SIGABRT),
                "");
}

TEST_F(NQ_CryptoDeathTest, EveryResultOtherThanOneAbortsTheProcess) {
    for (const int result : {0, -1, 2}) {
        for (const char* call : {"EVP_EncryptInit_ex", "EVP_EncryptUpdate", "EVP_EncryptFinal_ex"})
            EXPECT_EXIT(failing = call; failure = result; encrypted(crypto, Bytes(40, 'x')),
                                                          testing::KilledBySignal(SIGABRT),
                                                          kNothing)
                << call << ' ' << result;
        for (const char* call : {"EVP_DecryptInit_ex", "EVP_DecryptUpdate", "EVP_DecryptFinal_ex"})
            EXPECT_EXIT(failing = call; failure = result;
                        decrypted(crypto, cipher), testing::KilledBySignal(SIGABRT), kNothing)
                << call << ' ' << result;
    }
}

TEST_F(NQ_CryptoDeathTest, NoContextAbortsTheProcess) {
    EXPECT_EXIT(failing = "EVP_CIPHER_CTX_new";
                encrypted(crypto, Bytes(40, 'x')), testing::KilledBySignal(SIGABRT), kNothing);
    EXPECT_EXIT(failing = "EVP_CIPHER_CTX_new";
                decrypted(crypto, cipher), testing::KilledBySignal(SIGABRT), kNothing);
}

TEST_F(NQ_CryptoDeathTest, HandleErrorsPrintsTheQueueAndAborts) {
    EXPECT_EXIT(crypto.handleErrors(), testing::KilledBySignal(SIGABRT), kNothing);
    EXPECT_EXIT(
        {
            EVP_CIPHER_CTX* const context = EVP_CIPHER_CTX_new();
            int length = 0;
            EVP_DecryptFinal_ex(context, cipher.data(), &length); // without a cipher
            crypto.handleErrors();
        },
        testing::KilledBySignal(SIGABRT), onlyRecord("no cipher set"));
}

} // namespace
