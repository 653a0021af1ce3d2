#include <kvr/api/sys/NQ_Gpio.h>

#include "CLibrary.h"
#include "Descriptors.h"
#include "ForkedChild.h"
#include "Interposed.h"
#include "TempDir.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <functional>
#include <limits>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

#ifdef __GLIBC__
using RequestWord = unsigned long;
#else
using RequestWord = int;
#endif

/// The request word, without sign extension from an int to a wider type.
template <class Word>
unsigned long widened(Word request) {
    return static_cast<std::make_unsigned_t<Word>>(request);
}

/// A call that reached the driver.
struct Call {
    int descriptor;
    unsigned long request;
    unsigned long value;

    bool operator==(const Call& other) const {
        return descriptor == other.descriptor && request == other.request && value == other.value;
    }
};

std::ostream& operator<<(std::ostream& out, const Call& call) {
    return out << "ioctl(" << call.descriptor << ", 0x" << std::hex << call.request << std::dec
               << ", " << call.value << ")";
}

/// Simulates /dev/gpio while an object exists: this program replaces the C library's open() and
/// ioctl(). Only one object at a time.
class FakeBoard {
public:
    FakeBoard() { current = this; }
    ~FakeBoard() { current = nullptr; }
    FakeBoard(const FakeBoard&) = delete;
    FakeBoard& operator=(const FakeBoard&) = delete;

    /// Error number of the next opens, or 0 for success.
    int openError = 0;
    /// Returns the driver's result for a request. Results below -1 are possible, too: some kernels'
    /// drivers return them.
    std::function<int(unsigned long)> driver = [](unsigned long) { return 0; };

    std::vector<int> openFlags;
    std::vector<Call> calls;

    /// Runs in every open, on the calling thread.
    std::function<void()> opening = [] {};

    int openDevice(int flags) {
        opening();
        const std::lock_guard<std::mutex> lock(guard_);
        openFlags.push_back(flags);
        errno = openError;
        return openError == 0 ? dup(STDERR_FILENO) : -1;
    }
    int control(int descriptor, unsigned long request, unsigned long value) {
        const std::lock_guard<std::mutex> lock(guard_);
        calls.push_back({descriptor, request, value});
        return driver(request);
    }

    static FakeBoard* current;

private:
    std::mutex guard_; // protects what both calls record
};

FakeBoard* FakeBoard::current = nullptr;

bool isBoard(const char* path) {
    return FakeBoard::current != nullptr && std::strcmp(path, "/dev/gpio") == 0;
}

} // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (isBoard(path))
        return FakeBoard::current->openDevice(flags);
    return support::next<int(const char*, int, ...)>("open")(path, flags, mode);
}

#ifdef __GLIBC__
int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (isBoard(path))
        return FakeBoard::current->openDevice(flags);
    return support::next<int(const char*, int, ...)>("open64")(path, flags, mode);
}
#endif

int ioctl(int descriptor, RequestWord request, ...) C_LIBRARY_NOEXCEPT {
    va_list arguments;
    va_start(arguments, request);
    const unsigned long value = va_arg(arguments, unsigned long);
    va_end(arguments);
    if (FakeBoard::current != nullptr)
        return FakeBoard::current->control(descriptor, widened(request), value);
    return support::next<int(int, RequestWord, ...)>("ioctl")(descriptor, request, value);
}
}

