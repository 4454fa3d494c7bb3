#include "bench/Stats.h"

#include <gtest/gtest.h>

namespace {

using namespace velmora_bench;

TEST(Percentile, IsTheSampleAtTheNearestRank) {
    EXPECT_EQ(percentile({}, 0.5), 0);
    EXPECT_EQ(percentile({7}, 0.99), 7);
    EXPECT_EQ(percentile({5, 1, 3, 2, 4}, 0), 1);
    EXPECT_EQ(percentile({5, 1, 3, 2, 4}, 0.5), 3);
    EXPECT_EQ(percentile({5, 1, 3, 2, 4}, 1), 5);
    EXPECT_EQ(percentile({1, 2, 3, 4}, 0.5), 3) << "half way goes up";
    std::vector<double> hundredAndOne;
    for (int i = 100; i >= 0; --i) hundredAndOne.push_back(i);
    EXPECT_EQ(percentile(hundredAndOne, 0.99), 99);
}

TEST(Pairs, TheRatioIsTheMedianOfThePairsNotOfTheMedians) {
    Pairs pairs;
    pairs.add(10, 1);
    pairs.add(20, 10);
    pairs.add(30, 5);
    const Figure figure = pairs.figure("x", 1.5);
    EXPECT_EQ(figure.ours, 20);
    EXPECT_EQ(figure.limit, 5);
    EXPECT_EQ(figure.ratio, 6) << "of 10, 2 and 6";
    EXPECT_TRUE(figure.isOver());
    EXPECT_EQ(pairs.worst("x").ours, 30);
}

TEST(Pairs, OfThroughputsMoreIsBetter) {
    Pairs pairs;
    pairs.addRates(5, 10);
    EXPECT_EQ(pairs.figure("").ratio, 2);
}

TEST(Figure, IsOverAboveWhatIsAllowedAlone) {
    EXPECT_FALSE((Figure{"", 5, 1, 5, 0}).isOver()) << "nothing is laid down";
    EXPECT_FALSE((Figure{"", 1.5, 1, 1.5, 1.5}).isOver());
    EXPECT_TRUE((Figure{"", 1.6, 1, 1.6, 1.5}).isOver());
    EXPECT_FALSE((Figure{"", 0, 0, 0, 1}).isOver()) << "none, where none is allowed";
    EXPECT_TRUE((Figure{"", 0.1, 0, 0, 1}).isOver());
}

TEST(Lateness, IsMeasuredFromTheGrid) {
    // Due at 1000, 2000, 3000 µs.
    const std::vector<double> late = lateness({1'050'000, 2'001'000, 3'900'000}, 1'000'000, 1000);
    EXPECT_EQ(late, (std::vector<double>{50, 1, 900}));
}

TEST(Lateness, ABurstACycleLateBeginsANewGrid) {
    const std::vector<double> late =
        lateness({1'000'000, 3'200'000, 4'210'000, 5'200'000}, 1'000'000, 1000);
    EXPECT_EQ(late, (std::vector<double>{0, 1200, 10, 0}));
}

TEST(Lateness, ANewGridIsAlignedByItsEarliestBurst) {
    // Ten bursts, 4 µs late each; one 2500 µs late, held up on its way by 30 µs more; ten that keep
    // the grid which the sender began before those 30 µs.
    std::vector<std::int64_t> stamps;
    for (std::int64_t i = 0; i < 10; ++i) stamps.push_back(i * 1'000'000 + 4'000);
    const std::int64_t held = 12'500'000;
    stamps.push_back(held + 34'000);
    for (std::int64_t i = 1; i <= 10; ++i) stamps.push_back(held + i * 1'000'000 + 4'000);
    std::vector<double> expected(21, 4);
    expected[10] = 2534;
    EXPECT_EQ(lateness(stamps, 0, 1000), expected);
}

TEST(Lateness, OfNothingIsNothing) {
    EXPECT_TRUE(lateness({}, 0, 1000).empty());
}

TEST(FitLine, FindsALineAndHowWellItTells) {
    const Line exact = fitLine({{0, 1}, {1, 3}, {2, 5}});
    EXPECT_DOUBLE_EQ(exact.slope, 2);
    EXPECT_DOUBLE_EQ(exact.intercept, 1);
    EXPECT_DOUBLE_EQ(exact.r2, 1);
    // By hand: y varies by 6 around its mean of 1, the line leaves 1.5 of that.
    const Line rough = fitLine({{0, 0}, {1, 0}, {2, 3}});
    EXPECT_DOUBLE_EQ(rough.slope, 1.5);
    EXPECT_DOUBLE_EQ(rough.intercept, -0.5);
    EXPECT_DOUBLE_EQ(rough.r2, 0.75);
}

TEST(FitLine, OfPointsThatDoNotMoveTellsAll) {
    EXPECT_EQ(fitLine({{1, 4}, {2, 4}}).r2, 1);
    EXPECT_EQ(fitLine({}).slope, 0);
}

}  // namespace
