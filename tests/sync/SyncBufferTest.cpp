#include "sync/SyncBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "tests/sync/BufferHarness.h"

namespace {

using namespace velmora_test;
using Texts = std::vector<std::string>;

bool allBytesAre(const StreamRef& view, std::uint8_t byte) {
    return std::all_of(view.data, view.data + view.size,
                       [byte](std::uint8_t b) { return b == byte; });
}

void push(SyncBuffer& buffer, std::uint8_t byte, std::size_t size) {
    const ZENNO::Bytes bytes(size, byte);
    buffer.pushBlock(bytes);
}

void drain(SyncBuffer& buffer) {
    StreamRef view;
    while (!buffer.isEmpty()) ASSERT_TRUE(buffer.getNewStream(view));
}

using SyncBufferTest = BufferTest;

TEST_F(SyncBufferTest, BeforeSetupTheRingIsEmptyAndTakesNothing) {
    EXPECT_TRUE(buffer.isEmpty());
    EXPECT_FALSE(buffer.hasFreeSlot());
    EXPECT_EQ(buffer.blockCount(), 0u);
    push(buffer, 1, 8);  // there is no session: given up
    buffer.seekStream(3);
    buffer.seekStream(-3);
    StreamRef view;
    EXPECT_TRUE(buffer.getNewStream(view));  // 10 ms
    EXPECT_EQ(view.size, 3528u);
}

TEST_F(SyncBufferTest, StartsFullOfSilenceAndThenGivesMuteData) {
    buffer.setupBuffers(64, 6);
    EXPECT_EQ(buffer.blockBytes, 512u);
    EXPECT_FALSE(buffer.hasFreeSlot());
    EXPECT_FALSE(buffer.isEmpty());
    EXPECT_EQ(buffer.blockCount(), 6u);
    StreamRef view;
    for (std::uint64_t left = 6; left > 0; --left) {
        EXPECT_EQ(buffer.blockCount(), left);
        ASSERT_TRUE(buffer.getNewStream(view));
        EXPECT_EQ(view.size, 512u);
        EXPECT_TRUE(allBytesAre(view, 0));
        EXPECT_TRUE(buffer.hasFreeSlot());
    }
    EXPECT_TRUE(buffer.isEmpty());
    EXPECT_TRUE(log.lines().empty());
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(buffer.getNewStream(view));
        EXPECT_EQ(view.size, 3528u);
        EXPECT_TRUE(allBytesAre(view, 0));
    }
    EXPECT_EQ(log.texts(4), Texts(2, "SyncBuffer not enough mute data return 3528"));
    EXPECT_EQ(log.lines().size(), 2u);
}

TEST_F(SyncBufferTest, TwoBuffersAreThreeSlotsAndTwoSilentBlocks) {
    buffer.setupBuffers(64, 2);
    EXPECT_EQ(buffer.blockCount(), 2u);
    drain(buffer);
    push(buffer, 1, 512);
    push(buffer, 2, 512);
    EXPECT_FALSE(buffer.hasFreeSlot());
    EXPECT_EQ(buffer.blockCount(), 2u);
}

TEST_F(SyncBufferTest, SetupClearsTheWaitAndTheKick) {
    buffer.waitForData = true;
    buffer.fillKick = true;
    buffer.setupBuffers(64, 2);
    EXPECT_FALSE(buffer.waitForData);
    EXPECT_FALSE(buffer.fillKick);
}

TEST_F(SyncBufferTest, ASecondSetupStartsAnew) {
    buffer.setupBuffers(64, 3);
    drain(buffer);
    push(buffer, 7, 512);
    buffer.setupBuffers(32, 2);
    EXPECT_EQ(buffer.blockCount(), 2u);
    StreamRef view;
    ASSERT_TRUE(buffer.getNewStream(view));
    EXPECT_EQ(view.size, 256u);
    EXPECT_TRUE(allBytesAre(view, 0));
}

