// The examples secret_file and supervised, run as users run them.

#include <kvr/api/crypto/NQ_Crypto.h>

#include "CLibrary.h"
#include "PipedProgram.h"
#include "RunProgram.h"
#include "TempDir.h"
#include "Waiting.h"

#include <csignal>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::eventually;
using support::exists;
using support::ProgramResult;
using support::readFile;
using support::RunningProgram;
using support::runProgram;
using support::TempDir;
using support::writeFile;
using testing::MatchesRegex;
using testing::StartsWith;

// secret_file -------------------------------------------------------------------------------------

class secret_file : public testing::Test {
protected:
    secret_file() {
        writeFile(parts, "serial ABC123\nagent\n");
        writeFile(wrongParts, "serial ABC124\nagent\n");
    }

    static ProgramResult run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), TAVO_SECRET_FILE);
        return runProgram(arguments);
    }

    ProgramResult encrypt(const std::string& from, const std::string& to) const {
        return run({"--encrypt", "--parts", parts, from, to});
    }

    ProgramResult decrypt(const std::string& from, const std::string& to) const {
        return run({"--decrypt", "--parts", parts, from, to});
    }

    /// Encrypts `content` to the file `secret`.
    void encryptContent(const std::string& content) const {
        writeFile(plain, content);
        const ProgramResult ran = encrypt(plain, secret);
        EXPECT_EQ(0, ran.status) << ran.err;
        EXPECT_EQ("", ran.out + ran.err);
    }

    /// Expects this error message and no output file.
    void expectRefused(const ProgramResult& ran, const std::string& reason) const {
        EXPECT_EQ(1, ran.status);
        EXPECT_EQ("", ran.out);
        EXPECT_EQ("secret_file: " + reason + "\n", ran.err);
        EXPECT_FALSE(exists(back));
        EXPECT_FALSE(exists(back + ".part"));
    }

    TempDir directory;
    const std::string parts = directory / "parts";
    const std::string wrongParts = directory / "wrong";
    const std::string plain = directory / "plain";
    const std::string secret = directory / "secret";
    const std::string back = directory / "back";
    const std::string wrongKey = secret + ": not encrypted with this key, or damaged";
};

TEST_F(secret_file, WhatItEncryptsItDecrypts) {
    for (const std::string& content : {std::string(), std::string("text\n"),
                                       std::string(100000, '\0'), std::string("\xff\0\n\r", 4)}) {
        encryptContent(content);
        EXPECT_EQ(std::string::npos, readFile(secret).find("text"));
        const ProgramResult ran = decrypt(secret, back);
        EXPECT_EQ(0, ran.status) << ran.err;
        EXPECT_EQ("", ran.out + ran.err);
        EXPECT_EQ(content, readFile(back));
        EXPECT_FALSE(exists(back + ".part"));
    }
}

TEST_F(secret_file, OnlyTheOwnerReadsTheOutput) {
    encryptContent("text");
    decrypt(secret, back);
    for (const std::string& file : {secret, back}) {
        struct stat status = {};
        ASSERT_EQ(0, stat(file.c_str(), &status));
        EXPECT_EQ(0600u, status.st_mode & 07777u) << file;
    }
}

TEST_F(secret_file, AFileCanBeReplacedByItsEncryption) {
    writeFile(plain, "text");
    EXPECT_EQ(0, encrypt(plain, plain).status);
    EXPECT_EQ(0, decrypt(plain, plain).status);
    EXPECT_EQ("text", readFile(plain));
}

TEST_F(secret_file, AWrongKeyIsAnErrorAndNoCrash) {
    encryptContent("text");
    expectRefused(run({"--decrypt", "--parts", wrongParts, secret, back}), wrongKey);
}

