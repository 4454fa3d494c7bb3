// An hour of music at 192 kHz, in moved time: every frame arrives once, in its place, while
// datagrams are lost, threads are held up, the target's clock wanders, and every counter wraps.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "sync/SyncBuffer.h"
#include "sync/ThreadMode.h"
#include "tests/support/AllocationWatch.h"
#include "tests/sync/LongRunWorld.h"
#include "tests/sync/StreamHarness.h"

namespace {

using namespace velmora_test;
using namespace velmora_test::longrun;
using VELMORA::SyncBuffer;

// Seconds of music. The thread sanitizer makes each step of the worker, who has no other thread
// beside him here, many times as expensive: it sees a part of the hour.
#if defined(__SANITIZE_THREAD__)
constexpr std::uint64_t hour = 400;
#else
constexpr std::uint64_t hour = 3600;
#endif

constexpr std::uint64_t ringFrames = 3072;

// The ring is filled where the buffer worker would be woken: behind each turn that took blocks.
class LongSession final : public SyncBuffer {
public:
    LongSession(ZENNO::Environment& environment, Scenery& scenery)
        : SyncBuffer(environment), its_(scenery) {}
    ~LongSession() override { closeSession(); }

    bool startBufferWorker() override { return true; }
    bool getNewStreamDone() override {
        SyncBuffer::getNewStreamDone();
        while (hasFreeSlot() && made_ < its_.music.size) {
            const auto piece = its_.music.from(made_, blockBytes);
            pushBlock(piece);
            made_ += piece.size;
        }
        if (!watch_ && made_ > 0) {
            // From here on it plays.
            watch_.emplace();
            its_.weather.isBad = true;
        }
        if (!allocations && made_ == its_.music.size) {
            allocations = watch_->count();
            // What goes wrong at a stream's end has tests of its own.
            its_.weather.isBad = false;
            preDisconnect = enterDisconnecting();
        }
        return true;
    }

    std::optional<std::size_t> allocations;  // while it played

private:
    Scenery& its_;
    std::uint64_t made_ = 0;  // bytes of music
    std::optional<AllocationWatch> watch_;
};

struct RunCase {
    const char* why;
    std::uint64_t seconds;
    bool (*setRow)(Sync&);
};

class LongRun : public testing::TestWithParam<RunCase> {};

TEST_P(LongRun, EveryFrameArrivesOnceAndInItsPlace) {
    // The clock wraps after a third of the music.
    const std::uint64_t seconds = GetParam().seconds;
    Scenery world(seconds);
    const std::uint64_t wrap = std::uint64_t{2} << 32;
    world.time.advanceTo(wrap - seconds * second / 3);
    LeanEnvironment environment(world);
    FakeMachine machine;
    LongSession session(environment, world);
    session.setMachine(machine);
    ASSERT_TRUE(session.open(VELMORA::CRITICAL, /*infoMicros=*/40'000, 3, "host", 1));
    session.target = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x77}, 5000, 3);
    // Two channels of 32 bits.
    SinkConfig format(0x2 | SinkConfig::pcm32);
    ASSERT_TRUE(format.setRate(rate));
    ASSERT_EQ(format.frameBytes(), frameBytes);
    session.hostFormat = session.sinkConfig = format;
    ASSERT_TRUE(GetParam().setRow(session));
    session.setupBuffers(ringFrames / 6, 6);

    ASSERT_TRUE(session.connect());
    session.play();
    ASSERT_EQ(machine.entries.size(), 1u);
    const std::uint64_t begin = world.time.time();
    world.giveUp = begin + (seconds + 60) * second;
    machine.entries.front()();
    const std::uint64_t end = world.time.time();

    const Target& target = world.target;
    EXPECT_EQ(target.heard, seconds * rate * frameBytes);
    EXPECT_EQ(target.wrong, 0u) << "the first at byte " << target.firstWrong;
    EXPECT_EQ(target.noise, 0u);
    // The ring as it was at first, and a prefilled cycle.
    EXPECT_LE(target.silence, (ringFrames + 400) * frameBytes);
    EXPECT_EQ(session.state, Sync::Idle);
    EXPECT_EQ(session.allocations, std::optional<std::size_t>(0));

    // The stream followed the target's clock, and neither that nor the hold-ups nor the losses
    // emptied or flooded the target.
    EXPECT_GT(target.lowest, 0);
    EXPECT_LT(target.highest, 2 * Target::wanted);
    EXPECT_GT(target.lowestMean, Target::wanted - 2'000);
    EXPECT_LT(target.highestMean, Target::wanted + 2'000);
    // The target's clock went faster and slower by turns: about an hour is what it took.
    EXPECT_NEAR(static_cast<double>(end - begin), static_cast<double>(seconds * second),
                0.5 * second);

    // What was asked again was asked often, and did not grow into a flood.
    EXPECT_GT(world.lost, target.next / 200);
    EXPECT_GT(target.resendRequests, world.lost / 2);
    EXPECT_EQ(target.packets, world.sent - world.lost);
    EXPECT_LT(world.sent, target.next + target.next / 10);
    EXPECT_GT(world.weather.heldUp, seconds / 10);

    // Every counter went round: the clock's microseconds, the packets' numbers; and what an hour
    // has of bytes and of questions goes beyond 32 and 16 bits.
    EXPECT_LT(begin, wrap);
    EXPECT_GT(end, wrap);
    EXPECT_GT(target.next, 4 * 0x10000u);
    if (seconds < 3600) return;
    EXPECT_GT(target.answers, 0x10000u);
    EXPECT_GT(target.heard, std::uint64_t{1} << 32);
    EXPECT_GT(end, wrap + (std::uint64_t{1} << 31)) << "half a turn of the clock";
}

INSTANTIATE_TEST_SUITE_P(
    Stream, LongRun,
    testing::Values(RunCase{"AnHour", hour, [](Sync& s) { return s.configTransferFix(2000, 2); }},
                    RunCase{"WithCyclesThatVary", 400,
                            [](Sync& s) { return s.configTransferVar(1000, 1); }}),
    [](const testing::TestParamInfo<RunCase>& row) { return std::string(row.param.why); });

}  // namespace
