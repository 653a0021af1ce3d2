// The runtime class with Cyclone DDS. Each test uses its own domain; a participant in another
// process watches it.
#include <kvr/api/mdw/NQ_DDS_RMI.h>

#include "CapturedOutput.h"
#include "CapturedSyslog.h"
#include "DdsPeer.h"
#include "Descriptors.h"
#include "Threads.h"
#include "Waiting.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <dds/dds.h>
#include <gmock/gmock.h>

#ifdef __SANITIZE_ADDRESS__
// The leak checker calls this function at exit. In a forked copy it would report memory that only
// the stacks of the parent's other threads refer to.
static bool leaksAreExpected = false;
extern "C" int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() { return leaksAreExpected ? 1 : 0; }
#endif

namespace {

using kvr::api::mdw::NQ_DDS_RMI_RUNTIME;
using org::opensplice::DDS_RMI::CRuntime;
using support::CapturedSyslog;
using support::DdsPeer;
using testing::ElementsAre;
using testing::IsEmpty;

class NQ_DDS_RMI_cyclone : public testing::Test {
protected:
    ~NQ_DDS_RMI_cyclone() override { CRuntime::getDefaultRuntime()->stop(); }

    support::ReservedDomain domain;
    NQ_DDS_RMI_RUNTIME rmi;
};

template <class Work>
void onThreads(int count, Work work) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back(work);
    for (std::thread& thread : threads)
        thread.join();
}

/// Expects one line with this beginning.
void expectOneLine(const std::string& text, const std::string& beginning) {
    EXPECT_EQ(beginning, text.substr(0, beginning.size()));
    EXPECT_EQ(1, std::count(text.begin(), text.end(), '\n')) << text;
    EXPECT_EQ('\n', text.empty() ? ' ' : text.back());
    EXPECT_GT(text.size(), beginning.size() + 1) << "no reason given";
}

const char kCannotJoin[] = "DDS RMI runtime: cannot join the DDS domain: ";

TEST_F(NQ_DDS_RMI_cyclone, PeerSeesTheServerJoinAndLeave) {
    DdsPeer peer;
    ASSERT_EQ(0, rmi.startRUNTIME(false));
    const std::string id = peer.expectArrival("isServer");
    EXPECT_TRUE(rmi.stopRUNTIME());
    peer.expectDeparture(id);
}

TEST_F(NQ_DDS_RMI_cyclone, PeerSeesTheClientJoinAndLeave) {
    DdsPeer peer;
    ASSERT_EQ(0, rmi.startRUNTIME(true));
    const std::string id = peer.expectArrival("isClient");
    EXPECT_TRUE(rmi.stopRUNTIME());
    peer.expectDeparture(id);
}

TEST_F(NQ_DDS_RMI_cyclone, SuccessIsLoggedAndPrintsNothing) {
    const CapturedSyslog log;
    const support::CapturedOutput output;
    const support::CapturedErrors errors;
    EXPECT_EQ(0, rmi.startRUNTIME(false));
    EXPECT_TRUE(rmi.stopRUNTIME());
    EXPECT_THAT(log.lines(), ElementsAre("<6> === Runtime start", "<6> === Runtime started"));
    EXPECT_EQ("", output.text());
    EXPECT_EQ("", errors.text());
}

TEST_F(NQ_DDS_RMI_cyclone, SecondStartWhileRunningFindsItUsableAndJoinsNoSecondTime) {
    DdsPeer peer;
    ASSERT_EQ(0, rmi.startRUNTIME(false));
    const CapturedSyslog log;
    EXPECT_EQ(0, rmi.startRUNTIME(true));
    EXPECT_THAT(log.lines(),
                ElementsAre("<6> === Runtime start", "<6> === Great! Runtime is usable"));
    const std::string id = peer.expectArrival("isServer");
    EXPECT_TRUE(rmi.stopRUNTIME());
    peer.expectDeparture(id);
    EXPECT_EQ("", peer.remaining());
}

TEST_F(NQ_DDS_RMI_cyclone, StoppedRuntimeStartsAgainAsANewParticipant) {
    DdsPeer peer;
    ASSERT_EQ(0, rmi.startRUNTIME(false));
    const std::string first = peer.expectArrival("isServer");
    ASSERT_TRUE(rmi.stopRUNTIME());
    peer.expectDeparture(first);

    const CapturedSyslog log;
    ASSERT_EQ(0, rmi.startRUNTIME(true));
    EXPECT_THAT(log.lines(), ElementsAre("<6> === Runtime start", "<6> === Runtime started"));
    const std::string second = peer.expectArrival("isClient");
    EXPECT_NE(first, second);
    ASSERT_TRUE(rmi.stopRUNTIME());
    peer.expectDeparture(second);
}

