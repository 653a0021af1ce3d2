#include "FailingMemory.h"

#include "CLibrary.h"
#include "Descriptors.h"
#include "ForkedChild.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <new>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <sys/ucontext.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

constexpr int kDeadlineMilliseconds = 20000; // far above a trial's duration

/// Which allocations fail in the process of one trial.
struct Plan {
    long number = LONG_MAX; ///< the first allocation that fails, from 1
    bool allFollowing = false;
    bool allThreads = false;
    bool newOnly = false;
    bool warmingUp = true;
    std::atomic<bool> armed{false};
};
Plan plan;
thread_local bool armedHere = false;
thread_local bool inNew = false;
std::atomic<long> liveBlocks{0};

/// What happened, in the trial's process and in its forked copies.
struct Progress {
    std::atomic<long> counted;
    std::atomic<bool> reached;
};
Progress* progress = nullptr;

bool failsNow() {
    if (!plan.armed || !(armedHere || plan.allThreads) || (plan.newOnly && !inNew))
        return false;
    const long number = ++progress->counted;
    if (number != plan.number && !(plan.allFollowing && number > plan.number))
        return false;
    progress->reached = true;
    errno = ENOMEM;
    return true;
}

void* counted(void* block) {
    if (block != nullptr)
        ++liveBlocks;
    return block;
}

