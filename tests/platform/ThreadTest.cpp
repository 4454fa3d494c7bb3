#include "platform/Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

#include "platform/posix/Topology.h"

using namespace ZENNO::platform;

namespace {

template <class Work>
void onThreadOfItsOwn(Work work) {
    std::thread(work).join();
}

}  // namespace

TEST(Thread, RaisedPriorityIsGrantedAsFarAsItGoes) {
    onThreadOfItsOwn([] {
        EXPECT_TRUE(setThreadPriority(Priority::timeCritical));
        EXPECT_TRUE(setThreadPriority(Priority::highest));
        EXPECT_TRUE(setThreadPriority(Priority::normal));
    });
}

TEST(Thread, IdlePriorityIsGranted) {
    onThreadOfItsOwn([] { EXPECT_TRUE(setThreadPriority(Priority::idle)); });
}

TEST(Thread, NoProcessorIsNoPlace) {
    onThreadOfItsOwn([] { EXPECT_FALSE(setThreadAffinity(0)); });
}

TEST(Thread, AProcessorThatTheMachineLacksIsNoPlace) {
    if (std::thread::hardware_concurrency() >= 64) GTEST_SKIP() << "every processor is there";
    onThreadOfItsOwn([] { EXPECT_FALSE(setThreadAffinity(std::uint64_t{1} << 63)); });
}

TEST(Thread, OneOfItsProcessorsIsAPlace) {
    onThreadOfItsOwn([] {
        int places = 0;
        for (unsigned cpu = 0; cpu < 64; ++cpu) {
            places += setThreadAffinity(std::uint64_t{1} << cpu) ? 1 : 0;
        }
        EXPECT_GE(places, 1);
    });
}

TEST(Thread, ProcessCannotBeSentOffEveryProcessor) {
    std::atomic<bool> done{false};
    std::thread other([&] {
        while (!done) std::this_thread::yield();
    });
    EXPECT_FALSE(setProcessAffinity(0));
    done = true;
    other.join();
}

TEST(Thread, PriorityClassIsOneOfTheKnownOnes) {
    const std::set<std::uint32_t> known{32, 64, 128, 256, 16384, 32768};
    EXPECT_EQ(known.count(processPriorityClass()), 1u);
    EXPECT_EQ(realtimePriorityClass, 256u);
}

TEST(Thread, CoresAreNoMoreThanLogicalProcessors) {
    const std::int32_t cores = physicalCoreCount();
    EXPECT_GE(cores, 0);
    EXPECT_LE(static_cast<unsigned>(cores), std::max(1u, std::thread::hardware_concurrency()));
}

TEST(Topology, CountsCoresAndNoHyperThreads) {
    struct Case {
        const char* why;
        std::vector<ProcessorPlace> places;
        std::int32_t cores;
    };
    const Case cases[] = {
        {"nothing is known", {}, 0},
        {"one processor", {{0, 0}}, 1},
        {"four cores of two threads each",
         {{0, 0}, {0, 1}, {0, 2}, {0, 3}, {0, 0}, {0, 1}, {0, 2}, {0, 3}},
         4},
        {"core numbers with holes", {{0, 0}, {0, 8}, {0, 16}}, 3},
        {"two packages that number their cores alike", {{0, 0}, {0, 1}, {1, 0}, {1, 1}}, 4},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(distinctCores(c.places), c.cores);
    }
}
