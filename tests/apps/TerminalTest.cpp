#include "apps/velmora-play/Terminal.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using velmora_play::Progress;
using velmora_play::ProgressLine;
using velmora_play::progressText;
using velmora_play::sameName;

TEST(ProgressText, TellsWhereThePlayerIs) {
    struct Case {
        const char* why;
        Progress progress;
        const char* text;
    };
    const Case cases[] = {
        {"nothing yet",
         {0, 10, 0, 0},
         "0:00 / 0:10  [------------------------]  0 switches, position 0"},
        {"half way",
         {5, 10, 261, 133632},
         "0:05 / 0:10  [############------------]  261 switches, position 133632"},
        {"short of a mark",
         {10 * 12.99 / 24, 10, 1, 2},
         "0:05 / 0:10  [############------------]  1 switches, position 2"},
        {"at the end",
         {10, 10, 522, -1},
         "0:10 / 0:10  [########################]  522 switches, position -1"},
        {"seconds are not rounded up",
         {59.99, 3600, 1, 1},
         "0:59 / 60:00  [------------------------]  1 switches, position 1"},
        {"beyond the end",
         {11, 10, 1, 1},
         "0:11 / 0:10  [########################]  1 switches, position 1"},
        {"a length that is not known",
         {75, 0, 1, 1},
         "1:15 / 0:00  [------------------------]  1 switches, position 1"},
        {"a length that no clock has",
         {0, 1e300, 1, 1},
         "0:00 / 16666666666:40  [------------------------]  1 switches, position 1"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(progressText(c.progress), c.text);
    }
}

// Standard error of a test is no terminal, or its lines are overwritten: only what does not depend
// on it is looked at.
class ProgressLineTest : public testing::Test {
protected:
    void SetUp() override { testing::internal::CaptureStderr(); }
    static std::string shown() { return testing::internal::GetCapturedStderr(); }
};

TEST_F(ProgressLineTest, QuietShowsNothing) {
    ProgressLine line(/*quiet=*/true);
    line.show("title", {5, 10, 1, 1});
    line.end();
    EXPECT_EQ(shown(), "");
}

TEST_F(ProgressLineTest, WithoutATerminalALineIsShownEveryTwoSecondsAndTheLast) {
    ProgressLine line(/*quiet=*/false);
    for (const double seconds : {0.0, 0.1, 1.9, 2.0, 3.0, 4.5, 4.6}) {
        line.show("title", {seconds, 10, 0, 0});
    }
    line.end();
    const std::string bar = "[------------------------]  0 switches, position 0\n";
    EXPECT_EQ(shown(),
              "title\n"
              "0:00 / 0:10  " +
                  bar +
                  "0:02 / 0:10  [####--------------------]  0 switches, position 0\n"
                  "0:04 / 0:10  [##########--------------]  0 switches, position 0\n"
                  "0:04 / 0:10  [###########-------------]  0 switches, position 0\n");
}

TEST_F(ProgressLineTest, NothingShownNothingEnded) {
    ProgressLine line(/*quiet=*/false);
    line.end();
    EXPECT_EQ(shown(), "");
}

TEST(SameName, DoesNotMindTheCase) {
    EXPECT_TRUE(sameName("KORVENTE Velmora", "korvente VELMORA"));
    EXPECT_TRUE(sameName("", ""));
    EXPECT_FALSE(sameName("KORVENTE", "KORVENTE "));
    EXPECT_FALSE(sameName("a", "b"));
}

}  // namespace