TEST_F(SyncBufferTest, SilenceIsTheFormatsOwnInEveryBranch) {
    struct Case {
        const char* why;
        std::uint64_t sample;
        std::uint32_t rate;
        std::uint8_t silence;
        std::uint64_t blockBytes, underrun;
    };
    const Case cases[] = {
        {"PCM 16", SinkConfig::pcm16, 48000, 0x00, 64 * 4, 1920},
        {"floating point", SinkConfig::float32, 44100, 0x00, 64 * 8, 3528},
        {"DSD LSB first", SinkConfig::dsdLsbLittle, 2822400, 0x69, 64 * 8, 7056},
        {"DSD LSB first, big words", SinkConfig::dsdLsbBig, 2822400, 0x69, 64 * 8, 7056},
        {"DSD MSB first", SinkConfig::dsdMsbBig, 5644800, 0x96, 64 * 8, 14112},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        buffer.clearStopFlags();
        buffer.hostFormat = bufferFormat(c.sample, c.rate, 2);
        buffer.setupBuffers(64, 1);
        StreamRef view;
        ASSERT_TRUE(buffer.getNewStream(view));
        EXPECT_EQ(view.size, c.blockBytes);
        EXPECT_TRUE(allBytesAre(view, c.silence));
        ASSERT_TRUE(buffer.getNewStream(view));
        EXPECT_EQ(view.size, c.underrun);
        EXPECT_TRUE(allBytesAre(view, c.silence));
        buffer.stopRequested = true;
        ASSERT_TRUE(buffer.getNewStream(view));
        EXPECT_EQ(view.size, c.blockBytes);
        EXPECT_TRUE(allBytesAre(view, c.silence));
    }
}

TEST_F(SyncBufferTest, TheProductOfTenMillisecondsHas32Bits) {
    // 32 bits x 16 channels x 11289600 Hz are 5780275200, and 1485307904 of 32 bits.
    buffer.hostFormat = bufferFormat(SinkConfig::pcm32, 11289600, 16);
    buffer.setupBuffers(1, 1);
    drain(buffer);
    StreamRef view;
    ASSERT_TRUE(buffer.getNewStream(view));
    EXPECT_EQ(view.size, 1856634u);
    EXPECT_TRUE(log.has(4, "SyncBuffer not enough mute data return 1856634"));
}

TEST_F(SyncBufferTest, WhereSilenceWouldBeEmptyTheStreamEnds) {
    // An empty block is asked for again at once: the stream worker would never come back.
    buffer.hostFormat = SinkConfig(SinkConfig::pcm32 | 2);  // no rate
    buffer.setupBuffers(0, 1);
    StreamRef view;
    ASSERT_TRUE(buffer.getNewStream(view));  // the ring's own block, of nothing
    EXPECT_EQ(view.size, 0u);
    EXPECT_FALSE(buffer.getNewStream(view));
    buffer.stopRequested = true;
    EXPECT_FALSE(buffer.getNewStream(view));
    EXPECT_TRUE(buffer.stopped);
}

TEST_F(SyncBufferTest, AnEmptyRingThatIsToStopSaysSoAndGoesOnWithSilentBlocks) {
    buffer.setupBuffers(64, 2);
    buffer.stopRequested = true;
    StreamRef view;
    ASSERT_TRUE(buffer.getNewStream(view));
    ASSERT_TRUE(buffer.getNewStream(view));
    EXPECT_FALSE(buffer.stopped);  // what the ring holds comes first
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(buffer.getNewStream(view));
        EXPECT_TRUE(buffer.stopped);
        EXPECT_EQ(view.size, 512u);
        EXPECT_TRUE(allBytesAre(view, 0));
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(SyncBufferTest, TheEndWinsOverTheStop) {
    buffer.setupBuffers(64, 1);
    drain(buffer);
    buffer.preDisconnect = true;
    buffer.stopRequested = true;
    std::uint8_t byte = 0;
    StreamRef view{&byte, 1};
    EXPECT_FALSE(buffer.getNewStream(view));
    EXPECT_EQ(view.data, nullptr);
    EXPECT_EQ(view.size, 0u);
    EXPECT_FALSE(buffer.stopped);
}

TEST_F(SyncBufferTest, TheEndComesOnlyBehindTheLastBlock) {
    buffer.setupBuffers(64, 3);
    buffer.preDisconnect = true;
    StreamRef view;
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(buffer.getNewStream(view));
        EXPECT_EQ(view.size, 512u);
    }
    EXPECT_FALSE(buffer.getNewStream(view));
    EXPECT_EQ(view.size, 0u);
}

