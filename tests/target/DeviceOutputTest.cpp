#include "target/DeviceOutput.h"

#include <gtest/gtest.h>

#include "tests/target/ScriptedPcm.h"
#include "tests/target/TargetWorld.h"

namespace {

using namespace velmora_test;
using velmora_target::DeviceOutput;

// A device with a buffer of 10 ms and a period of 2.
class DeviceOutputTest : public testing::Test {
protected:
    std::unique_ptr<DeviceOutput> make() {
        return std::make_unique<DeviceOutput>("bench", std::make_unique<ScriptedPcm>(stage),
                                              PcmTimes{10'000, 2'000});
    }
    void opened() { ASSERT_EQ(output->open(pcm16Stereo48()), ""); }
    void write(unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            const Bytes audio = millisecond(next++);
            given.insert(given.end(), audio.begin(), audio.end());
            EXPECT_TRUE(output->write(audio));
        }
    }
    void playOut() {
        output->close();
        for (int i = 0; i < 10'000 && output->stillPlays(stage.now); ++i) stage.now += 1000;
    }
    std::uint64_t held() { return output->device()->held; }

    PcmStage stage;
    std::unique_ptr<DeviceOutput> output = make();
    Bytes given;
    unsigned next = 0;
};

TEST_F(DeviceOutputTest, UnopenedDoesNothing) {
    EXPECT_FALSE(output->device());
    EXPECT_FALSE(output->write(millisecond(0)));
    output->rest();
    EXPECT_EQ(output->close(), "");
    EXPECT_FALSE(output->stillPlays(0));
    EXPECT_EQ(output->gone(), "");
    EXPECT_EQ(output->where(), "alsa:bench");
    output.reset();
    EXPECT_EQ(stage.opened, 0);
    EXPECT_EQ(stage.closed, 0);
}

TEST_F(DeviceOutputTest, OpenedAndLeftAlonePlaysNothing) {
    opened();
    stage.now += 1'000'000;
    ASSERT_TRUE(output->device());
    EXPECT_EQ(held(), 0u);
    EXPECT_EQ(output->device()->underruns, 0u);
    playOut();
    EXPECT_TRUE(stage.heard.empty());
    EXPECT_EQ(stage.starts, 0);
    EXPECT_EQ(stage.closed, 1);
}

TEST_F(DeviceOutputTest, TellsWhatTheDeviceWantsAndHolds) {
    opened();
    EXPECT_EQ(output->device()->wanted, 480u);
    EXPECT_EQ(output->device()->least, 96u);
    write(3);
    EXPECT_EQ(held(), 144u);
}

TEST_F(DeviceOutputTest, BeginsWhenTheDeviceIsFullAndNotBefore) {
    opened();
    write(9);
    stage.now += 5'000;
    EXPECT_EQ(held(), 432u);
    EXPECT_EQ(stage.starts, 0);
    write(1);
    EXPECT_EQ(stage.starts, 1);
    stage.now += 5'000;
    EXPECT_EQ(held(), 240u);
}

TEST_F(DeviceOutputTest, PlaysEveryFrameInOrderAndNothingElse) {
    opened();
    write(10);
    for (int i = 0; i < 500; ++i) {
        stage.now += 1000;
        write(1);
    }
    playOut();
    EXPECT_EQ(stage.heard, given);
    EXPECT_EQ(stage.starts, 1);
    EXPECT_EQ(stage.closed, 1);
}

TEST_F(DeviceOutputTest, KeepsWhatTheDeviceHasNoRoomFor) {
    opened();
    write(30);
    EXPECT_EQ(held(), 30u * 48);
    playOut();
    EXPECT_EQ(stage.heard, given);
}

TEST_F(DeviceOutputTest, ShortWritesAreGoneOnWith) {
    stage.mostAtOnce = 7;
    opened();
    write(25);
    playOut();
    EXPECT_EQ(stage.heard, given);
}

TEST_F(DeviceOutputTest, ADeviceThatTakesNothingNowIsTriedAgainLater) {
    stage.writeErrors = {-EAGAIN, 0, -EAGAIN, -EINTR, 0};
    opened();
    write(2);
    write(10);
    EXPECT_EQ(output->device()->underruns, 0u);
    playOut();
    EXPECT_EQ(stage.heard, given);
}

TEST_F(DeviceOutputTest, AShortStreamIsHeardThoughItNeverFilledTheDevice) {
    opened();
    write(2);
    playOut();
    EXPECT_EQ(stage.heard, given);
    EXPECT_EQ(stage.starts, 1);
}

TEST_F(DeviceOutputTest, RunningDryIsCountedAndHealedWithSilence) {
    opened();
    write(10);
    stage.now += 50'000;
    const auto fill = output->device();
    ASSERT_TRUE(fill);
    EXPECT_EQ(fill->underruns, 1u);
    EXPECT_EQ(fill->held, 0u);
    EXPECT_EQ(stage.heard, given);
    output->rest();
    EXPECT_EQ(held(), 480u);
    EXPECT_EQ(stage.starts, 2);
    stage.now += 3'000;
    output->rest();
    EXPECT_EQ(held(), 480u);
    stage.now += 10'000 - 1'000;
    EXPECT_EQ(held(), 48u);
    write(9);
    EXPECT_EQ(stage.dry, 1);
    playOut();
    EXPECT_EQ(output->gone(), "");
    // Thirteen milliseconds of nothing between the two.
    Bytes wanted(given.begin(), given.begin() + 10 * 192);
    wanted.insert(wanted.end(), 13 * 192, 0);
    wanted.insert(wanted.end(), given.begin() + 10 * 192, given.end());
    EXPECT_EQ(stage.heard, wanted);
}

TEST_F(DeviceOutputTest, SilenceNeverComesInFrontOfWhatWaits) {
    opened();
    write(10);
    stage.now += 50'000;
    EXPECT_EQ(output->device()->underruns, 1u);
    stage.writeErrors = {-EAGAIN, -EAGAIN};
    write(1);
    output->rest();
    EXPECT_EQ(held(), 48u);
    output->rest();
    EXPECT_EQ(held(), 480u);
    playOut();
    Bytes wanted = given;
    wanted.insert(wanted.end(), 9 * 192, 0);
    EXPECT_EQ(stage.heard, wanted);
}

TEST_F(DeviceOutputTest, RunningDryUnderAWriteIsTheSame) {
    opened();
    write(10);
    stage.now += 5'000;
    stage.writeErrors = {-EPIPE};
    write(1);
    EXPECT_EQ(output->device()->underruns, 1u);
    EXPECT_EQ(held(), 48u);  // what was to be written is in the device that begins anew
    EXPECT_EQ(output->gone(), "");
}

TEST_F(DeviceOutputTest, ADeviceThatCannotBeHealedIsGone) {
    struct Case {
        const char* why;
        int writeError, prepareError;
    };
    constexpr Case cases[] = {
        {"taken away", -ENODEV, 0},
        {"an error of the bus", -EIO, 0},
        {"in a state that nobody knows", -EBADFD, 0},
        {"taken away after it ran dry", -EPIPE, -ENODEV},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        stage = {};
        output = make();
        opened();
        EXPECT_TRUE(output->write(millisecond(0)));
        stage.writeErrors = {c.writeError};
        stage.prepareError = c.prepareError;
        EXPECT_FALSE(output->write(millisecond(1)));
        EXPECT_NE(output->gone(), "");
        EXPECT_FALSE(output->device());
        EXPECT_FALSE(output->write(millisecond(2)));
        output->rest();
        output->close();
        EXPECT_FALSE(output->stillPlays(stage.now));
        EXPECT_EQ(stage.closed, 1);
    }
}

TEST_F(DeviceOutputTest, ADeviceThatIsPulledOutWhileItPlaysIsGone) {
    opened();
    write(10);
    stage.now += 1000;
    stage.isGone = true;
    EXPECT_FALSE(output->device());
    EXPECT_EQ(output->gone(), "No such device");
    output.reset();
    EXPECT_EQ(stage.closed, 1);
    EXPECT_EQ(stage.slept, 0u);
}

TEST_F(DeviceOutputTest, ADeviceThatRunsDryAtEveryWriteIsGivenUp) {
    opened();
    for (int i = 0; i < 100; ++i) stage.writeErrors.push_back(-EPIPE);
    EXPECT_FALSE(output->write(millisecond(0)));
    EXPECT_NE(output->gone(), "");
    EXPECT_GT(stage.writeErrors.size(), 90u);
}

TEST_F(DeviceOutputTest, ASuspendedDeviceGoesOnWhereItWas) {
    opened();
    write(10);
    stage.isSuspended = true;
    stage.resumeResults = {-EAGAIN, -EAGAIN, 0};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(output->device()->underruns, 1u) << i;
        output->rest();
    }
    EXPECT_FALSE(stage.isSuspended);
    EXPECT_EQ(held(), 480u);
    playOut();
    EXPECT_EQ(stage.heard, given);
    EXPECT_EQ(stage.starts, 1);
}

