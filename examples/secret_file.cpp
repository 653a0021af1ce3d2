// Encrypts and decrypts a file with a key that both sides derive from texts that they share.
//
// This example shows a way around a trap. With a wrong key or a damaged file, NQ_Crypto::decrypt()
// returns no error. OpenSSL finds the padding of the last block wrong, and the class ABORTS THE
// PROCESS. A program that cannot be sure of its data must therefore decrypt in a forked child and
// check how the child ended.

#include <kvr/api/crypto/NQ_Crypto.h>

#include "program.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using kvr::api::crypto::NQ_Crypto;

program::Description self = {
    "secret_file",
    "Usage: secret_file --encrypt|--decrypt --parts FILE INPUT OUTPUT\n"
    "Encrypts or decrypts the file INPUT into the file OUTPUT (AES-256, CBC).\n"
    "\n"
    "  --encrypt      encrypt INPUT\n"
    "  --decrypt      decrypt INPUT, a file that --encrypt has written\n"
    "  --parts FILE   derive the key from the lines of FILE, in order\n"
    "  --help         print this text and exit\n"
    "\n"
    "Encryption and decryption need the same lines in the same order, such as\n"
    "identifiers of the device. Only the owner can read OUTPUT. After a failure,\n"
    "OUTPUT is unchanged. Decryption detects a wrong key, but not every damage: sign\n"
    "a file that somebody may change in transit.\n"
    "\n"
    "Exit status: 0 done, 1 failed, 2 usage error.\n"};

/// Precedes the content and is encrypted with it. The padding does not reveal every wrong key:
/// about one in 256 leaves padding that looks right.
const std::string kMarker = "tavo secret file\n";

/// Leaves room for the marker and the padding within the range of an int.
constexpr std::size_t kLargestFile = std::numeric_limits<int>::max() - 64u;

std::string readAll(const std::string& path) {
    const std::unique_ptr<FILE, int (*)(FILE*)> stream(std::fopen(path.c_str(), "rb"), std::fclose);
    if (stream == nullptr)
        program::failWithReason(self, path);
    std::string content;
    char piece[4096];
    while (const std::size_t length = std::fread(piece, 1, sizeof piece, stream.get()))
        content.append(piece, length);
    // A directory can be opened, but not read. Not every C++ library's streams report that as an
    // error.
    if (std::ferror(stream.get()) != 0)
        program::failWithReason(self, path);
    if (content.size() > kLargestFile)
        program::fail(self, path + ": too large");
    return content;
}

std::vector<std::string> linesOf(const std::string& path) {
    std::vector<std::string> lines;
    std::string line;
    for (const char c : readAll(path) + '\n') {
        if (c != '\n') {
            line += c;
        } else if (!line.empty()) {
            lines.push_back(line);
            line.clear();
        }
    }
    if (lines.empty())
        program::fail(self, path + ": contains no line to derive a key from");
    return lines;
}

// The new file beside OUTPUT, which replaces it when everything is written.
char partFile[4096] = "";

void removePartFile() {
    if (partFile[0] != '\0')
        unlink(partFile);
}

extern "C" void endBySignal(int signal) {
    removePartFile();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

/// Creates the new file. Signals that end the program remove it.
int createPartFile(const std::string& output) {
    const std::string path = output + ".part";
    if (path.size() >= sizeof partFile)
        program::fail(self, output + ": the name is too long");
    // No signal may arrive between creating the file and recording its name.
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&ending, signal);
        std::signal(signal, endBySignal);
    }
    sigprocmask(SIG_BLOCK, &ending, nullptr);
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file == -1)
        program::failWithReason(self, path);
    std::strcpy(partFile, path.c_str());
    std::atexit(removePartFile);
    sigprocmask(SIG_UNBLOCK, &ending, nullptr);
    return file;
}

void writeAll(int file, const std::string& content) {
    for (std::size_t done = 0; done < content.size();) {
        const ssize_t written = write(file, content.data() + done, content.size() - done);
        if (written == -1 && errno != EINTR)
            program::failWithReason(self, partFile);
        if (written > 0)
            done += static_cast<std::size_t>(written);
    }
}