/// The C library's own function of this type and name.
template <typename Function>
Function* replaced(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

// These replace the C library's functions.
extern "C" {

void* malloc(std::size_t size) C_LIBRARY_NOEXCEPT {
    static const auto original = replaced<void*(std::size_t)>("malloc");
    return failsNow() ? nullptr : counted(original(size));
}

// Not by the C library's calloc(): musl's calls malloc(), and the block would count twice.
void* calloc(std::size_t count, std::size_t size) C_LIBRARY_NOEXCEPT {
    static const auto original = replaced<void*(std::size_t)>("malloc");
    std::size_t bytes = 0;
    if (__builtin_mul_overflow(count, size, &bytes)) {
        errno = ENOMEM;
        return nullptr;
    }
    if (failsNow())
        return nullptr;
    void* const block = counted(original(bytes));
    if (block != nullptr)
        std::memset(block, 0, bytes);
    return block;
}

void* realloc(void* block, std::size_t size) C_LIBRARY_NOEXCEPT {
    static const auto original = replaced<void*(void*, std::size_t)>("realloc");
    if (failsNow())
        return nullptr;
    void* const moved = original(block, size);
    if (block == nullptr)
        return counted(moved);
    if (moved == nullptr && size == 0)
        --liveBlocks;
    return moved;
}

void* aligned_alloc(std::size_t alignment, std::size_t size) C_LIBRARY_NOEXCEPT {
    static const auto original = replaced<void*(std::size_t, std::size_t)>("aligned_alloc");
    return failsNow() ? nullptr : counted(original(alignment, size));
}

void* memalign(std::size_t alignment, std::size_t size) C_LIBRARY_NOEXCEPT {
    return aligned_alloc(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) C_LIBRARY_NOEXCEPT {
    void* const made = aligned_alloc(alignment, size);
    if (made == nullptr)
        return ENOMEM;
    *block = made;
    return 0;
}

void free(void* block) C_LIBRARY_NOEXCEPT {
    static const auto original = replaced<void(void*)>("free");
    if (block != nullptr)
        --liveBlocks;
    original(block);
}
}

void* operator new(std::size_t size) {
    inNew = true;
    void* const block = std::malloc(size == 0 ? 1 : size);
    inNew = false;
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }

namespace fault {

const std::string kLong(100, 'x');

#if defined(_LIBCPP_VERSION)
const std::set<std::string> kEmptyFile = {""};
#else
const std::set<std::string> kEmptyFile;
#endif

namespace {

int outputFile = -1;
int stackFile = -1;
int reportPipe = -1;
pid_t trialProcess = 0;

/// How a trial ended, as its process reports it. Fixed memory, because there may be no other.
struct Report {
    char outcome[2000];
    long allocations;
    long blocksKept;
    int descriptorsKept;
    bool reached;
};
Report report;

void setOutcome(const char* text) {
    std::snprintf(report.outcome, sizeof report.outcome, "%s", text);
    std::replace(report.outcome, report.outcome + std::strlen(report.outcome), '\n', '|');
}

void disarm() {
    plan.armed = false;
    armedHere = false;
}

[[noreturn]] void send() {
    if (getpid() != trialProcess)
        setOutcome("a forked child continued");
    report.allocations = progress->counted;
    report.reached = progress->reached;
    (void)!write(reportPipe, &report, sizeof report);
    _exit(0);
}

/// Returns the library's name without its directory. Returns null for code that only passes a
/// failure on: the C and C++ libraries, and this program.
const char* libraryAt(void* address) {
    Dl_info info;
    if (dladdr(address, &info) == 0 || info.dli_fname == nullptr)
        return nullptr;
    const char* const slash = std::strrchr(info.dli_fname, '/');
    const char* const name = slash != nullptr ? slash + 1 : info.dli_fname;
    for (const char* passes : {"libc.so", "libc-", "libc++", "libstdc++", "libgcc_s", "libm.so"})
        if (std::strncmp(name, passes, std::strlen(passes)) == 0)
            return nullptr;
    return std::strncmp(name, "lib", 3) == 0 ? name : nullptr;
}

/// What a signal interrupted.
struct Interrupted {
    void* code;           ///< the address that was executed
    void* caller;         ///< where the processor keeps a return address in a register, or null
    const char* stackTop; ///< the stack grows down to it
};

Interrupted interrupted(const ucontext_t& context) {
    const mcontext_t& registers = context.uc_mcontext;
#if defined(__x86_64__)
    return {reinterpret_cast<void*>(registers.gregs[REG_RIP]), nullptr,
            reinterpret_cast<const char*>(registers.gregs[REG_RSP])};
#elif defined(__aarch64__)
    return {reinterpret_cast<void*>(registers.pc), reinterpret_cast<void*>(registers.regs[30]),
            reinterpret_cast<const char*>(registers.sp)};
#else
    return {reinterpret_cast<void*>(registers.arm_pc), reinterpret_cast<void*>(registers.arm_lr),
            reinterpret_cast<const char*>(registers.arm_sp)};
#endif
}

/// Returns the library that ran, or called the C library that ran: the first library that an
/// address on the stack belongs to. A C library without unwind tables allows no backtrace.
const char* libraryThatRan(const Interrupted& at) {
    for (void* address : {at.code, at.caller})
        if (const char* const library = libraryAt(address); library != nullptr)
            return library;
    // Words are read through a file: behind the end of the stack, pwrite() fails and nothing else.
    void* word = nullptr;
    for (const char* place = at.stackTop; pwrite(stackFile, place, sizeof word, 0) == sizeof word &&
                                          pread(stackFile, &word, sizeof word, 0) == sizeof word;
         place += sizeof word)
        if (const char* const library = libraryAt(word); library != nullptr)
            return library;
    return "the program";
}

[[noreturn]] void sendSignal(int signal, const char* library) {
    std::snprintf(report.outcome, sizeof report.outcome, "signal %d in %.*s", signal,
                  static_cast<int>(std::strcspn(library, ".")), library);
    send();
}

extern "C" void reportSignal(int signal, siginfo_t*, void* context) {
    disarm();
    sendSignal(signal, libraryThatRan(interrupted(*static_cast<const ucontext_t*>(context))));
}

extern "C" void reportHang(int) {
    disarm();
    setOutcome("hangs");
    send();
}

[[noreturn]] void reportTerminate() {
    disarm();
    setOutcome("terminate");
    send();
}

void reportExit() {
    disarm();
    setOutcome("exit");
    send();
}

void prepareProcess() {
    trialProcess = getpid();
    struct sigaction reporting = {};
    reporting.sa_sigaction = reportSignal;
    reporting.sa_flags = SA_SIGINFO;
    for (int signal : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL})
        sigaction(signal, &reporting, nullptr);
    std::set_terminate(reportTerminate);
    std::atexit(reportExit);
    stackFile = memfd_create("stack", MFD_CLOEXEC);
    outputFile = memfd_create("output", MFD_CLOEXEC);
    dup2(outputFile, STDOUT_FILENO);
    dup2(outputFile, STDERR_FILENO);
}

[[noreturn]] void runTrial(const Trial& trial, bool warmUp) {
    prepareProcess();
    Memory memory;
    if (warmUp) {
        trial(memory); // allocates what the libraries allocate only once
        (void)!ftruncate(outputFile, 0);
        lseek(outputFile, 0, SEEK_SET);
    }
    const std::set<int> descriptors = support::openDescriptors();
    const long blocks = liveBlocks;
    plan.warmingUp = false;
    try {
        const std::string outcome = trial(memory);
        disarm();
        setOutcome(outcome.c_str());
    } catch (const std::bad_alloc&) {
        disarm();
        setOutcome("std::bad_alloc");
    } catch (const std::exception& error) {
        disarm();
        std::snprintf(report.outcome, sizeof report.outcome, "exception: %s", error.what());
    }
    report.blocksKept = liveBlocks - blocks;
    report.descriptorsKept = static_cast<int>(support::openedSince(descriptors).size());
    send();
}

std::string textOf(const Report& got) {
    std::string text = got.outcome;
    if (got.blocksKept > 0)
        text += " (memory kept)";
    if (got.descriptorsKept > 0)
        text += " (" + std::to_string(got.descriptorsKept) + " descriptors kept)";
    return text;
}

/// Runs the trial and receives its process's report. A process that dies sends none.
Report attempt(const Trial& trial, bool warmUp, long number, bool allFollowing) {
    int ends[2];
    EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
    progress->counted = 0;
    progress->reached = false;
    std::cout.flush();
    std::fflush(nullptr);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        support::endWithParent(parent);
        reportPipe = ends[1];
        plan.number = number;
        plan.allFollowing = allFollowing;
        runTrial(trial, warmUp);
    }
    close(ends[1]);
    Report got = {};
    pollfd waiting = {ends[0], POLLIN, 0};
    const bool ended = poll(&waiting, 1, kDeadlineMilliseconds) == 1;
    const bool reported = ended && read(ends[0], &got, sizeof got) == sizeof got;
    close(ends[0]);
    if (!ended)
        kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    if (!reported) {
        got = {};
        got.reached = true;
        std::snprintf(got.outcome, sizeof got.outcome,
                      ended ? "ends without a report, raw status %d" : "hangs", status);
    }
    return got;
}

} // namespace

} // namespace fault

