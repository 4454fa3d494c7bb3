#include "apps/audio/WavFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "tests/apps/Scratch.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using velmora_audio::WavFile;
using velmora_test::chunk;
using velmora_test::fmt;
using velmora_test::hex;
using velmora_test::little;
using velmora_test::riff;

std::vector<double> everything(WavFile& file) {
    std::vector<double> all, some(6 * file.format().channels);
    while (const std::uint64_t frames = file.read(some)) {
        all.insert(all.end(), some.begin(),
                   some.begin() + static_cast<std::ptrdiff_t>(frames * file.format().channels));
    }
    return all;
}

class WavFileTest : public testing::Test {
protected:
    std::string put(std::string_view bytes) { return scratch.write("x.wav", bytes); }
    velmora_test::Scratch scratch;
};

constexpr const char* stereo16 =
    "52494646 2c000000 57415645"                               // RIFF, 44, WAVE
    "666d7420 10000000 0100 0200 44ac0000 10b10200 0400 1000"  // 44100 Hz, 176400 bytes/s
    "64617461 08000000 0080 ff7f 0100 ffff";

TEST_F(WavFileTest, OfSixteenBitsIsReadToTheLetter) {
    WavFile file;
    ASSERT_TRUE(file.open(put(hex(stereo16)))) << file.error();
    EXPECT_EQ(file.format().rate, 44100u);
    EXPECT_EQ(file.format().channels, 2u);
    EXPECT_EQ(file.format().bits, 16u);
    EXPECT_FALSE(file.format().isFloat);
    EXPECT_EQ(file.format().frames, 2u);
    EXPECT_THAT(everything(file),
                ElementsAre(-1.0, 32767.0 / 32768.0, 1.0 / 32768.0, -1.0 / 32768.0));
    EXPECT_EQ(file.error(), "");
}