TEST_F(NQ_DDS_RMI_cyclone, SecondStopReturnsFalse) {
    ASSERT_EQ(0, rmi.startRUNTIME(false));
    EXPECT_TRUE(rmi.stopRUNTIME());
    EXPECT_FALSE(rmi.stopRUNTIME());
}

TEST_F(NQ_DDS_RMI_cyclone, MissingNetworkInterfaceFailsTheStart) {
    domain.useInterface("nosuchif0");
    const CapturedSyslog log;
    const support::CapturedOutput output;
    const support::CapturedErrors errors;
    EXPECT_EQ(1, rmi.startRUNTIME(true));
    EXPECT_THAT(log.lines(), ElementsAre("<6> === Runtime start", "<6> === Runtime started",
                                         "<6> Failed to start the Runtime "));
    EXPECT_EQ("", output.text());
    expectOneLine(errors.text(), kCannotJoin);
    EXPECT_THAT(errors.text(), testing::HasSubstr("nosuchif0"));
    EXPECT_FALSE(CRuntime::getDefaultRuntime()->isUsable());
    EXPECT_FALSE(rmi.stopRUNTIME());
}

TEST_F(NQ_DDS_RMI_cyclone, BrokenSettingsFailTheStartWithOneLine) {
    setenv("CYCLONEDDS_URI", "<Domain><NoSuchSetting/></Domain>", 1);
    const support::CapturedErrors errors;
    EXPECT_EQ(1, rmi.startRUNTIME(false));
    expectOneLine(errors.text(), kCannotJoin);
}

TEST_F(NQ_DDS_RMI_cyclone, CyclonesOwnErrorsGoToStandardErrorAgainAfterTheStart) {
    domain.useInterface("nosuchif0");
    {
        const support::CapturedErrors errors;
        EXPECT_EQ(1, rmi.startRUNTIME(false));
    }
    const support::CapturedErrors errors;
    EXPECT_LT(dds_create_participant(DDS_DOMAIN_DEFAULT, nullptr, nullptr), 0);
    EXPECT_THAT(errors.text(), testing::HasSubstr("nosuchif0"));
}

TEST_F(NQ_DDS_RMI_cyclone, WarningsOfCycloneAreNotSuppressed) {
    // Cyclone warns about loopback interfaces, because it expects no multicast there.
    const std::string settings = getenv("CYCLONEDDS_URI");
    const std::string forbidden = "<AllowMulticast>false</AllowMulticast>";
    const std::size_t at = settings.find(forbidden);
    ASSERT_NE(std::string::npos, at);
    setenv("CYCLONEDDS_URI", std::string(settings).erase(at, forbidden.size()).c_str(), 1);
    const support::CapturedErrors errors;
    EXPECT_EQ(0, rmi.startRUNTIME(false));
    EXPECT_THAT(errors.text(), testing::HasSubstr("multicast"));
    EXPECT_EQ('\n', errors.text().back());
}

TEST_F(NQ_DDS_RMI_cyclone, StartSucceedsOnceTheSettingsAreRepaired) {
    domain.useInterface("nosuchif0");
    {
        const support::CapturedErrors errors;
        ASSERT_EQ(1, rmi.startRUNTIME(false));
    }
    domain.useInterface("lo");
    DdsPeer peer;
    ASSERT_EQ(0, rmi.startRUNTIME(false));
    peer.expectArrival("isServer");
}

TEST_F(NQ_DDS_RMI_cyclone, ObjectsShareTheOneRuntime) {
    ASSERT_EQ(0, rmi.startRUNTIME(false));
    NQ_DDS_RMI_RUNTIME other;
    const CapturedSyslog log;
    EXPECT_EQ(0, other.startRUNTIME(true));
    EXPECT_THAT(log.lines(),
                ElementsAre("<6> === Runtime start", "<6> === Great! Runtime is usable"));
    EXPECT_TRUE(other.stopRUNTIME());
    EXPECT_FALSE(rmi.stopRUNTIME()) << "stopped for both";
}

TEST_F(NQ_DDS_RMI_cyclone, DestroyingTheObjectLeavesTheRuntimeRunning) {
    {
        NQ_DDS_RMI_RUNTIME shortLived;
        ASSERT_EQ(0, shortLived.startRUNTIME(false));
    }
    DdsPeer peer;
    peer.expectArrival("isServer");
    EXPECT_TRUE(CRuntime::getDefaultRuntime()->isUsable());
}

