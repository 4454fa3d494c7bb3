// What the worker's thread does before and behind the stream: fitting, priority, placement.
#include <gmock/gmock.h>

#include "sync/ThreadMode.h"
#include "tests/sync/StreamHarness.h"

namespace {

using namespace velmora_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

// A session whose target is silent: whether the stream began is told by CONNECT_REQ.
struct Entry : Session {
    explicit Entry(std::uint32_t mode) : Session(mode) {
        prepare(fixRow(999, 1));
        sync.latency = 3000;
        target.answers.clear();
    }
    void run() { sync.workerEntry(); }
    bool streamed() const { return !target.requests.empty(); }
};

TEST(WorkerThread, RunsTheStreamAndLeavesTheSessionIdle) {
    Entry e(VELMORA::CRITICAL);
    const LogCapture log(6);
    e.run();
    EXPECT_TRUE(e.streamed());
    EXPECT_EQ(e.sync.state, Sync::Idle);
    EXPECT_THAT(e.machine.priorities, ElementsAre(15));
    EXPECT_THAT(e.machine.threadMasks, IsEmpty());
    EXPECT_THAT(log.texts(6), ElementsAre("wth start CRITICAL CPU:4 FEEDBACK:1  Info=100",
                                          "wth CR ack none", "wth end"));
}

TEST(WorkerThread, IsOfHighestPriorityUnlessCritical) {
    Entry e(0);
    e.run();
    EXPECT_THAT(e.machine.priorities, ElementsAre(2));
}

TEST(WorkerThread, ARealtimeProcessKeepsItsInheritedPriority) {
    Entry e(VELMORA::CRITICAL);
    e.machine.priorityClass = 256;
    e.machine.priorityWorks = false;
    const LogCapture log(6);
    e.run();
    EXPECT_TRUE(e.streamed());
    EXPECT_THAT(e.machine.priorities, IsEmpty());
    EXPECT_TRUE(log.has(6, "wth Rialtime Class not chnage priority"));
}

TEST(WorkerThread, AnyOtherClassIsNotExempt) {
    for (const std::uint32_t c : {32u, 64u, 128u, 16384u, 32768u, 0u}) {
        Entry e(VELMORA::CRITICAL);
        e.machine.priorityClass = c;
        e.run();
        EXPECT_THAT(e.machine.priorities, ElementsAre(15)) << c;
    }
}

TEST(WorkerThread, ARefusedPriorityEndsItWithoutAWord) {
    Entry e(VELMORA::CRITICAL);
    e.machine.priorityWorks = false;
    const LogCapture log(7);
    e.run();
    EXPECT_FALSE(e.streamed());
    EXPECT_EQ(e.sync.state, Sync::Idle);
    EXPECT_THAT(log.texts(), ElementsAre("wth start CRITICAL CPU:4 FEEDBACK:1  Info=100"));
}

struct PlaceCase {
    const char* why;
    std::uint64_t processors;
    bool processAffinityWorks;
    std::vector<std::uint64_t> threadMasks, processMasks;
    bool streams;
};

TEST(WorkerThread, OccupiesTheThirdProcessorOrTheSecond) {
    const PlaceCase cases[] = {
        {"the third, and the rest of the process keeps off it",
         0xff,
         true,
         {4},
         {0xffff'ffff'ffff'fffb},
         true},
        {"two processors: the second", 0x3, true, {4, 2}, {0xffff'ffff'ffff'fffd}, true},
        {"whether the process moves does not matter",
         0xff,
         false,
         {4},
         {0xffff'ffff'ffff'fffb},
         true},
        {"a single one: the stream does not start", 0x1, true, {4, 2}, {}, false},
    };
    for (const PlaceCase& c : cases) {
        SCOPED_TRACE(c.why);
        Entry e(VELMORA::CRITICAL | VELMORA::OCCUPIED);
        e.machine.processors = c.processors;
        e.machine.processAffinityWorks = c.processAffinityWorks;
        const LogCapture log(6);
        e.run();
        EXPECT_EQ(e.machine.threadMasks, c.threadMasks);
        EXPECT_EQ(e.machine.processMasks, c.processMasks);
        EXPECT_EQ(e.streamed(), c.streams);
        EXPECT_EQ(e.sync.state, Sync::Idle);
        EXPECT_EQ(log.has("wth end"), c.streams);
    }
}

TEST(WorkerThread, ASmallMachineStartsOnTheLastRow) {
    Entry e(VELMORA::NOSLEEP4CORE);
    e.machine.cores = 2;
    e.sync.profiles[1] = Session::fixRow(3000, 1);
    e.sync.profileCount = 2;
    const LogCapture log(6);
    e.run();
    EXPECT_EQ(e.sync.threadMode, 0u);
    EXPECT_EQ(e.sync.lowCpu, 1);
    EXPECT_TRUE(log.has(6, "low cpu change profile 1"));
}

TEST(WorkerThread, WithOneRowThereIsNoOtherToStartOn) {
    Entry e(0);
    e.machine.cores = 2;
    const LogCapture log(6);
    e.run();
    EXPECT_EQ(e.sync.lowCpu, 1);
    EXPECT_FALSE(log.has("low cpu change profile 0"));
}

TEST(WorkerThread, ByForceASmallMachineKeepsItsModeAndItsRow) {
    Entry e(VELMORA::NOSLEEP4CORE | VELMORA::NOSLEEPFORCE);
    e.machine.cores = 2;
    e.sync.lowCpu = 1;  // of an earlier stream
    e.sync.profiles[1] = Session::fixRow(3000, 1);
    e.sync.profileCount = 2;
    const LogCapture log(6);
    e.run();
    EXPECT_EQ(e.sync.threadMode, 0x804u);
    EXPECT_EQ(e.sync.lowCpu, 0);
    EXPECT_THAT(log.texts(), Not(Contains(testing::HasSubstr("low cpu"))));
}

TEST(WorkerThread, AFailedStreamEndsIdleToo) {
    Entry e(VELMORA::CRITICAL);
    e.network.sendError = 10051;
    const LogCapture log(6);
    e.run();
    EXPECT_EQ(e.sync.state, Sync::Idle);
    EXPECT_TRUE(log.has(3, "wth CR send err"));
    EXPECT_TRUE(log.has(6, "wth end"));
}

TEST(WorkerThread, StartsThroughItsVirtualSlot) {
    Entry e(VELMORA::CRITICAL);
    EXPECT_TRUE(e.sync.startWorker());
    ASSERT_EQ(e.machine.entries.size(), 1u);
    e.machine.entries[0]();
    EXPECT_TRUE(e.streamed());
    EXPECT_EQ(e.sync.state, Sync::Idle);
}

}  // namespace