TEST_F(DeviceOutputTest, ASuspendedDeviceThatCannotGoOnBeginsAnew) {
    opened();
    write(10);
    stage.isSuspended = true;
    stage.resumeResults = {-EAGAIN, -ENOSYS};
    EXPECT_EQ(output->device()->underruns, 1u);
    EXPECT_EQ(output->device()->underruns, 1u);
    EXPECT_EQ(held(), 0u);
    output->rest();
    EXPECT_EQ(held(), 480u);
    EXPECT_EQ(stage.starts, 2);
    EXPECT_EQ(output->gone(), "");
}

TEST_F(DeviceOutputTest, OneThatPlaysAllAtOnceHasNoClock) {
    stage.playsAtOnce = true;
    opened();
    ASSERT_TRUE(output->device());
    EXPECT_EQ(output->device()->wanted, 480u);
    write(10);
    EXPECT_FALSE(output->device());
    EXPECT_EQ(output->gone(), "");
    write(100);
    EXPECT_FALSE(output->device());
    playOut();
    EXPECT_EQ(stage.heard, given);
}

TEST_F(DeviceOutputTest, OneThatCountsNothingBeforeItRunsIsFilledOnce) {
    stage.countsOnlyRunning = true;
    opened();
    write(4);
    EXPECT_EQ(held(), 192u);
    write(6);
    EXPECT_EQ(stage.starts, 1);
    stage.now += 2'000;
    EXPECT_EQ(held(), 384u);
}

