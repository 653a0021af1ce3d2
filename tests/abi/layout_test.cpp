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

namespace {

using namespace kvr::api;
using support::virtualSlot;

constexpr std::size_t at(std::size_t in64Bits, std::size_t in32Bits) {
    return sizeof(void*) == 8 ? in64Bits : in32Bits;
}

// GNU's and LLVM's C++ libraries have strings, streams and functions of different sizes. So a record
// has four figures: for GNU's library with 64 and with 32 bits, then for LLVM's.
#if defined(__GLIBCXX__)
constexpr std::size_t with(std::size_t gnu64, std::size_t gnu32, std::size_t, std::size_t) {
    return at(gnu64, gnu32);
}
// Its file streams have a mutex, whose size depends on the architecture.
constexpr std::size_t kStreamsMutex = sizeof(pthread_mutex_t);
#elif defined(_LIBCPP_VERSION)
constexpr std::size_t with(std::size_t, std::size_t, std::size_t llvm64, std::size_t llvm32) {
    return at(llvm64, llvm32);
}
constexpr std::size_t kStreamsMutex = 0;
#else
#error "no figures are recorded for this C++ library"
#endif

#define EXPECT_SIZE(type, gnu64, gnu32, llvm64, llvm32)                                            \
    EXPECT_EQ(with(gnu64, gnu32, llvm64, llvm32), sizeof(type))

// clang-format off

TEST(Layout, SizesOfObjectsAreUnchanged) {
    //                                     GNU       LLVM
    EXPECT_SIZE(AutoMount,                 208, 120, 224, 112);
    EXPECT_SIZE(CallbackMethod,              8,   4,   8,   4);
    EXPECT_SIZE(NQ_RPCHandler,              32,  16,  32,  16);
    EXPECT_SIZE(StdInReader,                64,  40,  56,  28);
    EXPECT_SIZE(com::NQ_Mqtt::TConnOpts,   120,  92,  96,  56);
    EXPECT_SIZE(com::NQ_Mqtt::TSslOpts,    200, 152, 152,  80);
    EXPECT_SIZE(com::NQ_Mqtt::TLwt,        104,  80,  80,  44);
    EXPECT_SIZE(com::NQ_Sockets,           136,  92, 112,  56);
    EXPECT_SIZE(crypto::NQ_Crypto,         384, 384, 384, 384);
    EXPECT_SIZE(data::NQ_JSON,              24,  12,  24,  12);
    EXPECT_SIZE(file::NQ_Files,             96,  72,  72,  36);
    EXPECT_SIZE(mng::NQ_Config,            200, 148, 152,  76);
    EXPECT_SIZE(mng::NQ_UBUS,              208, 144, 168,  84);
    EXPECT_SIZE(Watcher,                    56,  36,  48,  24);
    EXPECT_SIZE(FileSystemWatcher,          48,  24,  48,  24);
    EXPECT_SIZE(AsyncWatcherRunner,         64,  32,  64,  32);
#if defined(TAVO_TEST_DDS)
    EXPECT_SIZE(mdw::NQ_DDS_RMI_RUNTIME,    16,   8,  16,   8);
#endif
}

TEST(Layout, SizesOfObjectsWithAFileStreamAreUnchanged) {
    EXPECT_EQ(with(472, 252, 328, 184), sizeof(file::FileWriter) - kStreamsMutex);
    EXPECT_EQ(with(480, 256, 336, 188), sizeof(log::NQ_Logger) - kStreamsMutex);
}

// clang-format on

TEST(Layout, PublisherHoldsItsOwnFieldsAndPahosStructures) {
    // Three of Paho's structures, whose sizes may change with Paho, and its handle.
    const std::size_t pahos = sizeof(MQTTClient_connectOptions) + sizeof(MQTTClient_willOptions) +
                              sizeof(MQTTClient_SSLOptions) + sizeof(MQTTClient);
    EXPECT_EQ(with(528, 404, 408, 224), sizeof(com::NQ_Mqtt) - pahos);
}

TEST(Layout, ObjectsAreAlignedAsPointers) {
    EXPECT_EQ(sizeof(void*), alignof(CallbackMethod));
    EXPECT_EQ(sizeof(void*), alignof(NQ_RPCHandler));
    EXPECT_EQ(sizeof(void*), alignof(StdInReader));
    EXPECT_EQ(sizeof(void*), alignof(com::NQ_Mqtt));
    EXPECT_EQ(sizeof(void*), alignof(com::NQ_Mqtt::TConnOpts));
    EXPECT_EQ(sizeof(void*), alignof(com::NQ_Mqtt::TSslOpts));
    EXPECT_EQ(sizeof(void*), alignof(com::NQ_Mqtt::TLwt));
    EXPECT_EQ(sizeof(void*), alignof(com::NQ_Sockets));
    EXPECT_EQ(sizeof(void*), alignof(data::NQ_JSON));
    EXPECT_EQ(sizeof(void*), alignof(file::NQ_Files));
    EXPECT_EQ(sizeof(void*), alignof(file::FileWriter));
    EXPECT_EQ(sizeof(void*), alignof(log::NQ_Logger));
    EXPECT_EQ(sizeof(void*), alignof(mng::NQ_Config));
    EXPECT_EQ(sizeof(void*), alignof(mng::NQ_UBUS));
    EXPECT_EQ(sizeof(void*), alignof(Watcher));
    EXPECT_EQ(sizeof(void*), alignof(FileSystemWatcher));
    EXPECT_EQ(sizeof(void*), alignof(AsyncWatcherRunner));
#if defined(TAVO_TEST_DDS)
    EXPECT_EQ(sizeof(void*), alignof(mdw::NQ_DDS_RMI_RUNTIME));
#endif
    // Two exceptions: an object of bytes only, and one with functions, which LLVM's library aligns
    // further.
    EXPECT_EQ(1u, alignof(crypto::NQ_Crypto));
    EXPECT_EQ(with(8, 4, 16, 8), alignof(AutoMount));
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

#define EXPECT_OFFSET(object, field, gnu64, gnu32, llvm64, llvm32)                                 \
    EXPECT_EQ(with(gnu64, gnu32, llvm64, llvm32), offsetOf(object, &field))

// clang-format off

TEST(Layout, OffsetsInWatcherAreUnchanged) {
    const Watcher watcher("", 0, nullptr, nullptr);
    //                                                      GNU     LLVM
    EXPECT_OFFSET(watcher, Watcher::path,                   0,  0,  0,  0);
    EXPECT_OFFSET(watcher, Watcher::mask,                  32, 24, 24, 12);
    EXPECT_OFFSET(watcher, Watcher::callback,              40, 28, 32, 16);
    EXPECT_OFFSET(watcher, Watcher::context,               48, 32, 40, 20);
}

TEST(Layout, OffsetsInNQ_FilesAreUnchanged) {
    const file::NQ_Files files;
    EXPECT_OFFSET(files, file::NQ_Files::first,             0,  0,  0,  0);
    EXPECT_OFFSET(files, file::NQ_Files::second,           32, 24, 24, 12);
    EXPECT_OFFSET(files, file::NQ_Files::third,            64, 48, 48, 24);
}

TEST(Layout, OffsetInStdInReaderIsUnchanged) {
    const StdInReader reader;
    EXPECT_OFFSET(reader, StdInReader::lastLine,           32, 16, 32, 16);
}

TEST(Layout, OffsetsInTheMqttOptionsAreUnchanged) {
    using Connection = com::NQ_Mqtt::TConnOpts;
    const Connection connection;
    EXPECT_OFFSET(connection, Connection::connectTimeout,    0,  0,  0,  0);
    EXPECT_OFFSET(connection, Connection::retryInterval,     4,  4,  4,  4);
    EXPECT_OFFSET(connection, Connection::keepAliveInterval, 8,  8,  8,  8);
    EXPECT_OFFSET(connection, Connection::reliable,         12, 12, 12, 12);
    EXPECT_OFFSET(connection, Connection::cleansession,     16, 16, 16, 16);
    EXPECT_OFFSET(connection, Connection::port,             24, 20, 24, 20);
    EXPECT_OFFSET(connection, Connection::username,         56, 44, 48, 32);
    EXPECT_OFFSET(connection, Connection::password,         88, 68, 72, 44);

    using Tls = com::NQ_Mqtt::TSslOpts;
    const Tls tls;
    EXPECT_OFFSET(tls, Tls::enableServerCertAuth,            0,   0,   0,  0);
    EXPECT_OFFSET(tls, Tls::enableClientCertAuth,            4,   4,   4,  4);
    EXPECT_OFFSET(tls, Tls::enabledCipherSuites,             8,   8,   8,  8);
    EXPECT_OFFSET(tls, Tls::privateKeyPassword,             40,  32,  32, 20);
    EXPECT_OFFSET(tls, Tls::certDir,                        72,  56,  56, 32);
    EXPECT_OFFSET(tls, Tls::caCertFile,                    104,  80,  80, 44);
    EXPECT_OFFSET(tls, Tls::clientCertFile,                136, 104, 104, 56);
    EXPECT_OFFSET(tls, Tls::clientKeyFile,                 168, 128, 128, 68);

    using Will = com::NQ_Mqtt::TLwt;
    const Will will;
    EXPECT_OFFSET(will, Will::qos,                          0,  0,  0,  0);
    EXPECT_OFFSET(will, Will::retained,                     4,  4,  4,  4);
    EXPECT_OFFSET(will, Will::topic,                        8,  8,  8,  8);
    EXPECT_OFFSET(will, Will::message,                     40, 32, 32, 20);
    EXPECT_OFFSET(will, Will::connectMessage,              72, 56, 56, 32);
}

// clang-format on

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
#if defined(__GLIBC__)
    EXPECT_EQ(at(16, 8), sizeof(timeval));
#else
    EXPECT_EQ(16u, sizeof(timeval)); // musl counts seconds in 64 bits on every machine
#endif
    EXPECT_EQ(at(8, 4), sizeof(long));
    // The board's request words encode a size of 0 and a direction, in the same bits on all
    // platforms.
    EXPECT_EQ(0x40004205u, static_cast<unsigned>(_IOC(_IOC_WRITE, 'B', 5, 0)));
    EXPECT_EQ(0x80004207u, static_cast<unsigned>(_IOC(_IOC_READ, 'B', 7, 0)));
}

} // namespace
