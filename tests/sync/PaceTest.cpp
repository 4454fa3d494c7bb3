#include "sync/Pace.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using VELMORA::Pace;
using VELMORA::TransferProfile;

constexpr std::uint32_t start = 0xffff'ff00;  // so that every test crosses the wrap

TransferProfile plainRow(std::uint32_t cycle, std::uint16_t packetCount) {
    return {.cycle = cycle, .fixedBytes = 192, .packetBytes = 192, .packetCount = packetCount};
}

struct Paced {
    TransferProfile profile;
    std::uint16_t most = 10;
    bool catchUp = true;
    Pace pace{start, profile.cycle, catchUp};
    std::mt19937 random{5489};

    Pace::Turn turn(std::uint32_t now) {
        return pace.onTurn(now, profile.cycle, profile, most, random);
    }
};

TEST(Pace, FirstTurnComesAtOnceAndTheSecondAfterHalfACycle) {
    Paced p{.profile = plainRow(1000, 1)};
    EXPECT_TRUE(p.pace.isDue(start));
    EXPECT_FALSE(p.turn(start).overTime);
    EXPECT_EQ(p.pace.deadline(), start + 500);
    EXPECT_FALSE(p.pace.isDue(start + 499));
    EXPECT_EQ(p.pace.remaining(start + 499), 1u);
    EXPECT_TRUE(p.pace.isDue(start + 500));
    p.turn(start + 500);
    EXPECT_EQ(p.pace.deadline(), start + 1500);
}

TEST(Pace, TimelyTurnsOweNothingAndKeepTheBurst) {
    Paced p{.profile = plainRow(1000, 3)};
    std::uint32_t now = start;
    for (int i = 0; i < 1000; ++i) {
        const Pace::Turn turn = p.turn(now);
        ASSERT_FALSE(turn.overTime);
        ASSERT_EQ(turn.burst, 3u);
        ASSERT_EQ(turn.factor, 1.0f);
        now = p.pace.deadline() + 7;  // a little late is in time
    }
    EXPECT_EQ(p.pace.lateDebt(), 0u);
    EXPECT_EQ(p.pace.overTimeScore(), 0);
}

TEST(Pace, ATurnTwoAndAHalfCyclesLateIsDoubledAndLeavesOneAndAHalfOwed) {
    Paced p{.profile = plainRow(1000, 3)};
    p.turn(start);  // deadline start + 500
    const std::uint32_t now = start + 500 + 2500;
    const Pace::Turn turn = p.turn(now);
    EXPECT_TRUE(turn.overTime);
    EXPECT_EQ(turn.late, 2500u);
    EXPECT_EQ(turn.lateDebt, 2500u);
    EXPECT_EQ(p.pace.deadline(), now + 1000);
    EXPECT_EQ(turn.burst, 6u);
    EXPECT_EQ(p.pace.lateDebt(), 1500u);
    EXPECT_EQ(p.pace.overTimeScore(), 10);

    const Pace::Turn next = p.turn(now + 1000);
    EXPECT_FALSE(next.overTime);
    EXPECT_EQ(next.burst, 6u);
    EXPECT_EQ(p.pace.lateDebt(), 500u);
    EXPECT_EQ(p.pace.overTimeScore(), 9);
    EXPECT_EQ(p.turn(now + 2000).burst, 3u) << "less than a cycle is not paid";
    EXPECT_EQ(p.pace.lateDebt(), 500u);
}

struct LateCase {
    const char* why;
    std::uint32_t behind;  // the deadline, µs
    bool overTime;
    std::uint32_t late;
};
constexpr LateCase lateCases[] = {
    {"on the dot", 0, false, 0},
    {"one short of the next deadline", 999, false, 0},
    {"exactly at the next deadline", 1000, true, 1000},
    {"a cycle and a half", 1500, true, 1500},
};

TEST(Pace, ATurnIsOverTimeWhenTheNextDeadlineHasPassedToo) {
    for (const LateCase& c : lateCases) {
        SCOPED_TRACE(c.why);
        Paced p{.profile = plainRow(1000, 1)};
        const std::uint32_t now = p.pace.deadline() + c.behind;
        const Pace::Turn turn = p.turn(now);
        EXPECT_EQ(turn.overTime, c.overTime);
        EXPECT_EQ(turn.late, c.late);
    }
}

struct BurstCase {
    const char* why;
    std::uint16_t count, most;
    std::uint32_t debt;
    std::uint32_t burst, left;
};
constexpr BurstCase burstCases[] = {
    {"no debt", 3, 10, 0, 3, 0},
    {"a debt just below a cycle waits", 3, 10, 999, 3, 999},
    {"a cycle of debt is paid whole by a doubled burst", 3, 10, 1000, 6, 0},
    {"the limit cuts the burst, and the payment with it", 3, 4, 1000, 4, 667},
    {"a limit equal to the count pays nothing", 3, 3, 5000, 3, 5000},
    {"a limit below the count starves nobody, and pays nothing", 4, 2, 5000, 4, 5000},
    {"a limit of 0 does not silence the wire", 4, 0, 5000, 4, 5000},
    {"one packet becomes two", 1, 10, 2500, 2, 1500},
    {"a limit without a limit", 300, 65535, 1000, 600, 0},
    {"a payment that the debt has not reached, by the modular rule, leaves none", 3, 4, 0x800003e7,
     4, 0},
    {"a debt beyond half the clock counts as none, by the modular rule", 3, 10, 0x80000400, 3,
     0x80000400},
};