TEST_F(WavFileTest, GivesTheExactValuesAtBothEndsOfEveryWidth) {
    constexpr double inf = std::numeric_limits<double>::infinity();
    struct Case {
        const char* why;
        const char* format;  // tag, channels 1, 48000 Hz, bytes a second, frame, bits
        const char* data;
        std::uint32_t bits;
        bool isFloat;
        std::vector<double> values;
    };
    const Case cases[] = {
        {"8 bits are unsigned around 128",
         "0100 0100 80bb0000 80bb0000 0100 0800",
         "00 7f 80 81 ff",
         8,
         false,
         {-1.0, -1.0 / 128, 0.0, 1.0 / 128, 127.0 / 128}},
        {"16 bits",
         "0100 0100 80bb0000 00770100 0200 1000",
         "0080 ffff 0000 0100 ff7f",
         16,
         false,
         {-1.0, -1.0 / 32768, 0.0, 1.0 / 32768, 32767.0 / 32768}},
        {"24 bits",
         "0100 0100 80bb0000 80320200 0300 1800",
         "000080 ffffff 000000 010000 ffff7f",
         24,
         false,
         {-1.0, -1.0 / 8388608, 0.0, 1.0 / 8388608, 8388607.0 / 8388608}},
        {"32 bits",
         "0100 0100 80bb0000 00ee0200 0400 2000",
         "00000080 ffffffff 00000000 01000000 ffffff7f",
         32,
         false,
         {-1.0, -1.0 / 2147483648.0, 0.0, 1.0 / 2147483648.0, 2147483647.0 / 2147483648.0}},
        {"floating point of 32 bits, its smallest and largest, beyond full scale, infinite",
         "0300 0100 80bb0000 00ee0200 0400 2000",
         "000080bf 01000000 ffff7f7f 00000040 0000807f",
         32,
         true,
         {-1.0, std::ldexp(1.0, -149), std::ldexp(16777215.0, 104), 2.0, inf}},
        {"floating point of 64 bits",
         "0300 0100 80bb0000 00dc0500 0800 4000",
         "000000000000f0bf 0100000000000000 ffffffffffffef7f 000000000000f0ff 000000000000f83f",
         64,
         true,
         {-1.0, 4.9406564584124654e-324, std::numeric_limits<double>::max(), -inf, 1.5}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        WavFile file;
        ASSERT_TRUE(file.open(put(riff(chunk("fmt ", hex(c.format)) + chunk("data", hex(c.data))))))
            << file.error();
        EXPECT_EQ(file.format().rate, 48000u);
        EXPECT_EQ(file.format().channels, 1u);
        EXPECT_EQ(file.format().bits, c.bits);
        EXPECT_EQ(file.format().isFloat, c.isFloat);
        EXPECT_EQ(file.format().frames, 5u);
        EXPECT_THAT(everything(file), ElementsAreArray(c.values));
    }
}

TEST_F(WavFileTest, WhatIsNoNumberStaysNone) {
    WavFile file;
    ASSERT_TRUE(
        file.open(put(riff(chunk("fmt ", fmt(3, 1, 48000, 32)) + chunk("data", hex("0000c07f"))))));
    EXPECT_TRUE(std::isnan(everything(file).at(0)));
}

constexpr const char* extensible24 =
    "feff 0200 00770100 00ca0800 0600 1800 1600 1800 03000000"  // 96000 Hz, 24 of 24 bits valid
    "0100 0000 0000 1000 8000 00aa00389b71";

TEST_F(WavFileTest, OfTheExtensibleFormatIsReadByItsSubFormat) {
    struct Case {
        const char* why;
        std::size_t at;
        char value;
        const char* error;  // null: it is read
    };
    const Case cases[] = {
        {"integers", 0, '\xfe', nullptr},
        {"floating point of 24 bits is none", 24, 3,
         "the file's format (tag 3, 24 bits) is not one that is played here"},
        {"a sub-format of a family of its own", 28, 1,
         "the file's format is of a kind that is not played here"},
        {"the last byte of the family", 39, 0x72,
         "the file's format is of a kind that is not played here"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        std::string format = hex(extensible24);
        ASSERT_EQ(format.size(), 40u);
        format[c.at] = c.value;
        WavFile file;
        const bool opened =
            file.open(put(riff(chunk("fmt ", format) + chunk("data", hex("000080 ffff7f")))));
        EXPECT_EQ(opened, c.error == nullptr);
        EXPECT_EQ(file.error(), c.error == nullptr ? "" : c.error);
        if (!opened) continue;
        EXPECT_EQ(file.format().rate, 96000u);
        EXPECT_EQ(file.format().bits, 24u);
        EXPECT_THAT(everything(file), ElementsAre(-1.0, 8388607.0 / 8388608));
    }
    WavFile file;
    EXPECT_FALSE(file.open(
        put(riff(chunk("fmt ", hex(extensible24).substr(0, 26)) + chunk("data", "xxxxxx")))));
    EXPECT_EQ(file.error(), "the file's format is cut short");
}

TEST_F(WavFileTest, ChunksInFrontOfTheAudioArePassedAtEvenOffsets) {
    WavFile file;
    ASSERT_TRUE(file.open(put(riff(chunk("JUNK", "odd") + chunk("fmt ", fmt(1, 1, 8000, 8)) +
                                   chunk("LIST", std::string(101, 'd')) + chunk("data", "\x40") +
                                   chunk("id3 ", "behind")))))
        << file.error();
    EXPECT_THAT(everything(file), ElementsAre(-0.5));
}

TEST_F(WavFileTest, ALongerFormatChunkIsTakenByItsBeginning) {
    WavFile file;
    ASSERT_TRUE(file.open(put(
        riff(chunk("fmt ", fmt(1, 1, 8000, 8) + std::string(47, '\0')) + chunk("data", "\x40")))))
        << file.error();
    EXPECT_THAT(everything(file), ElementsAre(-0.5));
}

// RF64: 32-bit sizes of ffffffff, the true ones in "ds64".
std::string rf64(std::uint64_t whole, std::uint64_t data, std::uint32_t dataSize32,
                 const std::string& behind) {
    return "RF64" + little(0xffffffff, 4) + "WAVE" +
           chunk("ds64", little(whole, 8) + little(data, 8) + little(2, 8) + little(0, 4)) +
           chunk("fmt ", fmt(1, 2, 48000, 16)) + "data" + little(dataSize32, 4) + behind;
}

TEST_F(WavFileTest, ItsSizesAreBelievedAsFarAsTheFileHolds) {
    const std::string format = chunk("fmt ", fmt(1, 2, 48000, 16));
    const auto plain = [&](std::uint32_t whole, std::uint32_t data, const std::string& behind) {
        return "RIFF" + little(whole, 4) + "WAVE" + format + "data" + little(data, 4) + behind;
    };
    const std::string twoFrames = "aabbccdd", more = "eeffg";
    const std::string noDs64 =
        "RF64" + little(0xffffffff, 4) + "WAVE" + format + "data" + little(0xffffffff, 4);
    struct Case {
        const char* why;
        std::string bytes;
        std::uint64_t frames;
    };
    const Case cases[] = {
        {"as claimed", plain(44, 8, twoFrames), 2},
        {"less than there is", plain(44, 4, twoFrames), 1},
        {"more than there is", plain(1036, 1000, twoFrames), 2},
        {"a rest that is no frame", plain(49, 13, twoFrames + more), 3},
        {"not known when it was written", plain(0xffffffff, 0xffffffff, twoFrames), 2},
        {"never put in", plain(0, 0, twoFrames), 2},
        {"never put in, the whole of a header", plain(36, 0, twoFrames), 2},
        {"empty, and something behind", plain(44, 0, twoFrames), 0},
        {"empty", plain(36, 0, ""), 0},
        {"RF64 as claimed", rf64(80, 8, 0xffffffff, twoFrames + chunk("id3 ", more)), 2},
        {"RF64 with more than there is", rf64(80, 1ull << 40, 0xffffffff, twoFrames), 2},
        {"RF64 of the most bytes", rf64(~0ull, ~0ull, 0xffffffff, twoFrames), 2},
        {"RF64 never put in", rf64(0, 0, 0xffffffff, twoFrames), 2},
        {"RF64 that is empty", rf64(80, 0, 0xffffffff, twoFrames), 0},
        {"RF64 with a short size of its own", rf64(80, 8, 4, twoFrames), 1},
        {"RF64 that does not tell", noDs64 + twoFrames, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        WavFile file;
        ASSERT_TRUE(file.open(put(c.bytes))) << file.error();
        EXPECT_EQ(file.format().frames, c.frames);
        EXPECT_EQ(everything(file).size(), c.frames * 2);
    }
}

TEST_F(WavFileTest, IsRefusedWithAReasonWhereItIsUnsound) {
    const std::string good = chunk("fmt ", fmt(1, 2, 48000, 16)), audio = chunk("data", "aabb");
    std::string otherFrame = fmt(1, 2, 48000, 24);
    otherFrame[12] = 8;
    struct Case {
        const char* why;
        std::string bytes;
        const char* error;
    };
    const Case cases[] = {
        {"nothing", "", "the file is too short for a WAV file"},
        {"eleven bytes", "RIFF\4\0\0\0WAV", "the file is too short for a WAV file"},
        {"another file", "FORM" + little(4, 4) + "AIFF", "the file is no WAV file"},
        {"RIFF of another kind", "RIFF" + little(4, 4) + "AVI ", "the file is no WAV file"},
        {"no chunk", riff(""), "the file holds no audio"},
        {"no audio", riff(good), "the file holds no audio"},
        {"audio first", riff(audio + good), "the file tells its format behind the audio"},
        {"a short format", riff(chunk("fmt ", fmt(1, 2, 48000, 16).substr(0, 14)) + audio),
         "the file's format is cut short"},
        {"a chunk beyond the end", riff(good + "LIST" + little(1000, 4) + "abc"),
         "the file is cut short"},
        {"a chunk of the most bytes", riff(good + "LIST" + little(0xffffffff, 4) + "abc"),
         "the file is cut short"},
        {"a format beyond the end", riff("fmt " + little(1000, 4) + fmt(1, 2, 48000, 16)),
         "the file is cut short"},
        {"no channel", riff(chunk("fmt ", fmt(1, 0, 48000, 16)) + audio),
         "the file's format makes no sense"},
        {"65 channels", riff(chunk("fmt ", fmt(1, 65, 48000, 16)) + audio),
         "the file's format makes no sense"},
        {"no rate", riff(chunk("fmt ", fmt(1, 2, 0, 16)) + audio),
         "the file's format makes no sense"},
        {"24 bits in four bytes", riff(chunk("fmt ", otherFrame) + audio),
         "the file's format makes no sense"},
        {"20 bits", riff(chunk("fmt ", fmt(1, 2, 48000, 20)) + audio),
         "the file's format (tag 1, 20 bits) is not one that is played here"},
        {"integers of 64 bits", riff(chunk("fmt ", fmt(1, 2, 48000, 64)) + audio),
         "the file's format (tag 1, 64 bits) is not one that is played here"},
        {"floating point of 16 bits", riff(chunk("fmt ", fmt(3, 2, 48000, 16)) + audio),
         "the file's format (tag 3, 16 bits) is not one that is played here"},
        {"packed", riff(chunk("fmt ", fmt(0x55, 2, 48000, 0)) + audio),
         "the file's format (tag 85, 0 bits) is not one that is played here"},
        {"a second format is unsound", riff(good + chunk("fmt ", fmt(1, 0, 48000, 16)) + audio),
         "the file's format makes no sense"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        WavFile file;
        EXPECT_FALSE(file.open(put(c.bytes)));
        EXPECT_EQ(file.error(), c.error);
        EXPECT_EQ(file.format().channels, 0u);
        std::array<double, 4> samples{};
        EXPECT_EQ(file.read(samples), 0u);
        EXPECT_FALSE(file.seek(0));
    }
    WavFile file;
    EXPECT_FALSE(file.open(scratch.path("none.wav")));
    EXPECT_EQ(file.error(), "the file cannot be opened");
}

TEST_F(WavFileTest, CutAtAnyByteIsReadAsFarAsItGoesOrRefused) {
    const std::string whole = hex(stereo16);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        SCOPED_TRACE(size);
        WavFile file;
        const bool opened = file.open(put(whole.substr(0, size)));
        EXPECT_EQ(opened, size >= 44);
        EXPECT_NE(opened, !file.error().empty());
        if (opened) {
            EXPECT_EQ(file.format().frames, (size - 44) / 4);
        }
    }
}

TEST_F(WavFileTest, OfAnyBytesNeverDoesHarm) {
    const std::string goldens[] = {
        hex(stereo16), rf64(80, 8, 0xffffffff, "aabbccdd"),
        riff(chunk("fmt ", hex(extensible24)) + chunk("LIST", "odd") + chunk("data", "aabbcc"))};
    for (std::uint32_t seed = 1; seed <= 600; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        std::string bytes = goldens[seed % std::size(goldens)];
        for (int i = 0; i < 4; ++i) {
            bytes[random() % bytes.size()] = static_cast<char>(random() % 3 == 0 ? 0xff : random());
        }
        WavFile file;
        if (!file.open(put(bytes))) {
            EXPECT_NE(file.error(), "");
            continue;
        }
        EXPECT_LE(everything(file).size(), bytes.size());
    }
}

TEST_F(WavFileTest, IsReadInWholeFramesFromWhereverOneSeeks) {
    WavFile file;
    ASSERT_TRUE(file.open(
        put(riff(chunk("fmt ", fmt(1, 2, 8000, 8)) + chunk("data", "\x81\x82\x83\x84\x85\x86")))));
    std::array<double, 3> samples{};
    EXPECT_EQ(file.read(samples), 1u);
    EXPECT_EQ(samples[0] * 128, 1);
    EXPECT_TRUE(file.seek(2));
    EXPECT_EQ(file.read(samples), 1u);
    EXPECT_EQ(samples[1] * 128, 6);
    EXPECT_EQ(file.read(samples), 0u);
    EXPECT_FALSE(file.seek(4));
    EXPECT_TRUE(file.seek(3));
    EXPECT_EQ(file.read(samples), 0u);
    EXPECT_TRUE(file.seek(0));
    EXPECT_EQ(file.read(std::span(samples).first(1)), 0u);
    EXPECT_EQ(file.read(samples), 1u);
    EXPECT_EQ(samples[1] * 128, 2);
}

TEST_F(WavFileTest, OpenedAgainBeginsAnew) {
    WavFile file;
    EXPECT_FALSE(file.open(put("RIFF")));
    ASSERT_TRUE(file.open(put(hex(stereo16)))) << file.error();
    EXPECT_EQ(everything(file).size(), 4u);
    ASSERT_TRUE(file.open(put(hex(stereo16))));
    EXPECT_EQ(file.error(), "");
    EXPECT_EQ(everything(file).size(), 4u);
}

}  // namespace
