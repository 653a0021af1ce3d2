// The ports that tests use. No other process may get one while a server restarts.

#include "Port.h"

#include "Descriptors.h"
#include "ForkedChild.h"

#include <fstream>
#include <set>

#include <gtest/gtest.h>

namespace {

using support::Port;

TEST(Port, IsBelowTheEphemeralRange) {
    const Port port;
    int lowest = 0;
    std::ifstream("/proc/sys/net/ipv4/ip_local_port_range") >> lowest;
    EXPECT_LT(port.number(), lowest);
    EXPECT_GE(port.number(), 1024);
}

TEST(Port, IsReservedWhileTheObjectExists) {
    const std::set<int> before = support::openDescriptors();
    {
        const Port first;
        const Port second;
        EXPECT_NE(first.number(), second.number());
        const support::ForkedChild child = support::inForkedChild([&] {
            const Port other;
            EXPECT_NE(first.number(), other.number());
            EXPECT_NE(second.number(), other.number());
        });
        EXPECT_EQ(0, child.status) << child.output;
    }
    EXPECT_TRUE(support::openedSince(before).empty()); // so both are free again
}

} // namespace
