#include <kvr/api/com/NQ_Mqtt.h>

#include "CapturedOutput.h"
#include "CapturedSyslog.h"
#include "FakePaho.h"

#include <iostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::com::NQ_Mqtt;
using support::CapturedOutput;
using support::CapturedSyslog;
using support::FakePaho;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::string kDefaultConnect =
    "connect client timeout=60 retry=10 keepalive=60 reliable=1 clean=0 user=null password=null";
const std::string kPause = "pause 1s 0ns";

std::string connectLine(NQ_Mqtt& mqtt, FakePaho& paho) {
    bool keepTrying = true;
    mqtt.initialise();
    EXPECT_TRUE(mqtt.connect(keepTrying));
    for (const std::string& call : paho.calls)
        if (call.compare(0, 7, "connect") == 0)
            return call;
    return "no connect";
}

/// Makes connection attempts fail with `code`, clears the flag after `attempts` of them, and
/// returns the system log.
std::vector<std::string> logOfFailures(int code, int attempts) {
    FakePaho paho;
    CapturedSyslog log;
    bool keepTrying = true;
    paho.connectResults = {code};
    paho.flag = &keepTrying;
    paho.pausesUntilStop = attempts;
    NQ_Mqtt mqtt("10.0.0.5", "gateway");
    mqtt.initialise();
    EXPECT_FALSE(mqtt.connect(keepTrying));
    EXPECT_EQ(attempts, paho.count("connect"));
    EXPECT_EQ(code, mqtt.getLastResult());
    return log.lines();
}

TEST(NQ_Mqtt, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible<NQ_Mqtt>::value);
    EXPECT_FALSE(std::is_copy_assignable<NQ_Mqtt>::value);
}

TEST(NQ_Mqtt, OptionRecordsHaveTheirDefaults) {
    const NQ_Mqtt::TConnOpts options;
    EXPECT_EQ(60, options.connectTimeout);
    EXPECT_EQ(10, options.retryInterval);
    EXPECT_EQ(60, options.keepAliveInterval);
    EXPECT_EQ(1, options.reliable);
    EXPECT_EQ(0, options.cleansession);
    EXPECT_EQ("1883", options.port);
    EXPECT_EQ("", options.username);
    EXPECT_EQ("", options.password);
    const NQ_Mqtt::TSslOpts tls;
    EXPECT_EQ("", tls.enabledCipherSuites + tls.privateKeyPassword + tls.certDir + tls.caCertFile +
                      tls.clientCertFile + tls.clientKeyFile);
    const NQ_Mqtt::TLwt will;
    EXPECT_EQ("", will.topic + will.message + will.connectMessage);
}

TEST(NQ_Mqtt, NewObjectHasNoAddressAndNoResult) {
    FakePaho paho;
    const NQ_Mqtt mqtt("10.0.0.5", "gateway");
    EXPECT_EQ("", mqtt.getServerUri());
    EXPECT_EQ(0, mqtt.getLastResult());
    EXPECT_THAT(paho.calls, IsEmpty());
}

TEST(NQ_Mqtt, DefaultsGiveAPlainAddressOnPort1883) {
    FakePaho paho;
    NQ_Mqtt mqtt("10.0.0.5", "gateway");
    EXPECT_TRUE(mqtt.initialise());
    EXPECT_EQ("tcp://10.0.0.5:1883", mqtt.getServerUri());
    EXPECT_THAT(paho.calls, ElementsAre("create 'tcp://10.0.0.5:1883' 'gateway' none null"));
}

TEST(NQ_Mqtt, DefaultsMeanNoWillNoCredentialsAndNoTls) {
    FakePaho paho;
    NQ_Mqtt mqtt("10.0.0.5", "gateway");
    EXPECT_EQ(kDefaultConnect, connectLine(mqtt, paho));
}

TEST(NQ_Mqtt, ConnectionOptionsReachTheClient) {
    FakePaho paho;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.setConnOpts("1884", "me", "secret", 5, 6, 7, 0, 1);
    EXPECT_EQ("connect client timeout=5 retry=6 keepalive=7 reliable=0 clean=1 user='me' "
              "password='secret'",
              connectLine(mqtt, paho));
    EXPECT_EQ("tcp://broker:1884", mqtt.getServerUri());
}

