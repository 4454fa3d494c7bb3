#include "sync/PacketRing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

namespace {

using VELMORA::PacketRing;
using VELMORA::PacketSlot;
using VELMORA::TransferProfile;
using ZENNO::Bytes;

TEST(PacketRing, HoldsAboutASecondOfPacketsAsAPowerOfTwo) {
    struct Case {
        const char* why;
        std::uint16_t packetCount;
        std::uint32_t cycle;
        std::uint16_t size;
    };
    const Case cases[] = {
        {"3000 are rounded up", 3, 1000, 4096},
        {"a product of 1 is a power of two, but too small", 1, 1000000, 32},
        {"a cycle beyond a second", 1, 2000000, 32},
        {"a power of two stays", 4, 976, 4096},  // 1000000 / 976 = 1024
        {"one beyond it", 1, 999, 1024},         // 1001
        {"32 stays", 32, 1000000, 32},
        {"33", 33, 1000000, 64},
        {"the division is done first", 3, 600000, 32},
        {"the largest ring", 32768, 1000000, 32768},
        {"65536 does not go into 16 bits", 32769, 1000000, 0},
        {"far beyond", 65535, 1, 0},
        {"no cycle", 1, 0, 0},
        {"no packets", 0, 1000, 32},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(PacketRing::sizeFor({.cycle = c.cycle, .packetCount = c.packetCount}), c.size);
    }
}

TEST(PacketRing, FindsASlotByTheMaskedSequence) {
    PacketRing ring(32, 100);
    EXPECT_EQ(ring.size(), 32u);
    EXPECT_EQ(&ring.at(0), &ring.at(32));
    EXPECT_EQ(&ring.at(31), &ring.at(65535)) << "sequence numbers wrap without a special step";
    EXPECT_NE(&ring.at(0), &ring.at(31));
}

TEST(PacketRing, TakesMemoryForTheLargestPacketOfAnyRow) {
    struct Case {
        const char* why;
        TransferProfile first, second;
        std::uint16_t maxPacketSize;
        std::uint64_t largest;
    };
    const Case cases[] = {
        {"the limit of a packet", {.fixedBytes = 360}, {}, 1428, 1428},
        {"a fixed payload beyond it", {}, {.fixedBytes = 2000}, 1428, 2000},
        {"prefilled silence beyond it", {.framesQ14 = 200 << 14}, {}, 1428, 1600},
        {"less than that of a plain Ethernet", {.framesQ14 = 44 << 14}, {}, 500, 500},
        {"what a target could take beyond", {.framesQ14 = 44 << 14}, {}, 65526, 1428},
        {"as much of it as feedback can ask for", {.framesQ14 = 800 << 14}, {}, 8928, 6592},
        {"and no more than a packet holds", {.framesQ14 = 800 << 14}, {}, 6432, 6432},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const TransferProfile rows[] = {c.first, c.second};
        EXPECT_EQ(PacketRing::largestPayload(rows, c.maxPacketSize, 8), c.largest);
    }
}

TEST(PacketRing, IsAsLargeAsItsSlotsAndNoLargerThanThreeSecondsOrSoMuch) {
    const TransferProfile rows[] = {{.cycle = 400, .framesQ14 = 44 << 14, .packetCount = 1},
                                    {.cycle = 30000, .fixedBytes = 2000, .packetCount = 1}};
    EXPECT_EQ(PacketRing::bytesFor(rows, 1428, 8), 4096u * 2024);
    EXPECT_EQ(PacketRing::bytesFor({rows, 1}, 1428, 8), 4096u * 1448);
    EXPECT_EQ(PacketRing::bytesFor({rows, 1}, 65526, 8), 4096u * 1448);
    const TransferProfile longest[] = {{.cycle = 400, .fixedBytes = 70000, .packetCount = 1}};
    EXPECT_EQ(PacketRing::bytesFor(longest, 1428, 8), 4096u * 65528) << "what a header can tell";
    EXPECT_EQ(PacketRing::mostBytesFor(352800), 134217728u);
    EXPECT_EQ(PacketRing::mostBytesFor(98304000), 294912000u);
}

TEST(PacketSlot, ANewOneIsAValidEmptyPacket) {
    PacketSlot slot(1428);
    EXPECT_EQ(slot.buffer, (Bytes{100, 0, 16, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(slot.size, 16u);
    EXPECT_EQ(slot.payloadSize, 0u);
    EXPECT_EQ(slot.last, 0);
    EXPECT_EQ(slot.data, slot.buffer.data());
    slot.makeResendForm();
    EXPECT_EQ(slot.buffer.size(), 24u);
}

TEST(PacketSlot, IsBuiltAsADataPacket) {
    PacketSlot slot(1428);
    slot.begin(0x1234, 3);
    const Bytes audio{0xaa, 0xbb, 0xcc};
    std::ranges::copy(audio, slot.payload().begin());
    slot.finish();
    EXPECT_EQ(slot.buffer, (Bytes{100, 0, 0x1d, 0, 10,   0,    0,    0, 0x34, 0x12, 0, 0,
                                  0,   0, 0,    0, 0xaa, 0xbb, 0xcc, 0, 0,    0,    0, 0}));
}

struct SizeCase {
    const char* why;
    std::uint64_t n;
    std::uint16_t sizeWord;
    std::size_t first, again;  // datagram bytes, new and sent again
};
constexpr SizeCase sizeCases[] = {
    {"no payload: 8 zero bytes more again", 0, 0x10, 16, 24},
    {"1", 1, 0x18 | 7, 24, 24},
    {"3", 3, 0x18 | 5, 24, 24},
    {"6", 6, 0x18 | 2, 24, 24},
    {"7: 8 zero bytes more again", 7, 0x18 | 1, 24, 32},
    {"8: 8 zero bytes more again", 8, 0x18, 24, 32},
    {"9", 9, 0x20 | 7, 32, 32},
    {"14", 14, 0x20 | 2, 32, 32},
    {"15: 8 zero bytes more again", 15, 0x20 | 1, 32, 40},
    {"the largest of this slot", 1428, 1448 | 4, 1448, 1448},
};

TEST(PacketSlot, SizesFollowThePayload) {
    for (const SizeCase& c : sizeCases) {
        SCOPED_TRACE(c.why);
        PacketSlot slot(1428);
        slot.begin(7, c.n);
        std::ranges::fill(slot.payload(), std::uint8_t{0xee});
        slot.finish();
        EXPECT_EQ(slot.buffer[2] | slot.buffer[3] << 8, c.sizeWord);
        EXPECT_EQ(slot.buffer.size(), c.first);
        EXPECT_EQ(slot.size, c.first);

        Bytes expected = slot.buffer;
        expected.resize(c.again);  // with zeros
        for (int round = 0; round < 2; ++round) {
            slot.makeResendForm();
            EXPECT_EQ(slot.buffer, expected) << "audio whole, zeros behind it";
            EXPECT_EQ(slot.size, c.first);
            EXPECT_EQ(slot.payloadSize, c.n);
            EXPECT_EQ(slot.header[2] | slot.header[3] << 8, c.sizeWord);
        }
    }
}

TEST(PacketSlot, LeavesZerosWhereAConversionWroteNothing) {
    PacketSlot slot(100);
    slot.begin(0, 16);
    std::ranges::fill(slot.payload(), std::uint8_t{0xee});
    slot.begin(1, 11);  // the same memory: a word-wise conversion writes 8 of 11 bytes
    std::fill_n(slot.payload().begin(), 8, std::uint8_t{0xaa});
    slot.finish();
    EXPECT_EQ(std::accumulate(slot.buffer.begin() + 24, slot.buffer.end(), 0), 0);
}

TEST(PacketSlot, NeverMovesItsMemory) {
    for (std::uint64_t largest : {0u, 1u, 7u, 8u, 1423u, 1424u, 1428u, 8928u}) {
        PacketSlot slot(largest);
        const std::uint8_t* at = slot.data;
        for (std::uint64_t n = largest < 9 ? 0 : largest - 9; n <= largest + 9; ++n) {
            slot.begin(0, n);
            EXPECT_EQ(slot.payloadSize, std::min(n, largest));
            slot.makeResendForm();
            EXPECT_EQ(slot.data, at);
        }
    }
}

TEST(PacketSlot, TakesNoMoreThanAHeaderCanTell) {
    PacketSlot slot(1u << 20);
    slot.begin(0, 1u << 20);
    EXPECT_EQ(slot.payloadSize, 65510u);
    EXPECT_EQ(slot.buffer.size(), 65528u);
    slot.makeResendForm();
    EXPECT_EQ(slot.buffer.size(), 65528u);
}

}  // namespace