TEST_F(secret_file, AWrongKeyWhosePaddingLooksRightIsAnErrorToo) {
    // A text that another program encrypted with the same key lacks the marker, but has valid
    // padding.
    kvr::api::crypto::NQ_Crypto crypto;
    std::vector<std::string> texts = {"serial ABC123", "agent"};
    crypto.init(texts);
    unsigned char text[] = "some text that is longer than the marker";
    unsigned char cipher[sizeof text + 16];
    const int length = crypto.encrypt(text, sizeof text, cipher);
    writeFile(secret, std::string(cipher, cipher + length));
    expectRefused(decrypt(secret, back), wrongKey);
}

TEST_F(secret_file, ADamagedFileIsAnErrorAndNoCrash) {
    encryptContent("text");
    const std::string sound = readFile(secret);
    writeFile(secret, sound.substr(0, sound.size() - 1));
    expectRefused(decrypt(secret, back), wrongKey);
    writeFile(secret, "");
    expectRefused(decrypt(secret, back), wrongKey);
    std::string changed = sound;
    changed[0] ^= 1;
    writeFile(secret, changed);
    expectRefused(decrypt(secret, back), wrongKey);
}

TEST_F(secret_file, AFailureLeavesTheOutputAsItWas) {
    encryptContent("text");
    writeFile(back, "old");
    EXPECT_EQ(1, run({"--decrypt", "--parts", wrongParts, secret, back}).status);
    EXPECT_EQ("old", readFile(back));
}

TEST_F(secret_file, FilesThatCannotBeUsedAreNamed) {
    expectRefused(encrypt(directory / "missing", back),
                  directory / "missing" + ": No such file or directory");
    expectRefused(encrypt(directory.path(), back), directory.path() + ": Is a directory");
    writeFile(plain, "text");
    expectRefused(encrypt(plain, directory / "no/where"),
                  directory / "no/where.part" + ": No such file or directory");
    expectRefused(run({"--encrypt", "--parts", directory / "none", plain, back}),
                  directory / "none" + ": No such file or directory");
    writeFile(parts, "\n\n");
    expectRefused(encrypt(plain, back), parts + ": contains no line to derive a key from");
}

TEST_F(secret_file, ASignalEndsItAndLeavesNothingBehind) {
    ASSERT_EQ(0, mkfifo(plain.c_str(), 0600)); // nobody writes, so the program waits
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        RunningProgram program({TAVO_SECRET_FILE, "--encrypt", "--parts", parts, plain, back});
        ASSERT_TRUE(eventually([&] { return exists(back + ".part"); }));
        kill(program.pid(), signal);
        EXPECT_EQ(128 + signal, program.wait().status);
        EXPECT_FALSE(exists(back + ".part"));
        EXPECT_FALSE(exists(back));
    }
}

TEST_F(secret_file, HelpAndUsageErrors) {
    const ProgramResult help = run({"--help"});
    EXPECT_EQ(0, help.status);
    EXPECT_THAT(help.out, StartsWith("Usage: secret_file "));
    EXPECT_EQ("", help.err);

    const std::string hint = "Try 'secret_file --help' for more information.\n";
    const std::vector<std::pair<std::vector<std::string>, std::string>> mistakes = {
        {{}, "secret_file: --encrypt or --decrypt is missing\n"},
        {{"--encrypt", "a", "b"}, "secret_file: --parts is missing\n"},
        {{"--encrypt", "--decrypt", "--parts", "p", "a", "b"},
         "secret_file: --encrypt and --decrypt cannot be combined\n"},
        {{"--encrypt", "--parts", "p", "a"},
         "secret_file: exactly two files are needed: INPUT and OUTPUT\n"},
        {{"--encrypt", "--parts", "p", "a", "b", "c"},
         "secret_file: exactly two files are needed: INPUT and OUTPUT\n"},
    };
    for (const auto& mistake : mistakes) {
        const ProgramResult ran = run(mistake.first);
        EXPECT_EQ(2, ran.status);
        EXPECT_EQ("", ran.out);
        EXPECT_EQ(mistake.second + hint, ran.err);
    }
    const ProgramResult unknown = run({"--unknown"});
    EXPECT_EQ(2, unknown.status);
    EXPECT_EQ("secret_file: " + support::unknownOption("unknown") + "\n" + hint, unknown.err);
}