TEST(NQ_Mqtt, UserNameAndPasswordAreLeftOutOneByOneWhenEmpty) {
    FakePaho paho;
    NQ_Mqtt nameless("broker", "gateway");
    nameless.setConnOpts("1883", "", "secret", 60, 10, 60, 1, 0);
    EXPECT_THAT(connectLine(nameless, paho), HasSubstr("user=null password='secret'"));
    paho.calls.clear();
    NQ_Mqtt open("broker", "gateway");
    open.setConnOpts("1883", "me", "", 60, 10, 60, 1, 0);
    EXPECT_THAT(connectLine(open, paho), HasSubstr("user='me' password=null"));
}

TEST(NQ_Mqtt, CipherListTurnsTlsOn) {
    FakePaho paho;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.setSslOpts("HIGH", "", 1, 0, "/etc/certs");
    EXPECT_EQ(kDefaultConnect + " ssl='HIGH',server=1,trust='/etc/certs/"
                                "mqtt_ca-cert.crt',cert=null,key=null,password=null",
              connectLine(mqtt, paho));
    EXPECT_EQ("ssl://broker:1883", mqtt.getServerUri());
}

TEST(NQ_Mqtt, ClientCertificateBringsItsFilesAndThePassword) {
    FakePaho paho;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.setSslOpts("HIGH", "opener", 0, 1, "/etc/certs/");
    EXPECT_EQ(kDefaultConnect +
                  " ssl='HIGH',server=0,trust=null,cert='/etc/certs//mqtt_client-cert.crt',"
                  "key='/etc/certs//mqtt_client-key.key',password='opener'",
              connectLine(mqtt, paho));
}

TEST(NQ_Mqtt, KeyPasswordIsPassedOnWithoutTheClientCertificateToo) {
    FakePaho paho;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.setSslOpts("HIGH", "opener", 0, 0, "/etc/certs");
    EXPECT_EQ(kDefaultConnect +
                  " ssl='HIGH',server=0,trust=null,cert=null,key=null,password='opener'",
              connectLine(mqtt, paho));
}

TEST(NQ_Mqtt, FlagsOtherThanOneArePassedOnButAttachNoFiles) {
    FakePaho paho;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.setSslOpts("HIGH", "", 2, 2, "/etc/certs");
    EXPECT_EQ(kDefaultConnect + " ssl='HIGH',server=2,trust=null,cert=null,key=null,password=null",
              connectLine(mqtt, paho));
}

TEST(NQ_Mqtt, EmptyCipherListStaysPlainWhateverTheFlags) {
    FakePaho paho;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.setSslOpts("", "opener", 1, 1, "/etc/certs");
    EXPECT_EQ(kDefaultConnect, connectLine(mqtt, paho));
    EXPECT_EQ("tcp://broker:1883", mqtt.getServerUri());
}

TEST(NQ_Mqtt, TopicTurnsTheWillOn) {
    FakePaho paho;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.setLwt("state", "gone", "here", 2, 1);
    EXPECT_EQ(kDefaultConnect + " will='state','gone',qos=2,retained=1", connectLine(mqtt, paho));
}

TEST(NQ_Mqtt, TopicAloneDecidesWhetherMessagesMayBeEmpty) {
    FakePaho paho;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.setLwt("state", "", "", 1, 0);
    EXPECT_EQ(kDefaultConnect + " will='state','',qos=1,retained=0", connectLine(mqtt, paho));
    EXPECT_EQ(1, paho.count("publish client 'state' '' qos=1 retained=0 dup=0"));
}

TEST(NQ_Mqtt, EmptyTopicMeansNoWillAndNoConnectedMessage) {
    FakePaho paho;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.setLwt("", "gone", "here", 2, 1);
    EXPECT_EQ(kDefaultConnect, connectLine(mqtt, paho));
    EXPECT_EQ(0, paho.count("publish"));
}

TEST(NQ_Mqtt, EveryConnectionPublishesTheConnectedMessageWithoutWaiting) {
    FakePaho paho;
    bool keepTrying = true;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.setLwt("state", "gone", "here", 2, 1);
    mqtt.initialise();
    EXPECT_TRUE(mqtt.connect(keepTrying));
    EXPECT_TRUE(mqtt.connect(keepTrying));
    EXPECT_EQ(2, paho.count("publish client 'state' 'here' qos=2 retained=1 dup=0"));
    EXPECT_EQ(0, paho.count("wait"));
}

