// One-bit audio: words of the stream, bytes of a file, and the file itself.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "apps/audio/DsdWords.h"
#include "apps/audio/DsfFile.h"
#include "tests/target/TargetWorld.h"

namespace {

using namespace velmora_audio;
using velmora_test::Bytes;
using velmora_test::hex;

TEST(DsdWords, BecomeBytesInTheOrderOfTime) {
    // 32 samples of which the 1st, 2nd and 11th are one: bytes 03 04 00 00, oldest in bit 0.
    struct Case {
        const char* why;
        DsdOrder order;
        const char* word;
    };
    const Case cases[] = {
        {"LSB little", {true, true}, "03 04 00 00"},
        {"LSB big", {true, false}, "00 00 04 03"},
        {"MSB little", {false, true}, "00 00 20 c0"},
        {"MSB big", {false, false}, "c0 20 00 00"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Bytes bytes(4), words(4);
        EXPECT_EQ(bytesFromDsdWords(c.order, 1, hex(c.word), bytes), 4u);
        EXPECT_EQ(bytes, hex("03 04 00 00"));
        EXPECT_EQ(dsdWordsFromBytes(c.order, 1, bytes, words), 4u);
        EXPECT_EQ(words, hex(c.word));
    }
}

TEST(DsdWords, OfSeveralChannelsAreWovenByteByByte) {
    Bytes bytes(8);
    bytesFromDsdWords({true, true}, 2, hex("01 02 03 04 11 12 13 14"), bytes);
    EXPECT_EQ(bytes, hex("01 11 02 12 03 13 04 14"));
}

TEST(DsdWords, LeaveARestThatIsNoWholeFrame) {
    Bytes bytes(11, 0xee);
    EXPECT_EQ(bytesFromDsdWords({}, 2, Bytes(11, 1), bytes), 8u);
    EXPECT_EQ(bytes[8], 0xee);
}

class DsfFileTest : public testing::Test {
protected:
    DsfFileTest()
        : path((std::filesystem::temp_directory_path() /
                ("dsf-" + std::to_string(std::random_device{}()) + ".dsf"))
                   .string()) {}
    ~DsfFileTest() override { std::filesystem::remove(path); }
    Bytes contents() const {
        std::ifstream file(path, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(file), {});
    }
    void write(const Bytes& bytes) const {
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }
    std::string path;
};

// Stereo, DSD64, three bytes a channel: 24 samples in a block of 4096 each.
const char* const golden =
    "44534420 1c00000000000000 5c20000000000000 0000000000000000"
    "666d7420 3400000000000000 01000000 00000000 02000000 02000000 00112b00 01000000"
    "1800000000000000 00100000 00000000"
    "64617461 0c20000000000000";

TEST_F(DsfFileTest, HasTheHeaderOfThePublishedLayout) {
    DsfWriter writer;
    ASSERT_EQ(writer.open(path, 2, 2822400), "");
    EXPECT_EQ(writer.write(hex("a1 b1 a2 b2 a3 b3")), "");
    EXPECT_EQ(writer.close(), "");
    const Bytes file = contents();
    ASSERT_EQ(file.size(), 92u + 8192);
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 92), hex(golden));
    EXPECT_EQ(Bytes(file.begin() + 92, file.begin() + 96), hex("a1 a2 a3 00"));
    EXPECT_EQ(Bytes(file.begin() + 92 + 4096, file.begin() + 96 + 4096), hex("b1 b2 b3 00"));
}

TEST_F(DsfFileTest, ComesBackAsItWentIn) {
    for (const std::uint32_t channels : {1u, 2u, 6u}) {
        for (const std::size_t perChannel : {0u, 1u, 4095u, 4096u, 4097u, 20000u}) {
            SCOPED_TRACE(testing::Message() << channels << " channels, " << perChannel << " bytes");
            std::mt19937 random(5);
            Bytes audio(channels * perChannel);
            for (auto& byte : audio) byte = static_cast<std::uint8_t>(random());
            DsfWriter writer;
            ASSERT_EQ(writer.open(path, channels, 5644800), "");
            // In pieces that do not end at a frame.
            for (std::size_t at = 0; at < audio.size(); at += 1001) {
                const std::size_t n = std::min<std::size_t>(1001, audio.size() - at);
                ASSERT_EQ(writer.write(std::span(audio).subspan(at, n)), "");
            }
            ASSERT_EQ(writer.close(), "");

            DsfReader reader;
            ASSERT_EQ(reader.open(path), "");
            EXPECT_EQ(reader.format().channels, channels);
            EXPECT_EQ(reader.format().sampleRate, 5644800u);
            EXPECT_EQ(reader.format().samples, perChannel * 8);
            Bytes back, piece(777);
            while (const std::size_t n = reader.read(piece)) {
                back.insert(back.end(), piece.begin(),
                            piece.begin() + static_cast<std::ptrdiff_t>(n));
            }
            EXPECT_EQ(back, audio);
        }
    }
}

