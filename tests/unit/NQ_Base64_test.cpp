#include <kvr/api/crypto/NQ_Crypto.h>

#include "CLibrary.h"
#include "CapturedOutput.h"
#include "Descriptors.h"
#include "Interposed.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>

namespace {

std::set<FILE*> memoryStreams;  // those still open
std::size_t streamCapacity = 0; // of the last stream
std::set<BIO*> chains;          // chains not yet freed, by their first filter

bool refusesMemoryStreams = false;
int allocationsLeft = -1; // OpenSSL allocations before one fails; negative: no limit
int liveAllocations = 0;  // OpenSSL allocations not yet freed

// OpenSSL accepts these functions only before its first allocation.
const int replaced = CRYPTO_set_mem_functions(
    [](std::size_t size, const char*, int) -> void* {
        if (allocationsLeft == 0)
            return nullptr;
        --allocationsLeft;
        ++liveAllocations;
        return std::malloc(size);
    },
    [](void* memory, std::size_t size, const char*, int) -> void* {
        if (memory == nullptr)
            ++liveAllocations;
        return std::realloc(memory, size);
    },
    [](void* memory, const char*, int) {
        if (memory != nullptr)
            --liveAllocations;
        std::free(memory);
    });

} // namespace

// These replace the library functions, because leak checkers do not report an open stream.
extern "C" {

FILE* fmemopen(void* buffer, std::size_t size, const char* mode) C_LIBRARY_NOEXCEPT {
    if (refusesMemoryStreams)
        return nullptr;
    FILE* const stream =
        support::next<FILE*(void*, std::size_t, const char*)>("fmemopen")(buffer, size, mode);
    memoryStreams.insert(stream);
    streamCapacity = size;
    return stream;
}

BIO* BIO_push(BIO* first, BIO* rest) {
    chains.insert(first);
    return support::next<decltype(BIO_push)>("BIO_push")(first, rest);
}

void BIO_free_all(BIO* chain) {
    chains.erase(chain);
    support::next<decltype(BIO_free_all)>("BIO_free_all")(chain);
}

int fclose(FILE* stream) {
    memoryStreams.erase(stream);
    return support::next<int(FILE*)>("fclose")(stream);
}
}

namespace {

using kvr::api::crypto::NQ_Base64;

std::string randomBytes(std::size_t size, unsigned int seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

/// A simple reference encoder, six bits at a time.
std::string referenceEncoding(const std::string& data) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < data.size(); i += 3) {
        unsigned int bits = 0;
        for (std::size_t j = i; j < i + 3; ++j)
            bits = bits << 8 | (j < data.size() ? static_cast<unsigned char>(data[j]) : 0u);
        for (unsigned int digit = 0; digit < 4; ++digit)
            text += i + digit > data.size() ? '=' : alphabet[bits >> (18 - 6 * digit) & 63u];
    }
    return text;
}

std::string zeros(std::size_t count) { return std::string(count, '\0'); }

// calcDecodeLength --------------------------------------------------------------------------------

TEST(NQ_Base64, TheDecodedLengthFollowsFromLengthAndPadding) {
    EXPECT_EQ(3u, NQ_Base64::calcDecodeLength("QUJD"));
    EXPECT_EQ(2u, NQ_Base64::calcDecodeLength("QUI="));
    EXPECT_EQ(1u, NQ_Base64::calcDecodeLength("QQ=="));
    EXPECT_EQ(6u, NQ_Base64::calcDecodeLength("QUJDREVG"));
    EXPECT_EQ(1u, NQ_Base64::calcDecodeLength("===="));
}

TEST(NQ_Base64, OnlyTheLastTwoCharactersCountAsPadding) {
    EXPECT_EQ(1u, NQ_Base64::calcDecodeLength("Q==="));
    EXPECT_EQ(2u, NQ_Base64::calcDecodeLength("Q=Q="));
    EXPECT_EQ(3u, NQ_Base64::calcDecodeLength("Q==Q"));
}

TEST(NQ_Base64, TheDecodedLengthOfOddLengthsIsRoundedDown) {
    EXPECT_EQ(0u, NQ_Base64::calcDecodeLength("Q"));
    EXPECT_EQ(1u, NQ_Base64::calcDecodeLength("QU"));
    EXPECT_EQ(2u, NQ_Base64::calcDecodeLength("QUI"));
    EXPECT_EQ(3u, NQ_Base64::calcDecodeLength("QUJDR"));
    EXPECT_EQ(2u, NQ_Base64::calcDecodeLength("QUJD="));
}

TEST(NQ_Base64, TheDecodedLengthIsNeverBelowZero) {
    for (const char* text : {"", "=", "=="})
        EXPECT_EQ(0u, NQ_Base64::calcDecodeLength(text)) << text;
    EXPECT_EQ(0u, NQ_Base64::calcDecodeLength("==="));
}

