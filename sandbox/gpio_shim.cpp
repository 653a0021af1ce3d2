// The board's GPIO device for programs that run without a board: preloaded, it answers for
// /dev/gpio from a text file of "name value" lines, which TAVO_GPIO_STATE names. Every other call
// goes on to the C library.
//
// Everything is looked up anew in each call (the file may be edited or replaced meanwhile, and the
// descriptor may have come from another program), so there is nothing to keep or to lock in here.
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

// Name of the memory file that a program holds instead of the device. It tells the device from
// other descriptors, also after dup, fork and exec.
const char kDeviceFile[] = "tavo-gpio";

/// One request word of the board's driver: direction bits, type letter 'B', signal number.
struct Request {
    std::uint32_t word;
    const char* signal;
};
const Request kRequests[] = {
    {0x40004203U, "led_usr"}, {0x40004204U, "led_pwr"}, {0x40004205U, "led_wan"},
    {0x40004206U, "out0"},    {0x40004210U, "led_sim"}, {0x80004206U, "out0"},
    {0x80004207U, "bin0"},    {0x8000421bU, "bin1"},    {0x80004211U, "temperature"},
    {0x80004212U, "voltage"},
};
const std::uint32_t kWrites = 0x40000000U;

template <typename Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

const char* stateFile() {
    const char* path = std::getenv("TAVO_GPIO_STATE");
    return path ? path : "/tmp/gpio.state";
}

bool isDevicePath(const char* path) { return path && std::strcmp(path, "/dev/gpio") == 0; }

bool isDevice(int descriptor) {
    char link[64];
    char target[PATH_MAX];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    const ssize_t length = readlink(link, target, sizeof target);
    const std::string expected = std::string("/memfd:") + kDeviceFile + " (deleted)";
    return length > 0 && expected == std::string(target, static_cast<std::size_t>(length));
}

int openDevice(int flags) {
    if (access(stateFile(), R_OK) != 0)
        return -1; // a board without the device; errno tells why
    return memfd_create(kDeviceFile, (flags & O_CLOEXEC) != 0 ? MFD_CLOEXEC : 0);
}

/// Lets one program at a time change the state. The lock is on the directory, because the file is
/// replaced.
class StateLock {
public:
    StateLock() {
        const std::string path = stateFile();
        const std::string directory = path.substr(0, path.find_last_of('/') + 1);
        descriptor_ = next<int (*)(const char*, int, ...)>("open")(
            directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (descriptor_ >= 0)
            flock(descriptor_, LOCK_EX);
    }
    ~StateLock() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    StateLock(const StateLock&) = delete;
    StateLock& operator=(const StateLock&) = delete;

private:
    int descriptor_;
};

bool isLineOf(const std::string& line, const char* signal, long& value) {
    std::istringstream words(line);
    std::string name;
    return words >> name && name == signal && words >> value;
}

int fail(int error) {
    errno = error;
    return -1;
}

int readSignal(const char* signal) {
    std::ifstream state(stateFile());
    long value = 0;
    for (std::string line; std::getline(state, line);) {
        if (!isLineOf(line, signal, value))
            continue;
        // As for any system call: the kernel hands small negative results out as errors.
        return value < 0 && value > -4096 ? fail(static_cast<int>(-value))
                                          : static_cast<int>(value);
    }
    return fail(EIO); // the signal is not in the file
}

int writeSignal(const char* signal, unsigned value) {
    const StateLock lock;
    std::ifstream state(stateFile());
    std::string text;
    bool found = false;
    long old = 0;
    for (std::string line; std::getline(state, line);) {
        if (isLineOf(line, signal, old)) {
            line = signal + (" " + std::to_string(value));
            found = true;
        }
        text += line + "\n";
    }
    if (!found)
        return fail(EIO);
    // By a rename, so that whoever looks never meets half a file.
    const std::string fresh = std::string(stateFile()) + ".new";
    std::ofstream file(fresh, std::ios::trunc);
    file << text;
    file.close();
    if (!file || std::rename(fresh.c_str(), stateFile()) != 0)
        return fail(EIO);
    return 0;
}

int answer(std::uint32_t word, unsigned value) {
    for (const Request& request : kRequests)
        if (request.word == word)
            return (word & kWrites) != 0 ? writeSignal(request.signal, value)
                                         : readSignal(request.signal);
    return fail(EINVAL);
}

} // namespace

// The permission bits are there only when a file may be made; passing a word too many does no harm.
#define FORWARDED_MODE(last)                                                                       \
    va_list arguments;                                                                             \
    va_start(arguments, last);                                                                     \
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;      \
    va_end(arguments)

EXPORTED int open(const char* path, int flags, ...) {
    FORWARDED_MODE(flags);
    if (isDevicePath(path))
        return openDevice(flags);
    return next<int (*)(const char*, int, ...)>("open")(path, flags, mode);
}

EXPORTED int open64(const char* path, int flags, ...) {
    FORWARDED_MODE(flags);
    if (isDevicePath(path))
        return openDevice(flags);
    return next<int (*)(const char*, int, ...)>("open64")(path, flags, mode);
}

EXPORTED int openat(int directory, const char* path, int flags, ...) {
    FORWARDED_MODE(flags);
    if (isDevicePath(path))
        return openDevice(flags);
    return next<int (*)(int, const char*, int, ...)>("openat")(directory, path, flags, mode);
}

EXPORTED int openat64(int directory, const char* path, int flags, ...) {
    FORWARDED_MODE(flags);
    if (isDevicePath(path))
        return openDevice(flags);
    return next<int (*)(int, const char*, int, ...)>("openat64")(directory, path, flags, mode);
}

// What the compiler calls instead of open() when it checks the buffers and arguments of calls.
EXPORTED int __open_2(const char* path, int flags) {
    if (isDevicePath(path))
        return openDevice(flags);
    return next<int (*)(const char*, int)>("__open_2")(path, flags);
}

EXPORTED int __open64_2(const char* path, int flags) {
    if (isDevicePath(path))
        return openDevice(flags);
    return next<int (*)(const char*, int)>("__open64_2")(path, flags);
}

EXPORTED int ioctl(int descriptor, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    // Callers who keep the request in an int hand it over sign-extended.
    const std::uint32_t word = static_cast<std::uint32_t>(request);
    const bool ofBoard = ((word >> 8) & 0xffU) == 'B';
    if (ofBoard && isDevice(descriptor))
        return answer(word, static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(argument)));
    return next<int (*)(int, unsigned long, ...)>("ioctl")(descriptor, request, argument);
}
