// What FileSystemWatcher asks of the kernel and makes of its answers, with the test in the kernel's
// place: for the order of calls, for answers that a kernel cannot be made to give, and for watch
// numbers chosen at will. FileSystemWatcher_test.cpp holds what the real kernel can show.

#include <kvr/api/FileSystemWatcher.h>

#include "CapturedOutput.h"
#include "ScriptedInotify.h"

#include <cerrno>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/inotify.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::errorsOf;
using support::printedBy;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned int kMask = IN_CREATE | IN_DELETE; // 0x300
constexpr std::size_t kBufferSize = 4600;
constexpr int kFirstDescriptor = 1000; // out of the way of the process's own

/// One record as the kernel writes it; `length` bytes of name follow the header.
std::string rawRecord(int watch, unsigned int mask, const std::string& name, std::size_t length) {
    inotify_event header = {};
    header.wd = watch;
    header.mask = mask;
    header.len = static_cast<std::uint32_t>(length);
    std::string bytes(sizeof header + length, '\0');
    std::memcpy(&bytes[0], &header, sizeof header);
    bytes.replace(sizeof header, name.size(), name);
    return bytes;
}

/// With the name padded by NULs to a multiple of the header's size, at least one.
std::string record(int watch, unsigned int mask, const std::string& name = "") {
    if (name.empty())
        return rawRecord(watch, mask, name, 0);
    const std::size_t unit = sizeof(inotify_event);
    return rawRecord(watch, mask, name, (name.size() / unit + 1) * unit);
}

/// Plays the kernel: notes every call as a line, gives each path a number of its own, in the order
/// of appearance, and serves queued reads. When nothing is queued, a poll is idle; the poll that
/// finds `idleLimit` reached sets the flag at `stopWhenIdle`.
class PlayedKernel {
public:
    PlayedKernel() {
        calls_.init = [this] {
            const int descriptor = initFails ? -1 : nextDescriptor_++;
            if (initFails)
                errno = EMFILE;
            note("init = " + std::to_string(descriptor));
            return descriptor;
        };
        calls_.addWatch = [this](int descriptor, const std::string& path, std::uint32_t mask) {
            const int watch = descriptor < 0 ? -1 : numberOf(path);
            if (watch == -1)
                errno = descriptor < 0 ? EBADF : addError;
            std::ostringstream line;
            line << "add " << descriptor << ' ' << path << ' ' << std::hex << mask << std::dec
                 << " = " << watch;
            note(line.str());
            return watch;
        };
        calls_.removeWatch = [this](int descriptor, int watch) {
            note("remove " + std::to_string(descriptor) + ' ' + std::to_string(watch));
            return 0;
        };
        calls_.poll = [this](pollfd* polled, nfds_t count, int timeout) {
            std::ostringstream line;
            line << "poll " << polled->fd << " events " << polled->events << " count " << count
                 << " timeout " << timeout;
            note(line.str());
            const int answer = pollAnswers.empty() ? (reads.empty() ? 0 : 1) : pollAnswers.front();
            if (!pollAnswers.empty())
                pollAnswers.pop_front();
            if (answer < 0)
                errno = EINTR;
            if (pollAnswers.empty() && reads.empty() && stopWhenIdle != nullptr)
                *stopWhenIdle = true;
            return answer;
        };
        calls_.read = [this](int descriptor, void* buffer, std::size_t size) -> ssize_t {
            note("read " + std::to_string(descriptor) + ' ' + std::to_string(size));
            if (reads.empty())
                return 0;
            const std::string bytes = reads.front();
            reads.pop_front();
            if (bytes == kReadFails) {
                errno = EIO;
                return -1;
            }
            std::memcpy(buffer, bytes.data(), bytes.size());
            return static_cast<ssize_t>(bytes.size());
        };
        calls_.close = [this](int descriptor) {
            if (descriptor >= 0 && descriptor < kFirstDescriptor)
                return kernelClose(descriptor); // somebody else's
            note("close " + std::to_string(descriptor));
            return 0;
        };
        scripted_ = std::make_unique<ScriptedInotify>(calls_);
    }

    static constexpr const char* kReadFails = "the read fails";

    bool initFails = false;
    int addError = ENOENT;
    std::map<std::string, int> numbers; ///< paths with a number; one of -1 is refused
    bool mayNumberPaths = true;         ///< other paths get the next free one
    std::deque<std::string> reads;
    std::deque<int> pollAnswers; ///< before those that follow from `reads`
    bool* stopWhenIdle = nullptr;

