// The class compiled against the declarations of the commercial product (vendor_interface/), with
// scripted runtimes.
#include <kvr/api/mdw/NQ_DDS_RMI.h>

#include "CapturedOutput.h"
#include "CapturedSyslog.h"

#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <syslog.h>

#include <gmock/gmock.h>

using org::opensplice::DDS_RMI::CRuntime;
using org::opensplice::DDS_RMI::CRuntime_ref;

namespace {

using kvr::api::mdw::NQ_DDS_RMI_RUNTIME;
using support::CapturedSyslog;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(!std::is_polymorphic<NQ_DDS_RMI_RUNTIME>::value, "no virtual operations");
static_assert(sizeof(NQ_DDS_RMI_RUNTIME) == sizeof(CRuntime_ref), "one field");
static_assert(std::is_same<decltype(std::declval<NQ_DDS_RMI_RUNTIME>().stopRUNTIME()), bool>::value,
              "follows the runtime's own stop");

/// What the runtimes must return, and the calls that they received.
struct RuntimeState {
    bool usable = false;
    bool startResult = true;
    bool startThrows = false;
    bool stopResult = true;
    std::vector<std::string> calls;
    int alive = 0;
};

class StubRuntime : public CRuntime {
public:
    explicit StubRuntime(RuntimeState& shared) : state(shared) { ++state.alive; }
    ~StubRuntime() override { --state.alive; }

    bool start(int argc, const char* argv[]) override {
        std::string call = "start";
        for (int i = 0; i < argc; ++i)
            call += " [" + std::string(argv[i]) + "]";
        state.calls.push_back(call);
        if (state.startThrows)
            throw std::runtime_error("no licence");
        return state.startResult;
    }
    bool stop() override {
        state.calls.push_back("stop");
        return state.stopResult;
    }
    bool isUsable() override {
        state.calls.push_back("isUsable");
        return state.usable;
    }

private:
    RuntimeState& state;
};

CRuntime_ref defaultRuntime;
int fetched = 0;

/// The class under test, with a default runtime.
class NQ_DDS_RMI : public testing::Test {
protected:
    NQ_DDS_RMI() { defaultRuntime.reset(new StubRuntime(state)); }
    ~NQ_DDS_RMI() override { defaultRuntime.reset(); }

    RuntimeState state;
    CapturedSyslog log;
    NQ_DDS_RMI_RUNTIME rmi;
};

} // namespace

CRuntime_ref CRuntime::getDefaultRuntime() {
    ++fetched;
    return defaultRuntime;
}