TEST_F(DsfFileTest, ATurnThatIsNotCompleteIsNoSample) {
    DsfWriter writer;
    ASSERT_EQ(writer.open(path, 2, 2822400), "");
    writer.write(hex("a1 b1 a2"));
    writer.close();
    DsfReader reader;
    ASSERT_EQ(reader.open(path), "");
    EXPECT_EQ(reader.format().samples, 8u);
    EXPECT_EQ(contents()[93], 0);
}

TEST_F(DsfFileTest, OfTheOtherBitOrderIsTurned) {
    Bytes file = hex(golden);
    file[60] = 8;  // bits per sample: 8, oldest sample in bit 7
    file.resize(92 + 8192);
    file[92] = 0x80;
    write(file);
    DsfReader reader;
    ASSERT_EQ(reader.open(path), "");
    Bytes audio(6);
    EXPECT_EQ(reader.read(audio), 6u);
    EXPECT_EQ(audio[0], 0x01);
}

TEST_F(DsfFileTest, ASampleCountMayEndInsideAByte) {
    Bytes file = hex(golden);
    file[64] = 17;
    file.resize(92 + 8192);
    write(file);
    DsfReader reader;
    ASSERT_EQ(reader.open(path), "");
    EXPECT_EQ(reader.bytesPerChannel(), 3u);
}

TEST_F(DsfFileTest, IsRefusedWithAReasonWhereItIsUnsound) {
    struct Case {
        const char* why;
        std::size_t at;
        std::uint8_t value;
        const char* reason;
    };
    constexpr Case cases[] = {
        {"another file", 0, 'X', "is no DSF file"},
        {"no format chunk", 28, 'X', "has no format chunk"},
        {"another version", 40, 2, "is of an unknown DSF version"},
        {"another format", 44, 1, "is of an unknown DSF version"},
        {"no channel", 52, 0, "has 0 channels"},
        {"seven channels", 52, 7, "has 7 channels"},
        {"bits of neither order", 60, 2, "has an unknown bit order"},
        {"blocks of another size", 73, 0x20, "has blocks of another size than 4096"},
        {"no data chunk", 80, 'X', "has no data chunk"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Bytes file = hex(golden);
        file.resize(92 + 8192);
        file[c.at] = c.value;
        write(file);
        EXPECT_EQ(DsfReader().open(path), path + " " + c.reason);
    }
    EXPECT_EQ(DsfReader().open(path + ".none"), "cannot read " + path + ".none");
}

TEST_F(DsfFileTest, ThatBreaksOffEndsThere) {
    Bytes file = hex(golden);
    file[65] = 0xff;  // more samples than blocks
    file.resize(92 + 5000);
    write(file);
    DsfReader reader;
    ASSERT_EQ(reader.open(path), "");
    EXPECT_EQ(reader.format().samples, 4096u * 8);
    Bytes audio(100);
    EXPECT_EQ(reader.read(audio), 0u);
    write(Bytes(file.begin(), file.begin() + 50));
    EXPECT_NE(DsfReader().open(path), "");
}

TEST_F(DsfFileTest, OfAnyBytesNeverDoesHarm) {
    for (std::uint32_t seed = 1; seed <= 200; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        Bytes file = hex(golden);
        file.resize(92 + random() % 10000);
        for (int i = 0; i < 6; ++i) file[random() % 92] = static_cast<std::uint8_t>(random());
        write(file);
        DsfReader reader;
        if (!reader.open(path).empty()) continue;
        Bytes audio(10000);
        while (reader.read(audio) != 0) {
        }
    }
}

TEST_F(DsfFileTest, HoldsNoMoreThanSixChannels) {
    DsfWriter writer;
    EXPECT_EQ(writer.open(path, 8, 2822400), "a DSF file holds one to six channels, not 8");
    EXPECT_EQ(writer.open(path, 0, 2822400), "a DSF file holds one to six channels, not 0");
    EXPECT_EQ(writer.open("/nowhere/at/all.dsf", 2, 2822400), "cannot write /nowhere/at/all.dsf");
    EXPECT_NE(writer.write(hex("00")), "");
    EXPECT_EQ(writer.close(), "");
}

}  // namespace
