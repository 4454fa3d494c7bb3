#include "sync/FeedbackFilter.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using VELMORA::FeedbackFilter;
using VELMORA::feedbackText;
using VELMORA::fixedText;
using VELMORA::TransferProfile;

void feed(FeedbackFilter& filter, std::int16_t value) {
    filter.onPass();
    filter.onFeedback(value);
}

TEST(FeedbackFilter, RestsWhenNothingComes) {
    FeedbackFilter filter(1);
    for (int i = 0; i < 1000; ++i) filter.onPass();
    EXPECT_EQ(filter.adjust(), 0);
    EXPECT_EQ(filter.average(), 0);
}

TEST(FeedbackFilter, AConstantTenthLowersBy228OnceAndThenBy65DownToItsBound) {
    FeedbackFilter filter(1);
    feed(filter, 1638);
    EXPECT_EQ(filter.adjust(), -228);
    feed(filter, 1638);
    EXPECT_EQ(filter.adjust(), -293);
    for (int i = 0; i < 20; ++i) feed(filter, 1638);
    EXPECT_EQ(filter.adjust(), -228 - 65 * 21);
    feed(filter, 1638);
    EXPECT_EQ(filter.adjust(), -1638);
    feed(filter, 1638);
    EXPECT_EQ(filter.adjust(), -1638);
}

TEST(FeedbackFilter, ZeroHoldsASteadyStreamWhereItStands) {
    FeedbackFilter filter(1);
    feed(filter, 1638);
    feed(filter, 0);  // the change back counts once
    const std::int16_t held = filter.adjust();
    EXPECT_EQ(held, -228 + 164) << "-1638 x 1638 >> 14 is -164: arithmetic shifts round down";
    for (int i = 0; i < 100; ++i) feed(filter, 0);
    EXPECT_EQ(filter.adjust(), held);
}

TEST(FeedbackFilter, ShiftsRoundTowardsMinusInfinity) {
    FeedbackFilter filter(1);
    feed(filter, -1);  // (-1 x 1638) >> 14 = -1, (-1 x 655) >> 14 = -1
    EXPECT_EQ(filter.adjust(), 2);
}

TEST(FeedbackFilter, ATenthOfTheChangeAndATwentyFifthOfTheHeightByTheirIntegerForms) {
    FeedbackFilter filter(1);
    feed(filter, -16384);
    EXPECT_EQ(filter.adjust(), 491);
    feed(filter, 2502);  // (18886 x 1638) >> 14 = 1888, (2502 x 655) >> 14 = 100
    EXPECT_EQ(filter.adjust(), 491 - 1888 - 100);
}

TEST(FeedbackFilter, RaisesByThreePercentAtMost) {
    FeedbackFilter filter(1);
    feed(filter, -16384);
    EXPECT_EQ(filter.adjust(), 491);
    FeedbackFilter other(1);
    feed(other, 16383);
    EXPECT_EQ(other.adjust(), -1638);
}

TEST(FeedbackFilter, AveragesTheNewestValuesTruncatingTowardsZero) {
    struct Case {
        const char* why;
        std::uint32_t depth;
        std::vector<std::int16_t> values;
        std::int16_t average;
    };
    const Case cases[] = {
        {"depth 1 is the newest", 1, {100, 200, -7}, -7},
        {"depth 2", 2, {100, 200, 301}, 250},
        {"what has not come counts as 0", 4, {400}, 100},
        {"truncated towards zero", 2, {0, -3}, -1},
        {"eight", 8, {999, 1, 2, 3, 4, 5, 6, 7, 8}, 4},
        {"eight of the lowest",
         8,
         {-32768, -32768, -32768, -32768, -32768, -32768, -32768, -32768},
         -32768},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        FeedbackFilter filter(c.depth);
        for (const std::int16_t value : c.values) feed(filter, value);
        EXPECT_EQ(filter.average(), c.average);
    }
}

TEST(FeedbackFilter, TheChangeIsTakenFromTheStartOfThePass) {
    // Passes without feedback in between change nothing: the average stands, so its change is 0.
    FeedbackFilter often(1), seldom(1);
    feed(often, 1638);
    feed(seldom, 1638);
    for (int i = 0; i < 50; ++i) seldom.onPass();
    feed(often, 1638);
    feed(seldom, 1638);
    EXPECT_EQ(often.adjust(), seldom.adjust());
}

