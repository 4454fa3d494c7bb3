#include "sync/PacketTrace.h"

#include <gtest/gtest.h>

namespace {

using VELMORA::PacketTrace;

constexpr std::uint32_t firstCount = 0xffff'ff00;

std::uint32_t word(const PacketTrace& trace, std::size_t i) {
    std::uint32_t value = 0;
    for (std::size_t b = 0; b < 4; ++b) {
        value |= std::uint32_t{static_cast<std::uint8_t>(trace.record()[i * 4 + b])} << (8 * b);
    }
    return value;
}

TEST(PacketTrace, IsCompleteWith176Pairs) {
    PacketTrace trace;
    for (std::uint32_t i = 0; i < 175; ++i) ASSERT_FALSE(trace.add(firstCount + i, 376)) << i;
    EXPECT_TRUE(trace.add(firstCount + 175, 24));
    EXPECT_EQ(trace.record().size(), 1412u);
    EXPECT_EQ(word(trace, 0), 0x01b00000u);  // (176 | 0x100) << 16
    EXPECT_EQ(word(trace, 1), firstCount);
    EXPECT_EQ(word(trace, 2), 450u);
    EXPECT_EQ(word(trace, 351), firstCount + 175);
    EXPECT_EQ(word(trace, 352), 98u);
}

TEST(PacketTrace, IsCompleteFiftyMillisecondsAfterItsFirstPair) {
    PacketTrace trace;
    EXPECT_FALSE(trace.add(firstCount, 16));
    EXPECT_FALSE(trace.add(firstCount + 49999, 16));
    EXPECT_TRUE(trace.add(firstCount + 50000, 16));
    EXPECT_EQ(word(trace, 0), 0x01030000u);
    EXPECT_EQ(word(trace, 5), firstCount + 50000);
    EXPECT_EQ(word(trace, 7), 0u) << "the rest is zero";
}

TEST(PacketTrace, BeginsAnewWhenCleared) {
    PacketTrace trace;
    trace.add(firstCount, 16);
    EXPECT_TRUE(trace.add(firstCount + 60000, 16));
    trace.clear();
    EXPECT_EQ(trace.record(), std::string(1412, '\0'));
    EXPECT_FALSE(trace.add(firstCount + 60001, 16)) << "the first pair is a new one";
    EXPECT_EQ(word(trace, 0), 0u);
    EXPECT_EQ(word(trace, 1), firstCount + 60001);
}

}  // namespace