void putInPlace(int file, const std::string& output) {
    if (fsync(file) != 0 || close(file) != 0)
        program::failWithReason(self, partFile);
    if (std::rename(partFile, output.c_str()) != 0)
        program::failWithReason(self, output);
    partFile[0] = '\0';
}

unsigned char* bytesOf(std::string& text) { return reinterpret_cast<unsigned char*>(&text[0]); }

std::string encrypted(NQ_Crypto& crypto, std::string plain) {
    std::string cipher(plain.size() + 16, '\0');
    const int length =
        crypto.encrypt(bytesOf(plain), static_cast<int>(plain.size()), bytesOf(cipher));
    cipher.resize(static_cast<std::size_t>(length));
    return cipher;
}

/// The child's part: never returns. Ends with status 0 when the whole content is written, and with
/// 1 when it cannot be. Ends with 3 when the decrypted text lacks the marker. With any other wrong
/// input the process aborts.
[[noreturn]] void decryptInto(int file, NQ_Crypto& crypto, std::string cipher) {
    const rlimit none = {0, 0};
    // The expected abort must leave no core file, which would hold the key.
    setrlimit(RLIMIT_CORE, &none);
    std::string plain(cipher.size(), '\0');
    // OpenSSL's message about a wrong key would only confuse. The parent reports it.
    if (std::freopen("/dev/null", "w", stderr) == nullptr)
        _exit(1);
    const int length =
        crypto.decrypt(bytesOf(cipher), static_cast<int>(cipher.size()), bytesOf(plain));
    plain.resize(static_cast<std::size_t>(length));
    if (plain.compare(0, kMarker.size(), kMarker) != 0)
        _exit(3);
    for (std::size_t done = kMarker.size(); done < plain.size();) {
        const ssize_t written = write(file, plain.data() + done, plain.size() - done);
        if (written == -1 && errno != EINTR)
            _exit(1);
        if (written > 0)
            done += static_cast<std::size_t>(written);
    }
    _exit(0);
}

void decryptSafely(int file, NQ_Crypto& crypto, const std::string& input,
                   const std::string& cipher) {
    const pid_t child = fork();
    if (child == -1)
        program::failWithReason(self, "fork");
    if (child == 0)
        decryptInto(file, crypto, cipher);
    int status = 0;
    while (waitpid(child, &status, 0) == -1) {
        if (errno != EINTR)
            program::failWithReason(self, "waitpid");
    }
    const bool wrongPadding = WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
    const bool wrongMarker = WIFEXITED(status) && WEXITSTATUS(status) == 3;
    if (wrongPadding || wrongMarker)
        program::fail(self, input + ": not encrypted with this key, or damaged");
    if (status != 0)
        program::fail(self, std::string(partFile) + ": cannot be written");
}

} // namespace

int main(int argc, char** argv) {
    static constexpr option kOptions[] = {{"encrypt", no_argument, nullptr, 'e'},
                                          {"decrypt", no_argument, nullptr, 'd'},
                                          {"parts", required_argument, nullptr, 'p'},
                                          {"help", no_argument, nullptr, 'h'},
                                          {nullptr, 0, nullptr, 0}};
    int direction = 0;
    std::string parts;
    int found;
    while ((found = program::nextOption(self, argc, argv, kOptions)) != -1) {
        switch (found) {
        case 'e':
        case 'd':
            if (direction != 0 && direction != found)
                program::usageError(self, "--encrypt and --decrypt cannot be combined");
            direction = found;
            break;
        case 'p':
            parts = optarg;
            break;
        }
    }
    if (direction == 0)
        program::usageError(self, "--encrypt or --decrypt is missing");
    if (parts.empty())
        program::usageError(self, "--parts is missing");
    if (argc - optind != 2)
        program::usageError(self, "exactly two files are needed: INPUT and OUTPUT");
    const std::string input = argv[optind];
    const std::string output = argv[optind + 1];

    std::vector<std::string> texts = linesOf(parts);
    const int file = createPartFile(output);
    const std::string content = readAll(input);

    NQ_Crypto crypto;
    crypto.init(texts);
    if (direction == 'e')
        writeAll(file, encrypted(crypto, kMarker + content));
    else
        decryptSafely(file, crypto, input, content);
    crypto.zeroize();
    putInPlace(file, output);
    return 0;
}
