#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "tests/driver/DriverRig.h"
#include "wire/StreamMessage.h"

namespace {

using namespace velmora_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using VELMORA::SinkConfig;

// A rig up to the buffers.
struct StartRig : DriverRig {
    explicit StartRig(const std::string& settings = "") : DriverRig(settings) {
        target.pcm = StreamTarget::allRates | StreamTarget::everyChannels | SinkConfig::pcm32;
    }
    void open(std::int32_t channels = 2, std::int32_t frames = 512, double rate = 44100) {
        ASSERT_TRUE(init());
        driver().setSampleRate(rate);
        ASSERT_EQ(createBuffers(channels, frames), ASE_OK);
    }
    void setDsd() {
        std::int32_t format = kASIODSDFormat;
        driver().future(kAsioSetIoFormat, &format);
    }
    AsioVelmora::Sync& stream() { return driver().stream(); }
    std::uint8_t byteOf(std::size_t channel, std::size_t at) {
        return static_cast<std::uint8_t*>(buffers[channel].buffers[0])[at];
    }
};

// What start says until it asks the target: the last line at level 3, and its answer.
struct Outcome {
    ASIOError answer;
    std::vector<std::string> errors;
    std::vector<std::string> info;
};
Outcome start(StartRig& rig) {
    LogCapture log(6);
    const ASIOError answer = rig.driver().start();
    return {answer, log.texts(3), log.texts(6)};
}

// ---- the steps and their failures ----

TEST(Start, ARateThatNoFormatCarriesFails) {
    struct Case {
        double rate;
        const char* error;
    };
    for (const Case& c : {Case{44000, "speed error 44000"}, Case{0, "speed error 0"},
                          Case{22050, "speed error 22050"}, Case{1e12, "speed error 0"}}) {
        SCOPED_TRACE(c.error);
        StartRig rig;
        rig.open(2, 512, c.rate);
        const Outcome outcome = start(rig);
        EXPECT_EQ(outcome.answer, -1000);
        EXPECT_THAT(outcome.errors, ElementsAre(c.error));
        EXPECT_THAT(outcome.info, ElementsAre("start"));
    }
}

TEST(Start, AChannelCountWithoutACodeFails) {
    struct Case {
        std::int32_t channels;
        const char* error;
    };
    for (const Case& c : {Case{0, "ch error 0"}, Case{3, "ch error 3"}, Case{5, "ch error 5"},
                          Case{7, "ch error 7"}}) {
        SCOPED_TRACE(c.error);
        StartRig rig;
        rig.open(c.channels);
        const Outcome outcome = start(rig);
        EXPECT_EQ(outcome.answer, -1000);
        EXPECT_THAT(outcome.errors, ElementsAre(c.error));
        EXPECT_THAT(outcome.info, ElementsAre("start", "start SPEED=44100"));
    }
}

TEST(Start, ChannelCountsBecomeTheirCodes) {
    struct Case {
        std::int32_t channels;
        std::uint64_t code;
    };
    for (const Case& c : {Case{1, 1}, Case{2, 2}, Case{4, 4}, Case{6, 8}, Case{8, 16}}) {
        SCOPED_TRACE(c.channels);
        StartRig rig;
        rig.open(c.channels);
        EXPECT_EQ(rig.driver().start(), ASE_OK);
        EXPECT_EQ(rig.stream().sinkConfig.word & SinkConfig::channelMask, c.code);
        rig.endSession();
        rig.driver().stop();
    }
}

TEST(Start, PutsTheFormatTogether) {
    StartRig rig;
    rig.open(2, 512, 96000);
    EXPECT_EQ(rig.driver().start(), ASE_OK);
    // family 48000, x2, two channels, 32 bits
    EXPECT_EQ(rig.stream().sinkConfig.word, (4ull << 32) | (1ull << 36) | 0x802);
    EXPECT_EQ(rig.stream().hostFormat, rig.stream().sinkConfig);
}

TEST(Start, AFormatThatTheTargetLacksFails) {
    StartRig rig;
    rig.target.pcm = SinkConfig::family48000 | (1ull << 35) | 0x802;
    rig.open();
    const Outcome outcome = start(rig);
    EXPECT_EQ(outcome.answer, -1000);
    EXPECT_THAT(outcome.errors, ElementsAre("fmt error PCM"));
}

TEST(Start, EightThousandIsARateOfZeroAndFailsWhereTimeIsSettled) {
    struct Case {
        const char* settings;
        const char* error;
    };
    const Case cases[] = {
        {"", "error configTransfer Fix"},
        {"FlexCycle=enable\n", "error configTransfer Var"},
        {"FlexCycle=random\nCycleMinTime=500\n", "error configTransfer Var"},
        {"Fragment=Optimize\n", "error configTransfer FixAuto"},
        {"Fragment=Optimize\nFlexCycle=enable\n", "error configTransfer VarAuto"},
        {"FlexCycle=fixAsio\n", "error configTransfer VarASIO"},
        {"TargetProfileLimitTime=500\n", "error configTransfer profile"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.error);
        StartRig rig(c.settings);
        rig.target.pcm |= SinkConfig::family8000;
        rig.open(2, 512, 8000);
        const Outcome outcome = start(rig);
        EXPECT_EQ(outcome.answer, -1000);
        EXPECT_THAT(outcome.errors, ElementsAre(c.error));
        EXPECT_THAT(outcome.info, Contains("start SPEED=0"));
    }
}

// ---- DSD ----

struct DsdCase {
    const char* why;
    bool msbEnabled;
    std::uint64_t lsb, msb;
    ASIOError answer;
    const char* error;  // "" for none
};
constexpr std::uint64_t dsdBase = StreamTarget::allRates | StreamTarget::twoChannels;

TEST(StartDsd, RunsWithDsdMsbEnabledAlone) {
    const DsdCase cases[] = {
        {"enabled, and the target takes it", true, 0, dsdBase | SinkConfig::dsdMsbBig, ASE_OK, ""},
        {"enabled, and the target takes the other order", true, dsdBase | SinkConfig::dsdLsbLittle,
         0, ASE_OK, ""},
        {"enabled, and there is no DSD: the label of the other", true, 0, 0, ASE_NotPresent,
         "fmt error DSDLSB"},
        {"absent, though the target takes it: refused without a line", false,
         dsdBase | SinkConfig::dsdLsbLittle, 0, ASE_NotPresent, ""},
        {"absent, and there is no DSD", false, 0, 0, ASE_NotPresent, "fmt error DSDMSB"},
    };
    for (const DsdCase& c : cases) {
        for (const bool byMode : {true, false}) {
            SCOPED_TRACE(c.why);
            SCOPED_TRACE(byMode ? "by the mode" : "by the rate alone");
            StartRig rig(c.msbEnabled ? "DSDMSB=enable\n" : "");
            rig.target.dsdLsb = c.lsb;
            rig.target.dsdMsb = c.msb;
            ASSERT_TRUE(rig.init());
            if (byMode) rig.setDsd();
            rig.driver().setSampleRate(2822400);
            ASSERT_EQ(rig.createBuffers(2, 16384), ASE_OK);
            const Outcome outcome = start(rig);
            EXPECT_EQ(outcome.answer, c.answer);
            if (*c.error != '\0') {
                EXPECT_THAT(outcome.errors, ElementsAre(c.error));
            } else {
                EXPECT_THAT(outcome.errors, IsEmpty());
            }
        }
    }
}

TEST(StartDsd, TheHostsWordsAreMsbBigEndian) {
    StartRig rig("DSDMSB=enable\n");
    rig.target.dsdLsb = dsdBase | SinkConfig::dsdLsbLittle;
    ASSERT_TRUE(rig.init());
    rig.setDsd();
    rig.driver().setSampleRate(2822400);
    ASSERT_EQ(rig.createBuffers(2, 16384), ASE_OK);
    ASSERT_EQ(rig.driver().start(), ASE_OK);
    EXPECT_EQ(rig.stream().hostFormat.word & 0xffffffff, 0x2A10002u);
    EXPECT_EQ(rig.stream().sinkConfig.word & 0xffffffff, 0x2510002u);
    EXPECT_EQ(rig.stream().blockBytes, 2u * 2048u);
}

TEST(StartDsd, ADsdRateBelowTheLowestEndsAtConnect) {
    StartRig rig("DSDMSB=enable\n");
    rig.target.dsdMsb = dsdBase | SinkConfig::dsdMsbBig;
    ASSERT_TRUE(rig.init());
    rig.setDsd();
    ASSERT_EQ(rig.createBuffers(2, 16384), ASE_OK);  // at 44100
    const Outcome outcome = start(rig);
    EXPECT_EQ(outcome.answer, -1000);
    EXPECT_THAT(outcome.errors, ElementsAre("sinkConfig invalid", "connect error"));
}

// ---- silence, ring, logs ----

TEST(Start, FillsTheBuffersWithSilence) {
    struct Case {
        const char* why;
        bool dsd;
        std::uint8_t silence;
    };
    for (const Case& c : {Case{"PCM", false, 0}, Case{"DSD, MSB", true, 0x96}}) {
        SCOPED_TRACE(c.why);
        StartRig rig("DSDMSB=enable\n");
        rig.target.dsdMsb = dsdBase | SinkConfig::dsdMsbBig;
        ASSERT_TRUE(rig.init());
        if (c.dsd) rig.setDsd();
        if (c.dsd) rig.driver().setSampleRate(2822400);
        ASSERT_EQ(rig.createBuffers(2, 1024), ASE_OK);
        const std::size_t bytes = c.dsd ? 2 * 128 : 2 * 4096;
        for (auto& buffer : rig.buffers) std::memset(buffer.buffers[0], 0x55, bytes);
        ASSERT_EQ(rig.driver().start(), ASE_OK);
        for (std::size_t channel = 0; channel < 2; ++channel) {
            for (std::size_t i = 0; i < bytes; ++i) ASSERT_EQ(rig.byteOf(channel, i), c.silence);
        }
    }
}

TEST(Start, MakesTheRingAsTheSettingsAndTheRateSay) {
    struct Case {
        const char* why;
        const char* settings;
        double rate;
        bool dsd;
        std::int32_t frames;
        std::uint64_t blocks, blockBytes;
    };
    const Case cases[] = {
        {"the defaults", "", 44100, false, 512, 6, 512 * 8},
        {"the least", "SyncBufferCount=2\n", 44100, false, 64, 2, 64 * 8},
        {"multi at 192000", "ASIOBufferMulti=enable\n", 192000, false, 512, 24, 512 * 8},
        {"multi at 44100", "ASIOBufferMulti=enable\n", 44100, false, 512, 6, 512 * 8},
        {"multi at 96000", "ASIOBufferMulti=enable\nSyncBufferCount=3\n", 96000, false, 512, 6,
         512 * 8},
        {"no multi at 96000", "", 96000, false, 512, 6, 512 * 8},
        {"DSD64", "DSDMSB=enable\n", 2822400, true, 16384, 6, 2 * 2048},
        {"multi in DSD64", "DSDMSB=enable\nASIOBufferMulti=enable\n", 2822400, true, 16384, 12,
         2 * 2048},
        {"DSD in a buffer of no whole word", "DSDMSB=enable\n", 2822400, true, 16400, 6, 2 * 2048},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        StartRig rig(c.settings);
        rig.target.dsdMsb = dsdBase | SinkConfig::dsdMsbBig;
        ASSERT_TRUE(rig.init());
        if (c.dsd) rig.setDsd();
        rig.driver().setSampleRate(c.rate);
        ASSERT_EQ(rig.createBuffers(2, c.frames), ASE_OK);
        ASSERT_EQ(rig.driver().start(), ASE_OK);
        EXPECT_EQ(rig.stream().blockCount(), c.blocks);
        EXPECT_EQ(rig.stream().blockBytes, c.blockBytes);
    }
}

TEST(Start, ABufferOfNoFrameFails) {
    // Created as PCM with 2 bytes a half, started as DSD, which counts words of 4.
    StartRig rig("DSDMSB=enable\nPCMRequest=16\n");
    rig.target.pcm = StreamTarget::allRates | StreamTarget::twoChannels | SinkConfig::pcm16;
    rig.target.dsdMsb = dsdBase | SinkConfig::dsdMsbBig;
    rig.open(2, 1, 2822400);
    const Outcome outcome = start(rig);
    EXPECT_EQ(outcome.answer, -1000);
    EXPECT_THAT(outcome.errors, ElementsAre("buffer size error"));
}

TEST(Start, SaysHowTimeIsCut) {
    struct Case {
        const char* settings;
        const char* choice;
        const char* cycle;
    };
    const Case cases[] = {
        {"", "configTransfer Fix",
         "start cycle=1000usec 1000.000000Hz size=0 cycleMin=0usec 0.000000Hz"},
        {"CycleTime=500\n", "configTransfer Fix",
         "start cycle=500usec 2000.000000Hz size=0 cycleMin=0usec 0.000000Hz"},
        {"FlexCycle=enable\n", "configTransfer Var",
         "start cycle=1000usec 1000.000000Hz size=360 cycleMin=0usec 0.000000Hz"},
        {"FlexCycle=random\nCycleMinTime=500\n", "configTransfer Random",
         "start cycle=1000usec 1000.000000Hz size=0 cycleMin=500usec 2000.000000Hz"},
        {"Fragment=Optimize\n", "configTransfer FixAuto",
         "start cycle=1000usec 1000.000000Hz size=0 cycleMin=0usec 0.000000Hz"},
        {"Fragment=Optimize\nFlexCycle=enable\n", "configTransfer VarAuto",
         "start cycle=1000usec 1000.000000Hz size=360 cycleMin=0usec 0.000000Hz"},
        // 512 frames x 8 bytes, halved until a packet holds them
        {"FlexCycle=fixAsio\n", "configTransfer VarASIO 1024x4",
         "start cycle=11610usec 86.132644Hz size=4096 cycleMin=0usec 0.000000Hz"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.settings);
        StartRig rig(c.settings);
        rig.open();
        const Outcome outcome = start(rig);
        EXPECT_EQ(outcome.answer, ASE_OK);
        EXPECT_THAT(outcome.errors, IsEmpty());
        // The lines from the choice on; the engine may say its own between them.
        ASSERT_GE(outcome.info.size(), 4u);
        EXPECT_EQ(outcome.info[0], "start");
        EXPECT_EQ(outcome.info[1], "start SPEED=44100");
        EXPECT_EQ(outcome.info[2], c.choice);
        EXPECT_EQ(outcome.info[3], c.cycle);
        EXPECT_EQ(outcome.info.back(), "start done");
    }
}

TEST(Start, FixAsioHidesOptimize) {
    StartRig rig("FlexCycle=fixAsio\nFragment=Optimize\n");
    rig.open();
    EXPECT_THAT(start(rig).info, Contains("configTransfer VarASIO 1024x4"));
}

TEST(Start, AProfileOfAMillisecondTakesThePollingFlagsAway) {
    struct Case {
        const char* why;
        const char* settings;
        std::uint16_t maxCycle10;
        std::uint32_t threadMode;
    };
    // The target wants Fix at its maximum; no sweep.
    const Case cases[] = {
        {"1000 µs", "TargetProfileLimitTime=400\nThredMode=2055\n", 100, 2055u & ~0x804u},
        {"below", "TargetProfileLimitTime=400\nThredMode=2055\n", 95, 2055},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        StartRig rig(c.settings);
        rig.target.minCycle10 = 10;
        rig.target.maxCycle10 = c.maxCycle10;
        rig.open();
        const Outcome outcome = start(rig);
        EXPECT_EQ(outcome.answer, ASE_OK);
        EXPECT_THAT(outcome.info, Contains("configTransfer profile"));
        EXPECT_EQ(rig.stream().profiles[0].cycle, c.maxCycle10 * 10u);
        EXPECT_EQ(rig.stream().threadMode, c.threadMode);
        EXPECT_EQ(rig.stream().profileCount, 2);
    }
}

TEST(Start, ARandomCycleNeedsItsLowerEndBelow) {
    for (const char* lower :
         {"", "CycleMinTime=0\n", "CycleMinTime=1000\n", "CycleMinTime=2000\n"}) {
        SCOPED_TRACE(lower);
        StartRig rig(std::string("FlexCycle=random\n") + lower);
        rig.open();
        const Outcome outcome = start(rig);
        EXPECT_EQ(outcome.answer, -1000);
        EXPECT_THAT(outcome.errors, ElementsAre("error configTransfer Var"));
        EXPECT_THAT(outcome.info, Contains("configTransfer Random"));
    }
}

TEST(Start, GivesTheEngineItsPhase) {
    for (const bool invert : {false, true}) {
        StartRig rig(invert ? "Phase=Invert\n" : "");
        rig.open();
        ASSERT_EQ(rig.driver().start(), ASE_OK);
        EXPECT_EQ(rig.stream().phaseInvert, invert ? 1 : 0);
    }
}

// ---- the target, and the threads ----

TEST(Start, ASocketThatFailsEndsAtConnectPrepare) {
    StartRig rig;
    rig.open();
    rig.network.sendError = 10065;
    const Outcome outcome = start(rig);
    EXPECT_EQ(outcome.answer, -1000);
    EXPECT_THAT(outcome.errors, ElementsAre("wth CR send err", "connectPrepare error"));
}

TEST(Start, AnnouncesItselfInOrder) {
    StartRig rig;
    rig.open();
    ASSERT_EQ(rig.driver().start(), ASE_OK);
    const std::vector<std::uint16_t> ids = rig.target.ids();
    ASSERT_GE(ids.size(), 2u);
    EXPECT_EQ(ids[ids.size() - 2], VELMORA::wire::CONNECTPRE_REQ::id);
    EXPECT_EQ(ids.back(), VELMORA::wire::CLIENT_REQ::id);
    EXPECT_EQ(rig.machine.entries.size(), 2u) << "the stream worker and the wait thread";
}

TEST(Start, ARefusedStreamWorkerIsAConnectError) {
    StartRig rig;
    rig.open();
    rig.machine.refusesThreads = true;
    const Outcome outcome = start(rig);
    EXPECT_EQ(outcome.answer, -1000);
    EXPECT_THAT(outcome.errors, ElementsAre("Sync Worker Start Error", "connect error"));
    EXPECT_EQ(rig.driver().stop(), ASE_OK);
}

TEST(Start, WithoutAStopInBetweenIsRefused) {
    StartRig rig;
    rig.open();
    ASSERT_EQ(rig.driver().start(), ASE_OK);
    const Outcome outcome = start(rig);
    EXPECT_EQ(outcome.answer, -1000);
    EXPECT_THAT(outcome.errors, ElementsAre("start without stop"));
    rig.endSession();
    rig.driver().stop();
    EXPECT_EQ(rig.driver().start(), ASE_OK) << "and then again";
}

TEST(Start, AfterAFailureNeedsNoStop) {
    StartRig rig;
    rig.open();
    rig.network.sendError = 10065;
    EXPECT_EQ(rig.driver().start(), ASE_NotPresent);
    rig.network.sendError = 0;
    EXPECT_EQ(rig.driver().start(), ASE_OK);
}

TEST(Stop, WithoutAStartSucceeds) {
    DriverRig rig;
    rig.driver();
    LogCapture log(6);
    EXPECT_EQ(rig.driver().stop(), ASE_OK);
    EXPECT_THAT(log.texts(6),
                ElementsAre("stop", "SyncBuffer::pre_disconnect", "SyncBuffer::disconnect"));
}

// ---- the wait thread, run by hand ----

TEST(StartWait, PlaysTenMillisecondsAfterStartAtTheEarliest) {
    struct Case {
        const char* why;
        const char* settings;
        std::uint64_t gone;  // µs between start and connection
        const char* line;
        std::uint64_t slept;
    };
    const Case cases[] = {
        {"no delay asked for", "", 0, "start delay 0ms sleep 10ms", 10000},
        {"part of it gone", "", 4500, "start delay 4ms sleep 6ms", 6000},
        {"all of it gone", "", 10000, "start delay 10ms", 0},
        {"50 ms asked for", "StartDelay=50000\n", 0, "start delay 0ms sleep 60ms", 60000},
        {"asked for, and gone", "StartDelay=50000\n", 70000, "start delay 70ms", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        StartRig rig(c.settings);
        rig.open();
        ASSERT_EQ(rig.driver().start(), ASE_OK);
        rig.stream().state = VELMORA::Sync::Connected;
        rig.network.time.advance(c.gone);
        LogCapture log(6);
        const std::uint64_t before = rig.network.time.time();
        rig.machine.entries.back()();
        EXPECT_EQ(rig.network.time.time() - before, c.slept);
        EXPECT_THAT(log.texts(6), ElementsAre("connectWait notimeout", "connectWait 2", c.line,
                                              "SyncBuffer::play", "play 2"));
        EXPECT_EQ(rig.stream().playing, 1);
        rig.endSession();
    }
}

TEST(StartWait, WithoutASessionThereIsNothingToWaitFor) {
    StartRig rig;
    rig.open();
    ASSERT_EQ(rig.driver().start(), ASE_OK);
    rig.endSession();
    LogCapture log(6);
    rig.machine.entries.back()();
    EXPECT_TRUE(log.has(6, "connectWait error"));
    EXPECT_FALSE(log.has("SyncBuffer::play"));
    EXPECT_EQ(rig.stream().playing, 0);
}

TEST(StartWait, ATargetThatDoesNotConnectIsNotPlayedTo) {
    StartRig rig;
    rig.target.silentTo = {VELMORA::wire::CONNECT_REQ::id};
    rig.open();
    ASSERT_EQ(rig.driver().start(), ASE_OK);
    ASSERT_EQ(rig.machine.entries.size(), 2u);
    LogCapture log(6);
    // The worker alone works on the network; this thread waits for it to give up.
    std::thread worker(rig.machine.entries[0]);
    rig.machine.entries[1]();
    worker.join();
    EXPECT_TRUE(log.has(6, "wth CR ack none"));
    // Who was first decides which of the two it is.
    EXPECT_TRUE(log.has(6, "is_connect error") || log.has(6, "connectWait error"));
    EXPECT_EQ(rig.stream().playing, 0);
}

}  // namespace
