// The sound library itself, on devices that are none: one that takes everything, and files.
#include "apps/velmora-target/alsa/AlsaDevice.h"

#include <alsa/asoundlib.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include "target/DeviceOutput.h"
#include "tests/base/TempFolder.h"
#include "tests/target/TargetWorld.h"

namespace {

namespace fs = std::filesystem;
using namespace velmora_test;
using VELMORA::SinkConfig;
using velmora_target::alsaDevice;
using velmora_target::DeviceOutput;
using velmora_target::FormatMasks;
using velmora_target::PcmFormat;
using velmora_target::PcmRoom;
using velmora_target::PcmTimes;

class AlsaDevice : public testing::Test {
protected:
    // A configuration of the test's own: no sound card is needed, and none is touched.
    void SetUp() override {
        std::ofstream(folder_.native() / "alsa.conf")
            << "pcm.nothing { type null }\n"
            << "pcm.filed { type file slave.pcm { type null } format raw file " << written()
            << " }\n"
            << "pcm.named { type file slave.pcm { type null } format raw file "
            << written().string() + "-%f }\n"
            << "pcm.integers { type linear slave { pcm filed format S32_LE } }\n";
        setenv("ALSA_CONFIG_PATH", (folder_.native() / "alsa.conf").c_str(), /*overwrite=*/1);
    }
    void TearDown() override {
        unsetenv("ALSA_CONFIG_PATH");
        snd_config_update_free_global();
    }

