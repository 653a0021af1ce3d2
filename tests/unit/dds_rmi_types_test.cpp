// The reference-counted types and the option checks of our DDS RMI runtime. Nothing here joins a
// domain.
#include <dds_service_sdk.h>

#include "CapturedOutput.h"

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using org::opensplice::DDS_RMI::CRuntime;
using org::opensplice::DDS_RMI::CRuntime_ref;
using org::opensplice::DDS_RMI::RefCounted;
using org::opensplice::DDS_RMI::shared_ptr;

class Counted : public virtual RefCounted {
public:
    explicit Counted(int& livingObjects) : living(livingObjects) { ++living; }
    ~Counted() override { --living; }

    int answer() const { return 42; }

private:
    int& living;
};

typedef shared_ptr<Counted> Counted_ref;

template <class P, class = void>
struct HasNot : std::false_type {};
template <class P>
struct HasNot<P, decltype(static_cast<void>(!std::declval<P>()))> : std::true_type {};

template <class P, class = void>
struct HasStar : std::false_type {};
template <class P>
struct HasStar<P, decltype(static_cast<void>(*std::declval<P>()))> : std::true_type {};

template <class P, class Other, class = void>
struct HasEqual : std::false_type {};
template <class P, class Other>
struct HasEqual<P, Other, decltype(static_cast<void>(std::declval<P>() == std::declval<Other>()))>
    : std::true_type {};

// Code that builds with our header must also build with the product's, so ours must not offer more.
static_assert(!std::is_constructible<bool, Counted_ref>::value, "no operator bool");
static_assert(!HasNot<Counted_ref>::value, "no operator !");
static_assert(!HasStar<Counted_ref>::value, "no operator *");
static_assert(!HasEqual<Counted_ref, Counted_ref>::value, "no operator ==");
static_assert(!HasEqual<Counted_ref, std::nullptr_t>::value, "no operator == for nullptr");
static_assert(std::is_convertible<Counted*, Counted_ref>::value,
              "the pointer constructor is implicit");
static_assert(std::has_virtual_destructor<Counted_ref>::value, "");
static_assert(std::has_virtual_destructor<RefCounted>::value, "");
static_assert(std::is_abstract<CRuntime>::value, "");
static_assert(std::is_same<CRuntime_ref, shared_ptr<CRuntime>>::value, "");
static_assert(!std::is_copy_constructible<Counted>::value, "a copied count would delete too early");

bool startWith(const char* option) {
    const char* arguments[] = {"test", option};
    return CRuntime::getDefaultRuntime()->start(2, arguments);
}

/// Expects that starting with `option` fails with exactly this line.
void expectRefused(const char* option, const std::string& line) {
    const support::CapturedErrors errors;
    EXPECT_FALSE(startWith(option)) << option;
    EXPECT_EQ(line + "\n", errors.text());
    EXPECT_FALSE(CRuntime::getDefaultRuntime()->isUsable()) << option;
}

TEST(RmiSharedPtr, IsEmptyByDefaultAndFromNull) {
    EXPECT_EQ(nullptr, Counted_ref().get());
    EXPECT_EQ(nullptr, Counted_ref(nullptr).get());
}

TEST(RmiSharedPtr, ReachesItsObject) {
    int living = 0;
    Counted* const object = new Counted(living);
    const Counted_ref pointer = object;
    EXPECT_EQ(object, pointer.get());
    EXPECT_EQ(42, pointer->answer());
}

TEST(RmiSharedPtr, LastPointerDeletesTheObject) {
    int living = 0;
    {
        Counted_ref first(new Counted(living));
        {
            const Counted_ref second(first);
            EXPECT_EQ(first.get(), second.get());
        }
        EXPECT_EQ(1, living);
        const Counted_ref third(first);
        first.reset();
        EXPECT_EQ(nullptr, first.get());
        EXPECT_EQ(1, living);
    }
    EXPECT_EQ(0, living);
}

TEST(RmiSharedPtr, AssignmentSharesTheNewAndReleasesTheOld) {
    int living = 0;
    Counted_ref left(new Counted(living));
    const Counted_ref right(new Counted(living));
    left = right;
    EXPECT_EQ(1, living);
    EXPECT_EQ(right.get(), left.get());
    left = Counted_ref();
    EXPECT_EQ(nullptr, left.get());
    EXPECT_EQ(1, living);
}

TEST(RmiSharedPtr, SelfAssignmentKeepsTheObject) {
    int living = 0;
    Counted_ref pointer(new Counted(living));
    const Counted_ref& same = pointer;
    pointer = same;
    EXPECT_EQ(1, living);
    EXPECT_EQ(42, pointer->answer());
    pointer.reset();
    EXPECT_EQ(0, living) << "the count was left too high";
}

TEST(RmiSharedPtr, ResetToTheObjectHeldKeepsIt) {
    int living = 0;
    Counted_ref pointer(new Counted(living));
    pointer.reset(pointer.get());
    EXPECT_EQ(1, living);
    pointer.reset();
    EXPECT_EQ(0, living) << "the count was left too high";
}

TEST(RmiSharedPtr, ResetToAnotherObjectOrNullReleasesTheFirst) {
    int living = 0;
    int others = 0;
    Counted_ref pointer(new Counted(living));
    pointer.reset(new Counted(others));
    EXPECT_EQ(0, living);
    EXPECT_EQ(1, others);
    pointer.reset(nullptr);
    EXPECT_EQ(0, others);
    pointer.reset();
    EXPECT_EQ(nullptr, pointer.get());
}

