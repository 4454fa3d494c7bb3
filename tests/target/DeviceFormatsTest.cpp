#include "target/DeviceFormats.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/target/TargetWorld.h"

namespace {

using namespace velmora_test;
using namespace velmora_target;
using VELMORA::SinkConfig;

SinkConfig formatOf(std::uint64_t sample, std::uint32_t channels, std::uint32_t rate) {
    SinkConfig format(sample);
    EXPECT_TRUE(format.setChannels(channels));
    EXPECT_TRUE(format.setRate(rate));
    return format;
}

auto only(PcmFormat wanted) {
    return [wanted](const PcmShape& shape) { return shape.format == wanted; };
}

TEST(DevicePlan, KeepsEveryBitInTheDevicesWidth) {
    struct Case {
        const char* why;
        std::uint64_t sample;
        PcmFormat device;
        const char *stream, *wanted;  // one channel
    };
    constexpr Case cases[] = {
        {"8 as it is", SinkConfig::pcm8, PcmFormat::s8, "017f80", "017f80"},
        {"8 in 16", SinkConfig::pcm8, PcmFormat::s16, "0180", "0001 0080"},
        {"8 in 24 of 32", SinkConfig::pcm8, PcmFormat::s24in4, "0180", "00000100 000080ff"},
        {"16 as it is", SinkConfig::pcm16, PcmFormat::s16, "01020380", "01020380"},
        {"16 in three bytes", SinkConfig::pcm16, PcmFormat::s24in3, "01020380", "000102 000380"},
        {"16 in 24 of 32", SinkConfig::pcm16, PcmFormat::s24in4, "01020380", "00010200 000380ff"},
        {"16 in 32", SinkConfig::pcm16, PcmFormat::s32, "01020380", "00000102 00000380"},
        {"24 as it is", SinkConfig::pcm24, PcmFormat::s24in3, "010203", "010203"},
        {"24 in the lower of 32", SinkConfig::pcm24, PcmFormat::s24in4, "010203fffeff",
         "01020300 fffeffff"},
        {"24 in the upper of 32", SinkConfig::pcm24, PcmFormat::s32, "010203fffeff",
         "00010203 00fffeff"},
        {"32 as it is", SinkConfig::pcm32, PcmFormat::s32, "01020384", "01020384"},
        {"float as it is", SinkConfig::float32, PcmFormat::float32, "01020384", "01020384"},
        {"double as it is", SinkConfig::float64, PcmFormat::float64, "0102030405060708",
         "0102030405060708"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const SinkConfig format = formatOf(c.sample, 1, 96000);
        const auto plan = planFor(format, only(c.device));
        ASSERT_TRUE(plan);
        EXPECT_EQ(plan->shape, (PcmShape{c.device, 1, 96000}));
        EXPECT_EQ(plan->framesEach, 1u);
        EXPECT_EQ(plan->silence, 0);
        Bytes out;
        convert(format, *plan, hex(c.stream), out);
        EXPECT_EQ(out, hex(c.wanted));
    }
}

TEST(DevicePlan, LosesNothingOrIsNone) {
    struct Case {
        const char* why;
        std::uint64_t sample;
        PcmFormat device;
    };
    constexpr Case cases[] = {
        {"16 bits in 8", SinkConfig::pcm16, PcmFormat::s8},
        {"24 bits in 16", SinkConfig::pcm24, PcmFormat::s16},
        {"32 bits in 24", SinkConfig::pcm32, PcmFormat::s24in4},
        {"integers as floating point", SinkConfig::pcm32, PcmFormat::float64},
        {"floating point as integers", SinkConfig::float32, PcmFormat::s32},
        {"64 bits, which no device has", SinkConfig::pcm64, PcmFormat::s32},
        {"PCM as DSD", SinkConfig::pcm32, PcmFormat::dsd32Big},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_FALSE(planFor(formatOf(c.sample, 2, 44100), only(c.device)));
    }
    EXPECT_FALSE(planFor(formatOf(SinkConfig::dsdMsbBig, 2, 2822400), only(PcmFormat::s32)));
    const std::uint64_t packed = (SinkConfig::dsdMsbBig & ~SinkConfig::dsd1) | SinkConfig::dsd4;
    EXPECT_FALSE(planFor(formatOf(packed, 2, 2822400), only(PcmFormat::dsd32Big)));
}

TEST(DevicePlan, PrefersTheWidthOfTheStream) {
    const auto all = [](const PcmShape&) { return true; };
    EXPECT_EQ(planFor(formatOf(SinkConfig::pcm16, 2, 44100), all)->shape.format, PcmFormat::s16);
    EXPECT_EQ(planFor(formatOf(SinkConfig::pcm24, 2, 44100), all)->shape.format, PcmFormat::s24in3);
    EXPECT_EQ(planFor(formatOf(SinkConfig::dsdLsbLittle, 2, 2822400), all)->shape.format,
              PcmFormat::dsd32Big);
}

// One stream word of 32 samples in the four orders that streams have, left and right: the samples,
// oldest first, are those of the bytes 01 02 04 88 with the highest bit first, and their
// complement.
struct StreamOrder {
    const char* why;
    std::uint64_t format;
    const char* words;
};
constexpr StreamOrder streamOrders[] = {
    {"oldest in the highest bit, big", SinkConfig::dsdMsbBig, "01020488 fefdfb77"},
    {"oldest in the highest bit, little", SinkConfig::dsdMsbLittle, "88040201 77fbfdfe"},
    {"oldest in the lowest bit, little", SinkConfig::dsdLsbLittle, "80402011 7fbfdfee"},
    {"oldest in the lowest bit, big", SinkConfig::dsdLsbBig, "11204080 eedfbf7f"},
};

TEST(DevicePlan, PutsDsdInTheDevicesOrder) {
    struct Case {
        const char* why;
        PcmFormat device;
        std::uint32_t framesEach, rate;  // of DSD64
        const char* wanted;
    };
    constexpr Case cases[] = {
        {"32 big", PcmFormat::dsd32Big, 1, 88200, "01020488 fefdfb77"},
        {"32 little", PcmFormat::dsd32Little, 1, 88200, "88040201 77fbfdfe"},
        {"16 big", PcmFormat::dsd16Big, 2, 176400, "0102 fefd 0488 fb77"},
        {"16 little", PcmFormat::dsd16Little, 2, 176400, "0201 fdfe 8804 77fb"},
        {"8", PcmFormat::dsd8, 4, 352800, "01 fe 02 fd 04 fb 88 77"},
    };
    for (const StreamOrder& from : streamOrders) {
        SCOPED_TRACE(from.why);
        const SinkConfig format = formatOf(from.format, 2, 2822400);
        for (const Case& c : cases) {
            SCOPED_TRACE(c.why);
            const auto plan = planFor(format, only(c.device));
            ASSERT_TRUE(plan);
            EXPECT_EQ(plan->shape, (PcmShape{c.device, 2, c.rate}));
            EXPECT_EQ(plan->framesEach, c.framesEach);
            EXPECT_EQ(plan->silence, 0x69);
            Bytes out;
            convert(format, *plan, hex(from.words), out);
            EXPECT_EQ(out, hex(c.wanted));
        }
    }
}

// Bit by bit, by the words of the definition alone.
std::vector<int> samplesOfStream(SinkConfig format, const Bytes& words, std::size_t channel) {
    std::vector<int> samples;
    const std::size_t channels = format.channels();
    for (std::size_t at = channel * 4; at < words.size(); at += 4 * channels) {
        std::uint32_t word = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            const unsigned shift =
                static_cast<unsigned>(format.has(SinkConfig::dsdLittle) ? i : 3 - i) * 8;
            word |= std::uint32_t{words[at + i]} << shift;
        }
        for (unsigned n = 0; n < 32; ++n) {
            const unsigned bit = format.has(SinkConfig::dsdLsb) ? n : 31 - n;
            samples.push_back(static_cast<int>(word >> bit & 1));
        }
    }
    return samples;
}
std::vector<int> samplesOfDevice(std::size_t wordBytes, bool little, std::size_t channels,
                                 const Bytes& frames, std::size_t channel) {
    std::vector<int> samples;
    for (std::size_t at = channel * wordBytes; at < frames.size(); at += wordBytes * channels) {
        std::uint32_t word = 0;
        for (std::size_t i = 0; i < wordBytes; ++i) {
            const std::size_t place = little ? i : wordBytes - 1 - i;
            word |= std::uint32_t{frames[at + i]} << (8 * place);
        }
        for (std::size_t n = 0; n < 8 * wordBytes; ++n) {
            samples.push_back(static_cast<int>(word >> (8 * wordBytes - 1 - n) & 1));
        }
    }
    return samples;
}

TEST(DevicePlan, AgreesWithItsSlowTwinOnDsd) {
    struct Device {
        PcmFormat format;
        std::size_t bytes;
        bool little;
    };
    constexpr Device devices[] = {{PcmFormat::dsd32Big, 4, false},
                                  {PcmFormat::dsd32Little, 4, true},
                                  {PcmFormat::dsd16Big, 2, false},
                                  {PcmFormat::dsd16Little, 2, true},
                                  {PcmFormat::dsd8, 1, false}};
    std::mt19937 random(42);  // the seed
    for (const StreamOrder& from : streamOrders) {
        for (const Device& device : devices) {
            for (const std::uint32_t channels : {1u, 2u, 6u}) {
                SCOPED_TRACE(std::string(from.why) + ", device " +
                             std::to_string(static_cast<int>(device.format)) + ", channels " +
                             std::to_string(channels));
                const SinkConfig format = formatOf(from.format, channels, 5644800);
                Bytes words(4 * channels * 9);
                for (auto& byte : words) byte = static_cast<std::uint8_t>(random());
                const auto plan = planFor(format, only(device.format));
                ASSERT_TRUE(plan);
                Bytes out;
                convert(format, *plan, words, out);
                for (std::size_t c = 0; c < channels; ++c) {
                    ASSERT_EQ(samplesOfDevice(device.bytes, device.little, channels, out, c),
                              samplesOfStream(format, words, c));
                }
            }
        }
    }
}

TEST(DevicePlan, ConvertsWholeFramesAloneAndAppends) {
    const SinkConfig format = formatOf(SinkConfig::pcm16, 2, 44100);
    const auto plan = planFor(format, only(PcmFormat::s32));
    Bytes out = hex("aa");
    convert(format, *plan, hex("01020304 0506"), out);
    EXPECT_EQ(out, hex("aa 00000102 00000304"));
    convert(format, *plan, {}, out);
    EXPECT_EQ(out.size(), 9u);
}

// ---- masks ----

std::uint64_t pcmMask(std::initializer_list<std::uint64_t> samples,
                      std::initializer_list<std::uint32_t> channels,
                      std::initializer_list<std::uint32_t> rates) {
    std::uint64_t mask = 0;
    for (const auto sample : samples) mask |= sample;
    for (const auto count : channels) mask |= channelBits(count);
    for (const auto hz : rates) mask |= rateBits(hz);
    return mask;
}

constexpr auto s16 = SinkConfig::pcm16, s24 = SinkConfig::pcm24, s32 = SinkConfig::pcm32,
               f32 = SinkConfig::float32;
const std::uint64_t asked = pcmMask({s16, s24, s32, f32}, {1, 2, 4, 6, 8},
                                    {44100, 48000, 88200, 96000, 176400, 192000, 352800, 384000});

TEST(FormatsTaken, AreTheLargestPartOfWhichAllIsTaken) {
    struct Case {
        const char* why;
        bool (*takes)(SinkConfig);
        std::uint64_t wanted;
    };
    const Case cases[] = {
        {"all", [](SinkConfig) { return true; }, asked},
        {"nothing", [](SinkConfig) { return false; }, 0},
        {"a stereo device of 16 and 32 bits up to 96 kHz",
         [](SinkConfig f) {
             return f.channels() == 2 && f.rate() <= 96000 && (f.has(s16) || f.has(s32));
         },
         pcmMask({s16, s32}, {2}, {44100, 48000, 88200, 96000})},
        {"48 kHz alone",
         [](SinkConfig f) { return f.rate() == 48000 && f.channels() <= 2 && !f.has(f32); },
         pcmMask({s16, s24, s32}, {1, 2}, {48000})},
        {"high rates in stereo alone",
         [](SinkConfig f) {
             return !f.has(f32) && (f.channels() == 2 || (f.channels() == 8 && f.rate() <= 96000));
         },
         pcmMask({s16, s24, s32}, {2},
                 {44100, 48000, 88200, 96000, 176400, 192000, 352800, 384000})},
        {"16 bits at low rates alone",
         [](SinkConfig f) {
             return f.channels() == 2 && (f.has(s32) || (f.has(s16) && f.rate() <= 48000));
         },
         pcmMask({s32}, {2}, {44100, 48000, 88200, 96000, 176400, 192000, 352800, 384000})},
        {"one format alone",
         [](SinkConfig f) { return f.word == (s24 | channelBits(6) | rateBits(88200)); },
         pcmMask({s24}, {6}, {88200})},
        {"two that have nothing in common",
         [](SinkConfig f) {
             return f.word == (s16 | channelBits(1) | rateBits(44100)) ||
                    f.word == (s32 | channelBits(8) | rateBits(192000));
         },
         pcmMask({s16}, {1}, {44100})},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        FormatMasks allowed;
        allowed.pcm = asked;
        const FormatMasks taken = formatsTaken(allowed, c.takes);
        EXPECT_EQ(taken.pcm, c.wanted) << std::hex << taken.pcm << " not " << c.wanted;
        EXPECT_EQ(taken.dsdLsb | taken.dsdMsb, 0u);
    }
}

TEST(FormatsTaken, AreOneOfTwoThatShareTheirRateAlone) {
    FormatMasks allowed;
    allowed.pcm = pcmMask({s16, s32}, {2}, {44100, 48000});
    const FormatMasks taken = formatsTaken(
        allowed, [](SinkConfig f) { return f.has(s16) ? f.rate() == 44100 : f.rate() == 48000; });
    EXPECT_EQ(taken.pcm, pcmMask({s16}, {2}, {44100}));
}

TEST(FormatsTaken, OfDsdAreItsRatesAndChannels) {
    FormatMasks allowed;
    allowed.dsdMsb = SinkConfig::dsdMsbBig | SinkConfig::dsdLittle | channelBits(1) |
                     channelBits(2) | rateBits(2822400) | rateBits(5644800) | rateBits(11289600);
    const FormatMasks taken = formatsTaken(allowed, [](SinkConfig f) {
        return f.isDsd() && f.channels() == 2 && f.rate() <= 5644800;
    });
    EXPECT_EQ(taken.dsdMsb, SinkConfig::dsdMsbBig | SinkConfig::dsdLittle | channelBits(2) |
                                rateBits(2822400) | rateBits(5644800));
    EXPECT_EQ(taken.pcm, 0u);
}

TEST(FormatsTaken, NeverPromiseWhatIsNotTaken) {
    std::mt19937 random(7);  // the seed
    for (int round = 0; round < 200; ++round) {
        const std::uint64_t share = random() % 100, salt = random();
        const auto takes = [&](SinkConfig f) {
            return (f.word * 0x9e3779b97f4a7c15u + salt) % 100 < share;
        };
        FormatMasks allowed;
        allowed.pcm = pcmMask({s16, s32}, {1, 2, 8}, {44100, 48000, 88200, 96000});
        const FormatMasks taken = formatsTaken(allowed, takes);
        EXPECT_EQ(taken.pcm & ~allowed.pcm, 0u);
        bool any = false, isAnyTaken = false;
        for (const auto sample : {s16, s32}) {
            for (const std::uint32_t channels : {1u, 2u, 8u}) {
                for (const std::uint32_t rate : {44100u, 48000u, 88200u, 96000u}) {
                    const SinkConfig f = formatOf(sample, channels, rate);
                    any |= takes(f);
                    if (taken.takes(f)) {
                        isAnyTaken = true;
                        ASSERT_TRUE(takes(f)) << "round " << round;
                    }
                }
            }
        }
        EXPECT_EQ(taken.pcm != 0, any) << "round " << round;
        EXPECT_EQ(isAnyTaken, any) << "round " << round;
    }
}

}  // namespace
