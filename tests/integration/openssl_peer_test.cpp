// Encryption and base64 compared with the openssl program, in both directions.

#include <kvr/api/crypto/NQ_Crypto.h>

#include "RunProgram.h"
#include "TempDir.h"

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using kvr::api::crypto::NQ_Base64;
using kvr::api::crypto::NQ_Crypto;
using support::ProgramResult;
using support::readFile;
using support::runProgram;
using support::TempDir;
using support::writeFile;

std::string randomBytes(std::size_t size) {
    std::mt19937 random(static_cast<unsigned int>(size));
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

/// Samples of all lengths from 0 to 100, and some long ones.
std::vector<std::string> samples() {
    std::vector<std::string> all;
    for (std::size_t size = 0; size <= 100; ++size)
        all.push_back(randomBytes(size));
    for (const std::size_t size : std::vector<std::size_t>{1023, 1024, 1025, 65536, 1000003})
        all.push_back(randomBytes(size));
    return all;
}

/// Runs the program on each of `inputs`, all in one shell, and returns the outputs.
std::vector<std::string> madeByOpenssl(const std::string& arguments,
                                       const std::vector<std::string>& inputs) {
    const TempDir directory;
    for (std::size_t i = 0; i < inputs.size(); ++i)
        writeFile(directory / (std::to_string(i) + ".in"), inputs[i]);
    const ProgramResult ran =
        runProgram({"sh", "-euc",
                    "cd \"$1\"; i=0; while [ $i -lt $2 ]; do openssl $3 -in $i.in -out "
                    "$i.out; i=$((i+1)); done",
                    "sh", directory.path(), std::to_string(inputs.size()), arguments});
    EXPECT_EQ(0, ran.status) << ran.err;
    std::vector<std::string> outputs;
    for (std::size_t i = 0; i < inputs.size(); ++i)
        outputs.push_back(readFile(directory / (std::to_string(i) + ".out")));
    return outputs;
}

std::string hexOf(const std::string& bytes) {
    std::string hex;
    for (const char byte : bytes) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x",
                      static_cast<unsigned int>(static_cast<unsigned char>(byte)));
        hex += pair;
    }
    return hex;
}

/// Returns the first `digits` of the digest of `text` as the program prints it.
std::string digestByOpenssl(const std::string& text, std::size_t digits) {
    const ProgramResult ran = runProgram({"openssl", "dgst", "-sha1", "-r"}, {}, text);
    EXPECT_EQ(0, ran.status) << ran.err;
    return ran.out.substr(0, digits);
}

unsigned char* bytesOf(std::string& text) { return reinterpret_cast<unsigned char*>(&text[0]); }

class NQ_Base64_openssl : public testing::Test {
protected:
    void SetUp() override {
        if (runProgram({"sh", "-c", "command -v openssl"}).status != 0)
            GTEST_SKIP() << "the openssl program is not installed";
    }
};

class NQ_Crypto_openssl : public NQ_Base64_openssl {
protected:
    NQ_Crypto_openssl() {
        std::vector<std::string> parts = {"serial ABC123", "agent"};
        crypto.init(parts);
    }

    /// Program arguments for the key and vector of `crypto`, which the program also derives.
    static std::string cipherArguments() {
        return "enc -aes-256-cbc -K " + hexOf(digestByOpenssl("serial ABC123agent", 32)) + " -iv " +
               hexOf(digestByOpenssl("tnega321CBA laires", 16));
    }

    std::string encrypted(std::string plain) {
        std::string cipher(plain.size() + 16, '\0');
        const int length =
            crypto.encrypt(bytesOf(plain), static_cast<int>(plain.size()), bytesOf(cipher));
        cipher.resize(static_cast<std::size_t>(length));
        return cipher;
    }

    std::string decrypted(std::string cipher) {
        std::string plain(cipher.size(), '\0');
        const int length =
            crypto.decrypt(bytesOf(cipher), static_cast<int>(cipher.size()), bytesOf(plain));
        plain.resize(static_cast<std::size_t>(length));
        return plain;
    }

    NQ_Crypto crypto;
};

TEST_F(NQ_Crypto_openssl, WhatOneEncryptsTheOtherDecrypts) {
    const std::vector<std::string> plain = samples();
    std::vector<std::string> ours;
    for (const std::string& sample : plain)
        ours.push_back(encrypted(sample));
    const std::vector<std::string> theirs = madeByOpenssl(cipherArguments(), plain);
    const std::vector<std::string> back = madeByOpenssl(cipherArguments() + " -d", ours);
    for (std::size_t i = 0; i < plain.size(); ++i) {
        EXPECT_TRUE(theirs[i] == ours[i]) << plain[i].size() << " bytes";
        EXPECT_TRUE(plain[i] == back[i]) << plain[i].size() << " bytes";
        EXPECT_TRUE(plain[i] == decrypted(theirs[i])) << plain[i].size() << " bytes";
    }
}

TEST_F(NQ_Base64_openssl, WhatOneEncodesTheOtherDecodes) {
    const std::vector<std::string> plain = samples();
    std::vector<std::string> ours;
    for (const std::string& sample : plain)
        ours.push_back(NQ_Base64::base64_encode(sample));
    const std::vector<std::string> theirs = madeByOpenssl("base64 -A", plain);
    const std::vector<std::string> back = madeByOpenssl("base64 -A -d", ours);
    for (std::size_t i = 0; i < plain.size(); ++i) {
        EXPECT_TRUE(theirs[i] == ours[i]) << plain[i].size() << " bytes";
        EXPECT_TRUE(plain[i] == back[i]) << plain[i].size() << " bytes";
        EXPECT_TRUE(plain[i] == NQ_Base64::base64_decode(theirs[i])) << plain[i].size() << " bytes";
    }
}

} // namespace