TEST(NQ_Mqtt, ConnectedMessageThatCannotBePublishedDoesNotMatter) {
    FakePaho paho;
    paho.publishResult = -1;
    bool keepTrying = true;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.setLwt("state", "gone", "here", 0, 0);
    mqtt.initialise();
    EXPECT_TRUE(mqtt.connect(keepTrying));
    EXPECT_EQ(0, mqtt.getLastResult());
}

TEST(NQ_Mqtt, SuccessLogsTheBareHost) {
    FakePaho paho;
    CapturedSyslog log;
    NQ_Mqtt mqtt("10.0.0.5", "gateway");
    connectLine(mqtt, paho);
    EXPECT_THAT(log.lines(), ElementsAre("<6> Connected to MQTT Broker at 10.0.0.5"));
    EXPECT_EQ("Connected to MQTT Broker at %s", log.records()[0].format);
    EXPECT_EQ(0, paho.count("pause"));
}

TEST(NQ_Mqtt, EachRefusalHasItsText) {
    const std::vector<std::pair<int, std::string>> texts = {{1, "Unacceptable protocol version"},
                                                            {2, "Identifier rejected"},
                                                            {3, "Server unavailable"},
                                                            {4, "Bad user name or password"},
                                                            {5, "Not authorized"},
                                                            {6, "Unknown connection error"},
                                                            {-1, "Unknown connection error"},
                                                            {-14, "Unknown connection error"}};
    for (const auto& text : texts)
        EXPECT_THAT(logOfFailures(text.first, 1),
                    ElementsAre("<3> Failed to connect to MQTT Broker at tcp://10.0.0.5:1883",
                                "<3> Connection refused: " + text.second))
            << text.first;
}

TEST(NQ_Mqtt, NothingInAnAddressIsInterpretedByTheSystemLog) {
    FakePaho paho;
    CapturedSyslog log;
    bool keepTrying = false;
    paho.connectResults = {3};
    NQ_Mqtt mqtt("%d", "gateway");
    mqtt.initialise();
    mqtt.connect(keepTrying);
    ASSERT_EQ(2u, log.records().size());
    EXPECT_EQ("Failed to connect to MQTT Broker at tcp://%d:1883", log.records()[0].text);
    EXPECT_EQ("%s", log.records()[1].format);
}

TEST(NQ_Mqtt, FailurePairIsLoggedOnTheFirstAndEveryThirtiethAttemptAfter) {
    EXPECT_EQ(2u, logOfFailures(3, 30).size());
    EXPECT_EQ(4u, logOfFailures(3, 31).size());
    EXPECT_EQ(4u, logOfFailures(3, 60).size());
    EXPECT_EQ(6u, logOfFailures(3, 61).size());
    EXPECT_EQ(6u, logOfFailures(3, 90).size());
}

TEST(NQ_Mqtt, EveryConnectCountsItsAttemptsFromZero) {
    FakePaho paho;
    CapturedSyslog log;
    bool keepTrying = false;
    paho.connectResults = {3};
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.initialise();
    mqtt.connect(keepTrying);
    mqtt.connect(keepTrying);
    EXPECT_EQ(4u, log.lines().size());
}

TEST(NQ_Mqtt, OneAttemptAndOnePauseAreMadeWithTheFlagAlreadyCleared) {
    FakePaho paho;
    bool keepTrying = false;
    paho.connectResults = {3};
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.initialise();
    EXPECT_FALSE(mqtt.connect(keepTrying));
    EXPECT_THAT(paho.calls, ElementsAre(HasSubstr("create"), kDefaultConnect, kPause));
}

TEST(NQ_Mqtt, AttemptThatSucceedsCountsWithTheFlagCleared) {
    FakePaho paho;
    bool keepTrying = false;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.initialise();
    EXPECT_TRUE(mqtt.connect(keepTrying));
}

