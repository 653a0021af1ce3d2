// What programs compiled against the headers depend on: sizes of objects, offsets of fields that
// they access, and slots of virtual functions. A change of any of these needs a new soname.

#include <kvr/api/NQ_AutoMount.h>
#include <kvr/api/NQ_JsonRPC.h>
#include <kvr/api/NQ_Stream.h>
#include <kvr/api/StdInReader.h>
#include <kvr/api/com/NQ_Mqtt.h>
#include <kvr/api/com/NQ_Sockets.h>
#include <kvr/api/crypto/NQ_Crypto.h>
#include <kvr/api/data/NQ_Strings.h>
#include <kvr/api/datetime/NQ_Time.h>
#include <kvr/api/file/NQ_Files.h>
#include <kvr/api/log/NQ_Logger.h>
#include <kvr/api/mng/NQ_Config.h>
#include <kvr/api/mng/NQ_UBUS.h>
#include <kvr/api/sys/NQ_Gpio.h>
#include <kvr/api/sys/NQ_System.h>
#if defined(TAVO_TEST_DDS)
#include <kvr/api/mdw/NQ_DDS_RMI.h>
#endif

#include "VirtualSlots.h"

#include <cstddef>

#include <pthread.h>
#include <sys/ioctl.h>

#include <gtest/gtest.h>

// The recorded numbers include strings and streams of libstdc++.
#if defined(__GLIBCXX__)

