#include "target/Playout.h"

#include <gtest/gtest.h>

#include "target/PlayClock.h"
#include "tests/target/TargetWorld.h"

namespace {

using namespace velmora_test;
using velmora_target::PlayClock;
using velmora_target::Playout;

// 48 frames of 4 bytes: a millisecond.
Bytes millisecondOf(std::uint8_t value) {
    return Bytes(192, value);
}

class PlayoutTest : public testing::Test {
protected:
    Playout make(std::uint64_t targetMicros, double ppm = 0) {
        return Playout({pcm16Stereo48(), targetMicros, ppm, false}, output);
    }
    // A burst of one packet every millisecond, from `now` on.
    void feed(Playout& playout, int packets) {
        for (int i = 0; i < packets; ++i, now += 1000) {
            playout.onPacket(sequence, millisecondOf(static_cast<std::uint8_t>(sequence)), true,
                             now);
            ++sequence;
        }
    }
    Tape tape;
    TapeOutput output{tape};
    std::uint64_t now = 0;
    std::uint16_t sequence = 0;
};

TEST_F(PlayoutTest, NothingComesAndTimePasses) {
    Playout playout = make(5000);
    playout.advance(1'000'000);
    EXPECT_FALSE(playout.isPlaying());
    EXPECT_EQ(playout.underruns(), 0u);
    playout.finish();
    EXPECT_TRUE(tape.bytes.empty());
}

TEST_F(PlayoutTest, BeginsWhenTheFillReachesItsTarget) {
    Playout playout = make(5000);
    feed(playout, 4);
    EXPECT_FALSE(playout.isPlaying());
    playout.advance(now);
    EXPECT_TRUE(tape.bytes.empty());
    feed(playout, 1);
    EXPECT_TRUE(playout.isPlaying());
    EXPECT_EQ(playout.excessMicros(), 0);
    playout.advance(now);
    EXPECT_EQ(tape.bytes.size(), 192u);  // one millisecond later
    EXPECT_NEAR(playout.excessMicros(), -1000, 1);
}

TEST_F(PlayoutTest, BeginsOnlyAtTheEndOfABurst) {
    Playout playout = make(2000);
    for (int i = 0; i < 3; ++i) playout.onPacket(sequence++, millisecondOf(1), false, now);
    EXPECT_FALSE(playout.isPlaying());
    playout.onPacket(sequence++, millisecondOf(1), true, now);
    EXPECT_FALSE(playout.isPlaying());  // two bursts of 4 ms are the least
    for (int i = 0; i < 4; ++i) playout.onPacket(sequence++, millisecondOf(1), i == 3, now);
    EXPECT_TRUE(playout.isPlaying());
    EXPECT_NEAR(playout.targetMicros(), 8000, 0.01);
}

TEST_F(PlayoutTest, PlaysByItsClockAndInOrder) {
    Playout playout = make(5000);
    feed(playout, 100);
    playout.finish();
    ASSERT_EQ(tape.bytes.size(), 100u * 192);
    for (std::size_t i = 0; i < 100; ++i) ASSERT_EQ(tape.bytes[i * 192 + 191], i);
    EXPECT_EQ(playout.frames(), 4800u);
    EXPECT_EQ(playout.underruns(), 0u);
}

TEST_F(PlayoutTest, AFastClockDrainsTheBufferByItsDeviation) {
    Playout playout = make(20'000, /*ppm=*/1000);
    feed(playout, 5020);
    // Five seconds at 0.1 % are 5 ms.
    playout.advance(now);
    EXPECT_NEAR(playout.fillMicros(), 20'000 - 5'000 - 1'000, 60);
}

TEST_F(PlayoutTest, ASlowClockFillsTheBufferByItsDeviation) {
    Playout playout = make(20'000, /*ppm=*/-1000);
    feed(playout, 5020);
    playout.advance(now);
    EXPECT_NEAR(playout.fillMicros(), 20'000 + 5'000 - 1'000, 60);
}

TEST_F(PlayoutTest, ADriftingClockDrainsTheBufferAndFillsItAgain) {
    // 10,000 ppm over 2 s: half of it is 6.4 ms.
    Playout playout({pcm16Stereo48(), 20'000, 0, false, {10'000, 2}}, output);
    feed(playout, 1020);
    playout.advance(now);
    EXPECT_NEAR(playout.fillMicros(), 20'000 - 6'366 - 1'000, 60);
    EXPECT_NEAR(playout.clockPpm(), 0, 50);
    feed(playout, 500);
    EXPECT_NEAR(playout.clockPpm(), -10'000, 50);
    feed(playout, 500);
    playout.advance(now);
    EXPECT_NEAR(playout.fillMicros(), 20'000 - 1'000, 60);
}

TEST_F(PlayoutTest, AnUnderrunPausesUntilTheBufferIsFullAgainAndWritesNothingForThePause) {
    Playout playout = make(3000);
    feed(playout, 3);
    playout.advance(now += 50'000);
    EXPECT_FALSE(playout.isPlaying());
    EXPECT_EQ(playout.underruns(), 1u);
    EXPECT_EQ(tape.bytes.size(), 3u * 192);
    playout.advance(now += 50'000);
    EXPECT_EQ(playout.underruns(), 1u);
    feed(playout, 2);
    EXPECT_FALSE(playout.isPlaying());
    feed(playout, 1);
    EXPECT_TRUE(playout.isPlaying());
    playout.finish();
    ASSERT_EQ(tape.bytes.size(), 6u * 192);
    EXPECT_EQ(tape.bytes.back(), 5);
}

TEST_F(PlayoutTest, AHoleThatIsReachedIsLostAndAPlayedOneStaysSilent) {
    Playout playout = make(3000);
    feed(playout, 2);
    ++sequence;
    feed(playout, 10);
    EXPECT_EQ(playout.queue().lost(), 1u);
    EXPECT_EQ(playout.onPacket(2, millisecondOf(2), true, now),
              velmora_target::PacketQueue::Put::late);
    playout.finish();
    ASSERT_EQ(tape.bytes.size(), 13u * 192);
    EXPECT_EQ(tape.bytes[2 * 192], 0);
    EXPECT_EQ(tape.bytes[3 * 192], 3);
}

TEST_F(PlayoutTest, AHoleThatIsFilledInTimeIsHeard) {
    Playout playout = make(5000);
    feed(playout, 4);
    ++sequence;
    feed(playout, 2);
    playout.onPacket(4, millisecondOf(4), true, now);
    playout.finish();
    EXPECT_EQ(playout.queue().lost(), 0u);
    ASSERT_EQ(tape.bytes.size(), 7u * 192);
    EXPECT_EQ(tape.bytes[4 * 192], 4);
}

TEST_F(PlayoutTest, ASecondTooMuchIsPlayedAtOnceAndNothingIsThrownAway) {
    Playout playout = make(5000);
    for (int i = 0; i < 3000; ++i) {
        playout.onPacket(sequence, millisecondOf(static_cast<std::uint8_t>(sequence)), true, now);
        ++sequence;
    }
    EXPECT_GE(playout.overflows(), 1u);
    EXPECT_LE(playout.fillMicros(), 1'005'000);
    playout.finish();
    EXPECT_EQ(tape.bytes.size(), 3000u * 192);
}

TEST_F(PlayoutTest, WithoutEndsOfBurstsTheBufferStillHasABound) {
    Playout playout = make(5000);
    for (int i = 0; i < 3000; ++i) playout.onPacket(sequence++, millisecondOf(0), false, now);
    EXPECT_FALSE(playout.isPlaying());
    EXPECT_LE(playout.fillMicros(), 1'010'000);
}

TEST_F(PlayoutTest, PacketsMayCutFramesInTwo) {
    Playout playout = make(1000);
    Bytes all;
    for (std::uint16_t i = 0; i < 64; ++i) {
        const Bytes piece(190 + i % 3, static_cast<std::uint8_t>(i));  // no multiples of 4
        all.insert(all.end(), piece.begin(), piece.end());
        playout.onPacket(i, piece, true, now);
        now += 1000;
    }
    playout.finish();
    EXPECT_EQ(tape.bytes.size() % 4, 0u);
    all.resize(all.size() / 4 * 4);
    EXPECT_EQ(tape.bytes, all);
}

TEST_F(PlayoutTest, GoesOnWithoutAnOutputThatFails) {
    tape.failWrites = true;
    Playout playout = make(2000);
    feed(playout, 10);
    EXPECT_TRUE(playout.outputFailed());
    EXPECT_EQ(tape.bytes.size(), 192u);  // one try
    EXPECT_GT(playout.frames(), 48u);
}

TEST_F(PlayoutTest, SilenceIsInvertedWhereTheHostWasAskedToInvert) {
    Playout playout({pcm16Stereo48(), 1000, 0, true}, output);
    playout.onPacket(1, millisecondOf(7), true, 0);
    playout.finish();
    ASSERT_EQ(tape.bytes.size(), 2u * 192);
    EXPECT_EQ(tape.bytes[0], 0xff);
}

TEST(PlayClock, IsExactOverADay) {
    PlayClock clock(44100, 0);
    clock.start(500);
    EXPECT_EQ(clock.framesDue(500), 0u);
    EXPECT_EQ(clock.framesDue(500 + 1'000'000), 44100u);
    EXPECT_EQ(clock.framesDue(500 + 86'400'000'000ull), 44100ull * 86400);
}

TEST(PlayClock, DeviatesByPartsPerMillion) {
    struct Case {
        const char* why;
        double ppm;
        std::int64_t extra;  // frames in 1000 s at 48000 Hz
    };
    constexpr Case cases[] = {
        {"on the spot", 0, 0},
        {"fast", 100, 4800},
        {"slow", -100, -4800},
        {"a tenth", 0.1, 4},
        {"far off", -50'000, -2'400'000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        PlayClock clock(48000, c.ppm);
        clock.start(0);
        EXPECT_NEAR(static_cast<double>(clock.framesDue(1'000'000'000)),
                    48e6 + static_cast<double>(c.extra), 1);
    }
}

TEST(PlayClock, ADriftComesAndGoes) {
    // A sine of 1000 ppm over 100 s: half of it brings 1000 ppm * 100 s / pi, the other takes it
    // back.
    struct Case {
        const char* why;
        std::uint64_t at;   // µs since the start
        double ppm, extra;  // frames
    };
    constexpr Case cases[] = {
        {"at first", 0, 20, 0},
        {"a quarter of the way", 25'000'000, 1020, 763.9 + 24},
        {"half of it", 50'000'000, 20, 1527.9 + 48},
        {"on the other side", 75'000'000, -980, 763.9 + 72},
        {"back again", 100'000'000, 20, 96},
        {"ten times round", 1'000'000'000, 20, 960},
    };
    PlayClock clock(48000, 20, {1000, 100});
    EXPECT_NEAR(clock.deviation(5), 20, 1e-6) << "before the start";
    clock.start(7'000'000);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_NEAR(clock.deviation(7'000'000 + c.at), c.ppm, 1e-6);
        EXPECT_NEAR(static_cast<double>(clock.framesDue(7'000'000 + c.at)),
                    static_cast<double>(c.at) * 0.048 + c.extra, 1.1);
    }
}

TEST(PlayClock, ADriftGoesOnThroughLaterStarts) {
    PlayClock clock(48000, 0, {1000, 100});
    clock.start(0);
    EXPECT_NEAR(static_cast<double>(clock.framesDue(25'000'000)), 1'200'763.9, 1.1);
    clock.start(50'000'000);
    EXPECT_EQ(clock.framesDue(50'000'000), 0u);
    EXPECT_NEAR(static_cast<double>(clock.framesDue(100'000'000)), 2'400'000 - 1527.9, 1.1);
}

}  // namespace