    /// The calls since the last time, in order.
    std::vector<std::string> calls() {
        std::vector<std::string> taken;
        taken.swap(log_);
        return taken;
    }

    /// Runs the loop until everything queued has been read.
    void serve(FileSystemWatcher& watcher) {
        bool stop = false;
        stopWhenIdle = &stop;
        watcher.run(stop);
        stopWhenIdle = nullptr;
    }

private:
    void note(const std::string& line) { log_.push_back(line); }

    int numberOf(const std::string& path) {
        const auto known = numbers.find(path);
        if (known != numbers.end())
            return known->second;
        return mayNumberPaths ? numbers[path] = static_cast<int>(numbers.size()) + 1 : -1;
    }

    InotifyCalls calls_;
    std::unique_ptr<ScriptedInotify> scripted_;
    int nextDescriptor_ = kFirstDescriptor;
    std::vector<std::string> log_;
};

/// What a callback was given, and what it does besides.
struct Recorder {
    std::vector<std::string> seen;
    std::function<void(const std::string& name)> action;

    static void note(const Watcher&, const std::string& name, unsigned int mask, void* context) {
        auto* const self = static_cast<Recorder*>(context);
        std::ostringstream line;
        line << name << ' ' << std::hex << mask;
        self->seen.push_back(line.str());
        if (self->action)
            self->action(name);
    }

    Watcher of(const std::string& path) { return Watcher(path, kMask, note, this); }
};

/// Attaches one registration per letter, the letter being the path, then detaches `detached`, and
/// tells which registrations (by their place, from 0) are still called. `numbers` are the letters'
/// watch numbers, one per registration.
class Detaching : public testing::Test {
protected:
    std::string left(const std::string& letters, const std::vector<int>& numbers,
                     const std::string& detached) {
        std::vector<Recorder> recorders(letters.size());
        FileSystemWatcher watcher;
        for (std::size_t i = 0; i < letters.size(); ++i) {
            const std::string path(1, letters[i]);
            kernel.numbers[path] = numbers[i];
            watcher.attachWatcher(recorders[i].of(path));
        }
        (void)kernel.calls();
        watcher.detachWatcher(detached);
        callsOfDetach = kernel.calls();

        std::string allRecords;
        for (const int number : std::set<int>(numbers.begin(), numbers.end()))
            allRecords += record(number, IN_CREATE);
        kernel.reads.push_back(allRecords);
        kernel.serve(watcher);
        std::string result;
        for (std::size_t i = 0; i < recorders.size(); ++i) {
            if (!recorders[i].seen.empty())
                result += std::to_string(i);
        }
        return result;
    }

    /// The same, where equal paths have equal numbers.
    std::string left(const std::string& letters, const std::string& detached) {
        std::vector<int> numbers;
        for (const char letter : letters)
            numbers.push_back(letter - 'A' + 1);
        return left(letters, numbers, detached);
    }

    PlayedKernel kernel;
    std::vector<std::string> callsOfDetach;
};

} // namespace

TEST_F(Detaching, RemovesTheOnlyEntryOfThePath) {
    EXPECT_EQ("02", left("ABC", "B"));
    EXPECT_THAT(callsOfDetach, ElementsAre("remove 1000 2"));
}

TEST_F(Detaching, RemovesAllEntriesOfThePathButAsksTheKernelOnce) {
    EXPECT_EQ("", left("AAA", "A"));
    EXPECT_THAT(callsOfDetach, ElementsAre("remove 1000 1"));
}

TEST_F(Detaching, KeepsSingleEntriesBehindRemovedOnes) {
    EXPECT_EQ("2", left("AAB", "A"));
    EXPECT_EQ("12", left("ABC", "A"));
}

TEST_F(Detaching, RemovesTheSecondOfTwoEqualEntriesThatMovedUp) {
    EXPECT_EQ("2", left("AABB", "A"));
    EXPECT_EQ("1", left("ABB", "A"));
    EXPECT_EQ("1", left("ABBBB", "A"));
}

TEST_F(Detaching, ComparesAllLaterEntriesWithTheOneThatMovedUp) {
    EXPECT_EQ("12", left("ABCB", "A"));
    EXPECT_EQ("123", left("ABCC", "A"));
}