TEST_F(SyncBufferTest, ALentBlockIsLeftAloneUntilTheNextCall) {
    buffer.setupBuffers(64, 3);
    drain(buffer);
    for (std::uint8_t lap = 1; lap < 40; ++lap) {
        push(buffer, lap, 512);
        StreamRef view;
        ASSERT_TRUE(buffer.getNewStream(view));
        // The producer takes every slot that it may have.
        while (buffer.hasFreeSlot()) push(buffer, 200, 512);
        EXPECT_EQ(buffer.blockCount(), 3u);
        EXPECT_TRUE(allBytesAre(view, lap));
        drain(buffer);
    }
}

TEST_F(SyncBufferTest, BlocksComeInOrderRoundTheRing) {
    buffer.setupBuffers(64, 3);
    drain(buffer);
    std::uint8_t in = 0, out = 0;
    for (int lap = 0; lap < 50; ++lap) {
        const int burst = 1 + lap % 3;
        for (int i = 0; i < burst; ++i) push(buffer, ++in, 512);
        EXPECT_EQ(buffer.blockCount(), static_cast<std::uint64_t>(burst));
        for (int i = 0; i < burst; ++i) {
            StreamRef view;
            ASSERT_TRUE(buffer.getNewStream(view));
            EXPECT_TRUE(allBytesAre(view, ++out));
        }
        EXPECT_TRUE(buffer.isEmpty());
    }
}

TEST_F(SyncBufferTest, AnAppendedBlockMakesTheRingOneSlotLonger) {
    buffer.setupBuffers(64, 2);
    drain(buffer);
    const ZENNO::Bytes block(100, 9);
    buffer.appendBlock(block);
    EXPECT_EQ(buffer.blockCount(), 3u);  // from the second slot to the new one
    EXPECT_FALSE(buffer.hasFreeSlot());
    StreamRef view;
    ASSERT_TRUE(buffer.getNewStream(view));
    ASSERT_TRUE(buffer.getNewStream(view));
    EXPECT_EQ(view.size, 512u);
    ASSERT_TRUE(buffer.getNewStream(view));
    EXPECT_EQ(view.size, 100u);
    EXPECT_TRUE(allBytesAre(view, 9));
    EXPECT_TRUE(buffer.isEmpty());
}

TEST_F(SyncBufferTest, ARingMayBeBuiltOfAppendedBlocksAlone) {
    buffer.appendBlock(ZENNO::Bytes(10, 1));
    EXPECT_TRUE(buffer.isEmpty());
    EXPECT_FALSE(buffer.hasFreeSlot());
    buffer.appendBlock(ZENNO::Bytes(20, 2));
    EXPECT_EQ(buffer.blockCount(), 1u);
    StreamRef view;
    ASSERT_TRUE(buffer.getNewStream(view));
    EXPECT_EQ(view.size, 20u);
}

TEST_F(SyncBufferTest, ARingOfOneSlotGivesMuteDataAndTakesNothing) {
    buffer.setupBuffers(64, 0);
    EXPECT_TRUE(buffer.isEmpty());
    EXPECT_FALSE(buffer.hasFreeSlot());
    EXPECT_EQ(buffer.blockCount(), 0u);
    buffer.seekStream(-5);
    buffer.seekStream(5);
    push(buffer, 1, 512);
    StreamRef view;
    ASSERT_TRUE(buffer.getNewStream(view));
    EXPECT_EQ(view.size, 3528u);
}