// supervised --------------------------------------------------------------------------------------

class Supervised : public support::PipedProgram {
public:
    Supervised() : PipedProgram({TAVO_SUPERVISED}) {}

    bool hasWritten(const std::string& text) {
        return eventually([&] { return program().outSoFar() == text; });
    }
};

TEST(supervised, EveryLineIsEchoedAndAnswered) {
    Supervised supervised;
    supervised.write("ping\n");
    EXPECT_TRUE(supervised.hasWritten("ping\n= pong\n"));
    supervised.write("\nname\nnonsense\r\n");
    EXPECT_TRUE(supervised.hasWritten("ping\n= pong\nname\n= supervised\n"
                                      "nonsense\r\n= unknown command: nonsense\n"));
    supervised.write("quit\nping\n");
    const ProgramResult ran = supervised.program().wait();
    EXPECT_EQ(0, ran.status);
    EXPECT_EQ("ping\n= pong\nname\n= supervised\nnonsense\r\n= unknown command: nonsense\n"
              "quit\n= bye\n",
              ran.out);
    EXPECT_EQ("", ran.err);
}

TEST(supervised, TheTimeIsUtcWithMilliseconds) {
    Supervised supervised;
    supervised.write("time\nquit\n");
    EXPECT_THAT(supervised.program().wait().out,
                MatchesRegex("time\n= [0-9]+-[0-9]+-[0-9]+T[0-9]+:[0-9]+:[0-9]+\\.[0-9]+Z\n"
                             "quit\n= bye\n"));
}

TEST(supervised, TheEndOfItsInputEndsItWhenAllIsAnswered) {
    Supervised supervised;
    std::string expected;
    for (int i = 0; i < 500; ++i) {
        supervised.write("ping\n");
        expected += "ping\n= pong\n";
    }
    supervised.write("ping"); // the last line lacks its newline
    supervised.hangUp();
    const ProgramResult ran = supervised.program().wait();
    EXPECT_EQ(0, ran.status);
    EXPECT_THAT(ran.out, StartsWith(expected + "ping\n= pong\n"));
    EXPECT_EQ("", ran.err);
}

TEST(supervised, LinesAfterTheLastCommandAreIgnored) {
    Supervised supervised;
    supervised.write("quit\nping\n");
    supervised.hangUp();
    const ProgramResult ran = supervised.program().wait();
    EXPECT_EQ(0, ran.status);
    EXPECT_EQ("quit\n= bye\n", ran.out);
}

TEST(supervised, SignalsEndIt) {
    for (const int signal : {SIGTERM, SIGINT}) {
        Supervised supervised;
        supervised.write("ping\n");
        ASSERT_TRUE(supervised.hasWritten("ping\n= pong\n"));
        kill(supervised.program().pid(), signal);
        const ProgramResult ran = supervised.program().wait();
        EXPECT_EQ(0, ran.status);
        EXPECT_EQ("ping\n= pong\n\n", ran.out);
        EXPECT_EQ("", ran.err);
    }
}

TEST(supervised, InputThatIsNoPipeIsRefused) {
    const ProgramResult ran =
        runProgram({"sh", "-c", "exec \"$1\" < /dev/null", "sh", TAVO_SUPERVISED});
    EXPECT_EQ(1, ran.status);
    EXPECT_EQ("", ran.out);
    EXPECT_EQ("supervised: standard input is neither a pipe nor a socket (by hand: cat | "
              "supervised)\n",
              ran.err);
}

TEST(supervised, HelpAndUsageErrors) {
    const ProgramResult help = runProgram({TAVO_SUPERVISED, "--help"});
    EXPECT_EQ(0, help.status);
    EXPECT_THAT(help.out, StartsWith("Usage: supervised\n"));
    const ProgramResult extra = runProgram({TAVO_SUPERVISED, "extra"});
    EXPECT_EQ(2, extra.status);
    EXPECT_EQ("supervised: unexpected argument 'extra'\n"
              "Try 'supervised --help' for more information.\n",
              extra.err);
}

} // namespace