    fs::path written() const { return folder_.native() / "written"; }
    Bytes bytesWritten() const { return bytesIn(written()); }
    static Bytes bytesIn(const fs::path& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
    static std::unique_ptr<DeviceOutput> outputOn(const std::string& name) {
        return std::make_unique<DeviceOutput>(name, alsaDevice(name), PcmTimes{});
    }
    // As playout does: so much as the device wants, and then on in small pieces.
    static void play(DeviceOutput& output, SinkConfig format, const Bytes& audio) {
        ASSERT_EQ(output.open(format), "");
        const auto fill = output.device();
        ASSERT_TRUE(fill);
        const std::size_t frame = format.frameBytes();
        std::size_t at = 0, piece = fill->wanted * frame;
        while (at < audio.size()) {
            piece = std::min(piece, audio.size() - at);
            ASSERT_TRUE(output.write(std::span(audio).subspan(at, piece)));
            at += piece;
            piece = 48 * frame;
        }
        EXPECT_EQ(output.gone(), "");
        EXPECT_EQ(output.close(), "");
        std::uint64_t now = 0;
        while (output.stillPlays(now) && now < 10'000'000) now += 1000;
        EXPECT_LT(now, 10'000'000u);
    }
    static SinkConfig formatOf(std::uint64_t sample, std::uint32_t rate) {
        SinkConfig format(sample);
        EXPECT_TRUE(format.setChannels(2) && format.setRate(rate));
        return format;
    }
    static Bytes noise(std::size_t size) {
        std::mt19937 random(3);  // the seed
        Bytes bytes(size);
        for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
        return bytes;
    }

private:
    TempFolder folder_;
};

TEST_F(AlsaDevice, WritesEveryBitAsItCame) {
    struct Case {
        const char* why;
        std::uint64_t sample;
        std::uint32_t rate;
    };
    constexpr Case cases[] = {
        {"8 bits", SinkConfig::pcm8, 44100},      {"16 bits", SinkConfig::pcm16, 44100},
        {"24 bits", SinkConfig::pcm24, 96000},    {"32 bits", SinkConfig::pcm32, 384000},
        {"float 32", SinkConfig::float32, 48000}, {"float 64", SinkConfig::float64, 48000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        fs::remove(written());
        const SinkConfig format = formatOf(c.sample, c.rate);
        const Bytes audio = noise(std::size_t{c.rate / 3} * format.frameBytes());
        const auto output = outputOn("filed");
        play(*output, format, audio);
        EXPECT_TRUE(bytesWritten() == audio);
    }
}

TEST_F(AlsaDevice, WritesAStreamThatIsShorterThanItsBuffer) {
    const SinkConfig format = formatOf(SinkConfig::pcm16, 44100);
    const Bytes audio = noise(100 * format.frameBytes());
    const auto output = outputOn("filed");
    play(*output, format, audio);
    EXPECT_TRUE(bytesWritten() == audio);
}

TEST_F(AlsaDevice, WritesDsdWithTheOldestSampleFirst) {
    const SinkConfig format = formatOf(SinkConfig::dsdLsbLittle, 2822400);
    Bytes audio, wanted;
    for (int i = 0; i < 20'000; ++i) {
        const Bytes words = hex("80402011 7fbfdfee"), bigEndian = hex("01020488 fefdfb77");
        audio.insert(audio.end(), words.begin(), words.end());
        wanted.insert(wanted.end(), bigEndian.begin(), bigEndian.end());
    }
    const auto output = outputOn("filed");
    play(*output, format, audio);
    EXPECT_TRUE(bytesWritten() == wanted);
}

TEST_F(AlsaDevice, KnowsEveryFormatByItsName) {
    struct Case {
        PcmFormat format;
        const char* name;  // as the library has it
        std::size_t frameBytes;
    };
    constexpr Case cases[] = {
        {PcmFormat::s8, "S8", 2},
        {PcmFormat::s16, "S16_LE", 4},
        {PcmFormat::s24in3, "S24_3LE", 6},
        {PcmFormat::s24in4, "S24_LE", 8},
        {PcmFormat::s32, "S32_LE", 8},
        {PcmFormat::float32, "FLOAT_LE", 8},
        {PcmFormat::float64, "FLOAT64_LE", 16},
        {PcmFormat::dsd8, "DSD_U8", 2},
        {PcmFormat::dsd16Little, "DSD_U16_LE", 4},
        {PcmFormat::dsd16Big, "DSD_U16_BE", 4},
        {PcmFormat::dsd32Little, "DSD_U32_LE", 8},
        {PcmFormat::dsd32Big, "DSD_U32_BE", 8},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const auto device = alsaDevice("named");
        ASSERT_EQ(device->open(), 0);
        PcmRoom room;
        EXPECT_TRUE(device->takes({c.format, 2, 96000}));
        ASSERT_EQ(device->setUp({c.format, 2, 96000}, PcmTimes{}, room), 0);
        EXPECT_EQ(room.bufferFrames, 3840u);
        EXPECT_EQ(room.periodFrames, 960u);
        const Bytes frames = noise(10 * c.frameBytes);
        EXPECT_EQ(device->write(frames.data(), 10), 10);
        EXPECT_EQ(device->start(), 0);
        EXPECT_EQ(device->drain(), 0);
        EXPECT_EQ(device->drain(), 0);
        device->close();
        EXPECT_TRUE(bytesIn(written().string() + "-" + c.name) == frames);
    }
}

TEST_F(AlsaDevice, OneThatPlaysIntoNothingHasNoClock) {
    const SinkConfig format = formatOf(SinkConfig::pcm16, 48000);
    const auto output = outputOn("nothing");
    ASSERT_EQ(output->open(format), "");
    const auto fill = output->device();
    ASSERT_TRUE(fill);
    EXPECT_EQ(fill->held, 0u);
    EXPECT_EQ(fill->wanted, 1920u);
    EXPECT_EQ(fill->least, 480u);
    ASSERT_TRUE(output->write(Bytes(fill->wanted * 4)));
    EXPECT_FALSE(output->device());
    EXPECT_EQ(output->gone(), "");
}

TEST_F(AlsaDevice, IsAskedForItsFormatsWithoutATrace) {
    FormatMasks allowed = plainSettings().formats;
    const auto all = formatsOf("filed", *alsaDevice("filed"), allowed);
    EXPECT_EQ(all.failure, "");
    EXPECT_EQ(all.formats.pcm, allowed.pcm);
    EXPECT_EQ(all.formats.dsdMsb, allowed.dsdMsb);
    EXPECT_FALSE(fs::exists(written()));
    // One of integers alone.
    const auto some = formatsOf("integers", *alsaDevice("integers"), allowed);
    EXPECT_EQ(some.failure, "");
    EXPECT_EQ(some.formats.pcm, allowed.pcm & ~SinkConfig::float32);
    EXPECT_EQ(some.formats.dsdMsb, 0u);
    allowed.pcm &= ~(SinkConfig::pcm16 | SinkConfig::pcm24 | SinkConfig::pcm32);
    EXPECT_EQ(formatsOf("integers", *alsaDevice("integers"), allowed).failure.substr(0, 34),
              "alsa:integers takes none of the fo");
}

TEST_F(AlsaDevice, ThatIsNotThereIsNamedAndNothingElseIsSaid) {
    testing::internal::CaptureStderr();
    const std::string failure = formatsOf("nowhere", *alsaDevice("nowhere"), {}).failure;
    EXPECT_TRUE(failure.starts_with("there is no sound device alsa:nowhere")) << failure;
    EXPECT_EQ(outputOn("nowhere")->open(formatOf(SinkConfig::pcm16, 48000)), failure);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(AlsaDevice, CanBeOpenedAgainAndAgain) {
    const SinkConfig format = formatOf(SinkConfig::pcm32, 48000);
    for (int i = 0; i < 20; ++i) {
        const Bytes audio = noise(5000 * format.frameBytes());
        const auto output = outputOn("filed");
        fs::remove(written());
        play(*output, format, audio);
        ASSERT_TRUE(bytesWritten() == audio) << i;
    }
}

}  // namespace
