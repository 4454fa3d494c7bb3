#include "apps/velmora-audio/Compare.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "apps/audio/DsfFile.h"
#include "tests/apps/Scratch.h"

namespace {

using velmora_audio::compare;
using velmora_audio::Comparison;
using velmora_audio::Frames;
using velmora_audio::openFrames;
using velmora_test::chunk;
using velmora_test::fmt;
using velmora_test::hex;
using velmora_test::riff;

class ListFrames final : public Frames {
public:
    // Integers of `bits`; 64: as they are, 1: DSD.
    ListFrames(std::uint32_t channels, int bits, std::vector<double> values,
               std::uint32_t rate = 48000)
        : channels_(channels), rate_(rate), bits_(bits), values_(std::move(values)) {
        if (bits > 1 && bits < 64) {
            for (double& v : values_) v = std::ldexp(v, 1 - bits);
        }
    }
    std::uint32_t channels() const override { return channels_; }
    std::uint32_t rate() const override { return rate_; }
    int bits() const override { return bits_; }
    bool isSilence(double v) const override {
        return v == 0 || (bits_ == 1 && (v == 0x69 || v == 0x96));
    }
    std::size_t read(std::span<double> samples) override {
        // A frame or two at a time: reads of a file may be short.
        const std::size_t count =
            std::min({samples.size(), values_.size() - at_, std::size_t{2} * channels_});
        std::copy_n(values_.begin() + static_cast<std::ptrdiff_t>(at_), count, samples.begin());
        at_ += count;
        return count / channels_;
    }

private:
    std::uint32_t channels_, rate_;
    int bits_;
    std::vector<double> values_;
    std::size_t at_ = 0;
};

struct CompareCase {
    const char* why;
    int playedBits;
    std::vector<double> played;
    int writtenBits;
    std::vector<double> written;
    Comparison expected;
};

constexpr Comparison counts(std::uint64_t played, std::uint64_t leading, std::uint64_t wrong,
                            std::uint64_t missing, std::uint64_t noise, std::uint64_t firstWrong,
                            int bits) {
    Comparison c;
    c.played = played;
    c.leading = leading;
    c.wrong = wrong;
    c.missing = missing;
    c.trailingNoise = noise;
    c.firstWrong = firstWrong;
    c.bits = bits;
    return c;
}

// Stereo.
const CompareCase compareCases[] = {
    {"the same", 16, {1, 2, 3, 4}, 16, {1, 2, 3, 4}, counts(2, 0, 0, 0, 0, 0, 16)},
    {"silence in front",
     16,
     {1, 2, 3, 4},
     16,
     {0, 0, 0, 0, 0, 0, 1, 2, 3, 4},
     counts(2, 3, 0, 0, 0, 0, 16)},
    {"silence in front of both",
     16,
     {0, 0, 1, 2},
     16,
     {0, 0, 0, 0, 1, 2},
     counts(1, 2, 0, 0, 0, 0, 16)},
    {"the second channel sounds first",
     16,
     {0, 1, 2, 3},
     16,
     {0, 0, 0, 1, 2, 3},
     counts(2, 1, 0, 0, 0, 0, 16)},
    {"silence inside",
     16,
     {1, 2, 0, 0, 3, 4},
     16,
     {0, 0, 1, 2, 0, 0, 3, 4},
     counts(3, 1, 0, 0, 0, 0, 16)},
    {"silence behind", 16, {1, 2}, 16, {1, 2, 0, 0, 0, 0}, counts(1, 0, 0, 0, 0, 0, 16)},
    {"one wrong sample",
     16,
     {1, 2, 3, 4, 5, 6},
     16,
     {1, 2, 3, 5, 5, 6},
     counts(3, 0, 1, 0, 0, 1, 16)},
    {"channels exchanged", 16, {1, 2, 3, 4}, 16, {2, 1, 4, 3}, counts(2, 0, 2, 0, 0, 0, 16)},
    {"a frame lost", 16, {1, 2, 3, 4, 5, 6}, 16, {1, 2, 5, 6}, counts(3, 0, 1, 1, 0, 1, 16)},
    {"a frame twice", 16, {1, 2, 3, 4}, 16, {1, 2, 1, 2, 3, 4}, counts(2, 0, 1, 0, 1, 1, 16)},
    {"a tail that is missing", 16, {1, 2, 3, 4, 5, 6}, 16, {1, 2}, counts(3, 0, 0, 2, 0, 0, 16)},
    {"a silent tail that is missing", 16, {1, 2, 0, 0}, 16, {1, 2}, counts(2, 0, 0, 1, 0, 0, 16)},
    {"noise behind", 16, {1, 2}, 16, {1, 2, 0, 0, 0, 7, 8, 8}, counts(1, 0, 0, 0, 2, 0, 16)},
    {"nothing written", 16, {1, 2}, 16, {}, counts(1, 0, 0, 1, 0, 0, 16)},
    {"nothing but silence written", 16, {1, 2}, 16, {0, 0}, counts(1, 1, 0, 1, 0, 0, 16)},
    {"nothing played", 16, {}, 16, {1, 2}, counts(0, 0, 0, 0, 1, 0, 16)},
    {"24 bits to a target of 16",
     24,
     {0x123456, -0x123456, 0x7fffff, -0x800000},
     16,
     {0x1234, -0x1235, 0x7fff, -0x8000},
     counts(2, 0, 0, 0, 0, 0, 16)},
    {"24 bits to a target of 16 that rounds up",
     24,
     {0x123480, 1},
     16,
     {0x1235, 0},
     counts(1, 0, 1, 0, 0, 0, 16)},
    {"24 bits that are silent in 16",
     24,
     {1, 2, 0x100, 0},
     16,
     {0, 0, 1, 0},
     counts(1, 1, 0, 0, 0, 0, 16)},
    {"24 bits just below silence sound in 16",
     24,
     {-1, 0},
     16,
     {-1, 0},
     counts(1, 0, 0, 0, 0, 0, 16)},
    {"16 bits in a file of 24",
     16,
     {0x1234, -1},
     24,
     {0x123400, -0x100},
     counts(1, 0, 0, 0, 0, 0, 16)},
    {"32 bits", 32, {0x7fffffff, 1}, 32, {0x7ffffffe, 1}, counts(1, 0, 1, 0, 0, 0, 32)},
    {"floating point at full scale and beyond, to 16 bits",
     64,
     {1.0, -1.0, 2.0, -2.0},
     16,
     {0x7fff, -0x8000, 0x7fff, -0x8000},
     counts(2, 0, 0, 0, 0, 0, 16)},
    {"floating point that is no number, to 24 bits",
     64,
     {0.5, std::numeric_limits<double>::quiet_NaN()},
     24,
     {0x400000, 0},
     counts(1, 0, 0, 0, 0, 0, 24)},
    {"floating point to itself", 64, {1e-9, 1.5}, 64, {1e-9, 1.5}, counts(1, 0, 0, 0, 0, 0, 64)},
    {"DSD",
     1,
     {0x11, 0x22, 0x33, 0x44},
     1,
     {0x69, 0x69, 0x96, 0x69, 0x11, 0x22, 0x33, 0x44, 0x69, 0x69, 0, 0},
     counts(2, 2, 0, 0, 0, 0, 1)},
    {"DSD with a wrong byte",
     1,
     {0x11, 0x22, 0x33, 0x44},
     1,
     {0x11, 0x22, 0x33, 0x45},
     counts(2, 0, 1, 0, 0, 1, 1)},
};

TEST(Compare, CountsWhatIsNotAsItWasPlayed) {
    for (const CompareCase& c : compareCases) {
        SCOPED_TRACE(c.why);
        ListFrames played(2, c.playedBits, c.played), written(2, c.writtenBits, c.written);
        const Comparison result = compare(played, written);
        EXPECT_EQ(result.played, c.expected.played);
        EXPECT_EQ(result.leading, c.expected.leading);
        EXPECT_EQ(result.wrong, c.expected.wrong);
        EXPECT_EQ(result.missing, c.expected.missing);
        EXPECT_EQ(result.trailingNoise, c.expected.trailingNoise);
        EXPECT_EQ(result.firstWrong, c.expected.firstWrong);
        EXPECT_EQ(result.bits, c.expected.bits);
        EXPECT_EQ(result.rate, 48000u);
        EXPECT_EQ(result.channels, 2u);
        const Comparison& e = c.expected;
        EXPECT_EQ(result.exact(),
                  e.played != 0 && e.wrong == 0 && e.missing == 0 && e.trailingNoise == 0);
    }
}

TEST(Compare, OfNothingIsNotExact) {
    ListFrames played(1, 16, {0, 0}), written(1, 16, {0, 0});
    EXPECT_FALSE(compare(played, written).exact());
}

std::string refusal(ListFrames played, ListFrames written) {
    try {
        compare(played, written);
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "compared";
}

TEST(Compare, RefusesWhatCannotBeCompared) {
    EXPECT_EQ(refusal({2, 16, {1, 2}}, {1, 16, {1, 2}}),
              "what was written has 1 channels, what was played 2");
    EXPECT_EQ(refusal({1, 16, {1}, 44100}, {1, 16, {1}, 48000}),
              "what was written has a rate of 48000 Hz, what was played 44100 Hz");
    EXPECT_EQ(refusal({1, 1, {1}}, {1, 16, {1}}), "one file is DSD and the other PCM");
    EXPECT_EQ(refusal({1, 16, {1}}, {1, 1, {1}}), "one file is DSD and the other PCM");
}

class FilesTest : public testing::Test {
protected:
    std::unique_ptr<Frames> wav(const std::string& name, const std::string& format,
                                const std::string& data) {
        return openFrames(scratch.write(name, riff(chunk("fmt ", format) + chunk("data", data))));
    }
    velmora_test::Scratch scratch;
};

TEST_F(FilesTest, OfEveryWidthAreReadExactly) {
    struct Width {
        const char* why;
        std::uint32_t tag, bits;
        const char* data;
        int width;
        double least, most;
    };
    const Width widths[] = {
        {"8", 1, 8, "00 ff", 8, -1.0, 127.0 / 128},
        {"16", 1, 16, "0080 ff7f", 16, -1.0, 32767.0 / 32768},
        {"24", 1, 24, "000080 ffff7f", 24, -1.0, 8388607.0 / 8388608},
        {"32", 1, 32, "00000080 ffffff7f", 32, -1.0, 2147483647.0 / 2147483648.0},
        {"f32", 3, 32, "000080bf 0000c03f", 64, -1.0, 1.5},
        {"f64", 3, 64, "000000000000f0bf 9a9999999999b93f", 64, -1.0, 0.1},
    };
    for (const Width& w : widths) {
        SCOPED_TRACE(w.why);
        const auto file = wav("x.wav", fmt(w.tag, 1, 96000, w.bits), hex(w.data));
        EXPECT_EQ(file->channels(), 1u);
        EXPECT_EQ(file->rate(), 96000u);
        EXPECT_EQ(file->bits(), w.width);
        std::vector<double> samples(8);
        ASSERT_EQ(file->read(samples), 2u);
        EXPECT_EQ(samples[0], w.least);
        EXPECT_EQ(samples[1], w.most);
        EXPECT_EQ(file->read(samples), 0u);
        EXPECT_TRUE(file->isSilence(0.0));
        EXPECT_FALSE(file->isSilence(0.69));
    }
}

TEST_F(FilesTest, OfDsdAreBytes) {
    const std::string path = scratch.path("x.dsf");
    velmora_audio::DsfWriter writer;
    ASSERT_EQ(writer.open(path, 2, 5644800), "");
    ASSERT_EQ(writer.write(std::vector<std::uint8_t>{1, 2, 255, 0x69}), "");
    ASSERT_EQ(writer.close(), "");
    const auto file = openFrames(path);
    EXPECT_EQ(file->channels(), 2u);
    EXPECT_EQ(file->rate(), 5644800u);
    EXPECT_EQ(file->bits(), 1);
    std::vector<double> samples(8);
    ASSERT_EQ(file->read(samples), 2u);
    EXPECT_EQ(samples[0], 1.0);
    EXPECT_EQ(samples[2], 255.0);
    EXPECT_EQ(file->read(samples), 0u);
    for (const double v : {0x69, 0x96, 0}) EXPECT_TRUE(file->isSilence(v));
    EXPECT_FALSE(file->isSilence(0x68));
}

TEST_F(FilesTest, OfNoAudioAreNamedOnce) {
    const auto told = [](const std::string& path) -> std::string {
        try {
            openFrames(path);
        } catch (const std::runtime_error& e) {
            return e.what();
        }
        return "opened";
    };
    const std::string none = scratch.path("none.wav");
    EXPECT_EQ(told(none).substr(0, none.size() + 2), none + ": ");
    const std::string half = scratch.write("half.dsf", "DSD ");
    EXPECT_EQ(told(half), half + " is no DSF file");
}

TEST_F(FilesTest, ThatAreTheSameAreBitExact) {
    const std::string audio = hex("0100 ff7f 0080 0000 3412 cdab");
    const auto played = wav("p.wav", fmt(1, 2, 48000, 16), audio);
    const auto written =
        wav("w.wav", fmt(1, 2, 48000, 16), std::string(400, '\0') + audio + std::string(40, '\0'));
    const Comparison result = compare(*played, *written);
    EXPECT_TRUE(result.exact());
    EXPECT_EQ(result.played, 3u);
    EXPECT_EQ(result.leading, 100u);
}

}  // namespace
