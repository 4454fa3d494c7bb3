#include "sync/Convert.h"

#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "sync/WordLoops.h"

namespace {

using namespace VELMORA;
using Bytes = std::vector<std::uint8_t>;

// ---- slow twins, a byte at a time ----

std::uint8_t reversed(std::uint8_t byte) {
    std::uint8_t out = 0;
    for (int bit = 0; bit < 8; ++bit) {
        if ((byte >> bit & 1) != 0) out = static_cast<std::uint8_t>(out | 1 << (7 - bit));
    }
    return out;
}

struct Conversion {
    const char* name;
    CopyStream function;
    bool wordWise;
    bool turnBytes;  // byte i comes from byte 3 - i of its word
    bool turnBits;
    bool invert;
};

constexpr Conversion conversions[] = {
    {"convertCopy", convertCopy, false, false, false, false},
    {"convertInvert", convertInvert, false, false, false, true},
    {"convertSwap", convertSwap, true, true, false, false},
    {"convertSwapInvert", convertSwapInvert, true, true, false, true},
    {"convertReverse32", convertReverse32, true, true, true, false},
    {"convertReverse32Invert", convertReverse32Invert, true, true, true, true},
    {"convertReverseBytes", convertReverseBytes, true, false, true, false},
    {"convertReverseBytesInvert", convertReverseBytesInvert, true, false, true, true},
};

std::size_t written(const Conversion& c, std::size_t count) {
    return c.wordWise ? count / 4 * 4 : count;
}

void slow(const Conversion& c, Bytes& to, std::size_t at, const Bytes& from, std::size_t fromAt,
          std::size_t count) {
    for (std::size_t i = 0; i < written(c, count); ++i) {
        const std::size_t source = c.turnBytes ? i - i % 4 + 3 - i % 4 : i;
        std::uint8_t byte = from[fromAt + source];
        if (c.turnBits) byte = reversed(byte);
        if (c.invert) byte = static_cast<std::uint8_t>(~byte);
        to[at + i] = byte;
    }
}

Bytes run(CopyStream function, const Bytes& from) {
    Bytes to(from.size(), 0xA5);
    function(to.data(), from.data(), from.size());
    return to;
}

TEST(Convert, TurnsOneWordAsItsTableSays) {
    const Bytes word = {0x11, 0x22, 0x33, 0x44};
    struct Case {
        const char* why;
        CopyStream function;
        Bytes expected;
    };
    const Case cases[] = {
        {"copy", convertCopy, {0x11, 0x22, 0x33, 0x44}},
        {"invert", convertInvert, {0xEE, 0xDD, 0xCC, 0xBB}},
        {"swap", convertSwap, {0x44, 0x33, 0x22, 0x11}},
        {"swap and invert", convertSwapInvert, {0xBB, 0xCC, 0xDD, 0xEE}},
        {"reverse 32", convertReverse32, {0x22, 0xCC, 0x44, 0x88}},
        {"reverse 32 and invert", convertReverse32Invert, {0xDD, 0x33, 0xBB, 0x77}},
        {"reverse bytes", convertReverseBytes, {0x88, 0x44, 0xCC, 0x22}},
        {"reverse bytes and invert", convertReverseBytesInvert, {0x77, 0xBB, 0x33, 0xDD}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(run(c.function, word), c.expected);
    }
}

TEST(Convert, OfSevenBytesTheWordWiseOnesWriteFourAndTheOthersSeven) {
    const Bytes from = {1, 2, 3, 4, 5, 6, 7};
    for (const Conversion& c : conversions) {
        SCOPED_TRACE(c.name);
        const Bytes to = run(c.function, from);
        Bytes expected(7, 0xA5);
        slow(c, expected, 0, from, 0, 7);
        EXPECT_EQ(to, expected);
        for (std::size_t i = c.wordWise ? 4 : 7; i < 7; ++i) EXPECT_EQ(to[i], 0xA5);
    }
}

TEST(Convert, OfNothingWritesNothing) {
    for (const Conversion& c : conversions) {
        SCOPED_TRACE(c.name);
        std::uint8_t to = 0xA5;
        const std::uint8_t from = 1;
        c.function(&to, &from, 0);
        EXPECT_EQ(to, 0xA5);
        c.function(nullptr, nullptr, 0);
    }
}

TEST(Convert, ReversesEveryByteThereIs) {
    Bytes all(256);
    for (std::size_t i = 0; i < 256; ++i) all[i] = static_cast<std::uint8_t>(i);
    const Bytes plain = run(convertReverseBytes, all);
    const Bytes inverted = run(convertReverseBytesInvert, all);
    for (std::size_t i = 0; i < 256; ++i) {
        EXPECT_EQ(plain[i], reversed(all[i]));
        EXPECT_EQ(inverted[i], static_cast<std::uint8_t>(~reversed(all[i])));
    }
}

TEST(Convert, AgreesWithItsSlowTwinAtEveryLengthAndAlignment) {
    const std::uint32_t seed = 20240611;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Bytes from(128);
    for (auto& byte : from) byte = static_cast<std::uint8_t>(random());
    for (const Conversion& c : conversions) {
        for (std::size_t count = 0; count <= 72; ++count) {
            for (std::size_t fromAt = 0; fromAt < 9; ++fromAt) {
                for (std::size_t at = 0; at < 9; ++at) {
                    Bytes to(96, 0xA5), expected(96, 0xA5);
                    c.function(to.data() + at, from.data() + fromAt, count);
                    slow(c, expected, at, from, fromAt, count);
                    ASSERT_EQ(to, expected) << c.name << " count " << count << " from " << fromAt
                                            << " to " << at << " seed " << seed;
                }
            }
        }
    }
}

// The loops of both kinds, whichever this machine would choose.
TEST(WordLoops, AgreeWithTheSlowTwinsAtEveryLengthAndAlignment) {
    struct Set {
        const char* why;
        const WordLoops* loops;
    };
    const Set sets[] = {{"plain", &plainWordLoops}, {"wide, if there is one", wideWordLoops()}};
    std::mt19937 random(7);
    Bytes from(256);
    for (auto& byte : from) byte = static_cast<std::uint8_t>(random());
    for (const Set& set : sets) {
        if (set.loops == nullptr) continue;
        SCOPED_TRACE(set.why);
        const WordLoops::Loop loops[] = {set.loops->swap,         set.loops->swapInvert,
                                         set.loops->reverse32,    set.loops->reverse32Invert,
                                         set.loops->reverseBytes, set.loops->reverseBytesInvert};
        for (std::size_t k = 0; k < std::size(loops); ++k) {
            const Conversion& c = conversions[2 + k];
            for (std::size_t count = 0; count <= 150; ++count) {
                for (std::size_t fromAt = 0; fromAt < 17; fromAt += 3) {
                    for (std::size_t at = 0; at < 17; at += 5) {
                        Bytes to(192, 0xA5), expected(192, 0xA5);
                        loops[k](to.data() + at, from.data() + fromAt, count);
                        slow(c, expected, at, from, fromAt, count);
                        ASSERT_EQ(to, expected)
                            << c.name << " count " << count << " from " << fromAt << " to " << at;
                    }
                }
            }
        }
    }
}

TEST(WordLoops, TheBestAreTheWideOnesWhereTheProcessorHasThem) {
    const WordLoops* wide = wideWordLoops();
    EXPECT_EQ(&bestWordLoops(), wide != nullptr ? wide : &plainWordLoops);
}

TEST(Convert, CopiesBetweenPlacesThatOverlap) {
    for (const int shift : {-5, -1, 0, 1, 5}) {
        SCOPED_TRACE(shift);
        Bytes bytes(40);
        for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i);
        const Bytes before(bytes.begin() + 8, bytes.begin() + 28);
        std::uint8_t* const to = bytes.data() + 8 + shift;
        convertCopy(to, bytes.data() + 8, 20);
        EXPECT_EQ(Bytes(to, to + 20), before);
    }
}

TEST(Convert, EachFamilyKeepsItsPolarityPair) {
    struct Case {
        const char* why;
        CopyStream normal, inverted;
    };
    const Case cases[] = {
        {"copy", convertCopy, convertInvert},
        {"swap", convertSwap, convertSwapInvert},
        {"reverse 32", convertReverse32, convertReverse32Invert},
        {"reverse bytes", convertReverseBytes, convertReverseBytesInvert},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        for (const CopyStream now : {c.normal, c.inverted}) {
            EXPECT_EQ(withPolarity(now, false), c.normal);
            EXPECT_EQ(withPolarity(now, true), c.inverted);
        }
    }
}

TEST(Convert, APolarityChangeOfAStrangerGoesToThePlainPair) {
    const CopyStream stranger = [](std::uint8_t*, const std::uint8_t*, std::uint64_t) {};
    EXPECT_EQ(withPolarity(stranger, false), CopyStream{convertCopy});
    EXPECT_EQ(withPolarity(stranger, true), CopyStream{convertInvert});
    EXPECT_EQ(withPolarity(nullptr, false), CopyStream{convertCopy});
}

}  // namespace