namespace {

TEST_F(NQ_DDS_RMI, ClientIsStartedWithDiscoveryTimeoutAndThreadingModel) {
    EXPECT_EQ(0, rmi.startRUNTIME(true));
    EXPECT_THAT(state.calls,
                ElementsAre("isUsable", "start [isClient] [--RMIServiceDiscoveryTimeout=20] "
                                        "[--RMIClientThreadingModel=MT]"));
}

TEST_F(NQ_DDS_RMI, ServerIsStartedWithThreadingModelAlone) {
    EXPECT_EQ(0, rmi.startRUNTIME(false));
    EXPECT_THAT(state.calls,
                ElementsAre("isUsable", "start [isServer] [--RMIClientThreadingModel=MT]"));
}

TEST_F(NQ_DDS_RMI, SuccessfulStartLogsStartAndStarted) {
    EXPECT_EQ(0, rmi.startRUNTIME(false));
    EXPECT_THAT(log.lines(), ElementsAre("<6> === Runtime start", "<6> === Runtime started"));
}

TEST_F(NQ_DDS_RMI, FailedStartGivesOneAndLogsStartedBeforeTheFailure) {
    state.startResult = false;
    EXPECT_EQ(1, rmi.startRUNTIME(true));
    EXPECT_THAT(log.lines(), ElementsAre("<6> === Runtime start", "<6> === Runtime started",
                                         "<6> Failed to start the Runtime "));
}

TEST_F(NQ_DDS_RMI, MissingDefaultRuntimeGivesOneAndLogsNothingElse) {
    defaultRuntime.reset();
    EXPECT_EQ(1, rmi.startRUNTIME(true));
    EXPECT_THAT(log.lines(), ElementsAre("<6> Failed to get the default Runtime "));
    EXPECT_THAT(state.calls, IsEmpty());
}

TEST_F(NQ_DDS_RMI, UsableRuntimeIsNotStartedAgain) {
    state.usable = true;
    EXPECT_EQ(0, rmi.startRUNTIME(true));
    EXPECT_THAT(state.calls, ElementsAre("isUsable"));
    EXPECT_THAT(log.lines(),
                ElementsAre("<6> === Runtime start", "<6> === Great! Runtime is usable"));
}

TEST_F(NQ_DDS_RMI, RecordsAreInformational) {
    state.startResult = false;
    rmi.startRUNTIME(true);
    defaultRuntime.reset();
    rmi.startRUNTIME(true);
    ASSERT_EQ(4u, log.records().size());
    for (const support::SyslogRecord& record : log.records())
        EXPECT_EQ(LOG_INFO, record.priority) << record.text;
}

TEST_F(NQ_DDS_RMI, NothingIsWrittenToStandardOutputOrError) {
    const support::CapturedOutput output;
    const support::CapturedErrors errors;
    state.startResult = false;
    rmi.startRUNTIME(false);
    rmi.stopRUNTIME();
    EXPECT_EQ("", output.text());
    EXPECT_EQ("", errors.text());
}

TEST_F(NQ_DDS_RMI, StopReturnsTheRuntimesResultAndLogsNothing) {
    rmi.startRUNTIME(false);
    state.calls.clear();
    const std::size_t logged = log.lines().size();
    EXPECT_TRUE(rmi.stopRUNTIME());
    state.stopResult = false;
    EXPECT_FALSE(rmi.stopRUNTIME());
    EXPECT_THAT(state.calls, ElementsAre("stop", "stop"));
    EXPECT_EQ(logged, log.lines().size());
}

TEST_F(NQ_DDS_RMI, RuntimeCanBeStoppedAfterAFailedStart) {
    state.startResult = false;
    rmi.startRUNTIME(false);
    EXPECT_TRUE(rmi.stopRUNTIME());
    EXPECT_EQ("stop", state.calls.back());
}

TEST_F(NQ_DDS_RMI, EachStartFetchesTheDefaultRuntimeAgain) {
    fetched = 0;
    rmi.startRUNTIME(false);
    rmi.stopRUNTIME();
    rmi.startRUNTIME(true);
    EXPECT_EQ(2, fetched);
    EXPECT_EQ("start [isClient] [--RMIServiceDiscoveryTimeout=20] [--RMIClientThreadingModel=MT]",
              state.calls.back());
}

TEST_F(NQ_DDS_RMI, StartReleasesTheRuntimeFetchedEarlier) {
    rmi.startRUNTIME(false);
    RuntimeState second;
    defaultRuntime.reset(new StubRuntime(second));
    EXPECT_EQ(1, state.alive) << "held by the object alone";
    rmi.startRUNTIME(false);
    EXPECT_EQ(0, state.alive);
    EXPECT_EQ(1, second.alive);
    rmi.stopRUNTIME();
    EXPECT_EQ("stop", second.calls.back());
    defaultRuntime.reset();
    rmi.startRUNTIME(false);
    EXPECT_EQ(0, second.alive) << "an empty pointer replaces it, too";
}

TEST_F(NQ_DDS_RMI, StopKeepsTheRuntime) {
    rmi.startRUNTIME(false);
    defaultRuntime.reset();
    rmi.stopRUNTIME();
    EXPECT_EQ(1, state.alive);
}

TEST_F(NQ_DDS_RMI, DestructionReleasesTheRuntimeWithoutStoppingIt) {
    {
        NQ_DDS_RMI_RUNTIME shortLived;
        shortLived.startRUNTIME(false);
        defaultRuntime.reset();
        EXPECT_EQ(1, state.alive);
    }
    EXPECT_EQ(0, state.alive);
    EXPECT_THAT(state.calls, ElementsAre("isUsable", testing::StartsWith("start ")));
}

TEST_F(NQ_DDS_RMI, ConstructionFetchesNothing) {
    fetched = 0;
    const NQ_DDS_RMI_RUNTIME unused;
    EXPECT_EQ(0, fetched);
    EXPECT_THAT(state.calls, IsEmpty());
}

TEST_F(NQ_DDS_RMI, ExceptionsOfTheRuntimePassThrough) {
    state.startThrows = true;
    EXPECT_THROW(rmi.startRUNTIME(true), std::runtime_error);
    EXPECT_THAT(log.lines(), ElementsAre("<6> === Runtime start"));
}

} // namespace