// encoding ----------------------------------------------------------------------------------------

const std::vector<std::pair<std::string, std::string>> kPublished = {
    {"f", "Zg=="},        {"fo", "Zm8="},        {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};

TEST(NQ_Base64, PublishedExamplesAreEncodedAndDecoded) {
    for (const auto& example : kPublished) {
        EXPECT_EQ(example.second, NQ_Base64::base64_encode(example.first));
        EXPECT_EQ(example.first, NQ_Base64::base64_decode(example.second));
    }
}

TEST(NQ_Base64, EmptyDataIsEncodedAsAnEmptyText) {
    EXPECT_EQ("", NQ_Base64::base64_encode(""));
    EXPECT_EQ("", NQ_Base64::base64_decode(""));
}

TEST(NQ_Base64, EveryLengthAndByteValueComesBackExact) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    EXPECT_EQ(referenceEncoding(all), NQ_Base64::base64_encode(all));
    EXPECT_EQ(all, NQ_Base64::base64_decode(NQ_Base64::base64_encode(all)));
    for (std::size_t size = 0; size <= 300; ++size) {
        const std::string data = randomBytes(size, static_cast<unsigned int>(size));
        const std::string text = NQ_Base64::base64_encode(data);
        ASSERT_EQ(referenceEncoding(data), text) << size;
        ASSERT_EQ(data, NQ_Base64::base64_decode(text)) << size;
    }
}

TEST(NQ_Base64, ZeroBytesAreBytesLikeOthers) {
    EXPECT_EQ("AAAA", NQ_Base64::base64_encode(zeros(3)));
    EXPECT_EQ("AA==", NQ_Base64::base64_encode(zeros(1)));
    EXPECT_EQ(zeros(1), NQ_Base64::base64_decode("AA=="));
}

TEST(NQ_Base64, LongDataIsOneLineToo) {
    for (const std::size_t size : std::vector<std::size_t>{48, 49, 60, 1000, 1024, 5000, 1000000}) {
        const std::string data = randomBytes(size, 1);
        const std::string text = NQ_Base64::base64_encode(data);
        ASSERT_EQ((size + 2) / 3 * 4, text.size());
        EXPECT_EQ(std::string::npos, text.find_first_of("\r\n"));
        EXPECT_TRUE(text == referenceEncoding(data)) << size;
        EXPECT_TRUE(data == NQ_Base64::base64_decode(text)) << size;
    }
}

TEST(NQ_Base64, EncodingIntoABufferWritesTheTextAndATerminator) {
    for (unsigned int size = 0; size <= 10; ++size) {
        const std::string data = randomBytes(size, size);
        const std::string expected = referenceEncoding(data);
        std::string buffer(expected.size() + 8, '#');
        EXPECT_EQ(0, NQ_Base64::Base64Encode(data.data(), size, &buffer[0]));
        EXPECT_EQ(expected + zeros(1) + "#######", buffer) << size;
        EXPECT_EQ(expected.size() + 1, streamCapacity) << "may be written to";
    }
}

// decoding ----------------------------------------------------------------------------------------

TEST(NQ_Base64, DecodingIntoABufferWritesAndCountsTheBytes) {
    for (unsigned int size = 1; size <= 10; ++size) {
        const std::string data = randomBytes(size, size);
        const std::string text = referenceEncoding(data);
        std::string buffer(size + 8, '#');
        unsigned int count = 99;
        EXPECT_EQ(0, NQ_Base64::Base64Decode(text.c_str(), &buffer[0], &count));
        EXPECT_EQ(size, count);
        EXPECT_EQ(data + "########", buffer);
    }
}

TEST(NQ_Base64, SurplusPaddingDoesNotLimitWhatIsReadIntoABuffer) {
    std::string buffer(16, '#');
    unsigned int count = 99;
    EXPECT_EQ(0, NQ_Base64::Base64Decode("QUJD=", &buffer[0], &count));
    EXPECT_EQ(3u, count);
    EXPECT_EQ("ABC#############", buffer);
}

TEST(NQ_Base64, DecodingAnInvalidTextCountsNothing) {
    for (const char* text : {"", "????", "QUJ", "Q", "="}) {
        std::string buffer(16, '#');
        unsigned int count = 99;
        EXPECT_EQ(0, NQ_Base64::Base64Decode(text, &buffer[0], &count));
        EXPECT_LE(static_cast<int>(count), 0) << text; // negative if BIO_read() fails
        EXPECT_EQ(std::string(16, '#'), buffer) << text;
    }
}

TEST(NQ_Base64, WhatCannotBeDecodedReadsAsZeroBytes) {
    EXPECT_EQ(zeros(3), NQ_Base64::base64_decode("????"));
    EXPECT_EQ(zeros(3), NQ_Base64::base64_decode("QU?D"));
    EXPECT_EQ(zeros(3), NQ_Base64::base64_decode("Q-_D")); // the URL and file name alphabet
}

