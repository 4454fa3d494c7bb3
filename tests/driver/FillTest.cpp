#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <thread>

#include "tests/driver/DriverRig.h"

namespace {

using namespace velmora_test;
using testing::ElementsAre;
using testing::IsEmpty;
using VELMORA::SinkConfig;

// A driver that has started, on a rig whose workers never run: the test does the buffer worker's
// fills.
struct FillRig : DriverRig {
    explicit FillRig(const std::string& settings = "", std::uint64_t width = SinkConfig::pcm32)
        : DriverRig(settings) {
        target.pcm = StreamTarget::allRates | StreamTarget::everyChannels | width;
    }
    void open(std::int32_t channels = 2, std::int32_t frames = 4) {
        ASSERT_TRUE(init());
        ASSERT_EQ(createBuffers(channels, frames), ASE_OK);
        ASSERT_EQ(driver().start(), ASE_OK);
        block.assign(driver().stream().blockBytes, 0xee);
        host.calls.clear();
    }
    const Bytes& fill() {
        std::fill(block.begin(), block.end(), 0xee);
        // On a thread of its own: a stop on the buffer worker's thread is another matter.
        std::thread([this] { driver().stream().fillStream(block, false); }).join();
        return block;
    }
    std::int64_t position() {
        ASIOSamples position{};
        driver().getSamplePosition(&position, nullptr);
        return static_cast<std::int64_t>((std::uint64_t{position.hi} << 32) | position.lo);
    }
    // Puts one byte over and over into a half of a channel.
    void paint(std::size_t channel, std::int32_t half, std::uint8_t byte, std::size_t bytes) {
        std::memset(buffers[channel].buffers[half], byte, bytes);
    }
    Bytes block;
};

TEST(Fill, AsksForTheFirstHalfAndSendsTheSecond) {
    FillRig rig;
    rig.open();
    rig.host.onSwitch = [&](std::int32_t half) {
        rig.paint(0, half, 0x11, 16);
        rig.paint(1, half, 0x22, 16);
    };
    EXPECT_EQ(rig.fill(), Bytes(32, 0)) << "half 1, that nobody has filled yet";
    EXPECT_THAT(rig.host.calls, ElementsAre("bufferSwitch 0 1"));
    const Bytes one = {0x11, 0x11, 0x11, 0x11, 0x22, 0x22, 0x22, 0x22};
    Bytes expected;
    for (int i = 0; i < 4; ++i) expected.insert(expected.end(), one.begin(), one.end());
    EXPECT_EQ(rig.fill(), expected) << "half 0, filled on the call before";
    EXPECT_THAT(rig.host.calls, ElementsAre("bufferSwitch 0 1", "bufferSwitch 1 1"));
}

TEST(Fill, TheOutputLagsByOneBuffer) {
    FillRig rig;
    rig.open(1, 4);
    std::uint8_t next = 1;
    rig.host.onSwitch = [&](std::int32_t half) { rig.paint(0, half, next++, 16); };
    rig.fill();
    for (std::uint8_t sent = 1; sent < 10; ++sent) EXPECT_EQ(rig.fill(), Bytes(16, sent));
}

TEST(Fill, CountsFramesOrBits) {
    struct Case {
        const char* why;
        const char* settings;
        std::uint64_t width;
        bool dsd;
        std::int32_t frames;
        std::int64_t perBlock;
    };
    const Case cases[] = {
        {"16 bits", "PCMRequest=16\n", SinkConfig::pcm16, false, 512, 512},
        {"24 bits", "PCMRequest=24\n", SinkConfig::pcm24, false, 512, 512},
        {"32 bits", "", SinkConfig::pcm32, false, 512, 512},
        {"64 bits", "PCMRequest=64\n", SinkConfig::float64, false, 512, 512},
        {"DSD: one bit of one channel", "DSDMSB=enable\n", SinkConfig::pcm32, true, 16384, 16384},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        FillRig rig(c.settings, c.width);
        rig.target.dsdMsb =
            StreamTarget::allRates | StreamTarget::twoChannels | SinkConfig::dsdMsbBig;
        ASSERT_TRUE(rig.init());
        if (c.dsd) {
            std::int32_t format = kASIODSDFormat;
            rig.driver().future(kAsioSetIoFormat, &format);
            rig.driver().setSampleRate(2822400);
        }
        ASSERT_EQ(rig.createBuffers(2, c.frames), ASE_OK);
        ASSERT_EQ(rig.driver().start(), ASE_OK);
        rig.block.assign(rig.driver().stream().blockBytes, 0);
        EXPECT_EQ(rig.position(), 0);
        rig.fill();
        EXPECT_EQ(rig.position(), c.perBlock);
        rig.fill();
        EXPECT_EQ(rig.position(), 2 * c.perBlock);
    }
}

TEST(Fill, StartBeginsAtPositionAndHalfZero) {
    FillRig rig;
    rig.open();
    rig.fill();
    rig.endSession();
    rig.driver().stop();
    ASSERT_EQ(rig.driver().start(), ASE_OK);
    EXPECT_EQ(rig.position(), 0);
    rig.host.calls.clear();
    rig.fill();
    EXPECT_THAT(rig.host.calls, ElementsAre("bufferSwitch 0 1"));
}

TEST(Fill, ConvertsWhatTheHostWritesAsIntegers) {
    struct Case {
        const char* why;
        std::uint64_t width;
        Bytes sample;  // of 1, 2, 3, 4
    };
    const Case cases[] = {
        {"64 bits", SinkConfig::pcm64, {0, 0, 0, 0, 1, 2, 3, 4}},
        {"32 bits", SinkConfig::pcm32, {1, 2, 3, 4}},
        {"24 bits", SinkConfig::pcm24, {2, 3, 4}},
        {"16 bits", SinkConfig::pcm16, {3, 4}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        FillRig rig("PCMRequest=CovertS32\n", c.width);
        rig.open(1, 2);
        rig.host.onSwitch = [&](std::int32_t half) {
            const std::uint8_t frames[] = {1, 2, 3, 4, 1, 2, 3, 4};
            std::memcpy(rig.buffers[0].buffers[half], frames, sizeof frames);
        };
        rig.fill();
        Bytes expected = c.sample;
        expected.insert(expected.end(), c.sample.begin(), c.sample.end());
        EXPECT_EQ(rig.fill(), expected);
        EXPECT_EQ(rig.position(), 4);
    }
}

TEST(Fill, StoppedItCopiesOutAndCallsNobody) {
    FillRig rig;
    rig.open(1, 4);
    rig.host.onSwitch = [&](std::int32_t half) { rig.paint(0, half, 0x33, 16); };
    rig.fill();
    rig.endSession();
    rig.driver().stop();
    rig.host.calls.clear();
    EXPECT_EQ(rig.fill(), Bytes(16, 0x33));
    EXPECT_EQ(rig.fill(), Bytes(16, 0));
    EXPECT_EQ(rig.position(), 12) << "the positions go on";
    EXPECT_THAT(rig.host.calls, IsEmpty());
}

TEST(Fill, DisposedItTouchesNothing) {
    FillRig rig;
    rig.open(1, 4);
    rig.endSession();
    rig.driver().disposeBuffers();
    EXPECT_EQ(rig.fill(), Bytes(16, 0xee));
    EXPECT_THAT(rig.host.calls, IsEmpty());
}

TEST(Fill, ABlockThatDisagreesIsFilledAsFarAsBothReach) {
    FillRig rig;
    rig.open(2, 4);
    rig.block.assign(20, 0xee);  // two frames of 8, and a rest
    EXPECT_EQ(rig.fill(),
              (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xee, 0xee, 0xee, 0xee}));
    rig.block.assign(40, 0xee);  // more than a half holds
    rig.fill();
    EXPECT_TRUE(std::all_of(rig.block.begin(), rig.block.begin() + 32,
                            [](std::uint8_t b) { return b == 0; }));
    EXPECT_EQ(rig.block[32], 0xee);
}

TEST(Fill, AFormatSetWhilePlayingWaitsForTheNextStart) {
    FillRig rig("PCMRequest=CovertS32\n", SinkConfig::pcm16);
    rig.open(1, 4);
    std::int32_t format = kASIODSDFormat;
    rig.driver().future(kAsioSetIoFormat, &format);
    rig.host.onSwitch = [&](std::int32_t half) { rig.paint(0, half, 0x33, 16); };
    rig.fill();
    EXPECT_EQ(rig.fill(), Bytes(8, 0x33));
    EXPECT_EQ(rig.position(), 8);
}

// ---- time info ----

TEST(FillTimeInfo, TellsPositionRateAndNews) {
    FillRig rig;
    rig.host.supportsTimeInfo = 1;
    std::vector<ASIOTime> times;
    rig.host.onSwitchTimeInfo = [&](ASIOTime& time, std::int32_t) { times.push_back(time); };
    ASSERT_TRUE(rig.init());
    rig.driver().setSampleRate(48000.25);  // what it tells before createBuffers is forgotten there
    rig.driver().setClockSource(0);
    rig.open(2, 4);

    rig.fill();
    EXPECT_THAT(rig.host.calls, ElementsAre("bufferSwitchTimeInfo 0 1"));
    ASSERT_EQ(times.size(), 1u);
    // The doubles lie on 4-byte boundaries: values are compared, not references.
    EXPECT_EQ(+times[0].timeInfo.speed, 1.0);
    EXPECT_EQ(times[0].timeInfo.samplePosition.lo, 0u);
    EXPECT_EQ(+times[0].timeInfo.sampleRate, 48000.0);
    EXPECT_EQ(times[0].timeInfo.flags, 15u);
    EXPECT_EQ(+times[0].timeCode.speed, 1.0);
    EXPECT_EQ(times[0].timeCode.flags, 258u);
    EXPECT_EQ(times[0].timeCode.timeCodeSamples.lo, 0u);

    rig.driver().setSampleRate(96000.5);
    rig.driver().setClockSource(0);
    rig.driver().setClockSource(3);  // refused, so no news
    rig.fill();
    ASSERT_EQ(times.size(), 2u);
    EXPECT_EQ(times[1].timeInfo.samplePosition.lo, 4u);
    EXPECT_EQ(+times[1].timeInfo.sampleRate, 96000.5);
    EXPECT_EQ(times[1].timeInfo.flags, 15u | 16u | 32u);
    EXPECT_EQ(times[1].timeCode.timeCodeSamples.lo, 0u) << "nobody reads time code";

    rig.fill();
    ASSERT_EQ(times.size(), 3u);
    EXPECT_EQ(times[2].timeInfo.flags, 15u) << "news is told once";
    EXPECT_EQ(times[2].timeInfo.samplePosition.lo, 8u);
}

TEST(FillTimeInfo, TimeCodeCountsWithThePosition) {
    FillRig rig;
    rig.host.supportsTimeInfo = 1;
    std::vector<ASIOTime> times;
    rig.host.onSwitchTimeInfo = [&](ASIOTime& time, std::int32_t) { times.push_back(time); };
    rig.driver().future(kAsioEnableTimeCodeRead, nullptr);
    rig.open(2, 4);
    rig.fill();
    rig.fill();
    rig.driver().future(kAsioDisableTimeCodeRead, nullptr);
    rig.fill();
    ASSERT_EQ(times.size(), 3u);
    EXPECT_EQ(times[0].timeCode.flags, 259u);
    EXPECT_EQ(times[1].timeCode.timeCodeSamples.lo, 4u);
    EXPECT_EQ(times[2].timeCode.timeCodeSamples.lo, 4u) << "no longer";
    EXPECT_EQ(times[2].timeInfo.samplePosition.lo, 8u);
}

TEST(FillTimeInfo, NewsOfTheRateReachesTheHostThatIsCalledAtOnceToo) {
    FillRig rig;
    rig.open();
    rig.driver().setSampleRate(48000);
    EXPECT_THAT(rig.host.calls, ElementsAre("sampleRateDidChange 48000.000000"));
}

// ---- hosts in the field ----

TEST(FillHosts, ACallbacksStructureOnTheStackIsCopied) {
    FillRig rig;
    ASSERT_TRUE(rig.init());
    {
        auto onStack = std::make_unique<ASIOCallbacks>(rig.host.callbacks);
        rig.buffers.assign(1, {});
        ASSERT_EQ(rig.driver().createBuffers(rig.buffers.data(), 1, 4, onStack.get()), ASE_OK);
    }
    ASSERT_EQ(rig.driver().start(), ASE_OK);
    rig.block.assign(16, 0);
    rig.host.calls.clear();
    rig.fill();  // ASan watches
    EXPECT_THAT(rig.host.calls, ElementsAre("bufferSwitch 0 1"));
}

TEST(FillHosts, WhatIsNullIsNeverCalled) {
    struct Case {
        const char* why;
        bool hasSwitch, hasTimeInfo;
        std::int32_t saysTimeInfo;
        std::vector<std::string> calls;
    };
    const Case cases[] = {
        {"both, time info", true, true, 1, {"bufferSwitchTimeInfo 0 1"}},
        {"both, plain", true, true, 0, {"bufferSwitch 0 1"}},
        {"says time info and has none", true, false, 1, {"bufferSwitch 0 1"}},
        {"has time info alone and does not say so", false, true, 0, {"bufferSwitchTimeInfo 0 1"}},
        {"neither", false, false, 0, {}},
        {"neither, and says time info", false, false, 1, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        FillRig rig;
        if (!c.hasSwitch) rig.host.callbacks.bufferSwitch = nullptr;
        if (!c.hasTimeInfo) rig.host.callbacks.bufferSwitchTimeInfo = nullptr;
        rig.host.supportsTimeInfo = c.saysTimeInfo;
        rig.open();
        rig.fill();
        EXPECT_EQ(rig.host.calls, c.calls);
    }
}

TEST(FillHosts, AskingForThePositionInsideTheCallbackIsSafe) {
    FillRig rig;
    rig.open();
    std::vector<std::int64_t> positions;
    rig.host.onSwitch = [&](std::int32_t) {
        positions.push_back(rig.position());
        rig.driver().outputReady();
        double rate = 0;
        rig.driver().getSampleRate(&rate);
    };
    rig.fill();
    rig.fill();
    EXPECT_THAT(positions, ElementsAre(0, 4));
}

}  // namespace