namespace {

using kvr::api::sys::GPIO_OFF;
using kvr::api::sys::GPIO_ON;
using kvr::api::sys::Gpio_State;
using kvr::api::sys::NQ_Gpio;
using testing::ElementsAre;
using testing::IsEmpty;

struct Setter {
    const char* name;
    int (*operation)(Gpio_State);
    unsigned long request;
    unsigned int number;
};

const Setter kSetters[] = {
    {"setLedSim", NQ_Gpio::setLedSim, 1073758736, 16},
    {"setLedWan", NQ_Gpio::setLedWan, 1073758725, 5},
    {"setLedUsr", NQ_Gpio::setLedUsr, 1073758723, 3},
    {"setLedPwr", NQ_Gpio::setLedPwr, 1073758724, 4},
    {"setOut0", NQ_Gpio::setOut0, 1073758726, 6},
};

struct Reader {
    const char* name;
    int (*operation)();
    unsigned long request;
    unsigned int number;
    bool lowWhenFailed;
};

const Reader kReaders[] = {
    {"getOut0", NQ_Gpio::getOut0, 2147500550, 6, true},
    {"getBin0", NQ_Gpio::getBin0, 2147500551, 7, true},
    {"getBin1", NQ_Gpio::getBin1, 2147500571, 27, true},
    {"getTemperature", NQ_Gpio::getTemperature, 2147500561, 17, false},
    {"getVoltage", NQ_Gpio::getVoltage, 2147500562, 18, false},
};

/// The descriptor stays open as long as the process. Runs `body` in a process that has not used the
/// board.
void inFreshProcess(const std::function<void()>& body) {
    const support::ForkedChild child = support::inForkedChild(body);
    EXPECT_EQ(0, child.status) << child.output;
}

static_assert(GPIO_OFF == 0 && GPIO_ON == 1, "what the board's driver takes for off and on");
static_assert(sizeof(Gpio_State) == sizeof(int), "any number of a driver's fits");

TEST(NQ_Gpio, EverySetterWritesItsSignalWithTheStatesNumber) {
    inFreshProcess([] {
        for (const Setter& setter : kSetters) {
            SCOPED_TRACE(setter.name);
            FakeBoard board;
            EXPECT_EQ(0, setter.operation(GPIO_OFF));
            EXPECT_EQ(0, setter.operation(GPIO_ON));
            EXPECT_EQ(0, setter.operation(static_cast<Gpio_State>(7)));
            ASSERT_EQ(3u, board.calls.size());
            const int device = board.calls[0].descriptor;
            EXPECT_THAT(board.calls, ElementsAre(Call{device, setter.request, 0},
                                                 Call{device, setter.request, 1},
                                                 Call{device, setter.request, 7}));
        }
    });
}

TEST(NQ_Gpio, EveryReaderReadsItsSignalWithTheArgumentZero) {
    inFreshProcess([] {
        for (const Reader& reader : kReaders) {
            SCOPED_TRACE(reader.name);
            FakeBoard board;
            board.driver = [](unsigned long) { return 1; };
            EXPECT_EQ(1, reader.operation());
            ASSERT_EQ(1u, board.calls.size());
            EXPECT_EQ((Call{board.calls[0].descriptor, reader.request, 0}), board.calls[0]);
        }
    });
}

TEST(NQ_Gpio, RequestWordsHoldDirectionTypeAndNumberIn32Bits) {
    inFreshProcess([] {
        FakeBoard board;
        for (const Setter& setter : kSetters) {
            setter.operation(GPIO_ON);
            EXPECT_EQ(0x40000000ul | 'B' << 8 | setter.number, board.calls.back().request)
                << setter.name;
        }
        for (const Reader& reader : kReaders) {
            reader.operation();
            // The top bit must not be sign-extended to a longer word.
            EXPECT_EQ(0x80000000ul | 'B' << 8 | reader.number, board.calls.back().request)
                << reader.name;
        }
    });
}

TEST(NQ_Gpio, TheOutputIsWrittenAndReadBackUnderOneNumber) {
    inFreshProcess([] {
        FakeBoard board;
        NQ_Gpio::setOut0(GPIO_ON);
        NQ_Gpio::getOut0();
        ASSERT_EQ(2u, board.calls.size());
        EXPECT_EQ(6u, board.calls[0].request & 0xff);
        EXPECT_EQ(6u, board.calls[1].request & 0xff);
    });
}

TEST(NQ_Gpio, ANegativeStateReachesTheDriverAs32Bits) {
    inFreshProcess([] {
        FakeBoard board;
        NQ_Gpio::setLedUsr(static_cast<Gpio_State>(-1));
        ASSERT_EQ(1u, board.calls.size());
        EXPECT_EQ(0xfffffffful, board.calls[0].value);
    });
}

TEST(NQ_Gpio, SettersReturnWhatTheDriverReturns) {
    inFreshProcess([] {
        FakeBoard board;
        for (const int result : {0, 1, 42, -1, -22}) {
            board.driver = [&](unsigned long) { return result; };
            for (const Setter& setter : kSetters)
                EXPECT_EQ(result, setter.operation(GPIO_ON)) << setter.name;
        }
    });
}

TEST(NQ_Gpio, ReadersReturnWhatTheDriverReturns) {
    inFreshProcess([] {
        FakeBoard board;
        for (const int result : {0, 1, 4711, std::numeric_limits<int>::max()}) {
            board.driver = [&](unsigned long) { return result; };
            for (const Reader& reader : kReaders)
                EXPECT_EQ(result, reader.operation()) << reader.name;
        }
    });
}

TEST(NQ_Gpio, NegativeResultsReadAsALowLevelButPassThroughForMeasurements) {
    inFreshProcess([] {
        FakeBoard board;
        for (const int result : {-1, -22, std::numeric_limits<int>::min()}) {
            board.driver = [&](unsigned long) { return result; };
            for (const Reader& reader : kReaders)
                EXPECT_EQ(reader.lowWhenFailed ? 0 : result, reader.operation()) << reader.name;
        }
    });
}

TEST(NQ_Gpio, ARefusalSetsErrnoAndLeavesTheDeviceOpen) {
    inFreshProcess([] {
        FakeBoard board;
        board.driver = [](unsigned long) {
            errno = ENOTTY;
            return -1;
        };
        errno = 0;
        EXPECT_EQ(-1, NQ_Gpio::setOut0(GPIO_ON));
        EXPECT_EQ(ENOTTY, errno);
        NQ_Gpio::getVoltage();
        EXPECT_EQ(1u, board.openFlags.size());
    });
}

TEST(NQ_Gpio, TheDeviceIsOpenedOnceForReadingAndWriting) {
    inFreshProcess([] {
        FakeBoard board;
        EXPECT_THAT(board.openFlags, IsEmpty());
        for (int round = 0; round < 3; ++round) {
            for (const Setter& setter : kSetters)
                setter.operation(GPIO_ON);
            for (const Reader& reader : kReaders)
                reader.operation();
        }
        ASSERT_EQ(1u, board.openFlags.size());
#ifdef O_LARGEFILE
        EXPECT_EQ(O_RDWR, board.openFlags[0] & ~O_LARGEFILE);
#else
        EXPECT_EQ(O_RDWR, board.openFlags[0]);
#endif
        EXPECT_EQ(30u, board.calls.size());
        for (const Call& call : board.calls)
            EXPECT_EQ(board.calls[0].descriptor, call.descriptor);
    });
}

TEST(NQ_Gpio, TheDeviceStaysOpenAndNothingElseDoes) {
    inFreshProcess([] {
        FakeBoard board;
        const auto before = support::openDescriptors();
        for (int round = 0; round < 10; ++round)
            NQ_Gpio::getBin0();
        ASSERT_FALSE(board.calls.empty());
        EXPECT_THAT(support::openedSince(before), ElementsAre(board.calls[0].descriptor));
    });
}

TEST(NQ_Gpio, WithoutADeviceOperationsFailAndEachTriesAgain) {
    inFreshProcess([] {
        FakeBoard board;
        board.openError = ENOENT;
        for (const Setter& setter : kSetters) {
            errno = 0;
            EXPECT_EQ(-1, setter.operation(GPIO_ON)) << setter.name;
            EXPECT_EQ(ENOENT, errno);
        }
        for (const Reader& reader : kReaders)
            EXPECT_EQ(reader.lowWhenFailed ? 0 : -1, reader.operation()) << reader.name;
        EXPECT_EQ(10u, board.openFlags.size());
        EXPECT_THAT(board.calls, IsEmpty());
    });
}

TEST(NQ_Gpio, ADeviceThatAppearsLaterIsOpenedAndKept) {
    inFreshProcess([] {
        FakeBoard board;
        board.openError = EACCES;
        EXPECT_EQ(-1, NQ_Gpio::getTemperature());
        board.openError = 0;
        board.driver = [](unsigned long) { return 21; };
        EXPECT_EQ(21, NQ_Gpio::getTemperature());
        EXPECT_EQ(21, NQ_Gpio::getVoltage());
        EXPECT_EQ(2u, board.openFlags.size());
    });
}

TEST(NQ_Gpio, DescriptorZeroIsADeviceToo) {
    inFreshProcess([] {
        FakeBoard board;
        close(STDIN_FILENO);
        NQ_Gpio::getBin0();
        NQ_Gpio::getBin0();
        ASSERT_EQ(2u, board.calls.size());
        EXPECT_EQ(0, board.calls[0].descriptor);
        EXPECT_EQ(1u, board.openFlags.size());
    });
}

TEST(NQ_Gpio, FailuresPrintNothing) {
    const support::ForkedChild child = support::inForkedChild([] {
        dup2(STDOUT_FILENO, STDERR_FILENO);
        FakeBoard board;
        board.openError = ENOENT;
        NQ_Gpio::setLedPwr(GPIO_ON);
        NQ_Gpio::getVoltage();
        board.openError = 0;
        board.driver = [](unsigned long) { return -1; };
        NQ_Gpio::getVoltage();
    });
    EXPECT_EQ(0, child.status);
    EXPECT_EQ("", child.output);
}

TEST(NQ_Gpio, OnAMachineWithoutABoardEverythingFails) {
    if (support::exists("/dev/gpio"))
        GTEST_SKIP() << "this machine has a board";
    inFreshProcess([] {
        errno = 0;
        EXPECT_EQ(-1, NQ_Gpio::setLedWan(GPIO_ON));
        EXPECT_EQ(ENOENT, errno);
        EXPECT_EQ(-1, NQ_Gpio::getTemperature());
        EXPECT_EQ(0, NQ_Gpio::getBin0());
    });
}

// Must be last, because it leaves the device open in this process. In a forked process a thread
// sanitizer sometimes misses a race. Here it finds every race, but its report opens files and
// therefore hangs until the test's time limit.
TEST(NQ_Gpio, TwoConcurrentFirstCallsBothReachTheBoardAndOneDescriptorIsKept) {
    FakeBoard board;
    board.driver = [](unsigned long) { return 1; };
    // No thread opens before the other one has called open. Relaxed, so that a thread sanitizer
    // sees no ordering here.
    std::atomic<int> wanting{0};
    board.opening = [&] {
        wanting.fetch_add(1, std::memory_order_relaxed);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (wanting.load(std::memory_order_relaxed) < 2 &&
               std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
    };
    int other = 0;
    std::thread second([&] { other = NQ_Gpio::getBin1(); });
    EXPECT_EQ(1, NQ_Gpio::getBin0());
    second.join();
    EXPECT_EQ(1, other);
    EXPECT_EQ(2u, board.openFlags.size());

    EXPECT_EQ(1, NQ_Gpio::getOut0());
    EXPECT_EQ(1, NQ_Gpio::getOut0());
    ASSERT_EQ(4u, board.calls.size());
    EXPECT_EQ(board.calls[2].descriptor, board.calls[3].descriptor);
    EXPECT_EQ(2u, board.openFlags.size());
}

} // namespace
