#include "target/Feedback.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace {

using VELMORA::wire::decodeFeedback;
using velmora_target::Feedback;

TEST(Feedback, SaysTheSameInEveryEncoding) {
    for (const int encoding : {1, 2, 3}) {
        SCOPED_TRACE(encoding);
        Feedback feedback(encoding);
        // A hundred milliseconds between questions: a third of that is 1.0, if above 33 ms.
        const auto sent = decodeFeedback(feedback.answer(3333.3, 0));
        EXPECT_EQ(sent.encoding, encoding);
        EXPECT_NEAR(sent.value, 1638, 2);
        EXPECT_EQ(feedback.last(), sent.value);
    }
}

TEST(Feedback, IsPositiveWhenTheTargetHoldsMoreThanItWants) {
    for (const int encoding : {1, 2, 3}) {
        SCOPED_TRACE(encoding);
        Feedback feedback(encoding);
        EXPECT_GT(decodeFeedback(feedback.answer(2000, 0)).value, 0);
        EXPECT_LT(decodeFeedback(feedback.answer(-2000, 1)).value, 0);
        EXPECT_EQ(decodeFeedback(feedback.answer(0, 2)).value, 0);
    }
}

TEST(Feedback, StaysWithinWhatTheWordsCanSay) {
    for (const int encoding : {1, 2, 3}) {
        SCOPED_TRACE(encoding);
        Feedback feedback(encoding);
        EXPECT_NEAR(decodeFeedback(feedback.answer(1e12, 0)).value, 16383, 1);
        EXPECT_NEAR(decodeFeedback(feedback.answer(-1e12, 1)).value, -16383, 1);
        EXPECT_GT(feedback.highest(), 16380);
        EXPECT_LT(feedback.lowest(), -16380);
        EXPECT_EQ(feedback.answers(), 2u);
    }
}

TEST(Feedback, WordsAreAsTheProtocolHasThem) {
    // 0.1 of 33.3 ms: 1638. Encoding 1 counts in twos from 8192, encoding 2 has bit 15 set.
    const double tenth = 100'000.0 / 3 / 10;
    EXPECT_EQ(Feedback(1).answer(tenth, 0).feedback, 8192 + 819);
    EXPECT_EQ(Feedback(2).answer(tenth, 0).feedback, 0x8000 | 1638);
    EXPECT_EQ(Feedback(2).answer(-tenth, 0).feedback, 0x8000 | (0x7fff & -1638));
    const auto third = Feedback(3).answer(-tenth, 0);
    EXPECT_EQ(third.feedback, 0);
    EXPECT_EQ(third.fillTarget, 16384);
    EXPECT_EQ(third.fill, 16384 - 1638);
}

TEST(Feedback, SteersLessWhenItIsAskedMoreSeldom) {
    Feedback often(2), seldom(2);
    for (std::uint64_t i = 0; i < 50; ++i) {
        often.answer(0, i * 10'000);
        seldom.answer(0, i * 1'000'000);
    }
    EXPECT_GT(often.answer(1000, 500'000).feedback & 0x7fff,
              5 * (seldom.answer(1000, 50'000'000).feedback & 0x7fff));
}

// What a host makes of the answers: the mean of the newest few, a tenth of its change and four
// hundredths of its value go into the flow, which may fall by 10 % and rise by 3 %.
struct HostFilter {
    unsigned depth;
    std::array<int, 8> history{};
    int average = 0, adjust = 0;
    double flow(int value) {
        std::rotate(history.begin(), history.end() - 1, history.end());
        history[0] = value;
        int sum = 0;
        for (unsigned i = 0; i < depth; ++i) sum += history[i];
        const int before = average;
        average = sum / static_cast<int>(depth);
        adjust -= ((average - before) * 1638 >> 14) + (average * 655 >> 14);
        adjust = std::clamp(adjust, -1638, 491);
        return 1 + adjust / 16384.0;
    }
};

TEST(Feedback, BringsAnyHostToTheTargetsClock) {
    struct Case {
        const char* why;
        unsigned depth;
        std::uint64_t spacing;  // µs between questions
        double ppm, startMicros;
    };
    constexpr Case cases[] = {
        {"a fast target", 1, 100'000, 300, 0},
        {"a slow target", 1, 100'000, -300, 0},
        {"much too full at first", 1, 100'000, 0, 80'000},
        {"much too empty at first", 1, 100'000, 0, -15'000},
        {"asked every 10 ms", 1, 10'000, 100, 10'000},
        {"asked every 500 ms", 1, 500'000, 100, 10'000},
        {"the mean of two", 2, 100'000, 200, 5'000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Feedback feedback(2);
        HostFilter host{c.depth};
        double excess = c.startMicros, worstAtEnd = 0;
        for (int i = 0; i < 600; ++i) {
            const auto answer = feedback.answer(excess, static_cast<std::uint64_t>(i) * c.spacing);
            const double flow = host.flow(decodeFeedback(answer).value);
            excess += static_cast<double>(c.spacing) * (flow - (1 + c.ppm * 1e-6));
            if (i >= 400) worstAtEnd = std::max(worstAtEnd, std::abs(excess));
        }
        EXPECT_LT(worstAtEnd, 2'500);
    }
}

}  // namespace