TEST_F(NQ_DDS_RMI_cyclone, AcceptedOptionsAndUnknownOnesStart) {
    DdsPeer peer;
    const char* arguments[] = {"anyName",
                               "--RMIServiceDiscoveryTimeout=1",
                               "--RMIServiceDiscoveryTimeout=007",
                               "--RMIServiceDiscoveryTimeout=99999999999999999999",
                               "--RMIClientThreadingModel=ST",
                               "--RMIClientThreadingModel=MT",
                               "--RMIClientThreadingModels=no such option",
                               "--RMIDurability=yes",
                               "--unknown",
                               "plain text",
                               "",
                               nullptr};
    EXPECT_TRUE(CRuntime::getDefaultRuntime()->start(12, arguments));
    EXPECT_TRUE(CRuntime::getDefaultRuntime()->isUsable());
    peer.expectArrival("anyName");
}

TEST_F(NQ_DDS_RMI_cyclone, WithoutArgumentsTheParticipantHasNoName) {
    DdsPeer peer;
    EXPECT_TRUE(CRuntime::getDefaultRuntime()->start(0, nullptr));
    peer.expectArrival("");
}

TEST_F(NQ_DDS_RMI_cyclone, StartOfARunningRuntimeIsTrueAndChangesNothing) {
    DdsPeer peer;
    const char* first[] = {"first"};
    const char* second[] = {"second"};
    EXPECT_TRUE(CRuntime::getDefaultRuntime()->start(1, first));
    EXPECT_TRUE(CRuntime::getDefaultRuntime()->start(1, second));
    const std::string id = peer.expectArrival("first");
    EXPECT_TRUE(CRuntime::getDefaultRuntime()->stop());
    peer.expectDeparture(id);
    EXPECT_EQ("", peer.remaining());
}

TEST_F(NQ_DDS_RMI_cyclone, StopReleasesEveryDescriptorAndThread) {
    const std::size_t threads = support::threadsAfterAFirst();
    const std::set<int> descriptors = support::openDescriptors();
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(0, rmi.startRUNTIME(false));
        EXPECT_GT(support::threadsOfThisProcess(), threads);
        ASSERT_TRUE(rmi.stopRUNTIME());
        EXPECT_THAT(support::openedSince(descriptors), IsEmpty());
        EXPECT_TRUE(support::threadsFallBackTo(threads));
    }
}

TEST_F(NQ_DDS_RMI_cyclone, FailedStartLeavesNoDescriptorOrThreadBehind) {
    domain.useInterface("nosuchif0");
    const support::CapturedErrors errors;
    const std::size_t threads = support::threadsOfThisProcess();
    const std::set<int> descriptors = support::openDescriptors();
    ASSERT_EQ(1, rmi.startRUNTIME(false));
    EXPECT_THAT(support::openedSince(descriptors), IsEmpty());
    EXPECT_TRUE(support::threadsFallBackTo(threads));
}

TEST_F(NQ_DDS_RMI_cyclone, ThreadsThatStartConcurrentlyJoinOnce) {
    DdsPeer peer;
    std::atomic<int> failures{0};
    onThreads(8, [&failures] {
        NQ_DDS_RMI_RUNTIME own;
        failures += own.startRUNTIME(false);
    });
    EXPECT_EQ(0, failures);
    const std::string id = peer.expectArrival("isServer");
    EXPECT_TRUE(rmi.startRUNTIME(false) == 0 && rmi.stopRUNTIME());
    peer.expectDeparture(id);
    EXPECT_EQ("", peer.remaining());
}

TEST_F(NQ_DDS_RMI_cyclone, ThreadsMayStartAndStopConcurrently) {
    std::atomic<int> failures{0};
    onThreads(4, [&failures] {
        NQ_DDS_RMI_RUNTIME own;
        for (int i = 0; i < 10; ++i) {
            failures += own.startRUNTIME(i % 2 == 0);
            own.stopRUNTIME();
        }
    });
    EXPECT_EQ(0, failures);
    EXPECT_FALSE(CRuntime::getDefaultRuntime()->isUsable()) << "whoever stopped last";
}

TEST_F(NQ_DDS_RMI_cyclone, ForkedChildCanExitWhileTheRuntimeRuns) {
    ASSERT_EQ(0, rmi.startRUNTIME(false));
    const pid_t child = fork();
    if (child == 0) {
#ifdef __SANITIZE_ADDRESS__
        leaksAreExpected = true;
#endif
        alarm(10); // ends the child if it waits for threads that only the parent has
        std::exit(7);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(7, WEXITSTATUS(status));
    EXPECT_TRUE(rmi.stopRUNTIME()) << "the parent's runtime was not touched";
}

} // namespace