TEST_F(Detaching, KeepsALaterEntryOfThePathOnceAnotherMovedUp) {
    EXPECT_EQ("12", left("ABA", "A"));
    EXPECT_EQ("12", left("ABAB", "A"));
}

TEST_F(Detaching, LeavesEntriesInFrontAlone) {
    EXPECT_EQ("02", left("CABB", "A"));
    EXPECT_EQ("01", left("BBA", "A"));
    EXPECT_EQ("013", left("BBAB", "A"));
}

TEST_F(Detaching, KeepsEntriesOfThePathThatHaveAnotherNumber) {
    EXPECT_EQ("1", left("AA", {1, 2}, "A"));
    EXPECT_THAT(callsOfDetach, ElementsAre("remove 1000 1"));
    EXPECT_EQ("123", left("AABB", {1, 2, 3, 3}, "A"));
}

TEST_F(Detaching, KeepsEntriesOfTheNumberThatHaveAnotherPath) {
    EXPECT_EQ("1", left("AB", {1, 1}, "A"));
}

TEST_F(Detaching, DoesNothingWhenThePathIsUnknown) {
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ("01", left("AB", "C")); }));
    EXPECT_THAT(callsOfDetach, IsEmpty());
    EXPECT_EQ("01", left("AB", "A/"));
    EXPECT_EQ("01", left("AB", ""));
}

TEST(FileSystemWatcherCalls, MakesAndClosesOneInstance) {
    PlayedKernel kernel;
    { FileSystemWatcher watcher; }
    EXPECT_THAT(kernel.calls(), ElementsAre("init = 1000", "close 1000"));
}

TEST(FileSystemWatcherCalls, RemovesEveryWatchInListOrderWhenDestroyed) {
    PlayedKernel kernel;
    Recorder recorder;
    {
        FileSystemWatcher watcher;
        for (const char* path : {"/a", "/b", "/a"})
            watcher.attachWatcher(recorder.of(path));
        (void)kernel.calls();
    }
    EXPECT_THAT(kernel.calls(),
                ElementsAre("remove 1000 1", "remove 1000 2", "remove 1000 1", "close 1000"));
}

TEST(FileSystemWatcherCalls, PassesPathAndMaskUnchanged) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    (void)kernel.calls();
    watcher.attachWatcher(Watcher("rel/../path//", 0xf2345678u, Recorder::note, &recorder));
    watcher.attachWatcher(Watcher("", 0, Recorder::note, &recorder));
    EXPECT_THAT(kernel.calls(),
                ElementsAre("add 1000 rel/../path// f2345678 = 1", "add 1000  0 = 2"));
}

TEST(FileSystemWatcherCalls, FailingInstanceIsReportedOnStandardErrorOnly) {
    PlayedKernel kernel;
    kernel.initFails = true;
    std::string printed;
    const std::string errors =
        errorsOf([&] { printed = printedBy([] { FileSystemWatcher watcher; }); });
    EXPECT_EQ(std::string("Couldn't initialize inotify: ") + std::strerror(EMFILE) + "\n", errors);
    EXPECT_EQ("", printed);
    EXPECT_THAT(kernel.calls(), ElementsAre("init = -1", "close -1"));
}

TEST(FileSystemWatcherCalls, WithoutAnInstanceNothingAttachesAndTheLoopWaits) {
    PlayedKernel kernel;
    kernel.initFails = true;
    std::unique_ptr<FileSystemWatcher> watcher;
    (void)errorsOf([&] { watcher = std::make_unique<FileSystemWatcher>(); });
    Recorder recorder;
    EXPECT_EQ(std::string("Couldn't add watch to /a ERROR: ") + std::strerror(EBADF) + "\n",
              printedBy([&] { watcher->attachWatcher(recorder.of("/a")); }));
    EXPECT_FALSE(watcher->watcherExists("/a"));
    (void)kernel.calls();
    kernel.pollAnswers = {0, 0};
    EXPECT_EQ("", printedBy([&] { kernel.serve(*watcher); }));
    EXPECT_THAT(kernel.calls(), ElementsAre("poll -1 events 1 count 1 timeout 500",
                                            "poll -1 events 1 count 1 timeout 500"));
}

