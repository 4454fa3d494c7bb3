#include "driver/StartPlan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using VELMORA::SinkConfig;

TEST(StartPlan, ARateThatIsNoneIsCutToOneThatNobodyCarries) {
    struct Case {
        const char* why;
        double rate;
        std::uint32_t whole;
    };
    const Case cases[] = {
        {"whole", 44100.0, 44100},
        {"cut, not rounded", 44100.9, 44100},
        {"the highest that DSD has", 196608000.0, 196608000},
        {"the highest of 32 bits", 4294967295.0, 4294967295u},
        {"beyond 32 bits", 4294967296.0, 0},
        {"far beyond", 1e300, 0},
        {"endless", std::numeric_limits<double>::infinity(), 0},
        {"negative", -44100.0, 0},
        {"no number", std::nan(""), 0},
        {"nothing", 0.0, 0},
        {"less than one", 0.9, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(wholeRate(c.rate), c.whole);
    }
}

TEST(StartPlan, TheRingGrowsWithTheRate) {
    struct Case {
        std::uint32_t rate;
        bool dsd;
        std::uint32_t multi;
    };
    const Case cases[] = {
        {44100, false, 1},  {48000, false, 1},  {88200, false, 2},    {96000, false, 2},
        {192000, false, 4}, {176400, false, 4}, {1536000, false, 32}, {2822400, true, 2},
        {3072000, true, 2}, {5644800, true, 4}, {11289600, true, 8},  {44100, true, 0},
        {8000, false, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.rate);
        EXPECT_EQ(bufferMultiplier(c.rate, c.dsd), c.multi);
    }
}

TEST(StartPlan, OnePacketCarriesOneBufferOfTheHosts) {
    struct Case {
        const char* why;
        std::uint64_t format;
        std::uint32_t bufferBytes, sampleBytes, multi, payload;
    };
    const Case cases[] = {
        {"512 frames of 32 bits, stereo", 0x802, 2048, 4, 1, 4096},
        {"the host's 4 bytes become 3", 0x402, 2048, 4, 1, 3072},
        {"the host's 4 bytes become 8", 0x1002, 2048, 4, 1, 8192},
        {"16 bits, mono", 0x201, 1024, 2, 1, 1024},
        {"24 bits, six channels", 0x408, 1536, 3, 1, 9216},
        {"64 bits, eight channels", 0x4010, 4096, 8, 1, 32768},
        {"floats", 0x2002, 2048, 4, 1, 4096},
        {"more buffers at higher rates", 0x802, 2048, 4, 4, 16384},
        {"an unknown channel code counts two", 0x840, 2048, 4, 1, 4096},
        {"bits that are no whole byte are cut", 0x201, 3, 2, 1, 3},
        {"DSD bytes carry 8 samples of a bit", 0x2A10002, 2048, 4, 1, 4096},
        {"DSD of 4 bits", 0x2A20002, 2048, 4, 1, 16384},
        {"32 bits wrap", 0x4010, 0x00800000, 8, 1, 0x00000000},
        {"before init there is no sample", 0x802, 2048, 0, 1, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(hostBufferPayload(SinkConfig(c.format), c.bufferBytes, c.sampleBytes, c.multi),
                  c.payload);
    }
}

TEST(StartPlan, ACaseOfTransferHidesThoseBelowIt) {
    struct Case {
        const char* why;
        DriverSettings settings;
        TransferCase chosen;
    };
    const Case cases[] = {
        {"no settings", {}, TransferCase::fix},
        {"a limit wins over everything",
         {.targetProfileLimitTime = 101,
          .fragmentOptimize = true,
          .flexCycle = true,
          .fixAsio = true},
         TransferCase::profile},
        {"fixAsio hides Optimize and FlexCycle",
         {.fragmentOptimize = true, .flexCycle = true, .fixAsio = true},
         TransferCase::varAsio},
        {"Optimize", {.fragmentOptimize = true}, TransferCase::fixAuto},
        {"Optimize, flexible",
         {.fragmentOptimize = true, .flexCycle = true},
         TransferCase::varAuto},
        {"Optimize hides random",
         {.fragmentOptimize = true, .flexCycle = true, .randomCycle = true},
         TransferCase::varAuto},
        {"flexible", {.flexCycle = true}, TransferCase::var},
        {"random", {.flexCycle = true, .randomCycle = true}, TransferCase::random},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(transferCase(c.settings), c.chosen);
    }
}

TEST(StartPlan, WaitsTenMillisecondsMoreThanAskedFor) {
    struct Case {
        const char* why;
        std::uint32_t now, startTime, setting, elapsed, wait, sleep;
    };
    const Case cases[] = {
        {"no delay asked for, no time gone", 1000, 1000, 0, 0, 10, 10},
        {"part of it gone", 5000, 1000, 0, 4, 10, 6},
        {"all of it gone", 11000, 1000, 0, 10, 10, 0},
        {"more than that", 99000, 1000, 0, 98, 10, 0},
        {"50 ms asked for", 1000, 1000, 50000, 0, 60, 60},
        {"a delay below a millisecond is none", 1000, 1000, 999, 0, 10, 10},
        {"over the wrap of the counter", 2000, 0xffff'ffff - 1999, 50000, 4, 60, 56},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const StartDelay delay = startDelay(c.now, c.startTime, c.setting);
        EXPECT_EQ(delay.elapsed, c.elapsed);
        EXPECT_EQ(delay.wait, c.wait);
        EXPECT_EQ(delay.sleep(), c.sleep);
    }
}

}  // namespace