TEST(RmiSharedPtr, IsEmptyWhileItsObjectIsDestroyed) {
    class Watching : public virtual RefCounted {
    public:
        Watching(const shared_ptr<Watching>& watched, bool& wasEmpty)
            : owner(watched), empty(wasEmpty) {}
        ~Watching() override { empty = owner.get() == nullptr; }

    private:
        const shared_ptr<Watching>& owner;
        bool& empty;
    };
    bool empty = false;
    shared_ptr<Watching> pointer;
    pointer.reset(new Watching(pointer, empty));
    pointer.reset();
    EXPECT_TRUE(empty);
}

TEST(RmiRefCounted, CountStartsAtZeroSoTheFirstPointerIsTheOnlyOwner) {
    int living = 0;
    Counted* const object = new Counted(living);
    object->inc_refcount();
    EXPECT_EQ(1, living);
    object->inc_refcount();
    object->dec_refcount();
    EXPECT_EQ(1, living);
    object->dec_refcount();
    EXPECT_EQ(0, living);
}

TEST(RmiRefCounted, ObjectThatWasNeverSharedBelongsToItsCreator) {
    int living = 0;
    { const Counted onTheStack(living); }
    EXPECT_EQ(0, living);
}

TEST(RmiRefCounted, ReferencesOnSeveralThreadsAreCountedExactly) {
    int living = 0;
    Counted_ref pointer(new Counted(living));
    {
        std::atomic<bool> go{false};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            // Each thread copies its own pointer.
            threads.emplace_back([own = pointer, &go] {
                while (!go) {
                }
                for (int n = 0; n < 200000; ++n) {
                    const Counted_ref copy(own);
                    if (copy->answer() != 42)
                        std::abort();
                }
            });
        }
        go = true;
        for (std::thread& thread : threads)
            thread.join();
    }
    EXPECT_EQ(1, living);
    pointer.reset();
    EXPECT_EQ(0, living);
}

TEST(RmiRuntime, DefaultRuntimeIsAlwaysTheSame) {
    const CRuntime_ref first = CRuntime::getDefaultRuntime();
    ASSERT_NE(nullptr, first.get());
    EXPECT_EQ(first.get(), CRuntime::getDefaultRuntime().get());
}

TEST(RmiRuntime, DefaultRuntimeOutlivesTheApplicationsPointers) {
    CRuntime_ref pointer = CRuntime::getDefaultRuntime();
    const CRuntime* const object = pointer.get();
    pointer.reset();
    EXPECT_EQ(object, CRuntime::getDefaultRuntime().get());
    EXPECT_FALSE(CRuntime::getDefaultRuntime()->isUsable());
}

TEST(RmiRuntime, RuntimeOfAnApplicationIsDeletedWithItsLastPointer) {
    class Own : public CRuntime {
    public:
        explicit Own(int& livingObjects) : living(livingObjects) { ++living; }
        ~Own() override { --living; }
        bool start(int, const char*[]) override { return true; }
        bool stop() override { return true; }
        bool isUsable() override { return true; }

    private:
        int& living;
    };
    int living = 0;
    CRuntime_ref pointer(new Own(living));
    EXPECT_TRUE(pointer->isUsable());
    pointer.reset();
    EXPECT_EQ(0, living);
}

TEST(RmiRuntime, IsNotUsableBeforeItIsStarted) {
    EXPECT_FALSE(CRuntime::getDefaultRuntime()->isUsable());
}

TEST(RmiRuntime, StopWithoutStartReturnsFalseAndPrintsNothing) {
    const support::CapturedErrors errors;
    EXPECT_FALSE(CRuntime::getDefaultRuntime()->stop());
    EXPECT_EQ("", errors.text());
}

TEST(RmiRuntime, BadDiscoveryTimeoutIsRefusedWithOneLine) {
    for (const std::string value :
         {"", "0", "000", "-1", "+5", "20s", " 20", "20 ", "1.5", "abc", "0x10"}) {
        expectRefused(("--RMIServiceDiscoveryTimeout=" + value).c_str(),
                      "DDS RMI runtime: bad value \"" + value +
                          "\" of --RMIServiceDiscoveryTimeout, expected whole seconds, at least 1");
    }
}

TEST(RmiRuntime, BadThreadingModelIsRefusedWithOneLine) {
    for (const std::string value : {"", "mt", "MTX", "M", "TPS", "ST,MT", "MT="}) {
        expectRefused(("--RMIClientThreadingModel=" + value).c_str(),
                      "DDS RMI runtime: bad value \"" + value +
                          "\" of --RMIClientThreadingModel, expected ST or MT");
    }
}

TEST(RmiRuntime, OptionWithoutAValueIsRefused) {
    expectRefused("--RMIServiceDiscoveryTimeout",
                  "DDS RMI runtime: bad value \"\" of --RMIServiceDiscoveryTimeout, expected whole "
                  "seconds, at least 1");
    expectRefused(
        "--RMIClientThreadingModel",
        "DDS RMI runtime: bad value \"\" of --RMIClientThreadingModel, expected ST or MT");
}

TEST(RmiRuntime, FirstBadOptionIsReportedAlone) {
    const support::CapturedErrors errors;
    const char* arguments[] = {"--RMIClientThreadingModel=ignored, since it is the program name",
                               "--RMIClientThreadingModel=MT", "--RMIServiceDiscoveryTimeout=soon",
                               "--RMIClientThreadingModel=none"};
    EXPECT_FALSE(CRuntime::getDefaultRuntime()->start(4, arguments));
    EXPECT_EQ("DDS RMI runtime: bad value \"soon\" of --RMIServiceDiscoveryTimeout, expected whole "
              "seconds, at least 1\n",
              errors.text());
}

} // namespace
