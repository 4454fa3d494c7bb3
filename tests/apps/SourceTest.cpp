#include "apps/velmora-play/Source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include "apps/audio/DsfFile.h"
#include "tests/apps/Scratch.h"

namespace {

using testing::ElementsAre;
using velmora_play::limited;
using velmora_play::makeTone;
using velmora_play::openFile;
using velmora_play::Source;
using velmora_play::Tone;
using velmora_test::chunk;
using velmora_test::fmt;
using velmora_test::hex;
using velmora_test::little;
using velmora_test::riff;

std::vector<double> allPcm(Source& source, std::size_t framesAtOnce = 100) {
    std::vector<double> all, some(framesAtOnce * source.format().channels);
    while (const auto frames = source.readPcm(some)) {
        all.insert(all.end(), some.begin(),
                   some.begin() + static_cast<std::ptrdiff_t>(frames * source.format().channels));
    }
    return all;
}

std::vector<std::uint8_t> allDsd(Source& source) {
    std::vector<std::uint8_t> all, some(6 * source.format().channels);
    while (const auto bytes = source.readDsd(some)) {
        all.insert(all.end(), some.begin(),
                   some.begin() + static_cast<std::ptrdiff_t>(bytes * source.format().channels));
    }
    return all;
}

class SourceTest : public testing::Test {
protected:
    std::unique_ptr<Source> wav(const std::string& format, const std::string& data) {
        return openFile(scratch.write("x.wav", riff(chunk("fmt ", format) + chunk("data", data))),
                        error);
    }
    std::string dsf(std::uint32_t channels, const std::vector<std::uint8_t>& bytes) {
        const std::string path = scratch.path("x.dsf");
        velmora_audio::DsfWriter writer;
        EXPECT_EQ(writer.open(path, channels, 2822400), "");
        EXPECT_EQ(writer.write(bytes), "");
        EXPECT_EQ(writer.close(), "");
        return path;
    }
    velmora_test::Scratch scratch;
    std::string error;
};

TEST(Tone, IsASineTwelveDecibelsBelowFullScale) {
    const auto tone =
        makeTone({.hertz = 1000, .rate = 48000, .channels = 1, .bits = 32, .seconds = 1});
    const auto samples = allPcm(*tone);
    ASSERT_EQ(samples.size(), 48000u);
    EXPECT_EQ(tone->format().frames, 48000u);
    EXPECT_FALSE(tone->format().isDsd);
    EXPECT_EQ(samples[0], 0.0);
    EXPECT_EQ(samples[12], 0.25);
    EXPECT_EQ(samples[36], -0.25);
    for (std::size_t n = 0; n < samples.size(); ++n) {
        const double sine =
            0.25 * std::sin(2 * std::numbers::pi * static_cast<double>(n % 48) / 48);
        ASSERT_NEAR(samples[n], sine, 1e-9) << n;
    }
}

TEST(Tone, IsRoundedToItsWidth) {
    for (const std::uint32_t bits : {16u, 24u, 32u}) {
        SCOPED_TRACE(bits);
        const double steps = std::ldexp(1.0, static_cast<int>(bits) - 1);
        const auto tone =
            makeTone({.hertz = 997, .rate = 44100, .channels = 2, .bits = bits, .seconds = 0.1});
        EXPECT_EQ(tone->format().bits, bits);
        const auto samples = allPcm(*tone);
        ASSERT_EQ(samples.size(), 2 * 4410u);
        for (std::size_t n = 0; n < samples.size(); n += 2) {
            ASSERT_EQ(samples[n] * steps, std::round(samples[n] * steps));
            const double exact =
                0.25 * std::sin(2 * std::numbers::pi * 997 / 44100 * static_cast<double>(n / 2));
            ASSERT_LE(std::abs(samples[n] - exact), 0.5 / steps + 1e-11);
        }
    }
}

TEST(Tone, IsAFifthHigherInEachFurtherChannelAndNeverBeyondTheRate) {
    const auto tone =
        makeTone({.hertz = 1000, .rate = 8000, .channels = 8, .bits = 32, .seconds = 1});
    const auto samples = allPcm(*tone);
    const double hertz[] = {1000, 1500, 2250, 3200, 3200, 3200, 3200, 3200};
    for (std::size_t c = 0; c < 8; ++c) {
        SCOPED_TRACE(c);
        for (std::size_t n = 0; n < 8000; n += 7) {
            ASSERT_NEAR(
                samples[n * 8 + c],
                0.25 * std::sin(2 * std::numbers::pi * hertz[c] / 8000 * static_cast<double>(n)),
                1e-8);
        }
    }
}

TEST(Tone, IsTheSameHoweverItIsRead) {
    const Tone tone{.hertz = 440, .rate = 44100, .channels = 2, .bits = 24, .seconds = 0.05};
    EXPECT_EQ(allPcm(*makeTone(tone), 1), allPcm(*makeTone(tone), 100000));
}

TEST_F(SourceTest, AWavFileIsToldByItsFirstBytes) {
    const auto source = wav(fmt(1, 2, 96000, 16), hex("0080 ff7f 0100 ffff"));
    ASSERT_NE(source, nullptr) << error;
    EXPECT_FALSE(source->format().isDsd);
    EXPECT_EQ(source->format().rate, 96000u);
    EXPECT_EQ(source->format().channels, 2u);
    EXPECT_EQ(source->format().bits, 16u);
    EXPECT_EQ(source->format().frames, 2u);
    EXPECT_THAT(allPcm(*source), ElementsAre(-1.0, 32767.0 / 32768, 1.0 / 32768, -1.0 / 32768));
    std::vector<std::uint8_t> bytes(8);
    EXPECT_EQ(source->readDsd(bytes), 0u);
}

TEST_F(SourceTest, DsdHasItsOldestSampleInBitSeven) {
    // In the file the oldest of eight samples is bit 0.
    const auto source = openFile(dsf(2, {0x01, 0x80, 0x0f, 0x69}), error);
    ASSERT_NE(source, nullptr) << error;
    EXPECT_TRUE(source->format().isDsd);
    EXPECT_EQ(source->format().rate, 2822400u);
    EXPECT_EQ(source->format().channels, 2u);
    EXPECT_EQ(source->format().bits, 1u);
    EXPECT_EQ(source->format().frames, 16u);
    EXPECT_THAT(allDsd(*source), ElementsAre(0x80, 0x01, 0xf0, 0x96));
    std::vector<double> samples(8);
    EXPECT_EQ(source->readPcm(samples), 0u);
}

TEST_F(SourceTest, AFileThatCannotBePlayedIsNamedInASentence) {
    const std::string none = scratch.path("none.wav");
    EXPECT_EQ(openFile(none, error), nullptr);
    EXPECT_EQ(error, none + ": the file cannot be read.");
    const std::string tiny = scratch.write("tiny", "RI");
    EXPECT_EQ(openFile(tiny, error), nullptr);
    EXPECT_EQ(error, tiny + ": the file cannot be read.");
    const std::string text = scratch.write("text", "This is no audio at all.");
    EXPECT_EQ(openFile(text, error), nullptr);
    EXPECT_EQ(error, text + ": the file is no WAV file.");
    const std::string half = scratch.write("half.dsf", "DSD " + little(28, 8));
    EXPECT_EQ(openFile(half, error), nullptr);
    EXPECT_EQ(error, half + " is no DSF file.");
}

TEST_F(SourceTest, LimitedCutsSamplesToTheirUpperBits) {
    // 24 bits: a step of 16 bits and the 24-bit steps around it.
    auto source =
        limited(wav(fmt(1, 1, 48000, 24), hex("000100 ff0100 ffffff 000080 ff0080 ffff7f")), 16, 0);
    EXPECT_EQ(source->format().bits, 16u);
    EXPECT_THAT(allPcm(*source),
                ElementsAre(1.0 / 32768, 1.0 / 32768, -1.0 / 32768, -1.0, -1.0, 32767.0 / 32768));
}

TEST_F(SourceTest, LimitedLeavesNarrowerSamplesAlone) {
    for (const std::uint32_t bits : {0u, 16u, 24u, 32u}) {
        SCOPED_TRACE(bits);
        auto source = limited(wav(fmt(1, 1, 48000, 16), hex("0100 ff7f")), bits, 0);
        EXPECT_EQ(source->format().bits, 16u);
        EXPECT_THAT(allPcm(*source), ElementsAre(1.0 / 32768, 32767.0 / 32768));
    }
}

TEST_F(SourceTest, LimitedBringsFloatingPointIntoTheRangeOfTheWidth) {
    // 1.0, 2.0, -2.0, the smallest above 0, the smallest below it, infinity
    const std::string floats = hex("0000803f 00000040 000000c0 01000000 01000080 0000807f");
    auto source = limited(wav(fmt(3, 1, 48000, 32), floats), 32, 0);
    const double most = 2147483647.0 / 2147483648.0;
    EXPECT_THAT(allPcm(*source), ElementsAre(most, most, -1.0, 0.0, -1.0 / 2147483648.0, most));
    source = limited(wav(fmt(3, 1, 48000, 32), floats), 16, 0);
    EXPECT_EQ(allPcm(*source).front(), 32767.0 / 32768);
    source = limited(wav(fmt(3, 1, 48000, 32), hex("0000c07f")), 16, 0);
    EXPECT_TRUE(std::isnan(allPcm(*source).front()));
}

TEST_F(SourceTest, LimitedEndsAfterItsSeconds) {
    const std::string audio(8000, '\x80');
    struct Case {
        double seconds;
        std::uint64_t frames;
    };
    for (const auto& c :
         {Case{0, 8000}, Case{0.5, 4000}, Case{0.99999, 7999}, Case{1, 8000}, Case{7, 8000}}) {
        SCOPED_TRACE(c.seconds);
        const auto source = limited(wav(fmt(1, 1, 8000, 8), audio), 0, c.seconds);
        EXPECT_EQ(source->format().frames, c.frames);
        EXPECT_EQ(allPcm(*source).size(), c.frames);
    }
}

TEST_F(SourceTest, LimitedEndsDsdAtAByte) {
    std::vector<std::uint8_t> bytes(40);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i);
    const std::string path = dsf(2, bytes);
    const auto all = allDsd(*limited(openFile(path, error), 16, 0));
    EXPECT_EQ(all.size(), 40u);
    EXPECT_EQ(all[2], 0x40);  // the third byte, 0x02, turned: no bits are cut from DSD
    const auto source = limited(openFile(path, error), 0, 39.5 / 2822400);
    EXPECT_EQ(source->format().frames, 32u);
    EXPECT_EQ(allDsd(*source).size(), 8u);
}

TEST_F(SourceTest, LimitedPlaysALastByteThatIsNotFull) {
    const std::string path = dsf(1, {1, 2, 3});
    {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(64);
        file.put(17);  // samples: the third byte holds one
    }
    const auto source = limited(openFile(path, error), 0, 0);
    EXPECT_EQ(source->format().frames, 17u);
    EXPECT_THAT(allDsd(*source), ElementsAre(0x80, 0x40, 0xc0));
}

}  // namespace
