#include "driver/FormatLadder.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct LadderCase {
    const char* why;
    std::int32_t request;
    bool convertS32;
    std::vector<FormatRung> order;
    const char* failure;
};

const std::vector<FormatRung> order64 = {
    {0x4000, 8}, {0x800, 4}, {0x2000, 4}, {0x400, 3}, {0x200, 2}};
const std::vector<FormatRung> order32 = {
    {0x800, 4}, {0x2000, 4}, {0x4000, 8}, {0x400, 3}, {0x200, 2}};
const std::vector<FormatRung> orderS32 = {{0x800, 4}, {0x1000, 4}, {0x400, 4}, {0x200, 4}};
const std::vector<FormatRung> order24 = {
    {0x400, 3}, {0x800, 4}, {0x2000, 4}, {0x4000, 8}, {0x200, 2}};
const std::vector<FormatRung> order16 = {
    {0x200, 2}, {0x400, 3}, {0x800, 4}, {0x2000, 4}, {0x4000, 8}};
const std::vector<FormatRung> orderLess = {{0x400, 3}, {0x800, 4}, {0x2000, 4}, {0x4000, 8}};

const LadderCase ladderCases[] = {
    {"64 and all above", 64, false, order64, "format miss err "},
    {"far above", 2147483647, false, order64, "format miss err "},
    {"64 with integers wanted: the switch belongs to 32", 64, true, order64, "format miss err "},
    {"32", 32, false, order32, "format miss err "},
    {"the last of 32", 63, false, order32, "format miss err "},
    {"32 with integers wanted", 32, true, orderS32, "format miss err pcm32Fix"},
    {"the last of 32 with integers wanted", 63, true, orderS32, "format miss err pcm32Fix"},
    {"the last of 24", 31, false, order24, "format miss err "},
    {"24", 24, true, order24, "format miss err "},
    {"the last of 16", 23, false, order16, "format miss err "},
    {"16", 16, false, order16, "format miss err "},
    {"below 16 nobody gets 16", 15, false, orderLess, "format miss err "},
    {"no number at all", 0, false, orderLess, "format miss err "},
};

TEST(FormatLadder, TakesTheFirstRungThatTheTargetHas) {
    for (const LadderCase& c : ladderCases) {
        SCOPED_TRACE(c.why);
        const FormatLadder& ladder = formatLadder(c.request, c.convertS32);
        EXPECT_STREQ(ladder.failureLog, c.failure);
        // Take one rung after the other away from a target that has everything.
        std::uint64_t support = 0x0000'0006'0000'7f02;
        for (const FormatRung& rung : c.order) {
            EXPECT_EQ(climb(ladder, support), rung) << std::hex << rung.bit;
            support &= ~rung.bit;
        }
        EXPECT_EQ(climb(ladder, support), std::nullopt);
    }
}

TEST(FormatLadder, TwentyFourFallsToThirtyTwoBeforeSixteen) {
    EXPECT_EQ(climb(formatLadder(24, false), 0x200 | 0x800), (FormatRung{0x800, 4}));
}

TEST(FormatLadder, DsdAloneIsNoRung) {
    for (const LadderCase& c : ladderCases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(climb(formatLadder(c.request, c.convertS32), 0x2510002), std::nullopt);
    }
}

}  // namespace