TEST_F(SyncBufferTest, MoreThanThereIsThrowsAndLeavesAnEmptyRing) {
    struct Case {
        const char* why;
        std::uint64_t frames, count;
    };
    const Case cases[] = {
        {"the count of slots wraps", 64, ~0ull},
        {"more slots than a vector has", 64, ~0ull - 1},
        {"the size of a block wraps to 8 bytes", (1ull << 61) + 1, 2},
        {"more bytes than a vector has", 1ull << 60, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        buffer.setupBuffers(64, 2);
        EXPECT_THROW(buffer.setupBuffers(c.frames, c.count), std::length_error);
        EXPECT_TRUE(buffer.isEmpty());
        EXPECT_FALSE(buffer.hasFreeSlot());
        StreamRef view;
        EXPECT_TRUE(buffer.getNewStream(view));
    }
}

TEST_F(SyncBufferTest, SessionsShareNoMuteBuffer) {
    TestBuffer other(network);
    other.hostFormat = bufferFormat(SinkConfig::dsdLsbLittle, 2822400, 2);
    other.setupBuffers(64, 1);
    buffer.setupBuffers(64, 1);
    drain(buffer);
    drain(other);
    StreamRef view, view2;
    ASSERT_TRUE(buffer.getNewStream(view));
    ASSERT_TRUE(other.getNewStream(view2));
    EXPECT_NE(view.data, view2.data);
    EXPECT_EQ(view.size, 3528u);
    EXPECT_TRUE(allBytesAre(view, 0));
    EXPECT_TRUE(allBytesAre(view2, 0x69));
}

// ---- a consumer that waits ----

TEST_F(SyncBufferTest, AWaitingConsumerTimesOutWithItsViewUntouched) {
    buffer.setupBuffers(64, 1);
    drain(buffer);
    buffer.waitForData = true;
    std::uint8_t byte = 0;
    StreamRef view{&byte, 1};
    // The platform may wake a waiter for nothing, which is one line and one more wait.
    EXPECT_FALSE(buffer.getNewStream(view));
    EXPECT_EQ(view.data, &byte);
    EXPECT_EQ(view.size, 1u);
    ASSERT_FALSE(log.lines().empty());
    EXPECT_EQ(log.lines().back().level, 4);
    EXPECT_EQ(log.lines().back().text, "SyncBuffer not enough Timeout");
}

TEST_F(SyncBufferTest, AWaitingConsumerGetsTheBlockThatComes) {
    buffer.setupBuffers(64, 1);
    drain(buffer);
    buffer.waitForData = true;
    std::atomic<bool> got{false};
    std::thread consumer([&] {
        StreamRef view;
        // A wait of 10 ms may run out before the other thread comes to push, or has not begun when
        // it does; the wake is there within a few rounds.
        while (!buffer.getNewStream(view)) {
        }
        got = allBytesAre(view, 5) && view.size == 512;
    });
    push(buffer, 5, 512);
    consumer.join();
    EXPECT_TRUE(got);
}

TEST_F(SyncBufferTest, AWaitingConsumerStillObeysTheFlags) {
    buffer.setupBuffers(64, 1);
    drain(buffer);
    buffer.waitForData = true;
    StreamRef view;
    buffer.stopRequested = true;
    EXPECT_TRUE(buffer.getNewStream(view));
    EXPECT_EQ(view.size, 512u);
    buffer.preDisconnect = true;
    EXPECT_FALSE(buffer.getNewStream(view));
}

// ---- seeking ----

TEST_F(SyncBufferTest, SeekMovesAsFarAsTheRingReaches) {
    struct Case {
        const char* why;
        int unread;
        std::int64_t delta;
        std::uint64_t left;
    };
    const Case cases[] = {
        {"forward past the end leaves it empty", 3, 1000, 0},
        {"back past the producer leaves it full", 3, -1000, 5},
        {"not at all", 3, 0, 3},
        {"one forward", 3, 1, 2},
        {"one back", 3, -1, 4},
        {"to the end exactly", 3, 3, 0},
        {"forward in an empty ring: there is nothing to skip", 0, 1, 0},
        {"back in a full ring: there is nowhere to go", 5, -1, 5},
        {"the longest way back", 0, std::numeric_limits<std::int64_t>::min(), 5},
        {"the longest way forward", 5, std::numeric_limits<std::int64_t>::max(), 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        buffer.setupBuffers(64, 5);
        drain(buffer);
        for (int i = 0; i < c.unread; ++i) push(buffer, 1, 512);
        buffer.seekStream(c.delta);
        EXPECT_EQ(buffer.blockCount(), c.left);
        EXPECT_EQ(buffer.isEmpty(), c.left == 0);
        EXPECT_EQ(buffer.hasFreeSlot(), c.left != 5);
    }
    EXPECT_EQ(network.time.sleeps, 0);
}

TEST_F(SyncBufferTest, SeekStopsAnEngineThatPlaysAndLetsItSettle) {
    buffer.setupBuffers(64, 3);
    buffer.playing = 1;
    const std::uint64_t before = network.time.time();
    buffer.seekStream(0);
    EXPECT_EQ(buffer.playing, 0);
    EXPECT_EQ(buffer.blockCount(), 3u);
    EXPECT_EQ(network.time.time() - before, 100'000u);
    EXPECT_EQ(log.texts(6), Texts{"stop 0"});  // the engine's stop, not the draining one
    buffer.seekStream(0);
    EXPECT_EQ(network.time.time() - before, 100'000u);
}

// ---- control ----

TEST_F(SyncBufferTest, TheEndOfATurnLeavesAKick) {
    EXPECT_FALSE(buffer.fillKick);
    EXPECT_TRUE(buffer.getNewStreamDone());
    EXPECT_TRUE(buffer.fillKick);
}

TEST_F(SyncBufferTest, PlayClearsTheFlagsAndSaysTheState) {
    buffer.preDisconnect = buffer.stopRequested = buffer.stopped = true;
    buffer.state = Sync::Connected;
    buffer.play();
    EXPECT_FALSE(buffer.preDisconnect);
    EXPECT_FALSE(buffer.stopRequested);
    EXPECT_FALSE(buffer.stopped);
    EXPECT_EQ(buffer.playing, 1);
    EXPECT_EQ(log.texts(6), (Texts{"SyncBuffer::play", "play 2"}));
}

TEST_F(SyncBufferTest, StopReturnsAtOnceWhenAllHasStopped) {
    buffer.state = Sync::Connected;
    buffer.playing = 1;
    buffer.stopped = true;
    buffer.stop();
    EXPECT_TRUE(buffer.stopRequested);
    EXPECT_EQ(buffer.playing, 0);
    EXPECT_EQ(log.texts(6), (Texts{"SyncBuffer::stop", "stop 2"}));
}

TEST_F(SyncBufferTest, StopWithoutASessionHasNobodyToWaitFor) {
    buffer.setupBuffers(64, 2);
    buffer.stop();
    EXPECT_TRUE(buffer.stopRequested);
    EXPECT_EQ(log.texts(6), (Texts{"SyncBuffer::stop", "stop 0"}));
}

TEST_F(SyncBufferTest, StopWaitsUntilTheRingIsDrained) {
    buffer.setupBuffers(64, 4);
    buffer.state = Sync::Connected;
    buffer.play();
    std::atomic<bool> back{false};
    std::thread control([&] {
        buffer.stop();
        back = true;
    });
    EXPECT_TRUE(eventually([&] { return buffer.stopRequested.load(); }));
    StreamRef view;
    for (int i = 0; i < 4; ++i) {
        EXPECT_FALSE(back);
        EXPECT_EQ(buffer.playing, 1);
        EXPECT_TRUE(buffer.getNewStream(view));
    }
    EXPECT_FALSE(back);
    EXPECT_TRUE(buffer.getNewStream(view));  // finds it empty, and says so
    control.join();
    EXPECT_TRUE(buffer.stopped);
    EXPECT_EQ(buffer.playing, 0);
    EXPECT_TRUE(log.has(6, "stop 2"));
}

TEST_F(SyncBufferTest, PreDisconnectSaysSoAndEndsTheSupply) {
    buffer.pre_disconnect();
    EXPECT_TRUE(buffer.preDisconnect);
    EXPECT_EQ(log.texts(6), Texts{"SyncBuffer::pre_disconnect"});
}

TEST_F(SyncBufferTest, DisconnectOutsideAConnectionOnlyEndsTheSupply) {
    for (const std::uint32_t state : {0u, 1u, 3u}) {
        SCOPED_TRACE(state);
        log.clear();
        buffer.state = state;
        buffer.disconnect();
        EXPECT_EQ(buffer.state, state);
        EXPECT_TRUE(buffer.preDisconnect);
        EXPECT_EQ(log.texts(6), (Texts{"SyncBuffer::pre_disconnect", "SyncBuffer::disconnect"}));
    }
}

TEST_F(SyncBufferTest, DisconnectOfAConnectionEndsBothWorkers) {
    buffer.setupBuffers(64, 2);
    buffer.state = Sync::Connected;
    ASSERT_TRUE(buffer.startBufferWorker());
    std::thread streamWorker([&] {
        EXPECT_TRUE(eventually([&] { return buffer.state.load() == Sync::Disconnecting; }));
        StreamRef view;
        while (buffer.getNewStream(view)) {
        }
        buffer.state = Sync::Idle;
    });
    buffer.disconnect();
    streamWorker.join();
    const Texts texts = log.texts(6);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "discone"), 1);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "finish BufferWorker"), 1);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "done BufferWorker"), 1);
    EXPECT_EQ(texts.front(), "SyncBuffer::pre_disconnect");
}