TEST(FileSystemWatcherCalls, RefusedWatchIsPrintedAndNotListed) {
    PlayedKernel kernel;
    kernel.numbers = {{"/full", -1}};
    kernel.addError = ENOSPC;
    FileSystemWatcher watcher;
    Recorder recorder;
    (void)kernel.calls();
    EXPECT_EQ("Couldn't add watch to /full ERROR: No space left on device\n",
              printedBy([&] { watcher.attachWatcher(recorder.of("/full")); }));
    EXPECT_FALSE(watcher.watcherExists("/full"));
    watcher.resetState(); // would add it anew
    EXPECT_THAT(kernel.calls(),
                ElementsAre("add 1000 /full 300 = -1", "close 1000", "init = 1001"));
}

TEST(FileSystemWatcherCalls, PollsItsInstanceForHalfASecondPerPass) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    (void)kernel.calls();
    kernel.pollAnswers = {0};
    kernel.serve(watcher);
    static_assert(POLLIN == 1, "the line below holds its number");
    EXPECT_THAT(kernel.calls(), ElementsAre("poll 1000 events 1 count 1 timeout 500"));
}

TEST(FileSystemWatcherCalls, IdleAndInterruptedPollsAreNoEvents) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    (void)kernel.calls();
    kernel.pollAnswers = {0, -1, 0};
    EXPECT_EQ("", printedBy([&] { kernel.serve(watcher); }));
    EXPECT_THAT(kernel.calls(), ElementsAre("poll 1000 events 1 count 1 timeout 500",
                                            "poll 1000 events 1 count 1 timeout 500",
                                            "poll 1000 events 1 count 1 timeout 500"));
}

TEST(FileSystemWatcherCalls, FlagThatIsSetAlreadyMakesNoPass) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    (void)kernel.calls();
    bool stop = true;
    watcher.run(stop);
    EXPECT_THAT(kernel.calls(), IsEmpty());
}

TEST(FileSystemWatcherCalls, EarlierStopIsForgottenByRun) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    recorder.action = [&](const std::string&) { watcher.stop(); };
    watcher.attachWatcher(recorder.of("/a"));
    for (int run = 0; run < 2; ++run) {
        watcher.stop();
        kernel.pollAnswers = {0, 0, 1};
        kernel.reads.push_back(record(1, IN_CREATE, "x"));
        (void)kernel.calls();
        watcher.run(); // ends by the callback
        EXPECT_THAT(kernel.calls(),
                    ElementsAre("poll 1000 events 1 count 1 timeout 500",
                                "poll 1000 events 1 count 1 timeout 500",
                                "poll 1000 events 1 count 1 timeout 500", "read 1000 4600"));
    }
    EXPECT_THAT(recorder.seen, ElementsAre("x 100", "x 100"));
}

TEST(FileSystemWatcherCalls, FailedReadIsPrintedAndTheLoopGoesOn) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    kernel.reads = {PlayedKernel::kReadFails, PlayedKernel::kReadFails,
                    record(1, IN_CREATE, "still")};
    EXPECT_EQ("read: -1\nread: -1\n", printedBy([&] { kernel.serve(watcher); }));
    EXPECT_THAT(recorder.seen, ElementsAre("still 100"));
}

TEST(FileSystemWatcherCalls, EmptyReadIsIgnored) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    kernel.reads = {"", record(1, IN_CREATE, "next")};
    EXPECT_EQ("", printedBy([&] { kernel.serve(watcher); }));
    EXPECT_THAT(recorder.seen, ElementsAre("next 100"));
}

TEST(FileSystemWatcherCalls, RecordsAreDroppedWhenNothingIsAttached) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    (void)kernel.calls();
    kernel.reads = {record(1, IN_CREATE, "x") + record(1, IN_IGNORED) + record(-1, IN_Q_OVERFLOW)};
    EXPECT_EQ("", printedBy([&] { kernel.serve(watcher); }));
    EXPECT_THAT(kernel.calls(),
                ElementsAre("poll 1000 events 1 count 1 timeout 500", "read 1000 4600",
                            "poll 1000 events 1 count 1 timeout 500"));
}

TEST(FileSystemWatcherCalls, WholeMaskReachesTheCallback) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    kernel.reads = {record(1, IN_CREATE | IN_ISDIR, "dir") + record(1, 0xffff7fffu, "all")};
    kernel.serve(watcher);
    EXPECT_THAT(recorder.seen, ElementsAre("dir 40000100", "all ffff7fff"));
}