TEST(NQ_Mqtt, RetriesOnceASecondUntilItSucceeds) {
    FakePaho paho;
    bool keepTrying = true;
    paho.connectResults = {-1, 3, 0};
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.initialise();
    EXPECT_TRUE(mqtt.connect(keepTrying));
    EXPECT_THAT(paho.calls, ElementsAre(HasSubstr("create"), kDefaultConnect, kPause,
                                        kDefaultConnect, kPause, kDefaultConnect));
    EXPECT_EQ(0, mqtt.getLastResult());
}

TEST(NQ_Mqtt, EmptyHostPausesWithoutAnAttemptOrARecordUntilTheFlagIsCleared) {
    FakePaho paho;
    CapturedSyslog log;
    CapturedOutput output;
    bool keepTrying = true;
    paho.flag = &keepTrying;
    paho.pausesUntilStop = 3;
    NQ_Mqtt mqtt("", "gateway");
    mqtt.initialise();
    mqtt.enableDebug();
    EXPECT_FALSE(mqtt.connect(keepTrying));
    EXPECT_THAT(paho.calls,
                ElementsAre("create 'tcp://:1883' 'gateway' none null", kPause, kPause, kPause));
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ("", output.text());
}

TEST(NQ_Mqtt, DebugTracesTheStartWithoutANewline) {
    FakePaho paho;
    CapturedOutput output;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.enableDebug();
    mqtt.initialise();
    EXPECT_EQ("", output.written()) << "flushed";
    EXPECT_EQ("Trying to connect to tcp://broker:1883...", output.text());
}

TEST(NQ_Mqtt, DebugTracesAFailureBeforeAndTheSuccessAfterItsRecordsAndFlushesBoth) {
    FakePaho paho;
    CapturedSyslog log;
    bool keepTrying = true;
    paho.connectResults = {3, 0};
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.initialise();
    mqtt.enableDebug();
    struct Trace : std::stringbuf {
        explicit Trace(const CapturedSyslog& systemLog) : log(systemLog) {}
        int sync() override {
            recordsAtFlush.push_back(log.records().size());
            return 0;
        }
        const CapturedSyslog& log;
        std::vector<std::size_t> recordsAtFlush;
    } trace(log);
    std::streambuf* const before = std::cout.rdbuf(&trace);
    mqtt.connect(keepTrying);
    std::cout.rdbuf(before);
    EXPECT_THAT(trace.recordsAtFlush, ElementsAre(0u, 2u + 1u));
}

TEST(NQ_Mqtt, DebugTracesEveryFailureAndTheSuccess) {
    FakePaho paho;
    CapturedSyslog log;
    CapturedOutput output;
    bool keepTrying = true;
    paho.connectResults = {5, -1, 0};
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.initialise();
    mqtt.enableDebug();
    mqtt.connect(keepTrying);
    EXPECT_EQ(
        "Failed to connect to tcp://broker:1883; Connection refused: Not authorized\n"
        "Failed to connect to tcp://broker:1883; Connection refused: Unknown connection error\n"
        "Connected to MQTT Broker at broker\n",
        output.text());
    EXPECT_EQ(3u, log.lines().size());
}

TEST(NQ_Mqtt, PrintsNothingByDefaultNorAfterDisableDebug) {
    FakePaho paho;
    CapturedOutput output;
    bool keepTrying = true;
    paho.connectResults = {5, 0};
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.enableDebug();
    mqtt.disableDebug();
    mqtt.initialise();
    mqtt.connect(keepTrying);
    EXPECT_EQ("", output.text());
}

TEST(NQ_Mqtt, SendPublishesAndWaitsForTheConnectTimeoutInMilliseconds) {
    FakePaho paho;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.setConnOpts("1883", "", "", 4, 10, 60, 1, 0);
    mqtt.initialise();
    paho.calls.clear();
    EXPECT_TRUE(mqtt.send("a/b", "hello", 1, 1));
    EXPECT_THAT(paho.calls, ElementsAre("publish client 'a/b' 'hello' qos=1 retained=1 dup=0",
                                        "wait client token=7 ms=4000"));
}

TEST(NQ_Mqtt, SendStopsThePayloadAtItsFirstNul) {
    FakePaho paho;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.initialise();
    mqtt.send("t", std::string("ab\0cd", 5), 0, 0);
    EXPECT_EQ(1, paho.count("publish client 't' 'ab' qos=0 retained=0 dup=0"));
}

