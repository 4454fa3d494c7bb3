#include "apps/velmora-audio/Music.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <set>

namespace {

using velmora_audio::makeMusic;
using velmora_audio::modulate;

TEST(Music, IsTheSameForTheSameArguments) {
    EXPECT_EQ(makeMusic(44100, 2, 20000, 1), makeMusic(44100, 2, 20000, 1));
    EXPECT_NE(makeMusic(44100, 2, 20000, 1), makeMusic(44100, 2, 20000, 2));
}

TEST(Music, ReachesFullScaleInEveryChannelAndGoesNoFurther) {
    for (const std::uint32_t rate : {8000u, 44100u, 192000u}) {
        SCOPED_TRACE(rate);
        const auto music = makeMusic(rate, 8, 10000, 3);
        ASSERT_EQ(music.size(), 8u);
        for (const auto& channel : music) {
            ASSERT_EQ(channel.size(), 10000u);
            double loudest = 0;
            for (const double v : channel) loudest = std::max(loudest, std::abs(v));
            EXPECT_EQ(loudest, 1.0);
        }
    }
}

TEST(Music, HasNoTwoChannelsAlike) {
    const auto music = makeMusic(48000, 8, 20000, 1);
    for (std::size_t a = 0; a < music.size(); ++a) {
        for (std::size_t b = a + 1; b < music.size(); ++b) {
            std::size_t same = 0;
            for (std::size_t n = 0; n < music[a].size(); ++n) same += music[a][n] == music[b][n];
            EXPECT_LT(same, 10u) << a << " and " << b;
        }
    }
}

TEST(Music, KeepsEveryBitOfItsSamplesAlive) {
    std::uint32_t everOne = 0, everZero = 0;
    const auto music = makeMusic(48000, 1, 20000, 1);
    for (const double v : music[0]) {
        const auto word = static_cast<std::uint32_t>(static_cast<std::int32_t>(
            std::clamp(std::floor(std::ldexp(v, 31)), -2147483648.0, 2147483647.0)));
        everOne |= word;
        everZero |= ~word;
    }
    EXPECT_EQ(everOne, 0xffffffffu);
    EXPECT_EQ(everZero, 0xffffffffu);
}

TEST(Music, OfNoLengthIsNone) {
    const auto music = makeMusic(48000, 2, 0, 1);
    ASSERT_EQ(music.size(), 2u);
    EXPECT_TRUE(music[0].empty());
}

TEST(Modulate, GivesOneBitForEverySampleAndRatio) {
    EXPECT_EQ(modulate(std::vector<double>(100, 0.0), 64).size(), 800u);
    EXPECT_TRUE(modulate({}, 64).empty());
}

TEST(Modulate, HasTheMeanOfHalfTheInput) {
    for (const double level : {-1.0, -0.5, 0.0, 0.25, 1.0}) {
        SCOPED_TRACE(level);
        const auto bytes = modulate(std::vector<double>(1000, level), 64);
        int ones = 0;
        for (const std::uint8_t byte : bytes) ones += std::popcount(byte);
        EXPECT_NEAR(2.0 * ones / 64000 - 1.0, level / 2, 0.002);
    }
}

TEST(Modulate, PutsTheOldestSampleInBitZero) {
    // Silence, by hand: fed 1; first -1, second -2; fed -1; first 0, second -1; fed -1; first 1,
    // second 1; fed 1; first 0, second 0; fed 1; and so on with the first step.
    //   fed: + - - + | + - - + : bits 0, 3, 4, 7.
    EXPECT_EQ(modulate(std::vector<double>(1, 0.0), 8).at(0), 0x99);
}

}  // namespace