TEST_F(DeviceOutputTest, CountsInFramesOfTheStreamWhereTheDevicesAreShorter) {
    stage.formats = {PcmFormat::dsd8};
    VELMORA::SinkConfig dsd64(VELMORA::SinkConfig::dsdMsbBig);
    ASSERT_TRUE(dsd64.setChannels(2) && dsd64.setRate(2822400));
    ASSERT_EQ(output->open(dsd64), "");
    EXPECT_EQ(output->device()->wanted, 882u);  // of 88200 a second
    const Bytes words(8 * 882, 0x12);
    EXPECT_TRUE(output->write(std::span(words).first(8)));
    EXPECT_EQ(held(), 1u);
    EXPECT_TRUE(output->write(std::span(words).first(8 * 881)));
    EXPECT_EQ(held(), 882u);
    EXPECT_EQ(stage.starts, 1);
    stage.now += 5'000;
    EXPECT_EQ(held(), 441u);
    // Silence of one-bit audio is no row of zeros.
    stage.now += 20'000;
    EXPECT_EQ(output->device()->underruns, 1u);
    output->rest();
    stage.now += 1'000;
    EXPECT_EQ(held(), 882u - 88);
    EXPECT_EQ(stage.heard.back(), 0x69);
}

TEST_F(DeviceOutputTest, ABufferThatIsNoWholeNumberOfStreamFramesStillBegins) {
    stage.formats = {PcmFormat::dsd8};
    output = std::make_unique<DeviceOutput>("bench", std::make_unique<ScriptedPcm>(stage),
                                            PcmTimes{10'003, 2'000});
    VELMORA::SinkConfig dsd64(VELMORA::SinkConfig::dsdMsbBig);
    ASSERT_TRUE(dsd64.setChannels(2) && dsd64.setRate(2822400));
    ASSERT_EQ(output->open(dsd64), "");
    EXPECT_TRUE(output->write(Bytes(8 * output->device()->wanted, 1)));
    EXPECT_EQ(stage.starts, 1);
}

TEST_F(DeviceOutputTest, WhatIsLeftAtTheEndIsHeardWithoutWaiting) {
    opened();
    write(40);
    output->close();
    EXPECT_TRUE(output->stillPlays(stage.now));
    EXPECT_EQ(stage.slept, 0u);
    EXPECT_EQ(stage.closed, 0);
    stage.now += 9'000;
    EXPECT_TRUE(output->stillPlays(stage.now));
    playOut();
    EXPECT_EQ(stage.heard, given);
    EXPECT_EQ(stage.closed, 1);
}

TEST_F(DeviceOutputTest, WhoeverLetsItGoWaitsALittleForTheEnd) {
    opened();
    write(40);
    output->close();
    output.reset();
    EXPECT_EQ(stage.heard, given);
    EXPECT_NEAR(static_cast<double>(stage.slept), 40'000, 4'000);
    EXPECT_EQ(stage.closed, 1);
}

TEST_F(DeviceOutputTest, WhoeverLetsItGoDoesNotWaitForLong) {
    opened();
    write(2000);
    output.reset();
    EXPECT_EQ(stage.slept, DeviceOutput::mostWait);
    EXPECT_EQ(stage.closed, 1);
}

TEST_F(DeviceOutputTest, ADeviceThatDoesNotComeToItsEndIsGivenUp) {
    stage.neverEnds = true;
    opened();
    write(20);
    const std::uint64_t begun = stage.now;
    playOut();
    EXPECT_EQ(stage.closed, 1);
    EXPECT_NEAR(static_cast<double>(stage.now - begun), 1'020'000, 2'000);
}

TEST_F(DeviceOutputTest, RunningDryAtTheEndLosesNothing) {
    opened();
    write(40);
    output->close();
    for (int i = 0; i < 100 && output->stillPlays(stage.now); ++i) stage.now += 25'000;
    EXPECT_EQ(stage.heard, given);
    EXPECT_EQ(stage.closed, 1);
}

}  // namespace
