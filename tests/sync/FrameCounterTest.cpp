#include "sync/FrameCounter.h"

#include <gtest/gtest.h>

namespace {

using VELMORA::FrameCounter;
using VELMORA::TransferProfile;

TEST(FrameCounter, CarriesTheFractionSoThatNoFrameIsLost) {
    FrameCounter frames;
    EXPECT_EQ(frames.next(24576), 1u);  // 1.5
    EXPECT_EQ(frames.fraction(), 8192u);
    EXPECT_EQ(frames.next(24576), 2u);
    EXPECT_EQ(frames.fraction(), 0u);
}

TEST(FrameCounter, KeepsTheRateOf44100InPacketsOfAMillisecond) {
    // 44.1 frames as 722534 / 16384: what is lost is the rounding of the row alone.
    FrameCounter frames;
    std::uint64_t sum = 0;
    for (int i = 0; i < 16384; ++i) {
        const std::uint32_t n = frames.next(722534);
        ASSERT_TRUE(n == 44 || n == 45);
        sum += n;
    }
    EXPECT_EQ(sum, 722534u);
    EXPECT_EQ(frames.fraction(), 0u);
}

TEST(FrameCounter, ScalesInSinglePrecisionAndRoundsToTheNearest) {
    struct Case {
        const char* why;
        std::uint32_t framesQ14;
        float factor;
        std::uint32_t scaled;
    };
    const Case cases[] = {
        {"a whole cycle", 722534, 1.0f, 722534},
        {"half a cycle", 722534, 0.5f, 361267},
        {"a half is rounded up", 1, 0.5f, 1},
        {"less is rounded down", 1, 0.25f, 0},
        {"beyond 24 bits single precision drops the last bit", 0x1000001, 1.0f, 0x1000000},
        {"more than 32 bits hold stays within them", 0xffffffff, 1.0f, 0xffffffff},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(FrameCounter::scaled(c.framesQ14, c.factor), c.scaled);
    }
}

TEST(FrameCounter, GivesThePayloadOfTheNextPacket) {
    struct Case {
        const char* why;
        std::uint32_t mode, fixedBytes, framesQ14;
        float factor;
        std::uint16_t frameBytes, maxPacketSize;
        std::uint32_t payload;
    };
    const Case cases[] = {
        {"Var: the fixed bytes, whatever the frames", VELMORA::modeVar, 360, 44 << 14, 1.0f, 8,
         1428, 360},
        {"Var: not cut", VELMORA::modeVar, 1430, 44 << 14, 1.0f, 8, 1428, 1430},
        {"Fix: whole frames", VELMORA::modeFix, 0, 722534, 1.0f, 8, 1428, 352},
        {"Fix: exactly the limit", VELMORA::modeFix, 0, 178 << 14, 1.0f, 8, 1424, 1424},
        {"Fix: beyond it, cut to whole frames", VELMORA::modeFix, 0, 180 << 14, 1.0f, 8, 1428,
         1424},
        {"Fix: no frame due yet", VELMORA::modeFix, 0, 100, 1.0f, 8, 1428, 0},
        {"Fix: the factor is not looked at", VELMORA::modeFix, 0, 722534, 0.5f, 8, 1428, 352},
        {"Random: half a cycle, half the frames", VELMORA::modeRandom, 0, 722534, 0.5f, 8, 1428,
         176},
        {"frames of no bytes", VELMORA::modeFix, 0, 722534, 1.0f, 0, 1428, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        TransferProfile row;
        row.mode = c.mode;
        row.fixedBytes = c.fixedBytes;
        FrameCounter frames;
        EXPECT_EQ(frames.nextPayload(row, c.framesQ14, c.factor, c.frameBytes, c.maxPacketSize),
                  c.payload);
    }
}

}  // namespace
