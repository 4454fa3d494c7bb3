#include "wire/Packet.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/wire/Hex.h"

namespace {

using namespace VELMORA::wire;
using namespace velmora_test;
using ZENNO::Bytes;

struct Size {
    const char* why;
    std::size_t n;
    std::uint16_t sizeWord;
    std::size_t length, resentLength;
};
constexpr Size sizes[] = {
    {"no payload", 0, 0x0010, 16, 24},
    {"1 byte, 7 of filler", 1, 0x001f, 24, 24},
    {"2 bytes", 2, 0x001e, 24, 24},
    {"3 bytes, 5 of filler", 3, 0x001d, 24, 24},
    {"6 bytes", 6, 0x001a, 24, 24},
    {"7 bytes, one of filler", 7, 0x0019, 24, 32},
    {"8 bytes, no filler", 8, 0x0018, 24, 32},
    {"9 bytes", 9, 0x0027, 32, 32},
    {"1428, the payload of a common link", 1428, 0x05a8 | 4, 1448, 1448},
    {"one less than the largest", 65511, 0xfff9, 0xfff8, 0},
    {"the largest", 65512, 0xfff8, 0xfff8, 0},
};

TEST(SizeWord, TellsLengthAndFiller) {
    for (const Size& s : sizes) {
        SCOPED_TRACE(s.why);
        EXPECT_EQ(sizeWordFor(s.n), s.sizeWord);
        EXPECT_EQ(packetBytes(s.n), s.length);
        EXPECT_EQ(lengthInSizeWord(s.sizeWord), s.length);
        EXPECT_EQ(payloadInSizeWord(s.sizeWord), s.n);
        EXPECT_EQ(resentPacketBytes(s.n), s.resentLength);
    }
}

TEST(SizeWord, RoundTripsForEveryPayloadThatItCanTell) {
    for (std::size_t n = 0; n <= maxPayloadBytes; ++n) {
        const std::uint16_t word = sizeWordFor(n);
        ASSERT_EQ(payloadInSizeWord(word), n);
        ASSERT_EQ(lengthInSizeWord(word) % 8, 0u);
        ASSERT_EQ(lengthInSizeWord(word), n + 16 + (word & 7u));
    }
}

TEST(SizeWord, ClaimingLessThanAHeaderHasNoPayload) {
    for (unsigned word = 0; word <= 0x17; ++word) {
        EXPECT_EQ(payloadInSizeWord(static_cast<std::uint16_t>(word)), 0u) << word;
    }
}

TEST(ResentPacket, IsEightBytesLongerOnlyWherePayloadModuloEightIs0Or7) {
    for (std::size_t n = 0; n < 4096; ++n) {
        const std::size_t more = n % 8 == 0 || n % 8 == 7 ? 8 : 0;
        ASSERT_EQ(resentPacketBytes(n), packetBytes(n) + more) << n;
    }
}

TEST(Packet, IsTakenOnlyWhenSound) {
    struct Case {
        const char* why;
        std::size_t size;
        std::uint16_t magic, sizeWord;
        bool taken;
    };
    constexpr Case cases[] = {
        {"nothing", 0, 100, 16, false},
        {"one byte", 1, 100, 16, false},
        {"one byte short of a header", 15, 100, 16, false},
        {"one byte short of a header, and claiming nothing", 15, 100, 0, false},
        {"a header alone", 16, 100, 16, true},
        {"somebody else's datagram", 16, 101, 16, false},
        {"magic 0", 16, 0, 16, false},
        {"magic with its bytes swapped", 16, 0x6400, 16, false},
        {"16 bytes that claim 24", 16, 100, 24, false},
        {"23 bytes that claim 24", 23, 100, 24, false},
        {"24 bytes that claim 24", 24, 100, 24, true},
        {"filler bits do not count as length", 16, 100, 23, true},
        {"32 bytes that claim 16", 32, 100, 16, true},
        {"a claim of 0", 16, 100, 0, true},
        {"a claim of 8", 16, 100, 8, true},
        {"the largest claim, cut", 4096, 100, 0xffff, false},
        {"the largest that a stream's buffer takes in", 4096, 100, 4096, true},
        {"the largest claim", 0xfff8, 100, 0xffff, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Bytes bytes(std::max<std::size_t>(c.size, 4));
        store16(bytes, 0, c.magic);
        store16(bytes, 2, c.sizeWord);
        bytes.resize(c.size);
        bytes.shrink_to_fit();
        EXPECT_EQ(readPacket(bytes).has_value(), c.taken);
    }
}

TEST(Packet, ViewShowsTheFieldsOfItsHeader) {
    const Bytes bytes = hex("6400 1d00 0280 0381  1122334455667788  616263 0000000000");
    const auto packet = readPacket(bytes);
    ASSERT_TRUE(packet.has_value());
    EXPECT_EQ(packet->sizeWord(), 0x001d);
    EXPECT_EQ(packet->id(), 0x8002);
    EXPECT_EQ(packet->flags(), 0x8103);
    EXPECT_TRUE(packet->accepted());
    EXPECT_EQ(packet->arg16(8), 0x2211);
    EXPECT_EQ(packet->arg16(10), 0x4433);
    EXPECT_EQ(packet->arg16(12), 0x6655);
    EXPECT_EQ(packet->arg16(14), 0x8877);
    EXPECT_EQ(packet->arg64(), 0x8877'6655'4433'2211u);
    EXPECT_EQ(packet->text(), "abc");
    EXPECT_EQ(packet->payload().data(), bytes.data() + 16);
}

TEST(Packet, ArgIsOneNumberOrFour) {
    const Arg arg = argOf(0x8877'6655'4433'2211);
    EXPECT_EQ(arg, (Arg{0x2211, 0x4433, 0x6655, 0x8877}));
}

TEST(Packet, HeaderIsWrittenToTheFrontAndNowhereElse) {
    Bytes bytes(20, 0xee);
    writeHeader(bytes, 0x0010, 0x0102, 0x0304, {1, 2, 3, 4});
    EXPECT_EQ(asHex(bytes), "64001000020104030100020003000400eeeeeeee");
}

TEST(MakePacket, WithoutPayloadBeginsAsTheWord0x00100064) {
    const Bytes bytes = makePacket(4, 0);
    ASSERT_EQ(bytes.size(), 16u);
    EXPECT_EQ(load16(bytes, 0) | load16(bytes, 2) << 16, 0x00100064);
}

TEST(MakePacket, FillsUpWithZero) {
    for (std::size_t n = 0; n < 40; ++n) {
        SCOPED_TRACE(n);
        const Bytes payload(n, 0xff);
        const Bytes bytes = makePacket(1, 1, {}, payload);
        ASSERT_EQ(bytes.size() % 8, 0u);
        EXPECT_TRUE(std::all_of(bytes.begin() + 16, bytes.begin() + 16 + static_cast<int>(n),
                                [](std::uint8_t b) { return b == 0xff; }));
        EXPECT_TRUE(std::all_of(bytes.begin() + 16 + static_cast<int>(n), bytes.end(),
                                [](std::uint8_t b) { return b == 0; }));
        EXPECT_EQ(readPacket(bytes)->payload().size(), n);
    }
}

// The count of a payload has 16 bits. Whatever is handed in, a sound packet comes out and nothing
// beyond the payload is read.
TEST(MakePacket, TakesTheLengthOfItsPayloadAs16Bits) {
    struct Case {
        const char* why;
        std::size_t given, sent;
    };
    constexpr Case cases[] = {
        {"the largest that a header can tell", 65512, 65512},
        {"one more", 65513, 65512},
        {"the last count before the wrap", 65535, 65512},
        {"65,536 wrap to nothing", 65536, 0},
        {"wrapped to 5", 65541, 5},
        {"wrapped to the largest", 65536 + 65512, 65512},
        {"wrapped twice", 131'072 + 7, 7},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Bytes payload(c.given);
        for (std::size_t i = 0; i < payload.size(); ++i) {
            payload[i] = static_cast<std::uint8_t>(i * 7 + 1);
        }
        const Bytes bytes = makePacket(17, 1, {}, payload);
        const auto packet = readPacket(bytes);
        ASSERT_TRUE(packet.has_value());
        ASSERT_EQ(packet->payload().size(), c.sent);
        EXPECT_EQ(bytes.size(), lengthInSizeWord(packet->sizeWord()));
        EXPECT_TRUE(
            std::equal(packet->payload().begin(), packet->payload().end(), payload.begin()));
    }
}

}  // namespace