TEST(Pace, DebtIsPaidByLargerBursts) {
    for (const BurstCase& c : burstCases) {
        SCOPED_TRACE(c.why);
        Paced p{.profile = plainRow(1000, c.count), .most = c.most};
        p.pace.owe(c.debt);
        const Pace::Turn turn = p.turn(start);
        EXPECT_EQ(turn.burst, c.burst);
        EXPECT_EQ(p.pace.lateDebt(), c.left);
    }
}

TEST(Pace, DebtIsPaidByTheCycleInForce) {
    // Var: feedback has shortened the cycle, so a debt of a short cycle meets a full payment.
    Paced p{.profile = plainRow(1000, 2)};
    p.pace.owe(970);
    EXPECT_EQ(p.pace.onTurn(start, 970, p.profile, 4, p.random).burst, 4u);
    EXPECT_EQ(p.pace.lateDebt(), 0u);
    // 2 x 2 packets of a cycle of 1000: the payment is 1000, the debt 1000 + 999.
    p.pace.owe(1999);
    p.pace.onTurn(start + 970, 1000, p.profile, 4, p.random);
    EXPECT_EQ(p.pace.lateDebt(), 999u);
}

TEST(Pace, WithoutCatchingUpLatenessIsForgottenButStillScores) {
    Paced p{.profile = plainRow(1000, 2), .catchUp = false};
    p.turn(start);
    for (int i = 1; i <= 3; ++i) {
        const Pace::Turn turn = p.turn(p.pace.deadline() + 5000);
        EXPECT_TRUE(turn.overTime);
        EXPECT_EQ(turn.late, 5000u);
        EXPECT_EQ(turn.lateDebt, 0u);
        EXPECT_EQ(turn.burst, 2u);
        EXPECT_EQ(p.pace.overTimeScore(), 10 * i);
    }
    p.pace.owe(5000);
    EXPECT_EQ(p.pace.lateDebt(), 0u);
}

TEST(Pace, ScoreRisesByTenUpToAThousandAndFallsByOneToZero) {
    Paced p{.profile = plainRow(1000, 1)};
    for (int i = 0; i < 200; ++i) p.turn(p.pace.deadline() + 1000);
    EXPECT_EQ(p.pace.overTimeScore(), 1000);
    p.turn(p.pace.deadline());
    EXPECT_EQ(p.pace.overTimeScore(), 999);
    p.turn(p.pace.deadline() + 1000);
    EXPECT_EQ(p.pace.overTimeScore(), 1009) << "999 is below 1000";
    for (int i = 0; i < 2000; ++i) p.turn(p.pace.deadline());
    EXPECT_EQ(p.pace.overTimeScore(), 0);
}

TEST(Pace, RandomCyclesAreDrawnFromTheGeneratorBetweenTheBounds) {
    Paced p{.profile = plainRow(1000, 1)};
    p.profile.mode = VELMORA::modeRandom;
    p.profile.cycleMin = 800;
    // The first words of MT19937 with seed 5489, as published: 3499211612, 581869302, 3890346734.
    const std::uint32_t draws[] = {3499211612u, 581869302u, 3890346734u};
    std::uint32_t deadline = p.pace.deadline();
    for (const std::uint32_t r : draws) {
        const std::uint32_t step = 1000 - r % 201;
        const Pace::Turn turn = p.turn(deadline);
        deadline += step;
        EXPECT_EQ(p.pace.deadline(), deadline);
        EXPECT_EQ(turn.factor, static_cast<float>(step) / 1000.0f);
    }
    for (int i = 0; i < 5000; ++i) {
        const std::uint32_t before = p.pace.deadline();
        p.turn(before);
        const std::uint32_t step = p.pace.deadline() - before;
        ASSERT_GE(step, 800u);
        ASSERT_LE(step, 1000u);
    }
}

TEST(Pace, LatenessOfADrawnCycleIsCountedFromTheFullCycle) {
    Paced p{.profile = plainRow(1000, 1)};
    p.profile.mode = VELMORA::modeRandom;
    p.profile.cycleMin = 800;
    const std::uint32_t step = 1000 - 3499211612u % 201;
    const std::uint32_t before = p.pace.deadline();
    const Pace::Turn turn = p.turn(before + 3000);
    EXPECT_EQ(turn.late, 3000 - step + 1000);
    EXPECT_EQ(p.pace.deadline(), before + 3000 + 1000);
}

struct DrawCase {
    const char* why;
    std::uint32_t mode, cycle, cycleMin;
    bool draws;
};
constexpr DrawCase drawCases[] = {
    {"Var never draws", VELMORA::modeVar, 1000, 800, false},
    {"Fix never draws", VELMORA::modeFix, 1000, 800, false},
    {"Random draws", VELMORA::modeRandom, 1000, 800, true},
    {"a cycle equal to cycleMin is paced as Fix", VELMORA::modeRandom, 1000, 1000, false},
    {"a cycle below cycleMin as well", VELMORA::modeRandom, 1000, 1001, false},
    {"one microsecond of room is enough", VELMORA::modeRandom, 1000, 999, true},
};

TEST(Pace, OnlyRandomModeTouchesTheGenerator) {
    for (const DrawCase& c : drawCases) {
        SCOPED_TRACE(c.why);
        Paced p{.profile = plainRow(c.cycle, 1)};
        p.profile.mode = c.mode;
        p.profile.cycleMin = c.cycleMin;
        const std::mt19937 before = p.random;
        const Pace::Turn turn = p.turn(start);
        EXPECT_EQ(p.random != before, c.draws);
        if (!c.draws) {
            EXPECT_EQ(p.pace.deadline(), start + 500);
            EXPECT_EQ(turn.factor, 1.0f);
        }
    }
}

}  // namespace
