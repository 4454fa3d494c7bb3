// The search under a target's wishes, and what is taken when they lead nowhere.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/LogCapture.h"
#include "tests/sync/TransferFixture.h"

namespace {

using namespace velmora_test;
using Texts = std::vector<std::string>;

// ---- the target's wishes ----

constexpr std::uint16_t limitOnly = ProfileLimitOnly, var = ProfileVar, sweep = ProfileSweep,
                        multi = ProfileMultiPacket, randomFlag = ProfileRandom;

struct SearchCase {
    const char* why;
    std::uint16_t min10, max10;
    unsigned flags;
    std::uint32_t limit;
    bool good;
    const char* done;  // the kind named in the log, or null
    std::uint32_t cycle;
    std::uint16_t packetCount;
    std::uint32_t mode;
};

TEST(SearchProfile, MeetsWhatTheTargetAskedFor) {
    const SearchCase cases[] = {
        // Var, sweep
        {"Var sweep: from the limit to 3 percent above it", 0, 0, var | sweep | limitOnly, 400,
         true, "Var", 450, 1, modeVar},
        {"Var sweep: from the minimum", 100, 200, var | sweep, 400, true, "Var", 1000, 1, modeVar},
        {"Var sweep: from the limit, when that is later", 30, 200, var | sweep, 400, true, "Var",
         450, 1, modeVar},
        {"Var sweep: the maximum binds, and the cycle stops growing", 100, 90, var | sweep, 400,
         false, nullptr, 0, 0, 0},
        {"Var sweep, limit only: neither minimum nor maximum binds", 100, 90,
         var | sweep | limitOnly, 400, true, "Var", 1000, 1, modeVar},
        {"Var sweep: one packet does not reach the minimum", 1000, 2000, var | sweep, 400, false,
         nullptr, 0, 0, 0},
        {"Var sweep: three do", 1000, 2000, var | sweep | multi, 400, true, "Var", 10000, 3,
         modeVar},
        {"Var sweep from 0: the first trial fails, the next does not", 0, 100, var | sweep, 0, true,
         "Var", 50, 1, modeVar},
        // Var, one trial
        {"Var: one trial at the maximum", 100, 200, var, 400, true, "Var", 2000, 1, modeVar},
        {"Var: below the minimum after the budget", 500, 1000, var, 400, false, nullptr, 0, 0, 0},
        {"Var: within both after the budget", 100, 1000, var, 400, true, "Var", 4048, 1, modeVar},
        {"Var: above the maximum by a rounding is not within", 0, 0, var, 400, false, nullptr, 0, 0,
         0},
        {"Var: below the limit", 0, 41, var, 400, false, nullptr, 0, 0, 0},
        {"Var: 3 percent above the limit", 0, 42, var, 400, true, "Var", 420, 1, modeVar},
        {"Var, limit only: at the limit's 3 percent", 0, 42, var | limitOnly, 400, true, "Var", 420,
         1, modeVar},
        {"Var, limit only: below it the answer is true all the same, without the line", 0, 41,
         var | limitOnly, 400, true, nullptr, 410, 1, modeVar},
        {"Var, limit only: no maximum to try", 100, 0, var | limitOnly, 400, false, nullptr, 0, 0,
         0},
        {"Var, free count", 100, 1000, var | multi, 400, true, "Var", 10000, 3, modeVar},
        {"Var and Random: Var", 100, 200, var | randomFlag, 400, true, "Var", 2000, 1, modeVar},
        // Fix, sweep
        {"Fix sweep: the limit itself is enough", 0, 0, sweep, 400, true, "Fix", 400, 1, modeFix},
        {"Fix sweep: from the minimum; the maximum does not bind", 100, 50, sweep, 400, true, "Fix",
         1000, 1, modeFix},
        {"Fix sweep: one packet does not reach the minimum", 500, 600, sweep, 400, false, nullptr,
         0, 0, 0},
        {"Fix sweep: two do", 500, 600, sweep | multi, 400, true, "Fix", 5000, 2, modeFix},
        {"Fix sweep, limit only: the minimum does not bind", 500, 600, sweep | limitOnly, 400, true,
         "Fix", 400, 1, modeFix},
        {"Fix sweep from 0: the first trial fails, the next does not", 0, 1, sweep, 0, true, "Fix",
         50, 1, modeFix},
        // Fix, one trial
        {"Fix: one trial at the maximum", 0, 100, 0, 400, true, "Fix", 1000, 1, modeFix},
        {"Fix: at the limit", 0, 40, 0, 400, true, "Fix", 400, 1, modeFix},
        {"Fix: below the limit", 0, 39, 0, 400, false, nullptr, 0, 0, 0},
        {"Fix: below the minimum", 101, 100, 0, 400, false, nullptr, 0, 0, 0},
        {"Fix: below the minimum after the budget", 400, 500, 0, 400, false, nullptr, 0, 0, 0},
        {"Fix: within both after the budget", 300, 500, 0, 400, true, "Fix", 3900, 1, modeFix},
        {"Fix, limit only: the minimum does not bind", 400, 500, limitOnly, 400, true, "Fix", 3900,
         1, modeFix},
        {"Fix, limit only: below the limit", 0, 39, limitOnly, 400, false, nullptr, 0, 0, 0},
        {"Fix, free count", 0, 1000, multi, 400, true, "Fix", 10000, 3, modeFix},
        {"Random alone: Fix", 100, 200, randomFlag, 400, true, "Fix", 2000, 1, modeFix},
        {"no maximum to try", 100, 0, 0, 400, false, nullptr, 0, 0, 0},
    };
    for (const SearchCase& c : cases) {
        SCOPED_TRACE(c.why);
        TransferConfig transfer = stereo32();
        transfer.minCycle10 = c.min10;
        transfer.maxCycle10 = c.max10;
        transfer.profileFlags = static_cast<std::uint16_t>(c.flags);
        transfer.limitCycle = c.limit;
        LogCapture log;
        const bool good = transfer.searchProfile();
        EXPECT_EQ(good, c.good);
        // No profile at all is silent.
        const bool asked = c.min10 != 0 || c.max10 != 0 || c.flags != 0;
        const Texts texts = log.texts(6);
        ASSERT_EQ(texts.size(), (asked ? 1u : 0u) + (c.done != nullptr ? 1u : 0u));
        if (c.done != nullptr) {
            EXPECT_EQ(texts[1], std::string("PROFILE done ") + c.done);
        }
        if (!c.good || !good) continue;
        EXPECT_EQ(transfer.cycle, c.cycle);
        EXPECT_EQ(transfer.packetCount, c.packetCount);
        EXPECT_EQ(transfer.mode, c.mode);
    }
}

TEST(SearchProfile, SaysWhatItWasGiven) {
    TransferConfig transfer = stereo32();
    transfer.minCycle10 = 12;
    transfer.maxCycle10 = 345;
    transfer.profileFlags = 5;
    transfer.config = SinkConfig(0xA'0000'0802);
    LogCapture log;
    transfer.searchProfile();
    ASSERT_FALSE(log.lines().empty());
    EXPECT_EQ(log.lines()[0].level, 6);
    EXPECT_EQ(log.lines()[0].text,
              "PROFILE min=12 max=345 prof5 config42949675010 PackDataSize1428 PackDataCount10 "
              "limitCycle400");
}

TEST(SearchProfile, WithoutAProfileAnswersFalseInSilenceAndForgetsTheCycle) {
    TransferConfig transfer = stereo32();
    transfer.cycle = 1000;
    LogCapture log;
    EXPECT_FALSE(transfer.searchProfile());
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(transfer.cycle, 0u);
}

TEST(SearchProfile, ForcedFreeCountServesATargetThatAskedForOnePacket) {
    TransferConfig transfer = stereo32();
    transfer.minCycle10 = 500;
    transfer.maxCycle10 = 1000;
    EXPECT_FALSE(transfer.searchProfile());
    transfer.forceAuto = true;
    EXPECT_TRUE(transfer.searchProfile());
    EXPECT_EQ(transfer.cycle, 10000u);
    EXPECT_TRUE(transfer.forceAuto);
}

// ---- with what is taken when the wishes lead nowhere ----

TEST(ConfigTransferAuto, TakesTheTargetsProfile) {
    TransferConfig transfer = stereo32();
    transfer.minCycle10 = 100;
    transfer.maxCycle10 = 200;
    transfer.profileFlags = var;
    LogCapture log;
    EXPECT_TRUE(transfer.configTransferAuto(0));
    EXPECT_EQ(transfer.cycle, 2000u);
    EXPECT_EQ(log.texts(6),
              (Texts{"configTransferAuto 0",
                     "PROFILE min=100 max=200 prof2 config" + std::to_string(transfer.config.word) +
                         " PackDataSize1428 PackDataCount10 limitCycle400",
                     "PROFILE done Var", "configTransferAuto done"}));
}

TEST(ConfigTransferAuto, TriesOnceMoreWithAFreeCountAndForgetsThat) {
    TransferConfig transfer = stereo32();
    transfer.minCycle10 = 500;
    transfer.maxCycle10 = 1000;
    LogCapture log;
    EXPECT_TRUE(transfer.configTransferAuto(0));
    EXPECT_EQ(transfer.cycle, 10000u);
    EXPECT_EQ(transfer.packetCount, 3);
    EXPECT_FALSE(transfer.forceAuto);
    const Texts texts = log.texts(6);
    ASSERT_EQ(texts.size(), 5u);
    EXPECT_EQ(texts[1], texts[2]);
    EXPECT_EQ(texts[3], "PROFILE done Fix");
    EXPECT_EQ(texts[4], "configTransferAuto done");
}

TEST(ConfigTransferAuto, WithoutAProfileFallsBackAfterTwoSilentPasses) {
    struct Case {
        const char* why;
        std::uint32_t cycle, limit;
        std::uint32_t expected;
    };
    const Case cases[] = {
        {"the caller's cycle", 1000, 400, 1000},
        {"no cycle: from the limit to 3 percent above it", 0, 400, 450},
        {"a cycle below the limit grows", 100, 400, 450},
        {"neither: the first trial fails, the next does not", 0, 0, 50},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        TransferConfig transfer = stereo32();
        transfer.limitCycle = c.limit;
        LogCapture log;
        EXPECT_TRUE(transfer.configTransferAuto(c.cycle));
        EXPECT_EQ(transfer.cycle, c.expected);
        EXPECT_EQ(transfer.mode, modeFix);
        EXPECT_EQ(log.texts(6), (Texts{"configTransferAuto " + std::to_string(c.cycle),
                                       "configTransferAuto falt", "configTransferAuto done"}));
        EXPECT_EQ(transfer.PackDataCount, 10);
        EXPECT_FALSE(transfer.forceAuto);
    }
}

TEST(ConfigTransferAuto, FallsBackToVarForATargetOfVarAndToAnyNumberOfPackets) {
    TransferConfig transfer = stereo32(1428, 1);
    transfer.minCycle10 = 1000;
    transfer.maxCycle10 = 1;  // cannot be met
    transfer.profileFlags = var;
    LogCapture log;
    EXPECT_TRUE(transfer.configTransferAuto(10000));
    EXPECT_EQ(static_cast<TransferProfile&>(transfer),
              row(10000, 1176, 1176, 147 * 16384, 3, modeVar));
    EXPECT_EQ(transfer.PackDataCount, 1);
    EXPECT_TRUE(log.has(6, "configTransferAuto falt"));
}

TEST(ConfigTransferAuto, ClearsAForcedFreeCountOnlyWhereItNeededOne) {
    TransferConfig transfer = stereo32();
    transfer.maxCycle10 = 100;
    transfer.forceAuto = true;
    EXPECT_TRUE(transfer.configTransferAuto(0));
    EXPECT_TRUE(transfer.forceAuto);  // the caller's, and the first pass served
    transfer.maxCycle10 = 0;
    EXPECT_TRUE(transfer.configTransferAuto(0));
    EXPECT_FALSE(transfer.forceAuto);
}

TEST(ConfigTransferAuto, WhereNothingEverFitsAnswersFalse) {
    struct Case {
        const char* why;
        std::uint16_t packDataSize;
        unsigned flags;
        std::uint32_t limit;
    };
    const Case cases[] = {
        {"no payload: an MTU answer of 64", 0, 0, 400},
        {"no payload, a sweep of Var", 0, var | sweep, 400},
        {"no payload, a sweep of Fix", 0, sweep | multi, 400},
        {"a payload below a frame, Var", 7, var, 400},
        {"all packets there are do not last as long as the limit", 1, 0, 1'000'000'000},
        {"the same for Var", 8, var | sweep | multi, 2'000'000'000},
        {"a limit whose 3 percent more leave 32 bits", 1428, 0, 0xffff'ffff},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        TransferConfig transfer = stereo32(c.packDataSize);
        transfer.profileFlags = static_cast<std::uint16_t>(c.flags);
        transfer.limitCycle = c.limit;
        LogCapture log;
        EXPECT_FALSE(transfer.configTransferAuto(0));
        EXPECT_TRUE(log.has(6, "configTransferAuto falt"));
        EXPECT_FALSE(log.has("configTransferAuto done"));
        EXPECT_EQ(transfer.PackDataCount, 10);
        EXPECT_FALSE(transfer.forceAuto);
    }
}

}  // namespace