TEST(FileSystemWatcherCalls, CallbackReceivesTheRegistrationAndItsContext) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    static const Watcher* given;
    static void* context;
    int marker = 0;
    Watcher attached(
        "/a", kMask,
        [](const Watcher& w, const std::string&, unsigned int, void* c) {
            static Watcher copy("", 0, nullptr, nullptr);
            copy = w;
            given = &copy;
            context = c;
        },
        &marker);
    watcher.attachWatcher(attached);
    const auto callback = attached.callback;
    attached = Watcher("changed", 0, nullptr, nullptr); // the watcher has its own copy
    kernel.reads = {record(1, IN_DELETE, "x")};
    kernel.serve(watcher);
    ASSERT_NE(nullptr, given);
    EXPECT_EQ("/a", given->path);
    EXPECT_EQ(kMask, given->mask);
    EXPECT_EQ(callback, given->callback);
    EXPECT_EQ(&marker, given->context);
    EXPECT_EQ(&marker, context);
}

TEST(FileSystemWatcherCalls, RecordsAreServedInOrderAndEntriesInListOrder) {
    PlayedKernel kernel;
    kernel.numbers = {{"/a", 1}, {"/b", 2}, {"/link-to-a", 1}};
    FileSystemWatcher watcher;
    std::vector<std::string> order;
    std::vector<Recorder> recorders(3);
    const char* const paths[] = {"/a", "/b", "/link-to-a"};
    for (std::size_t i = 0; i < 3; ++i) {
        recorders[i].action = [&order, i](const std::string& name) {
            order.push_back(name + std::to_string(i));
        };
        watcher.attachWatcher(recorders[i].of(paths[i]));
    }
    kernel.reads = {record(2, IN_CREATE, "x") + record(1, IN_CREATE, "y"),
                    record(7, IN_CREATE, "nobody's") + record(2, IN_CREATE, "z")};
    kernel.serve(watcher);
    EXPECT_THAT(order, ElementsAre("x1", "y0", "y2", "z1"));
}

TEST(FileSystemWatcherCalls, NameEndsAtItsFirstNul) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    kernel.reads = {rawRecord(1, IN_CREATE, std::string("cut\0here", 8), 16)};
    kernel.serve(watcher);
    EXPECT_THAT(recorder.seen, ElementsAre("cut 100"));
}

TEST(FileSystemWatcherCalls, NameIsNotBoundedByTheRecordsLength) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    // No NUL of its own: the name runs on into the next header, which begins with the number 1.
    kernel.reads = {rawRecord(1, IN_CREATE, std::string(16, 'n'), 16) + record(1, IN_DELETE, "x")};
    kernel.serve(watcher);
    EXPECT_THAT(recorder.seen, ElementsAre(std::string(16, 'n') + "\1 100", "x 200"));
}

TEST(FileSystemWatcherCalls, RecordWithoutANameReadsWhatFollows) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    kernel.numbers["/b"] = 0x00434241; // "ABC" in the next header, on a little-endian machine
    watcher.attachWatcher(recorder.of("/b"));
    kernel.reads = {record(1, IN_MODIFY) + record(0x00434241, IN_MODIFY)};
    kernel.serve(watcher);
    EXPECT_THAT(recorder.seen, ElementsAre("ABC 2", " 2"));
}

TEST(FileSystemWatcherCalls, NameThatFillsTheBufferEndsWithIt) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    const std::string name(kBufferSize - sizeof(inotify_event), 'n');
    kernel.reads = {rawRecord(1, IN_CREATE, name, name.size())};
    kernel.serve(watcher);
    EXPECT_THAT(recorder.seen, ElementsAre(name + " 100"));
}

TEST(FileSystemWatcherCalls, NamelessRecordAtTheBuffersEndHasAnEmptyName) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    const std::size_t filler = kBufferSize - 2 * sizeof(inotify_event);
    kernel.reads = {std::string(kBufferSize, 'j'), // what an earlier pass may leave on the stack
                    rawRecord(9, IN_MODIFY, std::string(filler, 'f'), filler) +
                        record(1, IN_MODIFY)};
    kernel.serve(watcher);
    EXPECT_THAT(recorder.seen, ElementsAre(" 2"));
}

