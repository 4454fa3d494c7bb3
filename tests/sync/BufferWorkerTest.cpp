#include <gtest/gtest.h>

#include <algorithm>

#include "tests/sync/BufferHarness.h"

namespace {

using namespace velmora_test;

struct BufferWorkerTest : BufferTest {
    void start(std::uint64_t count) {
        buffer.setupBuffers(64, count);
        buffer.state = Sync::Connected;
        ASSERT_TRUE(buffer.startBufferWorker());
    }
    void take() {
        StreamRef view;
        ASSERT_TRUE(buffer.getNewStream(view));
        ASSERT_EQ(view.size, 512u);
    }
    bool isFull(std::uint64_t count) {
        return eventually([&] { return buffer.blockCount() == count; });
    }
    bool fills(int count) {
        return eventually([&] { return buffer.done.load() == count; });
    }
};

TEST_F(BufferWorkerTest, DoesNothingOnAFullRingUntilABlockIsTaken) {
    start(3);
    EXPECT_TRUE(eventually([&] { return buffer.begun.load() == 0; }));
    EXPECT_EQ(buffer.begun, 0);
    take();
    EXPECT_TRUE(fills(1));
    EXPECT_TRUE(isFull(3));
    EXPECT_EQ(buffer.begun, 1);  // and no further
}

TEST_F(BufferWorkerTest, FillsWithWhatTheOwnerMakesBehindTheSilence) {
    start(2);
    for (int i = 0; i < 8; ++i) {
        StreamRef view;
        ASSERT_TRUE(buffer.getNewStream(view));
        ASSERT_EQ(view.size, 512u);
        EXPECT_EQ(view.data[0], i < 2 ? 0 : i - 1);
        EXPECT_EQ(view.data[511], view.data[0]);
        EXPECT_TRUE(isFull(2));
    }
}

TEST_F(BufferWorkerTest, PassesOneKickInABurstOfFills) {
    buffer.gate.shut();
    start(3);
    ASSERT_TRUE(buffer.getNewStreamDone());  // finds the ring full: stays until the next fill
    take();
    ASSERT_TRUE(eventually([&] { return buffer.begun.load() == 1; }));
    EXPECT_FALSE(buffer.fillKick);
    take();  // while a slow fill runs
    ASSERT_TRUE(buffer.getNewStreamDone());
    buffer.gate.open();
    EXPECT_TRUE(fills(2));
    EXPECT_TRUE(isFull(3));
    EXPECT_EQ(buffer.kicks(), (std::vector<bool>{true, false}));
    EXPECT_FALSE(buffer.fillKick);  // taken all the same
}

TEST_F(BufferWorkerTest, PassesAKickInTheMiddleOfABurstThatHadNone) {
    buffer.gate.shut();
    start(3);
    take();
    ASSERT_TRUE(eventually([&] { return buffer.begun.load() == 1; }));
    take();
    ASSERT_TRUE(buffer.getNewStreamDone());
    buffer.gate.open();
    EXPECT_TRUE(isFull(3));
    EXPECT_EQ(buffer.kicks(), (std::vector<bool>{false, true}));
}

TEST_F(BufferWorkerTest, PassesAKickAgainInTheNextBurst) {
    start(2);
    // A burst ends where the worker finds the ring full. A block taken in the moment before it
    // looks prolongs the burst, so not every round is a burst of its own.
    int rounds = 0, passed = 0;
    while (passed < 3 && ++rounds < 10'000) {
        ASSERT_TRUE(buffer.getNewStreamDone());
        take();
        ASSERT_TRUE(fills(rounds));
        ASSERT_TRUE(isFull(2));
        const std::vector<bool> kicks = buffer.kicks();
        passed = static_cast<int>(std::count(kicks.begin(), kicks.end(), true));
    }
    EXPECT_EQ(passed, 3);
    EXPECT_TRUE(buffer.kicks()[0]);
}

TEST_F(BufferWorkerTest, AHostThatHangsLeavesMuteData) {
    buffer.gate.shut();
    start(1);
    take();
    StreamRef view;
    ASSERT_TRUE(buffer.getNewStream(view));
    EXPECT_EQ(view.size, 3528u);
    buffer.gate.open();
    EXPECT_TRUE(isFull(1));
    ASSERT_TRUE(buffer.getNewStream(view));
    EXPECT_EQ(view.size, 512u);
    EXPECT_EQ(view.data[0], 1);
}

TEST_F(BufferWorkerTest, TheEndIsSaidAtOnceAndTheThreadStaysAsLongAsTheSession) {
    start(2);
    buffer.pre_disconnect();
    EXPECT_TRUE(eventually([&] { return log.has(6, "finish BufferWorker"); }));
    EXPECT_TRUE(buffer.stopRequested);
    EXPECT_TRUE(buffer.stopped);
    EXPECT_FALSE(log.has("done BufferWorker"));
    buffer.state = Sync::Disconnecting;
    EXPECT_FALSE(log.has("done BufferWorker"));
    buffer.state = Sync::Idle;
    EXPECT_TRUE(eventually([&] { return log.has(6, "done BufferWorker"); }));
    EXPECT_EQ(buffer.begun, 0);
}

TEST_F(BufferWorkerTest, ASessionThatIsGoneEndsItAtOnce) {
    start(2);
    buffer.state = Sync::Idle;
    EXPECT_TRUE(eventually([&] { return log.has(6, "done BufferWorker"); }));
    EXPECT_TRUE(log.has(6, "finish BufferWorker"));
    EXPECT_TRUE(buffer.stopRequested);
    EXPECT_TRUE(buffer.stopped);
    EXPECT_FALSE(buffer.preDisconnect);
}

TEST_F(BufferWorkerTest, FillsNothingWhileStoppedAndGoesOnAtPlay) {
    start(3);
    buffer.play();
    std::thread control([&] { buffer.stop(); });
    // Before that the worker fills what is taken.
    EXPECT_TRUE(eventually([&] { return buffer.stopRequested.load(); }));
    StreamRef view;
    while (!buffer.stopped.load()) ASSERT_TRUE(buffer.getNewStream(view));
    control.join();
    EXPECT_TRUE(buffer.isEmpty());
    const int before = buffer.done;
    ASSERT_TRUE(buffer.getNewStreamDone());
    EXPECT_TRUE(buffer.getNewStream(view));
    EXPECT_EQ(view.size, 512u);  // silence, as often as asked
    EXPECT_EQ(buffer.done, before);
    EXPECT_FALSE(log.has("finish BufferWorker"));
    buffer.play();
    EXPECT_TRUE(isFull(3));
    EXPECT_EQ(buffer.done, before + 3);
}

TEST_F(BufferWorkerTest, StopOfADeadSessionFindsItsAnswer) {
    start(3);
    buffer.state = Sync::Idle;
    buffer.stop();  // the ring is full and nobody drains it
    EXPECT_TRUE(buffer.stopped);
}

TEST_F(BufferWorkerTest, EveryFillHasTheSizeOfABlock) {
    buffer.setupBuffers(64, 2);
    buffer.appendBlock(ZENNO::Bytes(3, 1));  // a slot too small
    buffer.appendBlock(ZENNO::Bytes(9999, 1));
    buffer.state = Sync::Connected;
    ASSERT_TRUE(buffer.startBufferWorker());
    StreamRef view;
    for (int i = 0; i < 12; ++i) {
        ASSERT_TRUE(buffer.getNewStream(view));
        ASSERT_TRUE(isFull(4));
    }
    for (const std::uint64_t size : buffer.sizes()) EXPECT_EQ(size, 512u);
}

TEST_F(BufferWorkerTest, ABlockIsWholeAndInOrderOverManyLaps) {
    start(4);
    std::uint8_t last = 0;
    int blocks = 0;
    StreamRef view;
    while (blocks < 3000) {
        ASSERT_TRUE(buffer.getNewStream(view));
        if (view.size != 512) {  // too fast for the other thread
            std::this_thread::yield();
            continue;
        }
        ++blocks;
        if (blocks > 4) {
            ASSERT_EQ(view.data[0], static_cast<std::uint8_t>(last + 1));
            for (std::uint64_t i = 1; i < view.size; ++i) ASSERT_EQ(view.data[i], view.data[0]);
            last = view.data[0];
        }
        buffer.getNewStreamDone();
    }
}

// ---- waiting for a slot ----

TEST_F(BufferWorkerTest, AFreeSlotIsThereAtOnceWhateverTheFlagsSay) {
    buffer.setupBuffers(64, 2);
    take();
    buffer.preDisconnect = true;
    buffer.stopRequested = true;
    bool aborted = true;
    buffer.waitFreeSlot(aborted);
    EXPECT_FALSE(aborted);
}

TEST_F(BufferWorkerTest, TheWaitForASlotIsAbortedByEachReasonToEnd) {
    struct Case {
        const char* why;
        std::uint32_t state;
        bool preDisconnect, stopRequested;
    };
    const Case cases[] = {
        {"no session", 0, false, false},           {"a state that is none", 4, false, false},
        {"the end of the stream", 2, true, false}, {"a stop", 2, false, true},
        {"while connecting, too", 1, true, true},  {"while disconnecting, too", 3, false, true},
    };
    buffer.setupBuffers(64, 2);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        buffer.state = c.state;
        buffer.preDisconnect = c.preDisconnect;
        buffer.stopRequested = c.stopRequested;
        bool aborted = false;
        buffer.waitFreeSlot(aborted);
        EXPECT_TRUE(aborted);
    }
    buffer.state = Sync::Idle;
}

