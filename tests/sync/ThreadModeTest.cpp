#include "sync/ThreadMode.h"

#include <gtest/gtest.h>

namespace {

using VELMORA::FittedMode;
using VELMORA::fitToMachine;
using VELMORA::Waiting;

TEST(ThreadMode, FlagsStandWhereSettingsPutThem) {
    struct Case {
        const char* why;
        std::uint32_t flag, mask;
    };
    const Case cases[] = {
        {"CRITICAL", VELMORA::CRITICAL, 0x001},
        {"NOSHORTSLEEP", VELMORA::NOSHORTSLEEP, 0x002},
        {"NOSLEEP4CORE", VELMORA::NOSLEEP4CORE, 0x004},
        {"SOCKETNOBLOCK", VELMORA::SOCKETNOBLOCK, 0x008},
        {"OCCUPIED", VELMORA::OCCUPIED, 0x010},
        {"FEEDBACK", VELMORA::FEEDBACK, 0x0e0},
        {"NOFASTFEEDBACK", VELMORA::NOFASTFEEDBACK, 0x100},
        {"SLEEP0ONCE", VELMORA::SLEEP0ONCE, 0x200},
        {"SLEEP0ALWAYS", VELMORA::SLEEP0ALWAYS, 0x400},
        {"NOSLEEPFORCE", VELMORA::NOSLEEPFORCE, 0x800},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(c.flag, c.mask);
    }
}

TEST(ThreadMode, FeedbackDepthIsOneMoreThanItsBits) {
    for (std::uint32_t bits = 0; bits < 8; ++bits) {
        EXPECT_EQ(VELMORA::feedbackDepth(bits << 5), bits + 1);
        EXPECT_EQ(VELMORA::feedbackDepth(bits << 5 | 0xf1f), bits + 1);
    }
}

struct FitCase {
    const char* why;
    std::uint32_t mode;
    std::int32_t cores;
    std::uint16_t latency;
    std::uint32_t cycle;
    std::uint32_t fitted;
    bool lowCpu;
};
constexpr FitCase fitCases[] = {
    {"two cores drop the polling, and a short cycle takes the last row", 0x005, 2, 3000, 999, 0x001,
     true},
    {"a cycle of exactly 1 ms stays on the first row", 0x005, 2, 3000, 1000, 0x001, false},
    {"a short cycle is enough for the last row, without any polling asked for", 0x001, 2, 3000, 999,
     0x001, true},
    {"three cores are enough", 0x005, 3, 3000, 999, 0x005, false},
    {"one core", 0x004, 1, 3000, 400, 0x000, true},
    {"an unknown count is a small machine", 0x004, 0, 3000, 400, 0x000, true},
    {"NOSLEEPFORCE keeps both as they are", 0x805, 2, 3000, 999, 0x805, false},
    {"a latency of 200 ms drops NOFASTFEEDBACK", 0x101, 4, 2000, 999, 0x001, false},
    {"one unit more leaves it", 0x101, 4, 2001, 999, 0x101, false},
    {"no latency drops it", 0x100, 4, 0, 999, 0x000, false},
    {"both at once", 0x1e4, 2, 2000, 999, 0x0e0, true},
};

TEST(ThreadMode, FitsTheMachine) {
    for (const FitCase& c : fitCases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(fitToMachine(c.mode, c.cores, c.latency, c.cycle),
                  (FittedMode{c.fitted, c.lowCpu}));
    }
}

TEST(ThreadMode, StartLineNamesWhatIsSet) {
    struct Case {
        const char* why;
        std::uint32_t mode;
        std::int32_t cores;
        std::uint32_t infoCycle;
        const char* text;
    };
    const Case cases[] = {
        {"the default", 0x001, 4, 100000, "wth start CRITICAL CPU:4 FEEDBACK:1  Info=100"},
        {"nothing set", 0x000, 0, 999, "wth start CPU:0 FEEDBACK:1  Info=0"},
        {"NOFASTFEEDBACK replaces one of the two blanks", 0x100, 8, 50000,
         "wth start CPU:8 FEEDBACK:1 NOFASTFEEDBACK  Info=50"},
        {"everything, in its order", 0xfff, 16, 250000,
         "wth start CRITICAL NOSHORTSLEEP NOSLEEP4CORE NOSLEEPFORCE SOCKETNOBLOCK OCCUPIED CPU:16 "
         "FEEDBACK:8 NOFASTFEEDBACK  Info=250"},
        {"the yields are not shown", 0x600, 2, 1000, "wth start CPU:2 FEEDBACK:1  Info=1"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(VELMORA::threadStartText(c.mode, c.cores, c.infoCycle), c.text);
    }
}

struct WaitCase {
    const char* why;
    std::uint32_t mode;
    std::uint32_t remaining;
    Waiting::Pass first, second;
};
constexpr WaitCase waitCases[] = {
    {"no flag: one wait", 0, 1, {false, false}, {false, false}},
    {"one yield a cycle", VELMORA::SLEEP0ONCE, 500, {true, false}, {false, false}},
    {"a yield a pass", VELMORA::SLEEP0ALWAYS, 500, {true, false}, {true, false}},
    {"always beats once",
     VELMORA::SLEEP0ALWAYS | VELMORA::SLEEP0ONCE,
     500,
     {true, false},
     {true, false}},
    {"a short rest is polled", VELMORA::NOSHORTSLEEP, 100, {false, true}, {false, true}},
    {"a longer one is waited for", VELMORA::NOSHORTSLEEP, 101, {false, false}, {false, false}},
    {"polling on a large machine", VELMORA::NOSLEEP4CORE, 900, {false, true}, {false, true}},
    {"polling by force", VELMORA::NOSLEEPFORCE, 900, {false, true}, {false, true}},
    {"polling with one yield",
     VELMORA::NOSLEEPFORCE | VELMORA::SLEEP0ONCE,
     900,
     {true, true},
     {false, true}},
    {"polling with yields",
     VELMORA::NOSLEEP4CORE | VELMORA::SLEEP0ALWAYS,
     900,
     {true, true},
     {true, true}},
};

TEST(ThreadMode, WhoPollsTheEndOfACycleIsAwakeWhenItBegins) {
    EXPECT_EQ(Waiting(VELMORA::NOSHORTSLEEP).waitFor(101), 1u);
    EXPECT_EQ(Waiting(VELMORA::NOSHORTSLEEP).waitFor(1000), 900u);
    EXPECT_EQ(Waiting(VELMORA::NOSHORTSLEEP).waitFor(100), 100u);
    EXPECT_EQ(Waiting(VELMORA::CRITICAL).waitFor(1000), 1000u);
}

TEST(ThreadMode, OnlyWhoNeverSleepsRestsAndThatOnceACycle) {
    for (const std::uint32_t mode : {VELMORA::NOSLEEP4CORE, VELMORA::NOSLEEPFORCE}) {
        Waiting waiting(mode);
        EXPECT_TRUE(waiting.takeRest());
        EXPECT_FALSE(waiting.takeRest());
        waiting.onDeadlineMet();
        EXPECT_TRUE(waiting.takeRest());
    }
    for (const std::uint32_t mode : {std::uint32_t{0}, std::uint32_t{VELMORA::NOSHORTSLEEP}}) {
        Waiting waiting(mode);
        EXPECT_FALSE(waiting.takeRest());
    }
}

TEST(ThreadMode, APassBeforeItsDeadlineYieldsPollsOrWaits) {
    for (const WaitCase& c : waitCases) {
        SCOPED_TRACE(c.why);
        Waiting waiting(c.mode);
        EXPECT_EQ(waiting.onPass(c.remaining), c.first);
        EXPECT_EQ(waiting.onPass(c.remaining), c.second);
        waiting.onDeadlineMet();
        EXPECT_EQ(waiting.onPass(c.remaining), c.first) << "the next cycle begins anew";
    }
}

}  // namespace
