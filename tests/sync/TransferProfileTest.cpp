#include "sync/TransferProfile.h"

#include <gtest/gtest.h>

#include "tests/sync/TransferFixture.h"

namespace {

using namespace velmora_test;

// ---- the stream's own numbers ----

TEST(TransferConfig, CountsTheBytesOfASecondAndOfAFrame) {
    struct Case {
        const char* why;
        SinkConfig config;
        std::uint32_t bytesPerSecond, frameBytes;
    };
    const Case cases[] = {
        {"PCM 32", format(SinkConfig::pcm32, 44100, 2), 352800, 8},
        {"PCM 24", format(SinkConfig::pcm24, 48000, 6), 864000, 18},
        {"DSD: a frame is a word of each channel, the rate counts bits",
         format(SinkConfig::dsdMsbBig, 2822400, 2), 705600, 8},
        {"no rate", SinkConfig(SinkConfig::pcm32 | 2), 0, 8},
        {"the product has 32 bits: 64 x 16 x 176400 x 64 leaves the rest",
         format(SinkConfig::pcm64, 11289600, 16), (11289600u * 1024u) >> 3, 128},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        TransferConfig transfer;
        transfer.config = c.config;
        EXPECT_EQ(transfer.bytesPerSecond(), c.bytesPerSecond);
        EXPECT_EQ(transfer.frameBytes(), c.frameBytes);
    }
}

// ---- one trial ----

struct TrialCase {
    const char* why;
    std::uint16_t packDataSize, packDataCount;
    std::uint32_t cycle;
    std::uint16_t count;
    bool good;
    TransferProfile expected;
};

TEST(TransferConfig, TrialFix) {
    const TrialCase cases[] = {
        {"a millisecond fits one packet", 1428, 10, 1000, 0, true,
         row(1000, 0, 368, 722534, 1, modeFix)},
        {"need 364, want 368: one byte more than that is room enough", 369, 1, 1000, 0, true,
         row(1000, 0, 368, 722534, 1, modeFix)},
        {"a cycle that exactly fills the budget is stepped down", 368, 1, 1000, 0, true,
         row(950, 0, 352, 686407, 1, modeFix)},
        {"want 1824 is above 1428: down in steps of 50 to 3900, where it is 1424", 1428, 10, 5000,
         1, true, row(3900, 0, 1424, 2817884, 1, modeFix)},
        {"1825 bytes hold the 1824 of 5000 us", 1825, 10, 5000, 1, true,
         row(5000, 0, 1824, 3612672, 1, modeFix)},
        {"1824 do not", 1824, 10, 5000, 1, true, row(4950, 0, 1800, 3576545, 1, modeFix)},
        {"two packets share the cycle, and its half is taken first", 1428, 10, 5001, 0, true,
         row(5001, 0, 912, 1806336, 2, modeFix)},
        {"a count above PackDataCount is PackDataCount", 1428, 1, 5000, 7, true,
         row(3900, 0, 1424, 2817884, 1, modeFix)},
        {"a cycle of 1", 1428, 10, 1, 0, true, row(1, 0, 8, 722, 1, modeFix)},
        {"down to 1 us itself", 9, 1, 51, 0, true, row(1, 0, 8, 722, 1, modeFix)},
        {"50 us have no shorter cycle", 9, 1, 50, 0, false, {}},
        {"down to 10 us and no further", 9, 1, 60, 0, true, row(10, 0, 8, 7225, 1, modeFix)},
        {"falls below 1: 8 bytes do not even hold one frame", 8, 1, 60, 0, false, {}},
        {"no payload", 0, 10, 1000, 0, false, {}},
        {"no packets", 1428, 0, 1000, 0, false, {}},
        {"no cycle", 1428, 10, 0, 0, false, {}},
    };
    for (const TrialCase& c : cases) {
        SCOPED_TRACE(c.why);
        TransferConfig transfer = stereo32(c.packDataSize, c.packDataCount);
        std::uint32_t cycle = c.cycle;
        ASSERT_EQ(transfer.trialFix(cycle, c.count), c.good);
        if (!c.good) continue;
        EXPECT_EQ(static_cast<TransferProfile&>(transfer), c.expected);
        EXPECT_EQ(cycle, c.expected.cycle);
    }
}

TEST(TransferConfig, TrialFixRoundsItsNeedUp) {
    // One byte a frame, 44100 a second: 44.1 x 1.03 = 45.4 bytes need 46.
    TransferConfig transfer = stereo32(47, 1);
    transfer.config = format(SinkConfig::pcm8, 44100, 1);
    std::uint32_t cycle = 1000;
    ASSERT_TRUE(transfer.trialFix(cycle, 0));
    EXPECT_EQ(cycle, 1000u);
    transfer.PackDataSize = 46;
    ASSERT_TRUE(transfer.trialFix(cycle, 0));
    EXPECT_EQ(cycle, 950u);
}

TEST(TransferConfig, TrialFixHasRoomForThreePercentInALargePacket) {
    // 700 frames: x 491 leaves 32 bits. 700 + 20.98 frames are 721.
    TransferConfig transfer = stereo32(1428, 1);
    transfer.config = format(SinkConfig::pcm8, 48000 * 16, 1);
    std::uint32_t cycle = 1000;
    ASSERT_TRUE(transfer.trialFix(cycle, 0));
    EXPECT_EQ(transfer.framesQ14, 768u * 16384u);
    EXPECT_EQ(transfer.packetBytes, 792u);  // 768 + 23.02, rounded up
}

TEST(TransferConfig, TrialVar) {
    const TrialCase cases[] = {
        {"no margin: 352.8 bytes are 360 in whole frames", 1428, 10, 1000, 0, true,
         row(1000, 360, 360, 45 * 16384, 1, modeVar)},
        {"a cycle that exactly fills the budget is accepted", 360, 1, 1000, 0, true,
         row(1000, 360, 360, 45 * 16384, 1, modeVar)},
        {"a budget below that sets the cycle", 352, 1, 1000, 0, true,
         row(998, 352, 352, 44 * 16384, 1, modeVar)},
        {"and not in whole frames: 353 bytes last 1001 us, 352 are sent", 353, 1, 1000, 0, true,
         row(1001, 352, 352, 44 * 16384, 1, modeVar)},
        {"1768 bytes in two packets of 880", 1428, 10, 5000, 0, true,
         row(5000, 880, 880, 110 * 16384, 2, modeVar)},
        {"one packet at most", 1428, 10, 5000, 1, true,
         row(4048, 1424, 1424, 178 * 16384, 1, modeVar)},
        {"a count above PackDataCount is PackDataCount", 1428, 1, 5000, 9, true,
         row(4048, 1424, 1424, 178 * 16384, 1, modeVar)},
        {"a frame at least", 1428, 10, 1, 0, true, row(1, 8, 8, 16384, 1, modeVar)},
        {"no payload", 0, 10, 1000, 0, false, {}},
        {"no packets", 1428, 0, 1000, 0, false, {}},
        {"no cycle", 1428, 10, 0, 0, false, {}},
        {"a payload below a frame would carry nothing for ever", 7, 10, 1000, 0, false, {}},
    };
    for (const TrialCase& c : cases) {
        SCOPED_TRACE(c.why);
        TransferConfig transfer = stereo32(c.packDataSize, c.packDataCount);
        std::uint32_t cycle = c.cycle;
        ASSERT_EQ(transfer.trialVar(cycle, c.count), c.good);
        if (!c.good) continue;
        EXPECT_EQ(static_cast<TransferProfile&>(transfer), c.expected);
        EXPECT_EQ(cycle, c.expected.cycle);
    }
}

TEST(TransferConfig, TrialsOfDsdCountWords) {
    TransferConfig transfer = stereo32();
    transfer.config = format(SinkConfig::dsdMsbBig, 2822400, 2);  // 705600 bytes, 88200 frames
    std::uint32_t cycle = 1000;
    ASSERT_TRUE(transfer.trialVar(cycle, 0));
    EXPECT_EQ(static_cast<TransferProfile&>(transfer), row(1000, 712, 712, 89 * 16384, 1, modeVar));
    ASSERT_TRUE(transfer.trialFix(cycle, 0));
    EXPECT_EQ(static_cast<TransferProfile&>(transfer), row(1000, 0, 728, 1445068, 1, modeFix));
}

TEST(TransferConfig, TrialRandomIsAFixTrialThatLeavesRoomToDraw) {
    struct Case {
        const char* why;
        std::uint32_t cycleMin, cycle;
        bool good;
    };
    const Case cases[] = {
        {"a shorter minimum", 500, 1000, true},
        {"just shorter", 999, 1000, true},
        {"no room between the two", 1000, 1000, false},
        {"a minimum above the cycle", 1001, 1000, false},
        {"no minimum", 0, 1000, false},
        {"the trial's own cycle counts: 3900, not 5000", 4000, 5000, false},
        {"and here it is above", 3899, 5000, true},
        {"no cycle", 500, 0, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        TransferConfig transfer = stereo32();
        std::uint32_t cycle = c.cycle;
        ASSERT_EQ(transfer.trialRandom(c.cycleMin, cycle, 1), c.good);
        if (!c.good) continue;
        EXPECT_EQ(transfer.mode, modeRandom);
        EXPECT_EQ(transfer.cycleMin, c.cycleMin);
        EXPECT_EQ(transfer.fixedBytes, 0u);
        EXPECT_EQ(transfer.cycle, cycle);
    }
}

TEST(TransferConfig, TrialBufferHalvesAPayloadUntilItFits) {
    struct Case {
        const char* why;
        std::uint16_t packDataSize;
        std::uint32_t bytes;
        bool good;
        TransferProfile expected;
    };
    const Case cases[] = {
        {"fits as it is", 1428, 1424, true, row(4037, 1424, 1424, 178 * 16384, 1, modeVar)},
        {"fits exactly", 1428, 1428, true, row(4048, 1428, 1428, 178 * 16384, 1, modeVar)},
        {"four thousand frames in 32 packets", 1428, 32768, true,
         row(92880, 1024, 1024, 128 * 16384, 32, modeVar)},
        {"odd bytes are cut, and a row of part frames is taken", 1428, 3001, true,
         row(8507, 750, 750, 93 * 16384, 4, modeVar)},
        {"no bytes", 1428, 0, false, {}},
        {"no payload", 0, 1024, false, {}},
        {"more packets than can be counted", 1, 0x20000, false, {}},
        {"the most that can be counted", 1, 0x8000, true, row(92880, 1, 1, 0, 0x8000, modeVar)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        TransferConfig transfer = stereo32(c.packDataSize);
        ASSERT_EQ(transfer.trialBuffer(c.bytes), c.good);
        if (c.good) {
            EXPECT_EQ(static_cast<TransferProfile&>(transfer), c.expected);
        }
    }
}

TEST(TransferConfig, TrialBufferRefusesACycleThat32BitsDoNotHold) {
    TransferConfig transfer = stereo32(65535);
    transfer.config = format(SinkConfig::pcm8, 44100, 1);
    EXPECT_FALSE(transfer.trialBuffer(0xffff'0000));
}

TEST(TransferConfig, NoTrialDividesByARateOfNothing) {
    for (const std::uint64_t word : {std::uint64_t{0}, SinkConfig::pcm32 | 2,
                                     SinkConfig::pcm32 | 2 | SinkConfig::family8000}) {
        TransferConfig transfer = stereo32();
        transfer.config = SinkConfig(word);
        std::uint32_t cycle = 1000;
        EXPECT_FALSE(transfer.trialFix(cycle, 0));
        EXPECT_FALSE(transfer.trialVar(cycle, 0));
        EXPECT_FALSE(transfer.trialFixAuto(cycle));
        EXPECT_FALSE(transfer.trialVarAuto(cycle));
        EXPECT_FALSE(transfer.trialRandom(500, cycle, 0));
        EXPECT_FALSE(transfer.trialBuffer(1024));
        EXPECT_FALSE(transfer.configTransferAuto(1000));
    }
}

// ---- the fewest packets ----

TEST(TransferConfig, TrialFixAutoStopsAtTheSmallestCountThatMeetsTheCycle) {
    TransferConfig transfer = stereo32();
    std::uint32_t cycle = 10000;  // want 3640
    ASSERT_TRUE(transfer.trialFixAuto(cycle));
    EXPECT_EQ(cycle, 10000u);
    TransferConfig three = stereo32(), two = stereo32();
    std::uint32_t same = 10000, shorter = 10000;
    ASSERT_TRUE(three.trialFix(same, 3));
    EXPECT_EQ(static_cast<TransferProfile&>(transfer), static_cast<TransferProfile&>(three));
    EXPECT_EQ(transfer.packetCount, 3);
    ASSERT_TRUE(two.trialFix(shorter, 2));
    EXPECT_LT(shorter, 10000u);
}

TEST(TransferConfig, TrialFixAutoKeepsTheCountBeforeTheCycleStoppedChanging) {
    TransferConfig transfer = stereo32(1428, 2);
    std::uint32_t cycle = 10000;
    ASSERT_TRUE(transfer.trialFixAuto(cycle));
    TransferConfig two = stereo32(1428, 2);
    std::uint32_t most = 10000;
    ASSERT_TRUE(two.trialFix(most, 2));
    EXPECT_EQ(static_cast<TransferProfile&>(transfer), static_cast<TransferProfile&>(two));
    EXPECT_EQ(cycle, most);
    EXPECT_EQ(cycle, 7800u);  // 2848 of 2856 bytes; 7850 would be 2856, and that is full
}

TEST(TransferConfig, TrialFixAutoGivesUpWhereAPacketMoreWinsLessThanAStep) {
    // 24.6 MB a second: a packet of 1428 bytes is 58 us, and 3 percent below; a step is 50. Counts
    // 1 and 2 differ; a smaller packet does not even reach the next step.
    TransferConfig transfer = stereo32(1000, 100);
    transfer.config = format(SinkConfig::pcm32, 768000, 8);
    std::uint32_t cycle = 1000;
    ASSERT_TRUE(transfer.trialFixAuto(cycle));
    EXPECT_LT(cycle, 1000u);
    TransferConfig most = transfer;
    std::uint32_t reached = 1000;
    ASSERT_TRUE(most.trialFix(reached, 0));
    EXPECT_EQ(reached, 1000u);  // it could have been met
}

TEST(TransferConfig, TrialVarAutoFindsTheSmallestCountToo) {
    TransferConfig transfer = stereo32();
    std::uint32_t cycle = 10000;  // want 3528
    ASSERT_TRUE(transfer.trialVarAuto(cycle));
    EXPECT_EQ(static_cast<TransferProfile&>(transfer),
              row(10000, 1176, 1176, 147 * 16384, 3, modeVar));
    EXPECT_EQ(cycle, 10000u);

    transfer.PackDataCount = 2;
    ASSERT_TRUE(transfer.trialVarAuto(cycle));
    EXPECT_EQ(static_cast<TransferProfile&>(transfer),
              row(8096, 1424, 1424, 178 * 16384, 2, modeVar));
    EXPECT_EQ(cycle, 8096u);
}

TEST(TransferConfig, TrialAutoEndsAtTheLargestCountThereIs) {
    // The counter goes once round 16 bits: 44.1 bytes a millisecond against 65535 packets of one.
    TransferConfig transfer = stereo32(1, 65535);
    transfer.config = format(SinkConfig::pcm8, 44100, 1);
    std::uint32_t cycle = 0x7fff'0000;
    ASSERT_TRUE(transfer.trialVarAuto(cycle));
    EXPECT_EQ(transfer.packetCount, 65535);
    cycle = 100'000'000;
    EXPECT_TRUE(transfer.trialFixAuto(cycle));
}

TEST(TransferConfig, ASearchingTrialThatNothingFitsAnswersFalse) {
    struct Case {
        const char* why;
        std::uint16_t packDataSize, packDataCount;
        std::uint32_t cycle;
    };
    const Case cases[] = {
        {"no payload", 0, 10, 1000},
        {"no packets", 1428, 0, 1000},
        {"no cycle", 1428, 10, 0},
        {"all packets together do not hold a frame", 1, 7, 1000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        TransferConfig transfer = stereo32(c.packDataSize, c.packDataCount);
        std::uint32_t cycle = c.cycle;
        EXPECT_FALSE(transfer.trialFixAuto(cycle));
        EXPECT_FALSE(transfer.trialVarAuto(cycle));
    }
}

}  // namespace
