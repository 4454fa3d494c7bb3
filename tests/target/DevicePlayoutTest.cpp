// Playout on a device with a clock of its own.
#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "target/DeviceOutput.h"
#include "target/Feedback.h"
#include "target/Playout.h"
#include "tests/target/ScriptedPcm.h"
#include "tests/target/TargetWorld.h"

namespace {

using namespace velmora_test;
using velmora_target::DeviceOutput;
using velmora_target::Feedback;
using velmora_target::Playout;

// A device of 40 ms, a stream of which 20 ms are wanted besides: bursts of one packet, a
// millisecond each.
class DevicePlayout : public testing::Test {
protected:
    void open(std::uint64_t targetMicros = 20'000, PcmTimes times = {}) {
        output =
            std::make_unique<DeviceOutput>("bench", std::make_unique<ScriptedPcm>(stage), times);
        ASSERT_EQ(output->open(pcm16Stereo48()), "");
        playout.emplace(Playout::Settings{pcm16Stereo48(), targetMicros}, *output);
    }
    void passTo(std::uint64_t time) {
        while (stage.now < time) {
            stage.now = std::min(time, stage.now + 500);
            playout->advance(stage.now);
        }
    }
    void pass(std::uint64_t micros) { passTo(stage.now + micros); }
    void packet() {
        const Bytes audio = millisecond(sequence);
        given.insert(given.end(), audio.begin(), audio.end());
        playout->onPacket(sequence++, audio, true, stage.now);
    }
    void feed(int packets) {
        for (int i = 0; i < packets; ++i) {
            packet();
            pass(1000);
        }
    }
    void finish() {
        playout->finish();
        output->close();
        for (int i = 0; i < 10'000 && output->stillPlays(stage.now); ++i) stage.now += 1000;
    }
    // What was heard but for the zeros, which stand nowhere in what was given.
    Bytes sounding() const {
        Bytes bytes;
        for (const std::uint8_t byte : stage.heard) {
            if (byte != 0) bytes.push_back(byte);
        }
        return bytes;
    }

    PcmStage stage;
    std::unique_ptr<DeviceOutput> output;
    std::optional<Playout> playout;
    std::uint16_t sequence = 0;
    Bytes given;
};

TEST_F(DevicePlayout, NothingComesAndTimePasses) {
    open();
    pass(1'000'000);
    EXPECT_FALSE(playout->isPlaying());
    EXPECT_EQ(stage.starts, 0);
    EXPECT_EQ(playout->deviceUnderruns(), 0u);
    EXPECT_EQ(playout->clockPpm(), 0);
    finish();
    EXPECT_TRUE(stage.heard.empty());
}

TEST_F(DevicePlayout, BeginsWhenThereIsEnoughForTheDeviceToo) {
    open();
    feed(59);
    EXPECT_FALSE(playout->isPlaying());
    EXPECT_EQ(stage.starts, 0);
    packet();
    EXPECT_TRUE(playout->isPlaying());
    EXPECT_NEAR(playout->targetMicros(), 60'000, 1);
    EXPECT_NEAR(playout->excessMicros(), 0, 1);
    EXPECT_EQ(stage.starts, 1);
    // What the device holds is in the fill.
    EXPECT_NEAR(playout->fillMicros(), 60'000, 1);
    pass(500);
    EXPECT_NEAR(playout->fillMicros(), 59'500, 30);
}

TEST_F(DevicePlayout, IsHeardFromTheFirstFrameToTheLastAndNothingBetween) {
    open();
    feed(3000);
    EXPECT_EQ(playout->underruns() + playout->deviceUnderruns(), 0u);
    finish();
    EXPECT_EQ(stage.heard, given);
    EXPECT_EQ(stage.starts, 1);
}

TEST_F(DevicePlayout, TheDevicesClockDrainsTheBufferAndFillsIt) {
    struct Case {
        const char* why;
        double ppm, excess;  // µs after 10 s
    };
    constexpr Case cases[] = {{"a fast device", 500, -5'000}, {"a slow device", -500, 5'000}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        stage = {};
        stage.ppm = c.ppm;
        sequence = 0;
        open();
        feed(10'060);
        packet();
        EXPECT_NEAR(playout->excessMicros(), c.excess, 100);
        EXPECT_NEAR(playout->clockPpm(), c.ppm, 5);
    }
}

TEST_F(DevicePlayout, TellsTheMeanOfADeviceThatPlaysInSteps) {
    stage.step = 480;
    open();
    feed(200);
    playout->takeExcessMicros();
    double least = 1e9, most = -1e9, sum = 0;
    for (int i = 0; i < 100; ++i) {
        feed(1);
        const double excess = playout->excessMicros() + 1000;  // as it was before the millisecond
        least = std::min(least, excess);
        most = std::max(most, excess);
        sum += excess;
    }
    EXPECT_GT(most - least, 8'000);
    EXPECT_NEAR(playout->takeExcessMicros(), sum / 100, 1'000);
    EXPECT_EQ(playout->takeExcessMicros(), playout->excessMicros());
}

TEST_F(DevicePlayout, AStreamThatIsLateByLessThanTheDeviceHoldsIsNotHeard) {
    open();
    feed(500);
    pass(45'000);
    EXPECT_TRUE(playout->isPlaying());
    for (int i = 0; i < 45; ++i) packet();
    feed(100);
    EXPECT_EQ(playout->underruns() + playout->deviceUnderruns(), 0u);
    EXPECT_NEAR(playout->excessMicros(), -1'000, 100);
    finish();
    EXPECT_EQ(stage.heard, given);
}

TEST_F(DevicePlayout, AStreamThatStaysAwayLeavesTheDeviceRunningOnSilence) {
    open();
    feed(500);
    pass(400'000);
    EXPECT_FALSE(playout->isPlaying());
    EXPECT_EQ(playout->underruns(), 1u);
    EXPECT_EQ(playout->deviceUnderruns(), 0u);
    EXPECT_EQ(stage.starts, 1);
    EXPECT_NEAR(playout->fillMicros(), 40'000, 1'000);
    feed(19);
    EXPECT_FALSE(playout->isPlaying());
    feed(300);
    EXPECT_TRUE(playout->isPlaying());
    EXPECT_EQ(playout->underruns(), 1u);
    finish();
    EXPECT_EQ(stage.starts, 1);
    EXPECT_EQ(sounding(), given);
    EXPECT_GT(stage.heard.size(), given.size() + 300u * 192);
}

TEST_F(DevicePlayout, ATargetThatIsLateItselfHealsTheDeviceAndLosesNothing) {
    open();
    feed(500);
    stage.now += 200'000;  // nobody looked
    playout->advance(stage.now);
    EXPECT_EQ(playout->deviceUnderruns(), 1u);
    EXPECT_EQ(playout->underruns(), 0u);
    EXPECT_FALSE(playout->isPlaying());
    for (int i = 0; i < 200; ++i) packet();  // they were waiting in the socket
    EXPECT_TRUE(playout->isPlaying());
    feed(300);
    EXPECT_EQ(playout->deviceUnderruns(), 1u);
    EXPECT_EQ(stage.starts, 2);
    finish();
    EXPECT_EQ(sounding(), given);
}

TEST_F(DevicePlayout, ADeviceThatGoesEndsNothingButTheWriting) {
    open();
    feed(500);
    stage.isGone = true;
    feed(100);
    EXPECT_TRUE(playout->outputFailed());
    EXPECT_NE(output->gone(), "");
    finish();
}

TEST_F(DevicePlayout, AFloodIsThrownAwayRatherThanKept) {
    open();
    for (int i = 0; i < 3000; ++i) packet();
    EXPECT_GE(playout->overflows(), 1u);
    EXPECT_LE(playout->fillMicros(), 1'070'000);
    finish();
    EXPECT_LT(stage.heard.size(), 1'100u * 192);
}

TEST_F(DevicePlayout, ADeviceThatHoldsMoreThanABufferMayIsFilledAllTheSame) {
    open(20'000, {2'000'000, 500'000});
    feed(2'019);
    EXPECT_FALSE(playout->isPlaying());
    feed(500);
    EXPECT_TRUE(playout->isPlaying());
    EXPECT_EQ(playout->overflows(), 0u);
    finish();
    EXPECT_EQ(stage.heard, given);
}

TEST_F(DevicePlayout, OneWithoutAClockPlaysByOurs) {
    stage.playsAtOnce = true;
    open();
    feed(60);
    pass(1'000);
    EXPECT_NEAR(playout->targetMicros(), 20'000, 1);
    EXPECT_NEAR(playout->fillMicros(), 18'000, 600);
    feed(500);
    EXPECT_NEAR(playout->excessMicros(), -2'000, 600);
    EXPECT_EQ(playout->underruns() + playout->deviceUnderruns(), 0u);
    pass(100'000);
    EXPECT_EQ(playout->underruns(), 1u);
    feed(100);
    finish();
    EXPECT_EQ(stage.heard, given);  // a pause makes no silence here
    EXPECT_EQ(playout->deviceUnderruns(), 0u);
}

TEST_F(DevicePlayout, OneThatLosesItsClockGoesOnByOursFromThere) {
    open();
    feed(500);
    stage.playsAtOnce = true;
    feed(100);
    EXPECT_TRUE(playout->isPlaying());
    EXPECT_EQ(playout->underruns() + playout->deviceUnderruns(), 0u);
    EXPECT_GT(playout->fillMicros(), 15'000);
}

// What a host makes of the answers: a tenth of their change and four hundredths of their value go
// into its flow, which may fall by 10 % and rise by 3 %.
struct HostFilter {
    int average = 0, adjust = 0;
    double flow() const { return 1 + adjust / 16384.0; }
    void hear(int value) {
        adjust -= ((value - average) * 1638 >> 14) + (value * 655 >> 14);
        adjust = std::clamp(adjust, -1638, 491);
        average = value;
    }
};

TEST_F(DevicePlayout, BringsAHostToTheDevicesClock) {
    struct Case {
        const char* why;
        double ppm;
        std::uint64_t step;  // frames
        double fromMean;     // µs that the fill may be off at the end
    };
    constexpr Case cases[] = {
        {"a fast device", 200, 1, 1'500},
        {"a slow device", -200, 1, 1'500},
        {"a fast one that plays in steps of 10 ms", 200, 480, 6'500},
        {"a slow one that plays in steps of 8 ms", -300, 384, 6'500},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        stage = {};
        stage.ppm = c.ppm;
        stage.step = c.step;
        sequence = 0;
        open();
        Feedback feedback(2);
        HostFilter host;
        double next = 0, atHalf = 0;
        std::uint64_t packetsThen = 0, packets = 0;
        double sum = 0;
        while (next < 60e6) {
            passTo(static_cast<std::uint64_t>(next));
            playout->onPacket(sequence++, millisecond(1), true, stage.now);
            if (++packets % 100 == 0) {
                const double excess = playout->takeExcessMicros();
                if (packets > 30'000) sum += excess;
                host.hear(VELMORA::wire::decodeFeedback(feedback.answer(excess, stage.now)).value);
            }
            next += 1000 / host.flow();
            if (packets == 30'000) {
                atHalf = next;
                packetsThen = packets;
            }
        }
        const double rate = static_cast<double>(packets - packetsThen) * 1000 / (next - atHalf);
        EXPECT_NEAR((rate - 1) * 1e6, c.ppm, 60);
        EXPECT_NEAR(playout->clockPpm(), c.ppm, 100);
        EXPECT_NEAR(playout->excessMicros(), 0, c.fromMean);
        EXPECT_NEAR(sum / 300, 0, 1'500);
        EXPECT_EQ(playout->underruns() + playout->deviceUnderruns(), 0u);
    }
}

}  // namespace
