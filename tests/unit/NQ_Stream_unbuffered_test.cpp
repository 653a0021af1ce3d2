// NQ_Stream as compiled for a C library that does not expose its stream buffers.

#include <kvr/api/NQ_Stream.h>

#include "StandardInput.h"

#include <iostream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using support::Poll;
using support::RecordedPolls;
using support::StandardInput;

TEST(NQ_Stream_unbuffered, NothingIsReadAheadSoThatEveryLineIsSeenByPoll) {
    StandardInput input;
    const RecordedPolls polls;
    input.write("a\n\nb\nc\n");
    EXPECT_EQ("a", NQ_Stream::readOneLineStream(std::cin));
    EXPECT_EQ(5, input.unread());
    EXPECT_EQ("b", NQ_Stream::readOneLineStream(std::cin));
    EXPECT_EQ(2, input.unread());
    EXPECT_EQ("c", NQ_Stream::readOneLineStream(std::cin));
    ASSERT_EQ(4, polls.count());
    for (const Poll& poll : polls.all())
        EXPECT_EQ(1, poll.result);
    EXPECT_THAT(polls.ppollResults(), testing::IsEmpty());
}

} // namespace