struct RowCase {
    const char* why;
    std::int16_t feedback;  // brings adjust to its bound
    TransferProfile row;
    std::uint32_t cycle, framesQ14;
};
constexpr RowCase rowCases[] = {
    {"Fix lowered by a tenth",
     16383,
     {.cycle = 1000, .framesQ14 = 722534, .mode = 1},
     1000,
     650298},
    {"Fix raised by 3 percent",
     -16384,
     {.cycle = 1000, .framesQ14 = 722534, .mode = 1},
     1000,
     744187},
    {"Random follows Fix", 16383, {.cycle = 1000, .framesQ14 = 722534, .mode = 2}, 1000, 650298},
    {"Var raised: a shorter cycle",
     -16384,
     {.cycle = 1000, .fixedBytes = 360, .framesQ14 = 9},
     971,
     9},
    {"Var lowered: a longer one",
     16383,
     {.cycle = 1000, .fixedBytes = 360, .framesQ14 = 9},
     1100,
     9},
    {"a large cycle does not overflow",
     16383,
     {.cycle = 2000000000, .fixedBytes = 360},
     2199951172,
     0},
};

TEST(FeedbackFilter, CorrectsTheRowInForceAndNeverCompounds) {
    for (const RowCase& c : rowCases) {
        SCOPED_TRACE(c.why);
        FeedbackFilter filter(1);
        for (int i = 0; i < 3; ++i) {
            feed(filter, c.feedback);
            EXPECT_EQ(filter.cycleFor(c.row), c.cycle);
            EXPECT_EQ(filter.framesFor(c.row), c.framesQ14);
        }
    }
}

TEST(FeedbackText, ShowsANumberInEightCharacters) {
    struct Case {
        const char* why;
        std::int16_t value;
        const char* text;
    };
    // Decimals by hand: ((fraction x 100000) >> 14) + 5, the last digit dropped.
    const Case cases[] = {
        {"nothing", 0, "  0.0000"},
        {"one", 16384, "  1.0000"},
        {"minus one", -16384, " -1.0000"},
        {"a half", 8192, "  0.5000"},
        {"the smallest: 6 + 5 = 11", 1, "  0.0001"},
        {"a tenth less a little: 9997 + 5", 1638, "  0.1000"},
        {"the lower bound", -1638, " -0.1000"},
        {"the upper bound: 2996 + 5", 491, "  0.0300"},
        {"just below one: 99993 + 5 does not reach it", 16383, "  0.9999"},
        {"just below two", 32767, "  1.9999"},
        {"the lowest: bit 15 of its magnitude is not shown", -32768, " -0.0000"},
        {"228: 1391 + 5", -228, " -0.0139"},
        {"65: 396 + 5", 65, "  0.0040"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(fixedText(c.value), c.text);
    }
}

TEST(FeedbackText, ShowsWhatCameAndWhatBecameOfIt) {
    FeedbackFilter filter(1);
    feed(filter, 1638);
    const TransferProfile var{.cycle = 1000, .fixedBytes = 360, .packetCount = 1};
    EXPECT_EQ(feedbackText(2, 1638, filter, var, 1013, 0),
              "info rcv 2  0.1000  0.1000 -0.0139 cy=1013");

    struct Case {
        const char* why;
        std::uint16_t packetCount;
        std::uint32_t framesQ14;
        const char* frames;
    };
    const Case cases[] = {
        {"44.1: 9997 + 5", 1, 722534, " fs=44.1000"},
        {"lowered: 69104 + 5", 1, 650298, " fs=39.6910"},
        {"of all packets of the cycle", 3, 8192, " fs=1.5000"},
        {"beyond 32 bits", 65535, 0xffffffff, " fs=17179607036.0001"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const TransferProfile fix{.cycle = 1000, .packetCount = c.packetCount, .mode = 1};
        EXPECT_EQ(feedbackText(0, 0, filter, fix, 1000, c.framesQ14),
                  std::string("info rcv 0  0.0000  0.1000 -0.0139") + c.frames);
    }
}

}  // namespace