TEST(FileSystemWatcherCalls, DroppedWatchRebuildsEveryWatchOnAFreshInstance) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    for (const char* path : {"/a", "/b", "/a"})
        watcher.attachWatcher(recorder.of(path));
    kernel.numbers = {{"/a", 8}, {"/b", 9}}; // what the fresh instance gives
    kernel.reads = {record(1, IN_IGNORED | IN_ISDIR)};
    (void)kernel.calls();
    EXPECT_EQ("", printedBy([&] { kernel.serve(watcher); }));
    EXPECT_THAT(kernel.calls(),
                ElementsAre("poll 1000 events 1 count 1 timeout 500", "read 1000 4600",
                            "remove 1000 1", "remove 1000 2", "remove 1000 1", "close 1000",
                            "init = 1001", "add 1001 /a 300 = 8", "add 1001 /b 300 = 9",
                            "add 1001 /a 300 = 8", "poll 1001 events 1 count 1 timeout 500"));
    EXPECT_THAT(recorder.seen, IsEmpty());
    kernel.reads = {record(9, IN_CREATE, "b") + record(1, IN_CREATE, "old")};
    kernel.serve(watcher);
    EXPECT_THAT(recorder.seen, ElementsAre("b 100"));
}

TEST(FileSystemWatcherCalls, DroppedWatchOfNobodyIsIgnored) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    kernel.reads = {record(5, IN_IGNORED)};
    (void)kernel.calls();
    kernel.serve(watcher);
    EXPECT_THAT(kernel.calls(),
                ElementsAre("poll 1000 events 1 count 1 timeout 500", "read 1000 4600",
                            "poll 1000 events 1 count 1 timeout 500"));
}

TEST(FileSystemWatcherCalls, EntriesBehindTheDroppedOneAreComparedByTheirNewNumbers) {
    PlayedKernel kernel;
    kernel.numbers = {{"/gone", 1}, {"/b", 2}, {"/c", 3}};
    FileSystemWatcher watcher;
    Recorder recorder;
    for (const char* path : {"/gone", "/b", "/c"})
        watcher.attachWatcher(recorder.of(path));
    // The fresh instance counts from 1 again: now /b has the number of the record under way, so it
    // is taken for dropped as well, and the instance is made a third time.
    kernel.numbers = {{"/gone", -1}, {"/b", 1}, {"/c", 2}};
    kernel.reads = {record(1, IN_IGNORED)};
    (void)kernel.calls();
    kernel.serve(watcher);
    EXPECT_THAT(kernel.calls(),
                ElementsAre("poll 1000 events 1 count 1 timeout 500", "read 1000 4600",
                            "remove 1000 1", "remove 1000 2", "remove 1000 3", "close 1000",
                            "init = 1001", "add 1001 /gone 300 = -1", "add 1001 /b 300 = 1",
                            "add 1001 /c 300 = 2", "remove 1001 -1", "remove 1001 1",
                            "remove 1001 2", "close 1001", "init = 1002", "add 1002 /gone 300 = -1",
                            "add 1002 /b 300 = 1", "add 1002 /c 300 = 2",
                            "poll 1002 events 1 count 1 timeout 500"));
}

TEST(FileSystemWatcherCalls, RecordsBehindAResetAreMatchedByNumberAgainstTheNewOnes) {
    PlayedKernel kernel;
    kernel.numbers = {{"/a", 1}, {"/b", 2}};
    FileSystemWatcher watcher;
    Recorder a;
    Recorder b;
    watcher.attachWatcher(a.of("/a"));
    watcher.attachWatcher(b.of("/b"));
    kernel.numbers = {{"/a", 2}, {"/b", 3}};
    kernel.reads = {record(1, IN_CREATE, "before") + record(1, IN_IGNORED) +
                    record(2, IN_CREATE, "written for b")};
    kernel.serve(watcher);
    EXPECT_THAT(a.seen, ElementsAre("before 100", "written for b 100"));
    EXPECT_THAT(b.seen, IsEmpty());
}

TEST(FileSystemWatcherCalls, EntryThatCouldNotBeRebuiltGetsTheNoticeOfLostEvents) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder gone;
    Recorder kept;
    watcher.attachWatcher(gone.of("/gone"));
    watcher.attachWatcher(kept.of("/kept"));
    kernel.reads = {record(-1, IN_Q_OVERFLOW)};
    kernel.serve(watcher);
    EXPECT_THAT(gone.seen, IsEmpty());

    kernel.numbers["/gone"] = -1;
    EXPECT_EQ("", printedBy([&] { watcher.resetState(); }));
    EXPECT_TRUE(watcher.watcherExists("/gone"));
    kernel.reads = {record(-1, IN_Q_OVERFLOW)};
    kernel.serve(watcher);
    EXPECT_THAT(gone.seen, ElementsAre(" 4000"));
    EXPECT_THAT(kept.seen, IsEmpty());
}