namespace {

using namespace kvr::api;
using support::virtualSlot;

constexpr std::size_t at(std::size_t in64Bits, std::size_t in32Bits) {
    return sizeof(void*) == 8 ? in64Bits : in32Bits;
}

#define EXPECT_LAYOUT(type, size64, size32, align64, align32)                                      \
    EXPECT_EQ(at(size64, size32), sizeof(type));                                                   \
    EXPECT_EQ(at(align64, align32), alignof(type))

TEST(Layout, SizesOfObjectsAreUnchanged) {
    EXPECT_LAYOUT(AutoMount, 208, 120, 8, 4);
    EXPECT_LAYOUT(CallbackMethod, 8, 4, 8, 4);
    EXPECT_LAYOUT(NQ_RPCHandler, 32, 16, 8, 4);
    EXPECT_LAYOUT(StdInReader, 64, 40, 8, 4);
    EXPECT_LAYOUT(com::NQ_Mqtt::TConnOpts, 120, 92, 8, 4);
    EXPECT_LAYOUT(com::NQ_Mqtt::TSslOpts, 200, 152, 8, 4);
    EXPECT_LAYOUT(com::NQ_Mqtt::TLwt, 104, 80, 8, 4);
    EXPECT_LAYOUT(com::NQ_Sockets, 136, 92, 8, 4);
    EXPECT_LAYOUT(crypto::NQ_Crypto, 384, 384, 1, 1);
    EXPECT_LAYOUT(data::NQ_JSON, 24, 12, 8, 4);
    EXPECT_LAYOUT(file::NQ_Files, 96, 72, 8, 4);
    // Both have a file stream, which has a mutex. Its size depends on the architecture.
    constexpr std::size_t mutex = sizeof(pthread_mutex_t);
    EXPECT_LAYOUT(file::FileWriter, 472 + mutex, 252 + mutex, 8, 4);
    EXPECT_LAYOUT(log::NQ_Logger, 480 + mutex, 256 + mutex, 8, 4);
    EXPECT_LAYOUT(mng::NQ_Config, 200, 148, 8, 4);
    EXPECT_LAYOUT(mng::NQ_UBUS, 208, 144, 8, 4);
    EXPECT_LAYOUT(Watcher, 56, 36, 8, 4);
    EXPECT_LAYOUT(FileSystemWatcher, 48, 24, 8, 4);
    EXPECT_LAYOUT(AsyncWatcherRunner, 64, 32, 8, 4);
#if defined(TAVO_TEST_DDS)
    EXPECT_LAYOUT(mdw::NQ_DDS_RMI_RUNTIME, 16, 8, 8, 4);
#endif
}

TEST(Layout, PublisherHoldsItsOwnFieldsAndPahosStructures) {
    // Three of Paho's structures, whose sizes may change with Paho, and its handle.
    const std::size_t pahos = sizeof(MQTTClient_connectOptions) + sizeof(MQTTClient_willOptions) +
                              sizeof(MQTTClient_SSLOptions) + sizeof(MQTTClient);
    EXPECT_EQ(at(528, 404), sizeof(com::NQ_Mqtt) - pahos);
}

TEST(Layout, ClassesOfStaticOperationsHaveNoFields) {
    EXPECT_EQ(1u, sizeof(NQ_Stream));
    EXPECT_EQ(1u, sizeof(crypto::NQ_Base64));
    EXPECT_EQ(1u, sizeof(data::NQ_Strings));
    EXPECT_EQ(1u, sizeof(datetime::NQ_Time));
    EXPECT_EQ(1u, sizeof(file::NQ_FileUtils));
    EXPECT_EQ(1u, sizeof(file::NQ_Popen));
    EXPECT_EQ(1u, sizeof(sys::NQ_Gpio));
    EXPECT_EQ(1u, sizeof(sys::NQ_System));
    EXPECT_EQ(sizeof(int), sizeof(sys::Gpio_State));
}

// offsetof() only supports simpler types, so this takes the offset from an object.
template <class Object, class Field>
std::size_t offsetOf(const Object& object, Field Object::*field) {
    return static_cast<std::size_t>(reinterpret_cast<const char*>(&(object.*field)) -
                                    reinterpret_cast<const char*>(&object));
}

TEST(Layout, OffsetsInWatcherAreUnchanged) {
    const Watcher watcher("", 0, nullptr, nullptr);
    EXPECT_EQ(0u, offsetOf(watcher, &Watcher::path));
    EXPECT_EQ(at(32, 24), offsetOf(watcher, &Watcher::mask));
    EXPECT_EQ(at(40, 28), offsetOf(watcher, &Watcher::callback));
    EXPECT_EQ(at(48, 32), offsetOf(watcher, &Watcher::context));
}

TEST(Layout, OffsetsInNQ_FilesAreUnchanged) {
    const file::NQ_Files files;
    EXPECT_EQ(0u, offsetOf(files, &file::NQ_Files::first));
    EXPECT_EQ(at(32, 24), offsetOf(files, &file::NQ_Files::second));
    EXPECT_EQ(at(64, 48), offsetOf(files, &file::NQ_Files::third));
}

TEST(Layout, OffsetInStdInReaderIsUnchanged) {
    const StdInReader reader;
    EXPECT_EQ(at(32, 16), offsetOf(reader, &StdInReader::lastLine));
}

TEST(Layout, OffsetsInTheMqttOptionsAreUnchanged) {
    using Connection = com::NQ_Mqtt::TConnOpts;
    const Connection connection;
    EXPECT_EQ(0u, offsetOf(connection, &Connection::connectTimeout));
    EXPECT_EQ(4u, offsetOf(connection, &Connection::retryInterval));
    EXPECT_EQ(8u, offsetOf(connection, &Connection::keepAliveInterval));
    EXPECT_EQ(12u, offsetOf(connection, &Connection::reliable));
    EXPECT_EQ(16u, offsetOf(connection, &Connection::cleansession));
    EXPECT_EQ(at(24, 20), offsetOf(connection, &Connection::port));
    EXPECT_EQ(at(56, 44), offsetOf(connection, &Connection::username));
    EXPECT_EQ(at(88, 68), offsetOf(connection, &Connection::password));

    using Tls = com::NQ_Mqtt::TSslOpts;
    const Tls tls;
    EXPECT_EQ(0u, offsetOf(tls, &Tls::enableServerCertAuth));
    EXPECT_EQ(4u, offsetOf(tls, &Tls::enableClientCertAuth));
    EXPECT_EQ(8u, offsetOf(tls, &Tls::enabledCipherSuites));
    EXPECT_EQ(at(40, 32), offsetOf(tls, &Tls::privateKeyPassword));
    EXPECT_EQ(at(72, 56), offsetOf(tls, &Tls::certDir));
    EXPECT_EQ(at(104, 80), offsetOf(tls, &Tls::caCertFile));
    EXPECT_EQ(at(136, 104), offsetOf(tls, &Tls::clientCertFile));
    EXPECT_EQ(at(168, 128), offsetOf(tls, &Tls::clientKeyFile));

    using Will = com::NQ_Mqtt::TLwt;
    const Will will;
    EXPECT_EQ(0u, offsetOf(will, &Will::qos));
    EXPECT_EQ(4u, offsetOf(will, &Will::retained));
    EXPECT_EQ(8u, offsetOf(will, &Will::topic));
    EXPECT_EQ(at(40, 32), offsetOf(will, &Will::message));
    EXPECT_EQ(at(72, 56), offsetOf(will, &Will::connectMessage));
}

TEST(Layout, VirtualOperationsKeepTheirSlots) {
    // The destructor's two slots always come first.
    EXPECT_EQ(2u, virtualSlot(&CallbackMethod::Call));
    EXPECT_EQ(3u, virtualSlot(&CallbackMethod::GetName));
    EXPECT_EQ(4u, virtualSlot(&CallbackMethod::GetDescription));
    EXPECT_EQ(2u, virtualSlot(&NQ_RPCHandler::RegisterMethods));
    EXPECT_EQ(2u, virtualSlot(&iot::Observer<int>::update));
#if defined(TAVO_TEST_DDS)
    EXPECT_EQ(2u, virtualSlot(&org::opensplice::DDS_RMI::CRuntime::start));
    EXPECT_EQ(3u, virtualSlot(&org::opensplice::DDS_RMI::CRuntime::stop));
    EXPECT_EQ(4u, virtualSlot(&org::opensplice::DDS_RMI::CRuntime::isUsable));
#endif
}

TEST(Layout, PlatformTypesHaveTheSizesOfTheInterface) {
    // Times cross the interface in the platform's default representation.
    EXPECT_EQ(sizeof(long), sizeof(datetime::NQ_Time::timevaldiffMilli(timeval(), timeval())));
    EXPECT_EQ(at(16, 8), sizeof(timeval));
    EXPECT_EQ(at(8, 4), sizeof(long));
    // The board's request words encode a size of 0 and a direction, in the same bits on all
    // platforms.
    EXPECT_EQ(0x40004205u, static_cast<unsigned>(_IOC(_IOC_WRITE, 'B', 5, 0)));
    EXPECT_EQ(0x80004207u, static_cast<unsigned>(_IOC(_IOC_READ, 'B', 7, 0)));
}

} // namespace

#endif