TEST_F(SyncBufferTest, ConnectStartsBothWorkersWithClearFlags) {
    buffer.setupBuffers(64, 2);
    buffer.preDisconnect = buffer.stopRequested = buffer.stopped = true;
    ASSERT_TRUE(buffer.connect());
    EXPECT_FALSE(buffer.preDisconnect);
    EXPECT_FALSE(buffer.stopRequested);
    EXPECT_FALSE(buffer.stopped);
    EXPECT_EQ(buffer.state, Sync::Connecting);
    StreamRef view;
    ASSERT_TRUE(buffer.getNewStream(view));
    EXPECT_TRUE(eventually([&] { return buffer.done.load() == 1; }));
}

TEST_F(SyncBufferTest, ConnectThatTheEngineRefusesStartsNothing) {
    buffer.sinkConfig = SinkConfig();
    buffer.stopRequested = true;
    EXPECT_FALSE(buffer.connect());
    EXPECT_TRUE(buffer.stopRequested);
    EXPECT_FALSE(log.has("Buffer Worker Start Error"));
}

TEST_F(SyncBufferTest, ConnectWithoutABufferWorkerClosesTheSession) {
    buffer.bufferWorkerStarts = false;
    EXPECT_FALSE(buffer.connect());
    EXPECT_TRUE(log.has(3, "Buffer Worker Start Error"));
    EXPECT_EQ(buffer.state, Sync::Idle);
    EXPECT_EQ(network.openLinks(), 0);
}

TEST_F(SyncBufferTest, CloseSessionEndsTheBufferWorkerOfALiveSession) {
    buffer.setupBuffers(64, 2);
    buffer.state = Sync::Connecting;
    ASSERT_TRUE(buffer.startBufferWorker());
    buffer.closeSession();
    EXPECT_EQ(buffer.state, Sync::Idle);
    EXPECT_TRUE(log.has(6, "done BufferWorker"));
    buffer.closeSession();  // again is nothing
}

}  // namespace
