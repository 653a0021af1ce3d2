// The board's GPIO device for programs that run without a board. This library is preloaded and
// serves /dev/gpio from a text file of "name value" lines, which TAVO_GPIO_STATE names. Every other
// call is passed to the C library.
//
// Programs with glibc and with musl load the same file, since shells of this machine pass one
// environment to both. So it needs no library by name. It uses only what all C libraries have in
// the same form: no C++ library, no FILE macros, no stat().
//
// Every call reads the file again: a user may have edited or replaced it, and the descriptor may
// come from another program. So this library keeps no state and needs no lock in memory.
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

// Name of the memory file that a program has open instead of the device. It identifies the device's
// descriptors, also after dup, fork and exec.
constexpr char kDeviceFile[] = "tavo-gpio";

/// One request word of the board's driver: direction bits, type letter 'B', signal number.
struct Request {
    std::uint32_t word;
    const char* signal;
};
constexpr Request kRequests[] = {
    {0x40004203U, "led_usr"}, {0x40004204U, "led_pwr"}, {0x40004205U, "led_wan"},
    {0x40004206U, "out0"},    {0x40004210U, "led_sim"}, {0x80004206U, "out0"},
    {0x80004207U, "bin0"},    {0x8000421bU, "bin1"},    {0x80004211U, "temperature"},
    {0x80004212U, "voltage"},
};
constexpr std::uint32_t kWrites = 0x40000000U;

template <typename Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

const char* stateFile() {
    const char* path = std::getenv("TAVO_GPIO_STATE");
    return path != nullptr ? path : "/tmp/gpio.state";
}

bool isDevicePath(const char* path) {
    return path != nullptr && std::strcmp(path, "/dev/gpio") == 0;
}

bool isDevice(int descriptor) {
    char link[64];
    char target[64];
    char expected[sizeof target];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    const int length = std::snprintf(expected, sizeof expected, "/memfd:%s (deleted)", kDeviceFile);
    return readlink(link, target, sizeof target) == length &&
           std::memcmp(expected, target, static_cast<std::size_t>(length)) == 0;
}

int openDevice(int flags) {
    if (access(stateFile(), R_OK) != 0)
        return -1; // a board without the device; errno has the reason
    return memfd_create(kDeviceFile, (flags & O_CLOEXEC) != 0 ? MFD_CLOEXEC : 0);
}

/// Lets one program at a time change the state. The lock is on the directory, because the file is
/// replaced.
class StateLock {
public:
    StateLock() {
        char directory[PATH_MAX];
        std::snprintf(directory, sizeof directory, "%s", stateFile());
        char* const slash = std::strrchr(directory, '/');
        if (slash != nullptr)
            slash[1] = '\0';
        descriptor_ = next<int (*)(const char*, int, ...)>("open")(
            slash != nullptr ? directory : ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
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

/// The lines of the state file, in turn.
class StateLines {
public:
    StateLines() : file_(std::fopen(stateFile(), "re")) {}
    ~StateLines() {
        std::free(line_);
        if (file_ != nullptr)
            std::fclose(file_);
    }
    StateLines(const StateLines&) = delete;
    StateLines& operator=(const StateLines&) = delete;

    bool next() { return file_ != nullptr && getline(&line_, &room_, file_) >= 0; }
    /// With its newline, unless it is the last and has none.
    const char* text() const { return line_; }
    /// Returns whether the line is "signal value", and stores the value.
    bool isOf(const char* signal, long& value) const {
        const char* const name = line_ + std::strspn(line_, kBlanks);
        const std::size_t length = std::strcspn(name, kBlanks);
        if (length != std::strlen(signal) || std::strncmp(name, signal, length) != 0)
            return false;
        char* end = nullptr;
        value = std::strtol(name + length, &end, 10);
        return end != name + length;
    }

private:
    static constexpr char kBlanks[] = " \t\r\n";

    std::FILE* file_;
    char* line_ = nullptr;
    std::size_t room_ = 0;
};

int fail(int error) {
    errno = error;
    return -1;
}

int readSignal(const char* signal) {
    StateLines state;
    long value = 0;
    while (state.next()) {
        if (!state.isOf(signal, value))
            continue;
        // As with any system call, the kernel returns small negative results as errors.
        return value < 0 && value > -4096 ? fail(static_cast<int>(-value))
                                          : static_cast<int>(value);
    }
    return fail(EIO); // the signal is not in the file
}

/// Copies the state with the signal's new value. Returns whether the signal is in it and everything
/// was written.
bool copyState(std::FILE* fresh, const char* signal, unsigned value) {
    StateLines state;
    bool found = false;
    long old = 0;
    while (state.next()) {
        const char* const line = state.text();
        if (state.isOf(signal, old)) {
            std::fprintf(fresh, "%s %u\n", signal, value);
            found = true;
        } else {
            std::fprintf(fresh, std::strchr(line, '\n') != nullptr ? "%s" : "%s\n", line);
        }
    }
    return found && std::ferror(fresh) == 0;
}

int writeSignal(const char* signal, unsigned value) {
    const StateLock lock;
    // Replaced with a rename, so that a reader never sees half a file.
    char fresh[PATH_MAX];
    std::snprintf(fresh, sizeof fresh, "%s.new", stateFile());
    std::FILE* const file = std::fopen(fresh, "we");
    if (file == nullptr)
        return fail(EIO);
    const bool copied = copyState(file, signal, value);
    if (std::fclose(file) != 0 || !copied || std::rename(fresh, stateFile()) != 0) {
        unlink(fresh);
        return fail(EIO);
    }
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

// An emulator sets LD_PRELOAD for the programs that it runs. These may start programs of this
// machine, which cannot load this file.
__attribute__((constructor)) static void keepFromThisMachinesPrograms() {
    if (std::getenv("QEMU_SET_ENV") != nullptr)
        unsetenv("LD_PRELOAD");
}

// The permission bits are passed only when a file may be created. Forwarding an unused argument
// does no harm.
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

// With checks of buffers and arguments (_FORTIFY_SOURCE), the compiler calls these instead of
// open().
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
    // Callers that keep the request in an int pass it sign-extended.
    const std::uint32_t word = static_cast<std::uint32_t>(request);
    const bool ofBoard = ((word >> 8) & 0xffU) == 'B';
    if (ofBoard && isDevice(descriptor))
        return answer(word, static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(argument)));
    return next<int (*)(int, unsigned long, ...)>("ioctl")(descriptor, request, argument);
}
