#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "tests/driver/DriverRig.h"

namespace {

using namespace velmora_test;
using testing::ElementsAre;
using testing::IsEmpty;
using VELMORA::SinkConfig;

void setDsd(AsioVelmora& driver, bool on) {
    std::int32_t format = on ? kASIODSDFormat : kASIOPCMFormat;
    ASSERT_EQ(driver.future(kAsioSetIoFormat, &format), ASE_SUCCESS);
}

// ---- channels, latencies, sizes ----

TEST(Channels, AreOutputsAlone) {
    DriverRig rig;
    ASSERT_TRUE(rig.init());
    LogCapture log(6);
    std::int32_t in = 7, out = 7;
    EXPECT_EQ(rig.driver().getChannels(&in, &out), ASE_OK);
    EXPECT_EQ(in, 0);
    EXPECT_EQ(out, 2);
    EXPECT_THAT(log.texts(6), ElementsAre("getCh 2"));
    EXPECT_EQ(rig.driver().getChannels(nullptr, nullptr), ASE_OK);
}

TEST(Latencies, AreNothingAndSaidSilently) {
    DriverRig rig;
    rig.driver();
    LogCapture log(7);
    std::int32_t in = 7, out = 7;
    EXPECT_EQ(rig.driver().getLatencies(&in, &out), ASE_OK);
    EXPECT_EQ(in, 0);
    EXPECT_EQ(out, 0);
    out = 7;
    EXPECT_EQ(rig.driver().getLatencies(nullptr, &out), ASE_OK);
    EXPECT_EQ(out, 0);
    EXPECT_EQ(rig.driver().getLatencies(nullptr, nullptr), ASE_OK);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(BufferSize, FollowsTheSettings) {
    struct Case {
        const char* why;
        const char* settings;
        bool dsd;
        std::int32_t min, max, preferred, granularity;
    };
    const Case cases[] = {
        {"the defaults", "", false, 1, 16384, 512, -1},
        {"the defaults in DSD", "", true, 32, 524288, 16384, -1},
        {"one size", "ASIOBufferSize=512\n", false, 512, 512, 512, 0},
        {"one size in DSD", "ASIOBufferSize=512\n", true, 16384, 16384, 16384, 0},
        {"a range", "ASIOBufferSizeMin=64\nASIOBufferSizeMax=2048\nASIOBufferSizePre=256\n", false,
         64, 2048, 256, -1},
        {"one size hides the range", "ASIOBufferSize=128\nASIOBufferSizeMax=2048\n", false, 128,
         128, 128, 0},
        {"a size that DSD cannot say", "ASIOBufferSize=2000000000\n", true, 2147483647, 2147483647,
         2147483647, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        DriverRig rig(c.settings);
        setDsd(rig.driver(), c.dsd);
        LogCapture log(6);
        std::int32_t min = 0, max = 0, preferred = 0, granularity = 7;
        EXPECT_EQ(rig.driver().getBufferSize(&min, &max, &preferred, &granularity), ASE_OK);
        EXPECT_EQ(min, c.min);
        EXPECT_EQ(max, c.max);
        EXPECT_EQ(preferred, c.preferred);
        EXPECT_EQ(granularity, c.granularity);
        EXPECT_THAT(log.texts(6), ElementsAre("getBufferSize"));
        EXPECT_EQ(rig.driver().getBufferSize(nullptr, nullptr, nullptr, nullptr), ASE_OK);
    }
}

// ---- rates ----

TEST(CanSampleRate, AsksWhatTheTargetTakes) {
    constexpr std::uint64_t only48000 = SinkConfig::family48000 | (0x3ull << 35);  // x1 and x2
    constexpr std::uint64_t dsdRates = SinkConfig::family44100 | (0x3ull << 41);   // x64 and x128
    struct Case {
        const char* why;
        bool dsdMode;
        double rate;
        ASIOError answer;
    };
    const Case cases[] = {
        {"the family", false, 48000.0, ASE_OK},
        {"its double", false, 96000.0, ASE_OK},
        {"a multiplier that is missing", false, 192000.0, ASE_NoClock},
        {"a family that is missing", false, 44100.0, ASE_NoClock},
        {"cut to a whole rate", false, 48000.7, ASE_OK},
        {"no rate of any family", false, 47999.0, ASE_NoClock},
        {"DSD by its rate, whatever the mode", false, 2822400.0, ASE_OK},
        {"DSD128", false, 5644800.0, ASE_OK},
        {"DSD of a missing family", false, 3072000.0, ASE_NoClock},
        {"DSD by the mode", true, 2822400.0, ASE_OK},
        {"a PCM rate in DSD mode", true, 48000.0, ASE_NoClock},
        {"8000 counts as a rate, and is not there", false, 8000.0, ASE_NoClock},
        {"negative", false, -48000.0, ASE_NoClock},
        {"no number", false, std::nan(""), ASE_NoClock},
        {"endless", false, std::numeric_limits<double>::infinity(), ASE_NoClock},
        {"beyond 32 bits", false, 4294967296.0 + 48000.0, ASE_NoClock},
        {"nothing", false, 0.0, ASE_NoClock},
    };
    for (const std::uint64_t order : {SinkConfig::dsdMsbBig, SinkConfig::dsdLsbLittle}) {
        DriverRig rig;
        rig.target.pcm = only48000 | StreamTarget::twoChannels | SinkConfig::pcm32;
        (order == SinkConfig::dsdMsbBig ? rig.target.dsdMsb : rig.target.dsdLsb) =
            dsdRates | StreamTarget::twoChannels | order;
        ASSERT_TRUE(rig.init());
        for (const Case& c : cases) {
            SCOPED_TRACE(c.why);
            setDsd(rig.driver(), c.dsdMode);
            EXPECT_EQ(rig.driver().canSampleRate(c.rate), c.answer);
        }
    }
}

TEST(CanSampleRate, TheHighestPcmRateIsPcm) {
    DriverRig rig;
    rig.target.pcm = StreamTarget::allRates | StreamTarget::twoChannels | SinkConfig::pcm32;
    ASSERT_TRUE(rig.init());
    EXPECT_EQ(rig.driver().canSampleRate(1536000.0), ASE_OK);
    EXPECT_EQ(rig.driver().canSampleRate(2822400.0), ASE_NoClock) << "no DSD here";
}

TEST(CanSampleRate, LogsTheRate) {
    DriverRig rig;
    rig.driver();
    LogCapture log(6);
    rig.driver().canSampleRate(44100.5);
    EXPECT_THAT(log.texts(6), ElementsAre("canSa 44100.500000"));
}

TEST(CanSampleRate, BeforeInitNothingCan) {
    DriverRig rig;
    for (const double rate : {8000.0, 44100.0, 48000.0, 1536000.0, 2822400.0}) {
        EXPECT_EQ(rig.driver().canSampleRate(rate), ASE_NoClock);
    }
    // nor when init has met a target whose formats nobody takes
    rig.target.pcm = StreamTarget::allRates | StreamTarget::twoChannels | SinkConfig::pcm8;
    EXPECT_FALSE(rig.init());
    EXPECT_EQ(rig.driver().canSampleRate(44100.0), ASE_NoClock);
}

TEST(SampleRate, IsFortyFourOneAtFirst) {
    DriverRig rig;
    rig.driver();
    LogCapture log(6);
    double rate = 0;
    EXPECT_EQ(rig.driver().getSampleRate(&rate), ASE_OK);
    EXPECT_EQ(rate, 44100.0);
    EXPECT_THAT(log.texts(6), ElementsAre("getSa 44100.000000"));
    EXPECT_EQ(rig.driver().getSampleRate(nullptr), ASE_InvalidParameter);
}

TEST(SampleRate, IsTakenUncheckedAndTold) {
    DriverRig rig;
    ASSERT_TRUE(rig.init());
    ASSERT_EQ(rig.createBuffers(2, 512), ASE_OK);
    rig.host.calls.clear();
    LogCapture log(6);
    EXPECT_EQ(rig.driver().setSampleRate(96000.75), ASE_OK);
    double rate = 0;
    rig.driver().getSampleRate(&rate);
    EXPECT_EQ(rate, 96000.0);
    EXPECT_THAT(rig.host.calls, ElementsAre("sampleRateDidChange 96000.000000"));
    EXPECT_TRUE(log.has(6, "SetSa 96000.750000"));
    EXPECT_EQ(rig.driver().setSampleRate(17.0), ASE_OK) << "start will say so";
}

TEST(SampleRate, ThePresentOneChangesNothing) {
    DriverRig rig;
    ASSERT_TRUE(rig.init());
    ASSERT_EQ(rig.createBuffers(2, 512), ASE_OK);
    rig.host.calls.clear();
    EXPECT_EQ(rig.driver().setSampleRate(44100.0), ASE_OK);
    EXPECT_THAT(rig.host.calls, IsEmpty());
}

TEST(SampleRate, OneThatIsNoneEndsAsZero) {
    for (const double rate : {std::nan(""), -1.0, 1e30}) {
        DriverRig rig;
        EXPECT_EQ(rig.driver().setSampleRate(rate), ASE_OK);
        double now = 7;
        rig.driver().getSampleRate(&now);
        EXPECT_EQ(now, 0.0);
    }
}

TEST(SampleRate, IsToldToNobodyWhereNobodyListens) {
    DriverRig rig;
    ASSERT_TRUE(rig.init());
    EXPECT_EQ(rig.driver().setSampleRate(48000.0), ASE_OK);  // no callbacks
    rig.host.callbacks.sampleRateDidChange = nullptr;
    ASSERT_EQ(rig.createBuffers(2, 512), ASE_OK);
    EXPECT_EQ(rig.driver().setSampleRate(96000.0), ASE_OK);
}

// ---- clock, position ----

TEST(ClockSources, AreOneInternal) {
    DriverRig rig;
    rig.driver();
    LogCapture log(6);
    ASIOClockSource clock;
    std::memset(&clock, 0x55, sizeof clock);
    std::int32_t count = 9;
    EXPECT_EQ(rig.driver().getClockSources(&clock, &count), ASE_OK);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(clock.index, 0);
    EXPECT_EQ(clock.associatedChannel, -1);
    EXPECT_EQ(clock.associatedGroup, -1);
    EXPECT_EQ(clock.isCurrentSource, 1);
    EXPECT_STREQ(clock.name, "Internal");
    EXPECT_EQ(rig.driver().setClockSource(0), ASE_OK);
    EXPECT_EQ(rig.driver().setClockSource(1), ASE_NotPresent);
    EXPECT_EQ(rig.driver().setClockSource(-1), ASE_NotPresent);
    EXPECT_THAT(log.texts(6), ElementsAre("getCS", "setCS", "setCS", "setCS"));
    EXPECT_EQ(rig.driver().getClockSources(nullptr, nullptr), ASE_OK);
}

TEST(SamplePosition, StampsMicrosecondsOfWholeMilliseconds) {
    DriverRig rig;
    ASIOSamples position{7, 7};
    ASIOTimeStamp stamp{7, 7};
    EXPECT_EQ(rig.driver().getSamplePosition(&position, &stamp), ASE_OK);
    EXPECT_EQ(position.hi, 0u);
    EXPECT_EQ(position.lo, 0u);
    EXPECT_EQ(((std::uint64_t{stamp.hi} << 32) | stamp.lo) % 1000, 0u);
    EXPECT_EQ(rig.driver().getSamplePosition(nullptr, nullptr), ASE_OK);
}

// ---- getChannelInfo ----

TEST(ChannelInfo, NamesTheSampleType) {
    struct Case {
        const char* why;
        const char* settings;
        std::uint64_t width;
        bool dsdMode;
        double rate;
        ASIOSampleType type;
    };
    const Case cases[] = {
        {"doubles", "", 0x4000, false, 44100, 20},
        {"floats", "", 0x2000, false, 44100, 19},
        {"integers of 32 bits", "", 0x800, false, 44100, 18},
        {"of 24", "", 0x400, false, 44100, 17},
        {"of 16", "", 0x200, false, 44100, 16},
        {"integers for the host, 16 bits for the target", "PCMRequest=CovertS32\n", 0x200, false,
         44100, 18},
        {"DSD by the mode, MSB", "DSDMSB=enable\n", 0x800, true, 44100, 33},
        {"DSD by the mode, LSB", "", 0x800, true, 44100, 32},
        {"DSD by the rate, MSB", "DSDMSB=enable\n", 0x800, false, 2822400, 33},
        {"the highest rate of PCM", "DSDMSB=enable\n", 0x800, false, 1536000, 18},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        DriverRig rig(c.settings);
        rig.target.pcm = StreamTarget::allRates | StreamTarget::twoChannels | c.width;
        ASSERT_TRUE(rig.init());
        setDsd(rig.driver(), c.dsdMode);
        rig.driver().setSampleRate(c.rate);
        ASIOChannelInfo info{};
        EXPECT_EQ(rig.driver().getChannelInfo(&info), ASE_OK);
        EXPECT_EQ(info.type, c.type);
    }
}

TEST(ChannelInfo, TellsWhichChannelsHaveBuffers) {
    DriverRig rig;
    ASSERT_TRUE(rig.init());
    ASIOBufferInfo buffer{};
    buffer.channelNum = 1;  // the second, and yet the stream's first
    ASSERT_EQ(rig.driver().createBuffers(&buffer, 1, 512, &rig.host.callbacks), ASE_OK);
    LogCapture log(6);
    ASIOChannelInfo info{};
    info.channelGroup = 7;
    EXPECT_EQ(rig.driver().getChannelInfo(&info), ASE_OK);
    EXPECT_EQ(info.isActive, 1);
    EXPECT_EQ(info.channelGroup, 0);
    EXPECT_STREQ(info.name, "T(S)");
    info.channel = 1;
    EXPECT_EQ(rig.driver().getChannelInfo(&info), ASE_OK);
    EXPECT_EQ(info.isActive, 0);
    EXPECT_THAT(log.texts(6),
                ElementsAre("getChannelInfo : 0 : 18 true", "getChannelInfo : 1 : 18 false"));
}

TEST(ChannelInfo, RefusesInputsAndWhatIsNotThereWithoutAWord) {
    DriverRig rig;
    ASSERT_TRUE(rig.init());
    LogCapture log(7);
    for (const std::int32_t channel : {-1, 2, 2147483647}) {
        ASIOChannelInfo info{};
        info.channel = channel;
        info.isActive = 7;
        EXPECT_EQ(rig.driver().getChannelInfo(&info), ASE_InvalidParameter);
        EXPECT_EQ(info.isActive, 7) << "not touched";
    }
    ASIOChannelInfo info{};
    info.isInput = 1;
    info.isActive = 7;
    EXPECT_EQ(rig.driver().getChannelInfo(&info), ASE_InvalidParameter);
    EXPECT_EQ(info.isActive, 0);
    EXPECT_EQ(rig.driver().getChannelInfo(nullptr), ASE_InvalidParameter);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ChannelInfo, CutsTheNameAtThirtyCharacters) {
    DriverRig rig;
    rig.target.sinkName = "";
    rig.target.name = std::string(40, 'n');
    ASSERT_TRUE(rig.init());
    ASIOChannelInfo info;
    std::memset(&info, '#', sizeof info);
    info.channel = 0;
    info.isInput = 0;
    EXPECT_EQ(rig.driver().getChannelInfo(&info), ASE_OK);
    EXPECT_EQ(std::string(info.name), std::string(30, 'n'));
    EXPECT_EQ(info.name[31], '#');
}

// ---- createBuffers ----

TEST(CreateBuffers, GivesTwoHalvesAChannel) {
    DriverRig rig;
    rig.target.pcm = StreamTarget::allRates | StreamTarget::everyChannels | SinkConfig::pcm24;
    ASSERT_TRUE(rig.init());
    LogCapture log(6);
    ASSERT_EQ(rig.createBuffers(8, 512), ASE_OK);
    for (const ASIOBufferInfo& buffer : rig.buffers) {
        auto* first = static_cast<std::uint8_t*>(buffer.buffers[0]);
        EXPECT_EQ(buffer.buffers[1], first + 1536);
        std::memset(first, 0x55, 2 * 1536);  // all of it is ours
    }
    EXPECT_THAT(log.texts(6), ElementsAre("createBuffer : 512 ch:8 callback:true  s:44100",
                                          "createBuffer done 1536byte x 6"));
    EXPECT_THAT(rig.host.calls, ElementsAre("asioMessage 7 0"));
}

TEST(CreateBuffers, CountsOneBitSamplesInDsdMode) {
    DriverRig rig;
    ASSERT_TRUE(rig.init());
    setDsd(rig.driver(), true);
    LogCapture log(6);
    ASSERT_EQ(rig.createBuffers(2, 16384), ASE_OK);
    EXPECT_TRUE(log.has("createBuffer done 2048byte x 6"));
}

TEST(CreateBuffers, LeavesInputsAsTheyAreAndCountsOutputsAlone) {
    DriverRig rig;
    ASSERT_TRUE(rig.init());
    ASIOBufferInfo infos[3] = {};
    infos[0].isInput = 1;
    infos[0].channelNum = 99;
    infos[0].buffers[0] = infos[0].buffers[1] = &infos[0];
    infos[1].channelNum = 1;
    infos[2].isInput = 2;
    ASSERT_EQ(rig.driver().createBuffers(infos, 3, 512, &rig.host.callbacks), ASE_OK);
    EXPECT_EQ(infos[0].buffers[0], &infos[0]);
    EXPECT_EQ(infos[0].buffers[1], &infos[0]);
    EXPECT_NE(infos[1].buffers[0], nullptr);
    EXPECT_EQ(infos[2].buffers[0], nullptr);
    ASIOChannelInfo info{};
    rig.driver().getChannelInfo(&info);
    EXPECT_EQ(info.isActive, 1);
    info.channel = 1;
    rig.driver().getChannelInfo(&info);
    EXPECT_EQ(info.isActive, 0);
}

TEST(CreateBuffers, RefusesWhatItCannotServe) {
    struct Case {
        const char* why;
        std::int32_t channelNum, channels, size;
        bool dsd;
        ASIOError answer;
    };
    const Case cases[] = {
        {"sound", 1, 2, 512, false, ASE_OK},
        {"a channel too many", 2, 2, 512, false, ASE_InvalidParameter},
        {"a negative channel", -1, 2, 512, false, ASE_InvalidParameter},
        {"no frames", 1, 2, 0, false, ASE_InvalidParameter},
        {"negative frames", 1, 2, -512, false, ASE_InvalidParameter},
        {"more bytes than 32 bits count", 1, 2, 0x10000000, false, ASE_InvalidParameter},
        {"nine outputs", 1, 9, 512, false, ASE_InvalidParameter},
        {"eight outputs", 1, 8, 512, false, ASE_OK},
        {"less than a DSD word", 1, 2, 31, true, ASE_InvalidParameter},
        {"one DSD word", 1, 2, 32, true, ASE_OK},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        DriverRig rig;
        ASSERT_TRUE(rig.init());
        setDsd(rig.driver(), c.dsd);
        std::vector<ASIOBufferInfo> infos(static_cast<std::size_t>(c.channels));
        infos.back().channelNum = c.channelNum;
        LogCapture log(6);
        EXPECT_EQ(rig.driver().createBuffers(infos.data(), c.channels, c.size, &rig.host.callbacks),
                  c.answer);
        // what had been allocated is gone: ASan would tell
        EXPECT_EQ(log.has("disposeBuffers"), c.answer != ASE_OK);
        ASIOChannelInfo info{};
        rig.driver().getChannelInfo(&info);
        EXPECT_EQ(info.isActive, c.answer == ASE_OK ? 1 : 0);
    }
}

TEST(CreateBuffers, RefusesNullPointers) {
    DriverRig rig;
    ASSERT_TRUE(rig.init());
    LogCapture log(6);
    ASIOBufferInfo info{};
    EXPECT_EQ(rig.driver().createBuffers(&info, 1, 512, nullptr), ASE_InvalidParameter);
    EXPECT_TRUE(log.has("createBuffer : 512 ch:1 callback:false  s:44100"));
    EXPECT_EQ(rig.driver().createBuffers(nullptr, 1, 512, &rig.host.callbacks),
              ASE_InvalidParameter);
}

TEST(CreateBuffers, BeforeInitThereIsNoChannel) {
    DriverRig rig;
    EXPECT_EQ(rig.createBuffers(1, 512), ASE_InvalidParameter);
    EXPECT_EQ(rig.driver().createBuffers(nullptr, 0, 512, &rig.host.callbacks), ASE_OK);
}

TEST(CreateBuffers, TwiceGivesNewOnesAndLeaksNone) {
    DriverRig rig;
    ASSERT_TRUE(rig.init());
    ASSERT_EQ(rig.createBuffers(2, 512), ASE_OK);
    LogCapture log(6);
    ASSERT_EQ(rig.createBuffers(1, 1024), ASE_OK);
    EXPECT_FALSE(log.has("disposeBuffers"));
    ASIOChannelInfo info{};
    info.channel = 1;
    rig.driver().getChannelInfo(&info);
    EXPECT_EQ(info.isActive, 0);
}

TEST(CreateBuffers, AHostWithoutMessagesGetsNoTimeInfo) {
    DriverRig rig;
    ASSERT_TRUE(rig.init());
    rig.host.callbacks.asioMessage = nullptr;
    EXPECT_EQ(rig.createBuffers(2, 512), ASE_OK);
    EXPECT_THAT(rig.host.calls, IsEmpty());
}

TEST(DisposeBuffers, StopsAndFrees) {
    DriverRig rig;
    ASSERT_TRUE(rig.init());
    ASSERT_EQ(rig.createBuffers(2, 512), ASE_OK);
    LogCapture log(6);
    EXPECT_EQ(rig.driver().disposeBuffers(), ASE_OK);
    EXPECT_THAT(log.texts(6), ElementsAre("disposeBuffers", "stop", "SyncBuffer::pre_disconnect",
                                          "SyncBuffer::disconnect"));
    ASIOChannelInfo info{};
    rig.driver().getChannelInfo(&info);
    EXPECT_EQ(info.isActive, 0);
    EXPECT_EQ(rig.driver().disposeBuffers(), ASE_OK) << "again";
}

// ---- future ----

TEST(Future, AnswersItsSelectors) {
    struct Case {
        const char* why;
        std::int32_t selector;
        ASIOError answer;
    };
    const Case cases[] = {
        {"enable time code", 1, ASE_SUCCESS},   {"disable time code", 2, ASE_SUCCESS},
        {"set input monitor", 3, ASE_SUCCESS},  {"transport", 4, ASE_NotPresent},
        {"set input gain", 5, ASE_NotPresent},  {"get input meter", 6, ASE_NotPresent},
        {"set output gain", 7, ASE_NotPresent}, {"get output meter", 8, ASE_NotPresent},
        {"can input monitor", 9, ASE_SUCCESS},  {"can time info", 10, ASE_SUCCESS},
        {"can time code", 11, ASE_SUCCESS},     {"can transport", 12, ASE_NotPresent},
        {"nothing known", 0, ASE_NotPresent},   {"nothing known", -5, ASE_NotPresent},
    };
    DriverRig rig;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        LogCapture log(6);
        EXPECT_EQ(rig.driver().future(c.selector, nullptr), c.answer);
        EXPECT_TRUE(log.has(6, "future " + std::to_string(c.selector)));
    }
}

TEST(Future, SetsAndTellsTheIoFormat) {
    DriverRig rig;
    rig.driver();
    LogCapture log(6);
    struct Case {
        std::int32_t set, got;
        const char* text;
    };
    for (const Case& c : {Case{1, 1, "DSD"}, Case{0, 0, "PCM"}, Case{1, 1, "DSD"},
                          Case{-1, 0, "PCM"}, Case{7, 0, "PCM"}}) {
        log.clear();
        std::int32_t format = c.set;  // four bytes and no more: ASan watches
        EXPECT_EQ(rig.driver().future(0x23111961, &format), ASE_SUCCESS);
        EXPECT_THAT(log.texts(6),
                    ElementsAre("future 588323169", std::string("kAsioSetIoFormat ") + c.text));
        format = 99;
        EXPECT_EQ(rig.driver().future(0x23111983, &format), ASE_SUCCESS);
        EXPECT_EQ(format, c.got);
    }
}

TEST(Future, TellsWhichFormatsTheTargetCan) {
    struct Case {
        const char* why;
        std::uint64_t pcm, lsb, msb;
        std::int32_t type;
        ASIOError answer;
    };
    const Case cases[] = {
        {"PCM", 0x802, 0, 0, 0, ASE_SUCCESS},
        {"no PCM", 0, 0, 0, 0, ASE_NotPresent},
        {"no DSD", 0x802, 0, 0, 1, ASE_NotPresent},
        {"DSD one way round", 0, 1, 0, 1, ASE_SUCCESS},
        {"DSD the other way round", 0, 0, 1, 1, ASE_SUCCESS},
        {"a type of the host's own", 0, 0, 0, 7, ASE_SUCCESS},
        {"the invalid type", 0, 0, 0, -1, ASE_SUCCESS},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        DriverRig rig;
        rig.driver().stream().pcmSupport = c.pcm;
        rig.driver().stream().dsdLsbSupport = c.lsb;
        rig.driver().stream().dsdMsbSupport = c.msb;
        std::int32_t type = c.type;
        EXPECT_EQ(rig.driver().future(0x23112004, &type), c.answer);
        EXPECT_EQ(type, c.type);
    }
}

TEST(Future, AsksForABlockWhereItNeedsOne) {
    DriverRig rig;
    for (const std::int32_t selector : {kAsioSetIoFormat, kAsioGetIoFormat, kAsioCanDoIoFormat}) {
        EXPECT_EQ(rig.driver().future(selector, nullptr), ASE_NotPresent);
    }
}

TEST(OutputReady, IsNotThere) {
    DriverRig rig;
    rig.driver();
    LogCapture log(7);
    EXPECT_EQ(rig.driver().outputReady(), -1000);
    EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
