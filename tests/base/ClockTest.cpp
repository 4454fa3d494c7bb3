#include "base/Clock.h"

#include <gtest/gtest.h>

#include <limits>

#include "platform/Time.h"

using ZENNO::compareWrapped;

TEST(Clock, ComparesTheShorterWayRound) {
    struct Case {
        const char* why;
        std::uint32_t a, b;
        int order;
    };
    const Case cases[] = {
        {"equal", 5, 5, 0},
        {"earlier", 1, 2, -1},
        {"later", 2, 1, 1},
        {"the earlier time is the larger number", 0xffffffff, 0, -1},
        {"and the other way round", 0, 0xffffffff, 1},
        {"just below half a turn", 0, 0x7fffffff, -1},
        {"just below half a turn, later", 0x7fffffff, 0, 1},
        {"half a turn", 0, 0x80000000, 1},
        {"half a turn, from the larger number", 0x80000000, 0, -1},
        {"half a turn elsewhere", 1, 0x80000001, 1},
        {"more than half a turn", 0, 0x80000001, 1},
        {"more than half a turn, from the larger number", 0x80000001, 0, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(compareWrapped(c.a, c.b), c.order);
    }
}

TEST(Clock, ReachesATimeForHalfATurn) {
    struct Case {
        const char* why;
        std::uint32_t time, mark;
        bool reached;
    };
    const Case cases[] = {
        {"at it", 7, 7, true},
        {"behind it", 8, 7, true},
        {"in front of it", 6, 7, false},
        {"behind it, across the wrap", 3, 0xfffffff0, true},
        {"in front of it, across the wrap", 0xfffffff0, 3, false},
        {"the last time that counts", 0x7fffffff, 0, true},
        {"one more", 0x80000000, 0, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(ZENNO::hasReached(c.time, c.mark), c.reached);
    }
}

TEST(Clock, NowIsTheCounter) {
    const std::uint32_t before = ZENNO::platform::counterMicros();
    const std::uint32_t now = ZENNO::nowMicros();
    const std::uint32_t system = ZENNO::systemClock().now();
    const std::uint32_t after = ZENNO::platform::counterMicros();
    EXPECT_LE(now - before, after - before);
    EXPECT_LE(system - before, after - before);
}

TEST(Clock, SleepsUntilTheSteadyClockIsThere) {
    const std::int64_t until = ZENNO::platform::steadyNanos() + 3'000'000;
    ZENNO::sleepUntil(until);
    EXPECT_GE(ZENNO::platform::steadyNanos(), until);
}

TEST(Clock, ATimeGoneByIsNotWaitedFor) {
    ZENNO::sleepUntil(ZENNO::platform::steadyNanos());
    ZENNO::sleepUntil(0);
    ZENNO::sleepUntil(std::numeric_limits<std::int64_t>::min());
}

TEST(Clock, SystemClockSleepsAtLeastSoLong) {
    ZENNO::Clock& clock = ZENNO::systemClock();
    const std::uint32_t before = clock.now();
    clock.sleep(2000);
    EXPECT_GE(clock.now() - before, 2000u);
    clock.sleep(0);
    clock.yield();
}