TEST(FileSystemWatcherCalls, ResetWithoutAnInstanceIsSilentAndKeepsTheEntries) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    watcher.attachWatcher(recorder.of("/a"));
    kernel.initFails = true;
    (void)kernel.calls();
    std::string printed;
    EXPECT_EQ("", errorsOf([&] { printed = printedBy([&] { watcher.resetState(); }); }));
    EXPECT_EQ("", printed);
    EXPECT_THAT(kernel.calls(),
                ElementsAre("remove 1000 1", "close 1000", "init = -1", "add -1 /a 300 = -1"));
    EXPECT_TRUE(watcher.watcherExists("/a"));
    kernel.initFails = false;
    watcher.resetState();
    EXPECT_THAT(kernel.calls(),
                ElementsAre("remove -1 -1", "close -1", "init = 1001", "add 1001 /a 300 = 1"));
}

TEST(FileSystemWatcherCalls, StopWithinAPassLetsThePassFinish) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    bool stop = false;
    recorder.action = [&](const std::string&) { stop = true; };
    watcher.attachWatcher(recorder.of("/a"));
    kernel.reads = {record(1, IN_CREATE, "x") + record(1, IN_CREATE, "y"),
                    record(1, IN_CREATE, "unread")};
    (void)kernel.calls();
    watcher.run(stop);
    EXPECT_THAT(recorder.seen, ElementsAre("x 100", "y 100"));
    EXPECT_THAT(kernel.calls(),
                ElementsAre("poll 1000 events 1 count 1 timeout 500", "read 1000 4600"));
}

TEST(FileSystemWatcherCalls, RegistrationMadeByACallbackSeesTheSameRecord) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder first;
    Recorder added;
    first.action = [&](const std::string&) {
        if (!watcher.watcherExists("/b")) {
            for (int i = 0; i < 20; ++i) // moves the list to new storage
                watcher.attachWatcher(added.of("/b"));
        }
    };
    kernel.numbers = {{"/a", 1}, {"/b", 1}};
    watcher.attachWatcher(first.of("/a"));
    kernel.reads = {record(1, IN_CREATE, "x")};
    kernel.serve(watcher);
    EXPECT_THAT(first.seen, ElementsAre("x 100"));
    EXPECT_EQ(20u, added.seen.size());
}

TEST(FileSystemWatcherCalls, EntryThatMovesUpDuringItsRecordIsPassedOver) {
    PlayedKernel kernel;
    kernel.numbers = {{"/p", 1}, {"/q", 1}, {"/r", 1}};
    FileSystemWatcher watcher;
    Recorder p;
    Recorder q;
    Recorder r;
    p.action = [&](const std::string&) { watcher.detachWatcher("/p"); };
    watcher.attachWatcher(p.of("/p"));
    watcher.attachWatcher(q.of("/q"));
    watcher.attachWatcher(r.of("/r"));
    kernel.reads = {record(1, IN_CREATE, "x") + record(1, IN_CREATE, "y")};
    kernel.serve(watcher);
    EXPECT_THAT(p.seen, ElementsAre("x 100"));
    EXPECT_THAT(q.seen, ElementsAre("y 100"));
    EXPECT_THAT(r.seen, ElementsAre("x 100", "y 100"));
}

TEST(FileSystemWatcherCalls, CallbackMayDetachEverything) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    recorder.action = [&](const std::string&) {
        watcher.detachWatcher("/a");
        watcher.detachWatcher("/b");
    };
    watcher.attachWatcher(recorder.of("/a"));
    watcher.attachWatcher(recorder.of("/b"));
    kernel.reads = {record(1, IN_CREATE, "x") + record(2, IN_CREATE, "y")};
    kernel.serve(watcher);
    EXPECT_THAT(recorder.seen, ElementsAre("x 100"));
    EXPECT_FALSE(watcher.watcherExists("/b"));
}

TEST(FileSystemWatcherCalls, ExceptionOfACallbackLeavesTheLoop) {
    PlayedKernel kernel;
    FileSystemWatcher watcher;
    Recorder recorder;
    recorder.action = [](const std::string&) { throw std::runtime_error("from the callback"); };
    watcher.attachWatcher(recorder.of("/a"));
    kernel.reads = {record(1, IN_CREATE, "x")};
    EXPECT_THROW(kernel.serve(watcher), std::runtime_error);
    EXPECT_TRUE(watcher.watcherExists("/a"));
}