TEST(NQ_Mqtt, SendReportsAFailedWaitByItsResultAndTheCode) {
    FakePaho paho;
    paho.waitResult = -3;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.initialise();
    EXPECT_FALSE(mqtt.send("t", "x", 1, 0));
    EXPECT_EQ(-3, mqtt.getLastResult());
}

TEST(NQ_Mqtt, FailedPublishIsNotExaminedAndTheWaitGetsTokenZero) {
    FakePaho paho;
    paho.publishResult = -1;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.initialise();
    EXPECT_TRUE(mqtt.send("t", "x", 1, 0));
    EXPECT_EQ(1, paho.count("wait client token=0 ms=60000"));
}

TEST(NQ_Mqtt, SubscribeReturnsTheClientsResult) {
    FakePaho paho;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.initialise();
    EXPECT_TRUE(mqtt.subscribe("a/#", 2));
    EXPECT_EQ(1, paho.count("subscribe client 'a/#' qos=2"));
    paho.subscribeResult = 128;
    EXPECT_FALSE(mqtt.subscribe("a/#", 2));
    EXPECT_EQ(128, mqtt.getLastResult());
}

TEST(NQ_Mqtt, DestructionDisconnectsWithTheTimeoutAndDestroys) {
    FakePaho paho;
    {
        NQ_Mqtt mqtt("broker", "gateway");
        mqtt.setConnOpts("1883", "", "", 9, 10, 60, 1, 0);
        mqtt.initialise();
        paho.calls.clear();
    }
    EXPECT_THAT(paho.calls, ElementsAre("disconnect client ms=9000", "destroy client"));
}

TEST(NQ_Mqtt, DestructionDoesTheSameWithoutAClient) {
    FakePaho paho;
    { const NQ_Mqtt mqtt("broker", "gateway"); }
    EXPECT_THAT(paho.calls, ElementsAre("disconnect null ms=60000", "destroy null"));
}

TEST(NQ_Mqtt, SecondInitialiseMakesASecondClientWithoutDestroyingTheFirst) {
    FakePaho paho;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.initialise();
    mqtt.initialise();
    EXPECT_EQ(2, paho.count("create"));
    EXPECT_EQ(0, paho.count("destroy"));
}

TEST(NQ_Mqtt, SecondInitialiseForgetsTheOptionsThatWereTakenBack) {
    FakePaho paho;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.setConnOpts("8883", "user", "password", 5, 4, 3, 2, 1);
    mqtt.setSslOpts("HIGH", "opener", 1, 1, "/etc/certs");
    mqtt.setLwt("state", "gone", "here", 2, 1);
    mqtt.initialise();
    mqtt.setConnOpts("1883", "", "", 60, 10, 60, 1, 0);
    mqtt.setSslOpts("", "", 0, 0, "");
    mqtt.setLwt("", "", "", 0, 0);
    EXPECT_EQ(kDefaultConnect, connectLine(mqtt, paho));
    EXPECT_EQ("tcp://broker:1883", mqtt.getServerUri());
    EXPECT_EQ(0, paho.count("publish"));
}

TEST(NQ_Mqtt, SecondInitialiseForgetsTheFilesThatWereTakenBack) {
    FakePaho paho;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.setSslOpts("HIGH", "opener", 1, 1, "/etc/a/rather/long/directory/of/certificates");
    mqtt.initialise();
    mqtt.setSslOpts("LOW", "", 0, 0, "/certs");
    EXPECT_EQ(kDefaultConnect + " ssl='LOW',server=0,trust=null,cert=null,key=null,password=null",
              connectLine(mqtt, paho));
}

TEST(NQ_Mqtt, SecondInitialiseTakesTheOptionsSetInBetween) {
    FakePaho paho;
    NQ_Mqtt mqtt("broker", "gateway");
    mqtt.setLwt("state", "gone", "here", 2, 1);
    mqtt.initialise();
    mqtt.setLwt("a/topic/that/is/much/longer/than/the/first", "lost", "back", 1, 0);
    EXPECT_EQ(kDefaultConnect +
                  " will='a/topic/that/is/much/longer/than/the/first','lost',qos=1,retained=0",
              connectLine(mqtt, paho));
}

} // namespace
