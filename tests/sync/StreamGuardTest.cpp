// What a broken target or a caller in a hurry could hold up for ever, and may not.
#include <gmock/gmock.h>

#include "tests/sync/BufferHarness.h"
#include "tests/sync/StreamHarness.h"

namespace {

using namespace velmora_test;

TEST(StreamGuard, ATargetThatKeepsAskingForOldPacketsCannotHoldUpTheEnd) {
    Session s(1, 3000);
    s.prepare(Session::fixRow(1000, 1));
    // With every packet: all that the ring of 1024 still holds, once more.
    s.target.on(10, [](const Bytes& packet) {
        return Datagrams{resendFrom(static_cast<std::uint16_t>(word16(packet, 8) - 1000))};
    });
    s.at(600, [&s] { s.sync.enterDisconnecting(); });
    const LogCapture log(6);
    EXPECT_TRUE(s.sync.streamWorker());
    EXPECT_EQ(s.sync.state, Sync::Idle);
    EXPECT_LT(s.network.time.time() - s.begin, 10000000u);
    EXPECT_THAT(log.texts(), testing::Contains(testing::StartsWith("   timeout 4")));
}

using BufferGuard = BufferTest;

TEST_F(BufferGuard, DisconnectWhileConnectingEndsTheSessionOnceItHasConnected) {
    buffer.setupBuffers(64, 2);
    buffer.state = Sync::Connecting;
    ASSERT_TRUE(buffer.startBufferWorker());
    std::atomic<bool> back{false};
    std::thread control([&] {
        buffer.disconnect();
        back = true;
    });
    EXPECT_TRUE(eventually([&] { return buffer.preDisconnect.load(); }));
    EXPECT_FALSE(back);
    buffer.state = Sync::Connected;  // CONNECT_ANS has come
    EXPECT_TRUE(eventually([&] { return buffer.state.load() == Sync::Disconnecting; }));
    buffer.state = Sync::Idle;  // and the stream worker has ended
    control.join();
    EXPECT_TRUE(back);
}

TEST_F(BufferGuard, StopOfASessionThatDoesNotPlayHasNobodyToWaitFor) {
    buffer.setupBuffers(64, 2);
    buffer.state = Sync::Connected;
    ASSERT_TRUE(buffer.startBufferWorker());
    buffer.stop();
    EXPECT_TRUE(buffer.stopRequested);
    buffer.state = Sync::Idle;
}

TEST_F(BufferGuard, TheSessionKnowsOfItsEndBeforeTheAudioEnds) {
    buffer.setupBuffers(64, 1);
    buffer.state = Sync::Connected;
    StreamRef view;
    EXPECT_TRUE(buffer.getNewStream(view));
    std::atomic<bool> failed{false};
    std::thread streamWorker([&] {
        StreamRef block;
        while (buffer.getNewStream(block)) std::this_thread::yield();
        failed = buffer.state.load() != Sync::Disconnecting;
        buffer.state = Sync::Idle;
    });
    buffer.disconnect();
    streamWorker.join();
    EXPECT_FALSE(failed) << "audio that ends in a connected stream counts as its failure";
}

}  // namespace