TEST(NQ_Base64, ALineBreakIsNotAccepted) {
    EXPECT_EQ(zeros(6), NQ_Base64::base64_decode("QUJD\nREV"));
    EXPECT_EQ(zeros(3), NQ_Base64::base64_decode("QU\nD"));
}

TEST(NQ_Base64, AnUnpaddedTextLosesItsLastBytesToZeroBytes) {
    EXPECT_EQ(zeros(1), NQ_Base64::base64_decode("QQ"));
    EXPECT_EQ(zeros(2), NQ_Base64::base64_decode("QUI"));
    EXPECT_EQ("ABC" + zeros(1), NQ_Base64::base64_decode("QUJDRA"));
    EXPECT_EQ("ABC" + zeros(2), NQ_Base64::base64_decode("QUJDREU"));
    EXPECT_EQ("", NQ_Base64::base64_decode("Q"));
}

TEST(NQ_Base64, SurplusPaddingShortensTheResult) {
    EXPECT_EQ("AB", NQ_Base64::base64_decode("QUJD="));
    EXPECT_EQ("AB", NQ_Base64::base64_decode("QUJD=="));
}

TEST(NQ_Base64, PaddingWithoutDigitsDoesNoHarm) {
    EXPECT_EQ("", NQ_Base64::base64_decode("="));
    EXPECT_EQ("", NQ_Base64::base64_decode("=="));
    EXPECT_EQ("", NQ_Base64::base64_decode("==="));
    EXPECT_EQ(zeros(1), NQ_Base64::base64_decode("===="));
}

TEST(NQ_Base64, ATextCountsUpToItsFirstZeroByte) {
    EXPECT_EQ("ABC", NQ_Base64::base64_decode(std::string("QUJD\0REVG", 9)));
    EXPECT_EQ("", NQ_Base64::base64_decode(std::string("\0QUJD", 5)));
}

TEST(NQ_Base64, AnyTextIsDecodedToTheComputedLength) {
    std::mt19937 random(2);
    const std::string characters = "ABab01+/==??\n \xff";
    for (int i = 0; i < 20000; ++i) {
        std::string text(random() % 40, '\0');
        for (char& c : text)
            c = characters[random() % characters.size()];
        ASSERT_EQ(NQ_Base64::calcDecodeLength(text.c_str()), NQ_Base64::base64_decode(text).size())
            << text;
    }
}

/// Makes each OpenSSL allocation in `work` fail in turn, until all succeed. `work` must throw
/// std::bad_alloc each time. Returns the number of failures.
int failuresOf(const std::function<void()>& work) {
    int failures = 0;
    for (bool done = false; !done;) {
        allocationsLeft = failures;
        try {
            work();
            done = true;
        } catch (const std::bad_alloc&) {
            ++failures;
        }
        allocationsLeft = -1;
        ERR_clear_error();
    }
    return failures;
}

TEST(NQ_Base64, WithoutMemoryForOpenSslBadAllocIsThrownAndNothingStaysBehind) {
    ASSERT_EQ(1, replaced);
    const auto encode = [] { EXPECT_EQ("QUJD", NQ_Base64::base64_encode("ABC")); };
    const auto decode = [] { EXPECT_EQ("ABC", NQ_Base64::base64_decode("QUJD")); };
    for (const std::function<void()>& work : {std::function<void()>(encode), {decode}}) {
        work();           // first, OpenSSL's initialization, which it never repeats after a failure
        failuresOf(work); // and what OpenSSL keeps of its first failures
        const int before = liveAllocations;
        EXPECT_GE(failuresOf(work), 2); // at least a filter and the next BIO in the chain
        EXPECT_EQ(before, liveAllocations);
        EXPECT_THAT(memoryStreams, testing::IsEmpty());
    }
}

TEST(NQ_Base64, WithoutAMemoryStreamBadAllocIsThrown) {
    refusesMemoryStreams = true;
    EXPECT_THROW(NQ_Base64::base64_encode("ABC"), std::bad_alloc);
    refusesMemoryStreams = false;
    EXPECT_EQ("QUJD", NQ_Base64::base64_encode("ABC"));
    EXPECT_THAT(chains, testing::IsEmpty());
}

TEST(NQ_Base64, NothingIsPrintedAndNothingStaysOpen) {
    const auto work = [] {
        NQ_Base64::base64_decode(NQ_Base64::base64_encode("some data"));
        NQ_Base64::base64_decode("????");
    };
    const auto before = support::openDescriptors();
    EXPECT_EQ("", support::printedBy(work));
    EXPECT_EQ("", support::errorsOf(work));
    EXPECT_THAT(memoryStreams, testing::IsEmpty());
    EXPECT_THAT(chains, testing::IsEmpty());
    EXPECT_THAT(support::openedSince(before), testing::IsEmpty());
}

} // namespace
