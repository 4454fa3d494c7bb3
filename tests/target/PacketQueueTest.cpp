#include "target/PacketQueue.h"

#include <gtest/gtest.h>

namespace {

using velmora_target::PacketQueue;
using Put = PacketQueue::Put;
using ZENNO::Bytes;

Bytes audio(std::uint8_t value, std::size_t size = 4) {
    return Bytes(size, value);
}
Bytes takeAll(PacketQueue& queue) {
    Bytes out;
    queue.take(static_cast<std::size_t>(-1), out);
    return out;
}

TEST(PacketQueue, IsEmptyAtFirst) {
    PacketQueue queue(0);
    EXPECT_EQ(queue.bytes(), 0u);
    EXPECT_TRUE(takeAll(queue).empty());
    EXPECT_TRUE(queue.holes().empty());
}

TEST(PacketQueue, GivesPacketsInOrderWhateverTheirArrival) {
    PacketQueue queue(0);
    EXPECT_EQ(queue.put(0, audio(1), 0), Put::newest);
    EXPECT_EQ(queue.put(3, audio(4), 1), Put::newest);
    EXPECT_EQ(queue.put(2, audio(3), 2), Put::filled);
    EXPECT_EQ(queue.put(1, audio(2), 3), Put::filled);
    EXPECT_EQ(takeAll(queue), (Bytes{1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4}));
    EXPECT_EQ(queue.lost(), 0u);
}

TEST(PacketQueue, MissesTheFirstPacketsOfAStream) {
    PacketQueue queue(0);
    queue.put(2, audio(3), 0);
    EXPECT_EQ(queue.holes().size(), 2u);
    EXPECT_EQ(queue.holes().begin()->first, 0);
    EXPECT_EQ(queue.bytes(), 12u);
}

TEST(PacketQueue, PlaysSilenceOfItsNeighboursLengthForALostPacket) {
    PacketQueue queue(0x69);
    queue.put(0, audio(1), 0);
    queue.put(2, audio(3), 0);
    EXPECT_EQ(takeAll(queue), (Bytes{1, 1, 1, 1, 0x69, 0x69, 0x69, 0x69, 3, 3, 3, 3}));
    EXPECT_EQ(queue.lost(), 1u);
    EXPECT_TRUE(queue.holes().empty());
}

TEST(PacketQueue, TellsDuplicateLateAndRecoveredApart) {
    PacketQueue queue(0);
    queue.put(0, audio(1), 0);
    EXPECT_EQ(queue.put(0, audio(9), 0), Put::duplicate);  // held
    queue.put(2, audio(3), 0);
    queue.put(4, audio(5), 0);
    queue.markAsked(1);
    EXPECT_EQ(queue.put(3, audio(4), 0), Put::recovered);
    EXPECT_EQ(queue.put(3, audio(9), 0), Put::duplicate);
    Bytes out;
    queue.take(8, out);                                    // 0, and 1 as silence
    EXPECT_EQ(queue.put(0, audio(9), 0), Put::duplicate);  // played
    EXPECT_EQ(queue.put(1, audio(9), 0), Put::late);
    EXPECT_EQ(queue.put(1, audio(9), 0), Put::duplicate);  // late but once
    EXPECT_EQ(takeAll(queue), (Bytes{3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5}));
}

TEST(PacketQueue, TakesPartsOfPackets) {
    PacketQueue queue(0);
    queue.put(0, Bytes{1, 2, 3, 4}, 0);
    queue.put(1, Bytes{5, 6, 7, 8}, 0);
    Bytes out;
    EXPECT_EQ(queue.take(3, out), 3u);
    EXPECT_EQ(queue.bytes(), 5u);
    EXPECT_EQ(queue.take(3, out), 3u);
    EXPECT_EQ(queue.take(9, out), 2u);
    EXPECT_EQ(out, (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(PacketQueue, APacketWhoseSilenceHasBegunIsLate) {
    PacketQueue queue(0);
    queue.put(1, audio(2), 0);
    Bytes out;
    queue.take(1, out);
    EXPECT_EQ(queue.lost(), 1u);
    EXPECT_NE(queue.put(0, audio(1), 0), Put::recovered);
    EXPECT_EQ(takeAll(queue), (Bytes{0, 0, 0, 2, 2, 2, 2}));
}

TEST(PacketQueue, PassesPacketsWithoutAudio) {
    PacketQueue queue(0);
    queue.put(0, {}, 0);
    queue.put(1, audio(2), 0);
    queue.put(2, {}, 0);
    EXPECT_EQ(takeAll(queue), audio(2));
    EXPECT_EQ(queue.put(1, audio(2), 0), Put::duplicate);
    EXPECT_EQ(queue.nextSequence(), 3);
}

TEST(PacketQueue, CountsOnAcrossTheWrapOfTheSequence) {
    PacketQueue queue(0);
    Bytes out;
    for (std::uint32_t i = 0; i < 200'000; ++i) {
        // Every seventh packet comes behind its follower.
        const std::uint32_t number = i % 7 == 5 ? i + 1 : i % 7 == 6 ? i - 1 : i;
        const auto put = queue.put(static_cast<std::uint16_t>(number),
                                   audio(static_cast<std::uint8_t>(number), 1), i);
        ASSERT_EQ(put, i % 7 == 6 ? Put::filled : Put::newest) << i;
        if (i >= 20) queue.take(1, out);
    }
    queue.take(100, out);
    ASSERT_EQ(out.size(), 200'000u + (200'000 % 7 == 6 ? 1 : 0));
    for (std::size_t i = 0; i < out.size() - 1; ++i) {
        ASSERT_EQ(out[i], static_cast<std::uint8_t>(i)) << i;
    }
    EXPECT_LE(queue.lost(), 1u);
}

TEST(PacketQueue, AHoleIsAsOldAsTheArrivalBeforeIt) {
    PacketQueue queue(0);
    queue.put(0, audio(1), 1000);
    queue.put(1, audio(1), 2000);
    queue.put(4, audio(1), 9000);
    ASSERT_EQ(queue.holes().size(), 2u);
    EXPECT_EQ(queue.holes().at(2).since, 2000u);
    EXPECT_EQ(queue.holes().at(3).since, 2000u);
}

TEST(PacketQueue, MarksHolesFromANumberOn) {
    PacketQueue queue(0);
    queue.put(0, audio(1), 0);
    queue.put(5, audio(1), 0);
    queue.markAsked(3);
    EXPECT_FALSE(queue.holes().at(2).asked);
    EXPECT_TRUE(queue.holes().at(3).asked);
    EXPECT_TRUE(queue.holes().at(4).asked);
}

TEST(PacketQueue, NumbersBeforeTheFirstAreDuplicates) {
    PacketQueue queue(0);
    EXPECT_EQ(queue.put(0xfff0, audio(1), 0), Put::duplicate);
    EXPECT_EQ(queue.bytes(), 0u);
}

}  // namespace
