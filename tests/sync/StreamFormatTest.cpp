#include "sync/StreamFormat.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/LogCapture.h"

namespace {

using namespace VELMORA;
using velmora_test::LogCapture;

constexpr std::uint64_t stereo = 0x02;
constexpr std::uint64_t dsd64 = SinkConfig::family44100 | 1ull << 41;  // 2822400
constexpr std::uint64_t allChannels = 0x3f, allRates = 0x0000'fffe'0000'0000;

constexpr std::uint64_t host(std::uint64_t bits8To31) {
    return stereo | bits8To31 | dsd64;
}
// A mask that takes the words of one DSD format with every channel code and rate.
constexpr std::uint64_t mask(std::uint64_t bits8To31) {
    return allChannels | bits8To31 | allRates;
}

constexpr std::uint64_t lsbLittle = 0x2510000, lsbBig = 0x2910000, msbLittle = 0x2610000,
                        msbBig = 0x2A10000;

// ---- what a target takes ----

TEST(SupportMasks, TakeAFormatWhenAllItsBitsAreInTheMaskOfItsFamily) {
    const SupportMasks target{stereo | 0x200 | 0x800 | allRates, mask(lsbLittle), mask(msbBig)};
    const std::uint64_t cd = SinkConfig::family44100 | 1ull << 35;
    struct Case {
        const char* why;
        std::uint64_t format;
        bool supported;
    };
    const Case cases[] = {
        {"PCM with all bits in the PCM mask", stereo | 0x200 | cd, true},
        {"PCM of a width that is missing", stereo | 0x400 | cd, false},
        {"PCM with channels that are missing", 0x01 | 0x200 | cd, false},
        {"no sample format at all", stereo | cd, false},
        {"DSD LSB", host(lsbLittle), true},
        {"DSD LSB in a word order that is missing", host(lsbBig), false},
        {"DSD MSB", host(msbBig), true},
        {"DSD MSB in a word order that is missing", host(msbLittle), false},
        {"both orders: the LSB mask alone is asked", host(lsbLittle | msbLittle), false},
        {"neither order: the union is asked", host(0x2C10000), true},
        {"4-bit DSD, which neither mask has", host(0x2520000), false},
        {"a PCM bit beside a DSD bit counts as PCM", host(lsbLittle) | 0x200, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(target.isSupported(SinkConfig(c.format)), c.supported);
    }
}

// ---- the choice ----

struct Row {
    const char* text;
    std::uint64_t host;
    std::uint64_t lsbMask, msbMask;
    std::uint64_t target;
    CopyStream conversion;
};

// Every row of the conversion table, each with masks that lead to it.
const Row rows[] = {
    {"DSD COVERT LSB littele -> LSB Big", lsbLittle, mask(lsbBig), mask(msbBig), lsbBig,
     convertSwap},
    {"DSD COVERT LSB Big -> LSB littele", lsbBig, mask(lsbLittle), mask(msbBig), lsbLittle,
     convertSwap},
    {"DSD COVERT LSB littele -> MSB Big", lsbLittle, 0, mask(msbBig), msbBig, convertReverseBytes},
    {"DSD COVERT LSB littele -> MSB Big", lsbLittle, 0, mask(msbBig | msbLittle), msbBig,
     convertReverseBytes},
    {"DSD COVERT LSB littele -> MSB littele", lsbLittle, 0, mask(msbLittle), msbLittle,
     convertReverse32},
    {"DSD COVERT LSB Big -> MSB littele", lsbBig, 0, mask(msbLittle), msbLittle,
     convertReverseBytes},
    {"DSD COVERT LSB Big -> MSB littele", lsbBig, 0, mask(msbBig | msbLittle), msbLittle,
     convertReverseBytes},
    {"DSD COVERT LSB Big -> MSB Big", lsbBig, 0, mask(msbBig), msbBig, convertReverse32},
    {"DSD COVERT MSB littele -> MSB Big", msbLittle, mask(lsbBig), mask(msbBig), msbBig,
     convertSwap},
    {"DSD COVERT MSB Big -> MSB littele", msbBig, mask(lsbBig), mask(msbLittle), msbLittle,
     convertSwap},
    {"DSD COVERT MSB littele -> LSB Big", msbLittle, mask(lsbBig), 0, lsbBig, convertReverseBytes},
    {"DSD COVERT MSB littele -> LSB Big", msbLittle, mask(lsbBig | lsbLittle), 0, lsbBig,
     convertReverseBytes},
    {"DSD COVERT MSB littele -> LSB littele", msbLittle, mask(lsbLittle), 0, lsbLittle,
     convertReverse32},
    {"DSD COVERT MSB Big -> LSB littele", msbBig, mask(lsbLittle), 0, lsbLittle,
     convertReverseBytes},
    {"DSD COVERT MSB Big -> LSB littele", msbBig, mask(lsbBig | lsbLittle), 0, lsbLittle,
     convertReverseBytes},
    {"DSD COVERT MSB Big -> LSB Big", msbBig, mask(lsbBig), 0, lsbBig, convertReverse32},
};

TEST(StreamFormat, TakesEachRoadOfADsdWordAndSaysSo) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        LogCapture log;
        const auto chosen =
            chooseStreamFormat(SinkConfig(host(row.host)), {0, row.lsbMask, row.msbMask});
        ASSERT_TRUE(chosen);
        EXPECT_EQ(chosen->sinkConfig, SinkConfig(host(row.target)));
        EXPECT_EQ(chosen->hostFormat, SinkConfig(host(row.host)));
        EXPECT_EQ(chosen->copyStream, row.conversion);
        ASSERT_EQ(log.lines().size(), 1u);
        EXPECT_EQ(log.lines()[0].level, 6);
        EXPECT_EQ(log.lines()[0].text, row.text);
    }
}