/// Replaces the C library's function. Its caller is known exactly here, unlike in a signal handler.
extern "C" void abort() {
    fault::disarm();
    const char* const library = fault::libraryAt(__builtin_return_address(0));
    if (library != nullptr)
        fault::sendSignal(SIGABRT, library);
    std::raise(SIGABRT);
    _exit(1);
}

namespace fault {

void Memory::fail() {
    if (plan.warmingUp)
        return;
    armedHere = true;
    plan.armed = true;
}

void Memory::recover() { disarm(); }

void Memory::ofAllThreads() { plan.allThreads = true; }

void Memory::ofNewOnly() { plan.newOnly = true; }

void Memory::setDeadline(int milliseconds) {
    std::signal(SIGALRM, reportHang);
    itimerval once = {};
    once.it_value.tv_sec = milliseconds / 1000;
    once.it_value.tv_usec = milliseconds % 1000 * 1000;
    setitimer(ITIMER_REAL, &once, nullptr);
}

std::string Memory::printed() const {
    std::cout.flush();
    std::fflush(stdout);
    std::string text(static_cast<std::size_t>(lseek(outputFile, 0, SEEK_END)), '\0');
    if (pread(outputFile, &text[0], text.size(), 0) != static_cast<ssize_t>(text.size()))
        text = "unreadable";
    return text;
}

void exhaust(const std::string& what, AtLeast least, const std::string& whole,
             const std::set<std::string>& others, const Trial& trial, WarmUp warmUp) {
    void* const shared =
        mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    progress = new (shared) Progress();
    Outcomes outcomes;
    long allocations = 0;
    for (const bool allFollowing : {false, true}) {
        for (long number = 1;; ++number) {
            const Report got = attempt(trial, warmUp == WarmUp::yes, number, allFollowing);
            const std::string outcome = textOf(got);
            if (!got.reached) {
                allocations = got.allocations;
                EXPECT_EQ(whole, outcome) << what << ", with all memory";
                break;
            }
            if (++outcomes[outcome == whole ? "unaffected" : outcome] == 1) {
                EXPECT_TRUE(outcome == whole || outcome == "std::bad_alloc" ||
                            others.count(outcome) == 1)
                    << what << ", allocation " << number
                    << (allFollowing ? " and all following" : "") << ": " << outcome;
            }
        }
    }
    if (least.allocations == 0)
        EXPECT_EQ(0, allocations) << what;
    else
        EXPECT_LE(least.allocations, allocations) << what;
    std::cout << "fault: memory: " << what << ": " << allocations << " allocations";
    for (const auto& [outcome, count] : outcomes)
        std::cout << "; " << count << "x " << outcome;
    std::cout << std::endl;
}

} // namespace fault
