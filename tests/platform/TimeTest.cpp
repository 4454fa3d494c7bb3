#include "platform/Time.h"

#include <gtest/gtest.h>

#include <ctime>
#include <limits>

using namespace ZENNO::platform;

TEST(Time, CounterIsTheSteadyClockInMicrosecondsLow32Bits) {
    for (int i = 0; i < 1000; ++i) {
        const auto before = static_cast<std::uint32_t>(steadyNanos() / 1000);
        const std::uint32_t counter = counterMicros();
        const auto after = static_cast<std::uint32_t>(steadyNanos() / 1000);
        EXPECT_LE(counter - before, after - before);
    }
}

TEST(Time, SteadyClockNeverGoesBack) {
    std::int64_t last = steadyNanos();
    for (int i = 0; i < 1000; ++i) {
        const std::int64_t now = steadyNanos();
        EXPECT_GE(now, last);
        last = now;
    }
}

TEST(Time, SleepOfNothingReturns) {
    for (const std::int64_t nanos :
         {std::int64_t{0}, std::int64_t{-1}, std::numeric_limits<std::int64_t>::min()}) {
        sleepNanos(nanos);
    }
}

TEST(Time, SleepLetsTheClockGoOn) {
    const std::int64_t before = steadyNanos();
    sleepNanos(1);
    yieldSlice();
    EXPECT_GT(steadyNanos(), before);
}

TEST(Time, TimerResolutionGoesOffAsItWentOn) {
    const bool on = raiseTimerResolution(true);
    EXPECT_EQ(raiseTimerResolution(false), on);
}

TEST(Time, MillisecondTickGoesForward) {
    const std::uint32_t before = millisecondTick();
    sleepNanos(2'000'000);
    EXPECT_LE(millisecondTick() - before, 0x7fffffffu);
}

TEST(Time, LocalTimeIsThatOfTheCLibrary) {
    const auto asNumber = [](const LocalTime& t) {
        return (((t.month * 31 + t.day) * 24 + t.hour) * 60 + t.minute) * 60 + t.second;
    };
    const auto ofLibrary = [&] {
        const std::time_t now = std::time(nullptr);
        const std::tm* parts = std::localtime(&now);
        return asNumber(
            {parts->tm_mon, parts->tm_mday, parts->tm_hour, parts->tm_min, parts->tm_sec});
    };
    const int before = ofLibrary();
    const LocalTime now = localTimeNow();
    const int after = ofLibrary();
    if (before <= after) {  // else a year has just ended
        EXPECT_LE(before, asNumber(now));
        EXPECT_LE(asNumber(now), after);
    }
    EXPECT_TRUE(now.month >= 0 && now.month <= 11);
    EXPECT_TRUE(now.day >= 1 && now.day <= 31);
}

TEST(Time, AnExactTimerSleepsOrIsNotUsable) {
    ExactTimer timer;
    for (const std::uint32_t micros : {0u, 1u, 500u, 2500u}) {
        const std::int64_t before = steadyNanos();
        timer.sleep(micros);
        EXPECT_GE(steadyNanos(), before);
    }
}

TEST(Time, RestEndsWhateverIsAskedFor) {
    for (const std::uint32_t micros : {0u, 149u, 150u, 4000u}) restFromPolling(micros);
}
