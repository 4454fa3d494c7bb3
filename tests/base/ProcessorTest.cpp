#include "base/Processor.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/Thread.h"

namespace platform = ZENNO::platform;

TEST(Processor, LevelsArePriorities) {
    struct Case {
        std::uint32_t level;
        std::int32_t priority;
    };
    const Case cases[] = {{0, 15}, {1, 2}, {2, 0}, {3, -15}, {4, 0}, {0xffffffff, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.level);
        EXPECT_EQ(ZENNO::threadPriorityOf(c.level), c.priority);
    }
}

TEST(Processor, EveryLevelIsGranted) {
    for (const std::uint32_t level : {0u, 1u, 2u, 3u, 4u}) {
        SCOPED_TRACE(level);
        std::thread([&] { EXPECT_TRUE(ZENNO::setThreadPriorityLevel(level)); }).join();
    }
}

TEST(Processor, PriorityClassesAreLevels) {
    struct Case {
        const char* why;
        std::uint32_t priorityClass;
        std::int32_t level;
    };
    const Case cases[] = {
        {"realtime", 256, 0}, {"high", 128, 1},  {"above normal", 32768, 1},
        {"normal", 32, 2},    {"idle", 64, 3},   {"below normal", 16384, 3},
        {"no class", 0, 2},   {"another", 1, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(ZENNO::levelOfPriorityClass(c.priorityClass), c.level);
    }
    EXPECT_EQ(ZENNO::priorityClassLevel(),
              ZENNO::levelOfPriorityClass(platform::processPriorityClass()));
}

TEST(Processor, CoresAreThoseOfThePlatform) {
    EXPECT_EQ(ZENNO::physicalCoreCount(), platform::physicalCoreCount());
}

TEST(Processor, PinsToAProcessorThatThereIs) {
    std::thread([] {
        int pins = 0;
        for (unsigned cpu = 0; cpu < 64 && pins == 0; ++cpu) {
            pins += ZENNO::pinToProcessor(static_cast<std::uint8_t>(cpu)) ? 1 : 0;
        }
        EXPECT_EQ(pins, 1);
        // The rest of the process may go everywhere again.
        platform::setProcessAffinity(~std::uint64_t{0});
    }).join();
}

TEST(Processor, DoesNotPinBeyondAMask) {
    for (const unsigned cpu : {64u, 65u, 128u, 255u}) {
        SCOPED_TRACE(cpu);
        EXPECT_FALSE(ZENNO::pinToProcessor(static_cast<std::uint8_t>(cpu)));
    }
}
