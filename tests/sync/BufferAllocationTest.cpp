// What the buffer worker and the ring's consumer take from the heap while a stream plays at the
// default log level: nothing.
#include <atomic>
#include <optional>

#include "tests/support/AllocationWatch.h"
#include "tests/sync/BufferHarness.h"

namespace {

using namespace velmora_test;

constexpr int warmUp = 16;     // fills until everything has its size
constexpr int watched = 2000;  // fills that are counted

// Counts on the buffer worker itself, from fill to fill: what the worker does in between is in it.
class CountingBuffer final : public SyncBuffer {
public:
    using SyncBuffer::SyncBuffer;
    ~CountingBuffer() override { closeSession(); }

    void fillStream(Bytes& block, bool) override {
        std::fill(block.begin(), block.end(), std::uint8_t{1});
        const int fills = fills_.fetch_add(1) + 1;
        if (fills == warmUp) watch_.emplace();
        if (fills == warmUp + watched) {
            allocations = watch_->count();
            watch_.reset();
            done = true;
        }
    }

    std::atomic<bool> done{false};
    std::atomic<std::uint64_t> allocations{~0ull};

private:
    std::atomic<int> fills_{0};
    std::optional<AllocationWatch> watch_;  // buffer worker's
};

TEST(BufferWorkerAllocation, NothingIsAllocatedWhileBlocksComeAndGo) {
    FakeNetwork network;
    CountingBuffer buffer(network);
    buffer.hostFormat = buffer.sinkConfig = bufferFormat(SinkConfig::pcm32, 44100, 2);
    buffer.setupBuffers(64, 4);
    buffer.state = Sync::Connected;
    buffer.play();
    ASSERT_TRUE(buffer.startBufferWorker());
    StreamRef block;
    std::uint64_t consumers = 0;
    ASSERT_TRUE(eventually([&] {
        const AllocationWatch watch;
        EXPECT_TRUE(
            buffer.getNewStream(block));  // a block, or mute data where the worker is behind
        EXPECT_TRUE(buffer.getNewStreamDone());
        consumers += watch.count();
        return buffer.done.load();
    }));
    EXPECT_EQ(buffer.allocations, 0u) << "on the buffer worker";
    EXPECT_EQ(consumers, 0u) << "on the stream worker's side of the ring";
    buffer.state = Sync::Idle;
}

TEST(BufferWorkerAllocation, MuteDataIsReadyBeforeItIsNeeded) {
    FakeNetwork network;
    CountingBuffer buffer(network);
    buffer.hostFormat = buffer.sinkConfig = bufferFormat(SinkConfig::pcm32, 192000, 8);
    buffer.setupBuffers(512, 2);
    StreamRef block;
    const AllocationWatch watch;
    for (int i = 0; i < 10; ++i)
        EXPECT_TRUE(buffer.getNewStream(block));  // two blocks, then an underrun
    buffer.stopRequested = true;
    for (int i = 0; i < 10; ++i) EXPECT_TRUE(buffer.getNewStream(block));  // the drain's silence
    EXPECT_EQ(watch.count(), 0u);
}

}  // namespace