// The samples of a DSD word in the order of time, by its description alone.
std::vector<bool> samplesOf(std::uint64_t format, const std::vector<std::uint8_t>& bytes) {
    const bool lsb = (format & 1u << 20) != 0, little = (format & 1u << 22) != 0;
    std::vector<bool> samples;
    for (std::size_t at = 0; at < bytes.size(); at += 4) {
        std::uint32_t word = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            const std::size_t significance = little ? i : 3 - i;
            word |= std::uint32_t{bytes[at + i]} << (8 * significance);
        }
        for (int i = 0; i < 32; ++i) samples.push_back((word >> (lsb ? i : 31 - i) & 1) != 0);
    }
    return samples;
}

TEST(StreamFormat, NoRoadChangesTheOrderOfSamplesInTime) {
    const std::uint32_t seed = 77;
    std::mt19937 random(seed);
    std::vector<std::uint8_t> bytes(64);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        std::vector<std::uint8_t> sent(bytes.size());
        row.conversion(sent.data(), bytes.data(), bytes.size());
        EXPECT_EQ(samplesOf(row.target, sent), samplesOf(row.host, bytes)) << "seed " << seed;
        const std::vector<std::uint8_t> before = sent;
        withPolarity(row.conversion, true)(sent.data(), bytes.data(), bytes.size());
        for (std::size_t i = 0; i < sent.size(); ++i) EXPECT_EQ(sent[i] ^ before[i], 0xFF);
    }
}

TEST(StreamFormat, TakesWhatTheTargetTakesAsItStands) {
    const SupportMasks target{stereo | 0x800 | allRates, mask(lsbLittle | lsbBig), mask(msbBig)};
    const std::uint64_t cd = SinkConfig::family44100 | 1ull << 35;
    for (const std::uint64_t word :
         {stereo | 0x800 | cd, host(lsbLittle), host(lsbBig), host(msbBig)}) {
        LogCapture log;
        const auto chosen = chooseStreamFormat(SinkConfig(word), target);
        ASSERT_TRUE(chosen);
        EXPECT_EQ(chosen->sinkConfig, SinkConfig(word));
        EXPECT_EQ(chosen->hostFormat, SinkConfig(word));
        EXPECT_EQ(chosen->copyStream, CopyStream{convertCopy});
        EXPECT_TRUE(log.lines().empty());
    }
}

