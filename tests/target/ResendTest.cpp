#include <gtest/gtest.h>

#include "target/BurstMeter.h"
#include "target/ResendRequests.h"

namespace {

using velmora_target::BurstMeter;
using velmora_target::PacketQueue;
using velmora_target::ResendRequests;
using ZENNO::Bytes;

class ResendTest : public testing::Test {
protected:
    void put(std::uint16_t sequence, std::uint64_t now) { queue.put(sequence, Bytes(8, 1), now); }
    PacketQueue queue{0};
    ResendRequests requests;
};

TEST_F(ResendTest, AsksForNothingWhileNothingIsMissing) {
    put(0, 0);
    EXPECT_FALSE(requests.due(queue, 1000, 0));
    EXPECT_FALSE(requests.due(queue, 1000, 1'000'000));
    EXPECT_EQ(requests.nextTime(queue, 1000, 1'000'000), ~0ull);
    EXPECT_EQ(requests.sent(), 0u);
}

TEST_F(ResendTest, AsksAtOnceFromTheOldestHole) {
    put(0, 0);
    put(3, 1000);
    put(6, 2000);
    const auto request = requests.due(queue, 1000, 2000);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->from, 1);
    EXPECT_EQ(request->last, 5);
    EXPECT_EQ(requests.sent(), 1u);
}

TEST_F(ResendTest, RepeatsUntilTheHoleIsFilled) {
    put(0, 0);
    put(2, 1000);
    ASSERT_TRUE(requests.due(queue, 1000, 1000));
    EXPECT_EQ(requests.nextTime(queue, 1000, 1000), 6000u);
    EXPECT_FALSE(requests.due(queue, 1000, 5999));
    EXPECT_TRUE(requests.due(queue, 1000, 6000));
    EXPECT_TRUE(requests.due(queue, 1000, 11000));
    put(1, 11500);
    EXPECT_FALSE(requests.due(queue, 1000, 20000));
    EXPECT_EQ(requests.sent(), 3u);
}

TEST_F(ResendTest, WaitsTwoBurstsForAnAnswerWhereBurstsAreSlow) {
    put(0, 0);
    put(2, 1000);
    ASSERT_TRUE(requests.due(queue, 20'000, 1000));
    EXPECT_FALSE(requests.due(queue, 20'000, 40'999));
    EXPECT_TRUE(requests.due(queue, 20'000, 41'000));
}

TEST_F(ResendTest, LeavesAYoungHoleTimeToFillItself) {
    ResendRequests patient({.youngest = 20'000});
    put(0, 0);
    put(2, 1000);
    put(4, 10'000);
    EXPECT_EQ(patient.nextTime(queue, 1000, 10'000), 20'000u);
    EXPECT_FALSE(patient.due(queue, 1000, 19'999));
    put(1, 19'999);
    EXPECT_EQ(patient.nextTime(queue, 1000, 20'000), 21'000u) << "the next one's";
    EXPECT_FALSE(patient.due(queue, 1000, 20'999));
    const auto request = patient.due(queue, 1000, 21'000);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->from, 3);
}

TEST_F(ResendTest, AsksForOldOnesAsLongAsItIsTold) {
    ResendRequests stubborn({.oldest = 950'000});
    put(0, 0);
    put(9, 900'000);
    EXPECT_FALSE(requests.due(queue, 1000, 900'000)) << "by default it has given up";
    EXPECT_TRUE(stubborn.due(queue, 1000, 950'000));
    EXPECT_FALSE(stubborn.due(queue, 1000, 956'000));
}

TEST_F(ResendTest, ANewHoleIsAskedForSoonerButNotAtOnce) {
    put(0, 0);
    put(2, 1000);
    ASSERT_TRUE(requests.due(queue, 1000, 1000));
    put(4, 2000);
    EXPECT_FALSE(requests.due(queue, 1000, 2000));
    EXPECT_FALSE(requests.due(queue, 1000, 3999));
    const auto request = requests.due(queue, 1000, 4000);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->from, 1);
    EXPECT_EQ(request->last, 3);
}

TEST_F(ResendTest, GivesUpHolesThatTheHostMayNoLongerHold) {
    put(0, 0);
    put(2, 1000);
    put(3, 400'000);
    EXPECT_FALSE(requests.due(queue, 1000, 400'001));
    EXPECT_EQ(requests.nextTime(queue, 1000, 400'001), ~0ull);
    put(5, 400'001);  // a young one is asked for without the old one
    const auto request = requests.due(queue, 1000, 400'001);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->from, 4);
}

TEST_F(ResendTest, SequencesInARequestWrap) {
    for (std::uint32_t i = 0; i < 65535; ++i) put(static_cast<std::uint16_t>(i), i);
    put(1, 65540);  // 65535 and 65536 are missing
    const auto request = requests.due(queue, 1000, 65540);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->from, 65535);
    EXPECT_EQ(request->last, 0);
}

TEST(BurstMeter, MeasuresFromTheEndOfABurstToTheNext) {
    BurstMeter meter;
    EXPECT_EQ(meter.longestGap(), 0u);
    meter.onPacket(1000, false);
    meter.onPacket(1500, true);
    EXPECT_EQ(meter.longestGap(), 0u);
    meter.onPacket(2000, false);
    meter.onPacket(2100, true);
    EXPECT_EQ(meter.bursts(), 2u);
    EXPECT_EQ(meter.longestGap(), 500u);
    EXPECT_EQ(meter.cycle(), 1000u);
    meter.onPacket(5000, true);
    EXPECT_EQ(meter.longestGap(), 2900u);
}

TEST(BurstMeter, IsNotMisledByStampsThatStepBack) {
    BurstMeter meter;
    meter.onPacket(1000, true);
    meter.onPacket(900, true);
    EXPECT_EQ(meter.longestGap(), 0u);
}

}  // namespace
