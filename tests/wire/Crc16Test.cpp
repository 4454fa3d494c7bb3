// The checksum of a transfer against its catalogue's value and against a slow twin.
#include "wire/Crc16.h"

#include <gtest/gtest.h>

#include <random>
#include <string_view>

#include "base/BufferCS.h"

namespace {

using VELMORA::wire::ConstBytes;
using VELMORA::wire::Crc16;
using VELMORA::wire::crc16;
using ZENNO::Bytes;

Bytes bytesOf(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

// As the catalogue has it, unreflected: every byte and the result turned round by hand.
unsigned turned(unsigned value, int bits) {
    unsigned out = 0;
    for (int bit = 0; bit < bits; ++bit) out |= (value >> bit & 1) << (bits - 1 - bit);
    return out;
}
std::uint16_t slow(const Bytes& data) {
    unsigned rest = 0xffff;
    for (const std::uint8_t byte : data) {
        rest ^= turned(byte, 8) << 8;
        for (int bit = 0; bit < 8; ++bit) {
            rest = (rest & 0x8000) != 0 ? (rest << 1 ^ 0x8005) & 0xffff : rest << 1 & 0xffff;
        }
    }
    return static_cast<std::uint16_t>(turned(rest, 16) ^ 0xffff);
}

TEST(Crc16, OfTheNineDigitsIsTheCheckValue) {
    EXPECT_EQ(crc16(bytesOf("123456789")), 0xb4c8);
    EXPECT_EQ(slow(bytesOf("123456789")), 0xb4c8);
}

TEST(Crc16, OfNothingIsZero) {
    EXPECT_EQ(crc16({}), 0);
    EXPECT_EQ(Crc16().value(), 0);
}

TEST(Crc16, OfEverySingleByteIsThatOfTheSlowTwin) {
    for (unsigned byte = 0; byte < 256; ++byte) {
        const Bytes data{static_cast<std::uint8_t>(byte)};
        EXPECT_EQ(crc16(data), slow(data)) << byte;
    }
    EXPECT_EQ(crc16(Bytes{0}), 0xbf40);
}

TEST(Crc16, OfRandomBytesIsThatOfTheSlowTwin) {
    constexpr unsigned seed = 20;
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int turn = 0; turn < 300; ++turn) {
        Bytes data(random() % 3000);
        for (std::uint8_t& byte : data) byte = static_cast<std::uint8_t>(random());
        EXPECT_EQ(crc16(data), slow(data)) << data.size() << " bytes";
    }
}

TEST(Crc16, OfPiecesIsThatOfTheWhole) {
    const Bytes data = bytesOf("in three pieces, the second of them empty");
    for (std::size_t cut = 0; cut <= data.size(); ++cut) {
        Crc16 crc;
        crc.add(ConstBytes(data).first(cut));
        crc.add({});
        crc.add(ConstBytes(data).subspan(cut));
        EXPECT_EQ(crc.value(), slow(data));
    }
}

TEST(Crc16, IsKnownToTheCompiler) {
    static constexpr std::uint8_t digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    constexpr std::uint16_t value = [] {
        Crc16 crc;
        crc.add(digits);
        return crc.value();
    }();
    static_assert(value == 0xb4c8);
}

}  // namespace