TEST_F(BufferWorkerTest, TheWaitForASlotEndsWhenABlockIsTaken) {
    buffer.setupBuffers(64, 2);
    buffer.state = Sync::Connected;
    std::atomic<int> result{-1};
    std::thread producer([&] {
        bool aborted = true;
        buffer.waitFreeSlot(aborted);
        result = aborted ? 1 : 0;
    });
    take();
    producer.join();
    EXPECT_EQ(result, 0);
}

TEST_F(BufferWorkerTest, APushThatIsAbortedLeavesTheRingAsItWas) {
    buffer.setupBuffers(64, 2);
    buffer.state = Sync::Connected;
    buffer.stopRequested = true;
    buffer.pushBlock(ZENNO::Bytes(512, 1));
    EXPECT_EQ(buffer.blockCount(), 2u);
    take();
    take();
    EXPECT_TRUE(buffer.isEmpty());
}

TEST_F(BufferWorkerTest, WithoutAnOwnerTheBlocksStayAsTheyAre) {
    SyncBuffer plain(network);
    plain.hostFormat = buffer.hostFormat;
    plain.setupBuffers(64, 1);
    plain.state = Sync::Connected;
    ASSERT_TRUE(plain.startBufferWorker());
    StreamRef view;
    ASSERT_TRUE(plain.getNewStream(view));
    EXPECT_TRUE(eventually([&] { return plain.blockCount() == 1; }));
    plain.closeSession();
}

}  // namespace
