#include "driver/SinkConfig.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace {

using VELMORA::silenceByte;
using VELMORA::SinkConfig;

constexpr std::uint64_t bit(int n) {
    return std::uint64_t{1} << n;
}

TEST(SinkConfig, IsAllZeroAtFirstAndThenHasNoRateTwoChannelsAndSixteenBits) {
    const SinkConfig config;
    EXPECT_EQ(config.word, 0u);
    EXPECT_EQ(config.rate(), 0u);
    EXPECT_EQ(config.baseRate(), 0u);
    EXPECT_EQ(config.channels(), 2u);
    EXPECT_EQ(config.bitsPerSample(), 16u);
    EXPECT_EQ(config.bytesPerSample(), 2u);
    EXPECT_EQ(config.frameBytes(), 4u);
    EXPECT_FALSE(config.isValid());
    EXPECT_FALSE(config.isPcm());
    EXPECT_FALSE(config.isDsd());
}

TEST(SinkConfig, CountsChannelsByCodeAndTakesTwoForAnyOther) {
    struct Case {
        const char* why;
        std::uint64_t word;
        std::uint32_t channels;
    };
    constexpr Case cases[] = {
        {"one", 0x01, 1},
        {"two", 0x02, 2},
        {"four", 0x04, 4},
        {"six", 0x08, 6},
        {"eight", 0x10, 8},
        {"sixteen", 0x20, 16},
        {"no code", 0x00, 2},
        {"the code behind the last", 0x40, 2},
        {"the last bit of the field", 0x80, 2},
        {"a union of codes is a set, not a count", 0x03, 2},
        {"all other fields set", 0xffff'ffff'ffff'ff01, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(SinkConfig(c.word).channels(), c.channels);
    }
}

struct FormatCase {
    const char* why;
    std::uint64_t word;
    std::uint32_t bits, bytes;
    bool pcm, dsd;
};
constexpr FormatCase formatCases[] = {
    {"PCM 8", 0x00100, 8, 1, true, false},
    {"PCM 16", 0x00200, 16, 2, true, false},
    {"PCM 24", 0x00400, 24, 3, true, false},
    {"PCM 32", 0x00800, 32, 4, true, false},
    {"PCM 64", 0x01000, 64, 8, true, false},
    {"float 32", 0x02000, 32, 4, true, false},
    {"float 64", 0x04000, 64, 8, true, false},
    {"DSD of word class 2", 0x0201'0000, 1, 4, false, true},
    {"DSD without a word class", 0x10000, 1, 2, false, true},
    {"DSD of another word class", 0x0301'0000, 1, 2, false, true},
    {"4-bit DSD of word class 2", 0x0202'0000, 4, 4, false, true},
    {"4-bit DSD without a word class", 0x20000, 4, 2, false, true},
    {"PCM in a word of DSD's class", 0x0200'0400, 24, 3, true, false},
    {"no format", 0, 16, 2, false, false},
    {"bit 15 alone", 0x08000, 16, 2, true, false},
    {"bit 18 alone", 0x40000, 16, 2, false, true},
    {"bit 19 alone", 0x80000, 16, 2, false, true},
    {"a union of PCM formats", 0x00600, 16, 2, true, false},
    {"both kinds of DSD", 0x0203'0000, 16, 2, false, true},
    {"PCM and DSD", 0x0201'0100, 16, 2, true, false},
};

TEST(SinkConfig, MeasuresASampleByItsFormat) {
    for (const FormatCase& c : formatCases) {
        SCOPED_TRACE(c.why);
        // Channels and rate have no say in it.
        for (const std::uint64_t others : {std::uint64_t{0}, bit(34) | bit(35) | 0x02}) {
            const SinkConfig config(c.word | others);
            EXPECT_EQ(config.bitsPerSample(), c.bits);
            EXPECT_EQ(config.bytesPerSample(), c.bytes);
            EXPECT_EQ(config.isPcm(), c.pcm);
            EXPECT_EQ(config.isDsd(), c.dsd);
        }
    }
}

TEST(SinkConfig, AFrameIsOneSampleOfEveryChannel) {
    EXPECT_EQ(SinkConfig(0x0400 | 0x08).frameBytes(), 18u);  // 3 bytes, six channels
    EXPECT_EQ(SinkConfig(0x0251'0000 | 0x02).frameBytes(), 8u);
}

TEST(SinkConfig, HasARateOnlyWhereFamilyAndMultiplierMakeOne) {
    struct Case {
        const char* why;
        std::uint64_t word;
        std::uint32_t base, rate;
    };
    constexpr Case cases[] = {
        {"44100 x1", bit(33) | bit(35), 44'100, 44'100},
        {"44100 x64", bit(33) | bit(41), 44'100, 2'822'400},
        {"44100 x4096", bit(33) | bit(47), 44'100, 180'633'600},
        {"48000 x1", bit(34) | bit(35), 48'000, 48'000},
        {"48000 x4", bit(34) | bit(37), 48'000, 192'000},
        {"48000 x4096", bit(34) | bit(47), 48'000, 196'608'000},
        {"without a multiplier bit the rate is 0", bit(33), 44'100, 0},
        {"without a multiplier bit the rate is 0, 48000", bit(34), 48'000, 0},
        {"8000 has a base without a multiplier, and never a rate", bit(32), 8000, 0},
        {"8000 x1 has neither", bit(32) | bit(35), 0, 0},
        {"8000 x4096 has neither", bit(32) | bit(47), 0, 0},
        {"a multiplier without a family", bit(35), 0, 0},
        {"two families are a set, not a rate", bit(33) | bit(34) | bit(35), 0, 0},
        {"8000 beside another family", bit(32) | bit(34) | bit(35), 0, 0},
        {"bits behind the rate have no say", bit(48) | bit(63) | bit(34) | bit(36), 48'000, 96'000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(SinkConfig(c.word).baseRate(), c.base);
        EXPECT_EQ(SinkConfig(c.word).rate(), c.rate);
        // Nor have channels and format.
        EXPECT_EQ(SinkConfig(c.word | 0xffff'ffff).rate(), c.rate);
    }
}

TEST(SinkConfig, WritesEveryRateOfBothFamiliesAndReadsItBack) {
    constexpr std::tuple<std::uint32_t, int> families[] = {{44'100, 33}, {48'000, 34}};
    for (const auto& [base, family] : families) {
        for (int power = 0; power <= 12; ++power) {
            const std::uint32_t hz = base << power;
            SCOPED_TRACE(std::to_string(hz));
            SinkConfig config(0xdead'ffff'0251'0402);
            ASSERT_TRUE(config.setRate(hz));
            EXPECT_EQ(config.word, 0xdead'0000'0251'0402 | bit(family) | bit(35 + power));
            EXPECT_EQ(config.rate(), hz);
        }
    }
}

TEST(SinkConfig, Writes8000AsItsFamilyBitAlone) {
    SinkConfig config(0xffff'ffff'ffff'ffff);
    EXPECT_TRUE(config.setRate(8000));
    EXPECT_EQ(config.word, 0xffff'0001'ffff'ffff);
    EXPECT_EQ(config.baseRate(), 8000u);
    EXPECT_EQ(config.rate(), 0u);
}

TEST(SinkConfig, RefusesARateThatCannotBeWrittenAndStaysAsItWas) {
    for (const std::uint32_t hz :
         {0u, 1u, 7999u, 8001u, 16'000u, 22'050u, 32'000u, 44'099u, 44'101u, 64'000u, 132'300u,
          144'000u, 361'267'200u, 393'216'000u, 0xffff'ffffu}) {
        SCOPED_TRACE(hz);
        SinkConfig config(0x1234'000a'0000'0402);
        EXPECT_FALSE(config.setRate(hz));
        EXPECT_EQ(config.word, 0x1234'000a'0000'0402u);
    }
}

TEST(SinkConfig, WritesTheSixChannelCountsAndNoOther) {
    for (std::uint32_t count = 0; count < 40; ++count) {
        SCOPED_TRACE(count);
        const bool known =
            count == 1 || count == 2 || count == 4 || count == 6 || count == 8 || count == 16;
        SinkConfig config(0xaaaa'bbbb'cccc'ddff);
        EXPECT_EQ(config.setChannels(count), known);
        EXPECT_EQ(config.word >> 8, 0xaaaa'bbbb'cccc'ddu);
        if (known) {
            EXPECT_EQ(config.channels(), count);
        } else {
            EXPECT_EQ(config.word & 0xff, 0xffu);
        }
    }
}

TEST(SinkConfig, IsValidOnlyWhenEveryFieldIsSound) {
    constexpr std::uint64_t rate48 = bit(34) | bit(35), dsd64 = bit(33) | bit(41);
    struct Case {
        const char* why;
        std::uint64_t word;
        bool valid;
    };
    constexpr Case cases[] = {
        {"PCM 8", rate48 | 0x00102, true},
        {"PCM 16", rate48 | 0x00202, true},
        {"PCM 24", rate48 | 0x00402, true},
        {"PCM 32", rate48 | 0x00802, true},
        {"PCM 64", rate48 | 0x01002, true},
        {"float 32", rate48 | 0x02002, true},
        {"float 64", rate48 | 0x04002, true},
        {"no format", rate48 | 0x00002, false},
        {"bit 15", rate48 | 0x08002, false},
        {"two PCM formats", rate48 | 0x00602, false},
        {"PCM integer and float", rate48 | 0x02802, false},
        {"PCM without a rate is not refused here", 0x00402, true},
        {"PCM of the 8000 family", bit(32) | 0x00202, true},
        {"one channel", rate48 | 0x00401, true},
        {"sixteen channels", rate48 | 0x00420, true},
        {"no channel code", rate48 | 0x00400, false},
        {"two channel codes", rate48 | 0x00403, false},
        {"channel code 0x40", rate48 | 0x00440, false},
        {"PCM with DSD's bit 20", rate48 | 0x00402 | bit(20), false},
        {"PCM with DSD's bit 23", rate48 | 0x00402 | bit(23), false},
        {"PCM with DSD's word class", rate48 | 0x0200'0402, false},
        {"PCM with bit 31", rate48 | 0x00402 | bit(31), false},
        {"bits 48..63 are nobody's", rate48 | 0x00402 | 0xffff'0000'0000'0000, true},

        {"DSD, LSB first, little-endian", dsd64 | 0x0251'0002, true},
        {"DSD, LSB first, big-endian", dsd64 | 0x0291'0002, true},
        {"DSD, MSB first, little-endian", dsd64 | 0x0261'0002, true},
        {"DSD, MSB first, big-endian", dsd64 | 0x02a1'0002, true},
        {"4-bit DSD", dsd64 | 0x0252'0002, true},
        {"both kinds of DSD", dsd64 | 0x0253'0002, false},
        {"DSD with both bit orders", dsd64 | 0x0271'0002, false},
        {"DSD with no bit order", dsd64 | 0x0241'0002, false},
        {"DSD with both word orders", dsd64 | 0x02d1'0002, false},
        {"DSD with no word order", dsd64 | 0x0211'0002, false},
        {"DSD without a word class", dsd64 | 0x0051'0002, false},
        {"DSD of word class 3", dsd64 | 0x0351'0002, false},
        {"DSD and PCM", dsd64 | 0x0251'0102, false},
        {"DSD with bit 18", dsd64 | 0x0255'0002, false},
        {"DSD at the lowest rate of the other family", bit(34) | bit(41) | 0x0251'0002, true},
        {"DSD below 2822400", bit(33) | bit(40) | 0x0251'0002, false},
        {"DSD below 2822400, 48000 x32", bit(34) | bit(40) | 0x0251'0002, false},
        {"DSD at the highest rate", bit(34) | bit(47) | 0x0251'0002, true},
        {"DSD without a rate", 0x0251'0002, false},
        {"DSD without a channel code", dsd64 | 0x0251'0000, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(SinkConfig(c.word).isValid(), c.valid);
    }
}

TEST(SinkConfig, NamesTheFourDsdFormatsByTheirWords) {
    EXPECT_EQ(SinkConfig::dsdLsbLittle,
              SinkConfig::dsd1 | SinkConfig::dsdLsb | SinkConfig::dsdLittle | SinkConfig::dsdClass);
    EXPECT_EQ(SinkConfig::dsdLsbBig,
              SinkConfig::dsd1 | SinkConfig::dsdLsb | SinkConfig::dsdBig | SinkConfig::dsdClass);
    EXPECT_EQ(SinkConfig::dsdMsbLittle,
              SinkConfig::dsd1 | SinkConfig::dsdMsb | SinkConfig::dsdLittle | SinkConfig::dsdClass);
    EXPECT_EQ(SinkConfig::dsdMsbBig,
              SinkConfig::dsd1 | SinkConfig::dsdMsb | SinkConfig::dsdBig | SinkConfig::dsdClass);
}

TEST(SinkConfig, HasBitsOnlyWhenItHasAllOfThem) {
    const SinkConfig mask(0x0000'001a'0000'0603);
    EXPECT_TRUE(mask.has(0x0000'0008'0000'0402));
    EXPECT_FALSE(mask.has(0x0000'0008'0000'0802));
    EXPECT_TRUE(mask.has(0));
}

TEST(SilenceByte, FollowsTheKindOfTheStreamItsBitOrderAndItsPolarity) {
    struct Case {
        const char* why;
        std::uint64_t word;
        std::uint8_t normal, inverted;
    };
    constexpr Case cases[] = {
        {"PCM integer", 0x00402, 0x00, 0xff},
        {"floating point", 0x02002, 0x00, 0xff},
        {"no format", 0, 0x00, 0xff},
        {"DSD, LSB first", 0x0251'0002, 0x69, 0x96},
        {"DSD, LSB first, big-endian", 0x0291'0002, 0x69, 0x96},
        {"DSD, MSB first", 0x0261'0002, 0x96, 0x69},
        {"DSD, MSB first, big-endian", 0x02a1'0002, 0x96, 0x69},
        {"DSD without a bit order counts as not LSB first", 0x0001'0002, 0x96, 0x69},
        {"4-bit DSD, LSB first", 0x0252'0002, 0x69, 0x96},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(silenceByte(SinkConfig(c.word), /*inverted=*/false), c.normal);
        EXPECT_EQ(silenceByte(SinkConfig(c.word), /*inverted=*/true), c.inverted);
    }
}

}  // namespace