TEST(StreamFormat, RefusesWithoutAWord) {
    const SupportMasks dsdTarget{0, mask(lsbBig), mask(msbBig)};
    const std::uint64_t cd = SinkConfig::family44100 | 1ull << 35;
    struct Case {
        const char* why;
        std::uint64_t format;
        SupportMasks target;
    };
    const Case cases[] = {
        {"a PCM format that the target lacks", stereo | 0x800 | cd, {stereo | 0x200, 0, 0}},
        {"PCM is never converted, whatever DSD the target has", stereo | 0x800 | cd, dsdTarget},
        {"a PCM bit beside the DSD bit", host(lsbLittle) | 0x100, dsdTarget},
        {"both DSD sample formats at once", host(0x2530000), dsdTarget},
        {"a target without one-bit DSD",
         host(lsbLittle),
         {0, mask(lsbBig) & ~0x10000ull, mask(msbBig) & ~0x10000ull}},
        {"a word class other than 32 bits", host(0x1510000), dsdTarget},
        {"no word class", host(0x510000), dsdTarget},
        {"a word class with a bit too many", host(0x3510000), dsdTarget},
        {"a target that takes no 32-bit words in either order",
         host(lsbLittle),
         {0, mask(lsbBig) & ~0x2000000ull, mask(msbBig) & ~0x2000000ull}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        LogCapture log;
        EXPECT_FALSE(chooseStreamFormat(SinkConfig(c.format), c.target));
        EXPECT_TRUE(log.lines().empty());
    }
}

TEST(StreamFormat, AnLsbHostGoesToLsbAndIsNotTriedAgainWithMsb) {
    // The LSB mask lacks the rate; the MSB mask would take everything.
    const SupportMasks target{0, mask(lsbBig | lsbLittle) & ~(1ull << 41),
                              mask(msbBig | msbLittle)};
    LogCapture log;
    EXPECT_FALSE(chooseStreamFormat(SinkConfig(host(lsbLittle)), target));
    EXPECT_EQ(log.texts(6), std::vector<std::string>{"DSD COVERT LSB littele -> LSB Big"});
}

TEST(StreamFormat, AnMsbHostGoesToMsbAndIsNotTriedAgainWithLsb) {
    // The MSB mask has no Big word, which is where the swap would lead.
    const SupportMasks target{0, mask(lsbBig | lsbLittle), mask(msbLittle) & ~(1ull << 41)};
    LogCapture log;
    EXPECT_FALSE(chooseStreamFormat(SinkConfig(host(msbLittle)), target));
    EXPECT_EQ(log.texts(6), std::vector<std::string>{"DSD COVERT MSB littele -> MSB Big"});
}

TEST(StreamFormat, OneMaskWithOneBitDsdServesBoth) {
    // Bit 16 is asked of the two masks together: here only the LSB mask has it, and the road goes
    // there for want of 32-bit words in the other.
    const SupportMasks target{0, mask(lsbBig), allChannels};
    EXPECT_TRUE(chooseStreamFormat(SinkConfig(host(msbLittle)), target));
}

TEST(StreamFormat, KeepsTheChannelsAndTheRateOfTheHost) {
    const std::uint64_t eight = 0x10, dsd256of48 = SinkConfig::family48000 | 1ull << 43;
    const std::uint64_t word = eight | lsbLittle | dsd256of48;
    const auto chosen = chooseStreamFormat(SinkConfig(word), {0, mask(lsbBig), 0});
    ASSERT_TRUE(chosen);
    EXPECT_EQ(chosen->sinkConfig.word, eight | lsbBig | dsd256of48);
}

TEST(StreamFormat, FourBitDsdIsRewrittenAsOneBit) {
    const auto chosen = chooseStreamFormat(SinkConfig(host(0x2520000)), {0, mask(lsbBig), 0});
    ASSERT_TRUE(chosen);
    EXPECT_EQ(chosen->sinkConfig, SinkConfig(host(lsbBig)));
}

}  // namespace
