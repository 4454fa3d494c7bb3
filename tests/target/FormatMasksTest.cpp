#include "target/FormatMasks.h"

#include <gtest/gtest.h>

#include <array>

namespace {

using VELMORA::SinkConfig;
using velmora_target::FormatMasks;

TEST(FormatMasks, SummaryNamesTheFamiliesAndNothingElse) {
    struct Case {
        const char* why;
        FormatMasks masks;
        std::uint64_t summary;
    };
    const Case cases[] = {
        {"nothing", {}, 0},
        {"PCM alone", {0x0000'00fe'0000'2e1f, 0, 0}, 0x2e00},
        {"DSD, MSB first", {0, 0, 0x0000'1e02'02a1'0003}, 0x21'0000},
        {"DSD, LSB first", {0, 0x0000'1e02'0251'0003, 0}, 0x11'0000},
        {"DSD, both", {0, 0x0251'0003, 0x02a1'0003}, 0x31'0000},
        {"all", {0x2e1f, 0x0251'0003, 0x02a1'0003}, 0x31'2e00},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(c.masks.summary(), c.summary);
        EXPECT_EQ(c.masks.answer(0), c.summary);
        EXPECT_EQ(c.masks.answer(0x100), c.masks.pcm);
        EXPECT_EQ(c.masks.answer(0x100000), c.masks.dsdLsb);
        EXPECT_EQ(c.masks.answer(0x200000), c.masks.dsdMsb);
        EXPECT_EQ(c.masks.answer(0x1'0000'0000), 0u);
    }
}

TEST(FormatMasks, TakeAFormatOnlyWhole) {
    const FormatMasks masks{0x0000'00fe'0000'2e1f, 0, 0x0000'1e02'02a1'0003};
    struct Case {
        const char* why;
        std::uint64_t word;
        bool taken;
    };
    const Case cases[] = {
        {"16 bits, stereo, 44100", 0x0000'000a'0000'0202, true},
        {"float 32, eight channels, 192000", 0x0000'0024'0000'2010, true},
        {"sixteen channels are not in the mask", 0x0000'000a'0000'0220, false},
        {"float 64 is not in the mask", 0x0000'000a'0000'4002, false},
        {"x32 is not in the mask", 0x0000'0102'0000'0202, false},
        {"two sample formats at once", 0x0000'000a'0000'0602, false},
        {"no multiplier: no rate", 0x0000'0002'0000'0202, false},
        {"8000 Hz has no rate to play at", 0x0000'0001'0000'0202, false},
        {"DSD64 as the target has it", 0x0000'0202'02a1'0002, true},
        {"DSD64 by LSB", 0x0000'0202'0291'0002, false},
        {"DSD64 with little-endian words", 0x0000'0202'0261'0002, false},
        {"DSD below its least rate", 0x0000'0102'02a1'0002, false},
        {"DSD1024 is not in the mask", 0x0000'2002'02a1'0002, false},
        {"nothing", 0, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(masks.takes(SinkConfig(c.word)), c.taken);
    }
}

TEST(FormatMasks, AreMadeOfChannelsAndRates) {
    EXPECT_EQ(velmora_target::channelBits(6), 0x08u);
    EXPECT_EQ(velmora_target::channelBits(3), 0u);
    EXPECT_EQ(velmora_target::rateBits(44100), 0x0000'000a'0000'0000u);
    EXPECT_EQ(velmora_target::rateBits(192000), 0x0000'0024'0000'0000u);
    EXPECT_EQ(velmora_target::rateBits(2822400), 0x0000'0202'0000'0000u);
    EXPECT_EQ(velmora_target::rateBits(8000), 0u);
    EXPECT_EQ(velmora_target::rateBits(50000), 0u);
    const std::array<std::uint32_t, 2> rates{44100, 96000};
    EXPECT_EQ(velmora_target::rateBits(rates), 0x0000'001e'0000'0000u);
}

TEST(FrameRate, CountsSamplesInPcmAndWordsInDsd) {
    EXPECT_EQ(velmora_target::frameRate(SinkConfig(0x0000'000a'0000'0402)), 44100.0);
    EXPECT_EQ(velmora_target::frameRate(SinkConfig(0x0000'0202'02a1'0002)), 88200.0);
    EXPECT_EQ(velmora_target::frameRate(SinkConfig(0x0000'0202'02a2'0002)), 352800.0);
}

}  // namespace
