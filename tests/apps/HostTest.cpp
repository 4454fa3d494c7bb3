// What the player hands to a driver, sample for sample, and in which order it calls it.
#include "apps/velmora-play/Host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "tests/apps/FakeDriver.h"
#include "tests/apps/ListSource.h"
#include "tests/apps/Scratch.h"

namespace {

using testing::ElementsAre;
using velmora_play::Host;
using velmora_play::Progress;
using velmora_test::FakeDriver;
using velmora_test::hex;
using velmora_test::ListSource;

std::vector<std::uint8_t> bytes(std::string_view text) {
    const std::string raw = hex(text);
    return {raw.begin(), raw.end()};
}

// Plays to the end and gives the last report.
Progress play(FakeDriver& driver, ListSource& source, std::int32_t frames = 0) {
    Host host(driver, source, {.stall = std::chrono::minutes(1)});
    Progress last;
    const auto failure = host.play(frames, [&](const Progress& progress) {
        last = progress;
        return true;
    });
    EXPECT_FALSE(failure) << failure->text;
    return last;
}

constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

struct TypeCase {
    const char* why;
    ASIOSampleType type;
    std::vector<double> samples;  // of one channel
    const char* bytes;
};
const TypeCase typeCases[] = {
    {"16 bits: full scale, its ends, and rounding down",
     ASIOSTInt16LSB,
     {-1.0, 32767.0 / 32768, 1.0, 1.0 / 32768, -1.0 / 32768, 1.9 / 32768, -0.1 / 32768, 0.0},
     "0080 ff7f ff7f 0100 ffff 0100 ffff 0000"},
    {"24 bits",
     ASIOSTInt24LSB,
     {-1.0, 8388607.0 / 8388608, 1.0, 1.0 / 8388608, -1.0 / 8388608, 0.5},
     "000080 ffff7f ffff7f 010000 ffffff 000040"},
    {"32 bits",
     ASIOSTInt32LSB,
     {-1.0, 2147483647.0 / 2147483648.0, 1.0, 1.0 / 2147483648.0, -1.0 / 2147483648.0, 0.5},
     "00000080 ffffff7f ffffff7f 01000000 ffffffff 00000040"},
    {"24 bits of a file stand in the upper bits of 32",
     ASIOSTInt32LSB,
     {0x123456 / 8388608.0, -0x123456 / 8388608.0, 8388607.0 / 8388608, 1.0 / 8388608},
     "00563412 00aacbed 00ffff7f 00010000"},
    {"16 bits of a file stand in the upper bits of 24",
     ASIOSTInt24LSB,
     {0x1234 / 32768.0, -1.0 / 32768},
     "003412 00ffff"},
    {"32 bits of a file lose their lower ones in 16",
     ASIOSTInt16LSB,
     {0x12345678 / 2147483648.0, -0x12345678 / 2147483648.0},
     "3412 cbed"},
    {"32 bits of a file lose their lower ones in 24",
     ASIOSTInt24LSB,
     {0x12345678 / 2147483648.0, -0x12345678 / 2147483648.0},
     "563412 a9cbed"},
    {"floating point beyond full scale, and none at all",
     ASIOSTInt32LSB,
     {1.5, -1.5, inf, -inf, nan, 1e300},
     "ffffff7f 00000080 ffffff7f 00000080 00000000 ffffff7f"},
    {"floating point beyond full scale in 16 bits",
     ASIOSTInt16LSB,
     {2, -2, inf, -inf, nan},
     "ff7f 0080 ff7f 0080 0000"},
    {"floating point of 32 bits",
     ASIOSTFloat32LSB,
     {1.0, -1.0, 0.5, 1.5, 0.0, 1.0 / 8388608},
     "0000803f 000080bf 0000003f 0000c03f 00000000 00000034"},
    {"floating point of 64 bits",
     ASIOSTFloat64LSB,
     {1.0, -0.5, 0.1},
     "000000000000f03f 000000000000e0bf 9a9999999999b93f"},
};

TEST(Host, WritesEveryTypeOfSampleExactly) {
    for (const TypeCase& c : typeCases) {
        SCOPED_TRACE(c.why);
        FakeDriver driver;
        driver.types = {c.type};
        ListSource source(1, c.samples);
        play(driver, source);
        const auto expected = bytes(c.bytes);
        EXPECT_EQ(driver.written(0, expected.size()), expected);
        EXPECT_TRUE(driver.isSilentBehind(0, expected.size(), 0));
    }
}

TEST(Host, WritesDsdInTheOrderOfTheDriver) {
    struct Case {
        ASIOSampleType type;
        const char* bytes;
        std::uint8_t silence;
    };
    for (const Case& c : {Case{ASIOSTDSDInt8MSB1, "80 01 f0 69 c5", 0x96},
                          Case{ASIOSTDSDInt8LSB1, "01 80 0f 96 a3", 0x69}}) {
        SCOPED_TRACE(c.type);
        FakeDriver driver;
        driver.types = {c.type};
        driver.preferred = 16;
        ListSource source(bytes("80 01 f0 69 c5"), 1);
        play(driver, source);
        EXPECT_EQ(driver.written(0, 5), bytes(c.bytes));
        EXPECT_TRUE(driver.isSilentBehind(0, 5, c.silence));
    }
}

TEST(Host, GivesEachChannelItsOwnSamples) {
    FakeDriver driver;
    driver.types = {ASIOSTInt16LSB};
    driver.outputs = 8;
    std::vector<double> samples;
    for (int n = 0; n < 18; ++n) samples.push_back(n / 32768.0);
    ListSource source(3, samples);
    play(driver, source);
    ASSERT_EQ(driver.channels.size(), 3u);
    EXPECT_EQ(driver.written(0, 12), bytes("0000 0300 0600 0900 0c00 0f00"));
    EXPECT_EQ(driver.written(1, 12), bytes("0100 0400 0700 0a00 0d00 1000"));
    EXPECT_EQ(driver.written(2, 12), bytes("0200 0500 0800 0b00 0e00 1100"));

    FakeDriver dsd;
    dsd.types = {ASIOSTDSDInt8MSB1};
    dsd.preferred = 16;
    ListSource pair(bytes("a1 b1 a2 b2 a3 b3"), 2);
    play(dsd, pair);
    EXPECT_EQ(dsd.written(0, 4), bytes("a1 a2 a3 96"));
    EXPECT_EQ(dsd.written(1, 4), bytes("b1 b2 b3 96"));
}

TEST(Host, EndsWithTheFourthHalfThatIsNotFull) {
    struct Case {
        const char* why;
        std::size_t frames;
        int switches;
    };
    for (const Case& c :
         {Case{"nothing to play", 0, 4}, Case{"less than a half", 3, 4}, Case{"one half", 4, 5},
          Case{"two halves", 8, 6}, Case{"two halves and a bit", 9, 6}}) {
        SCOPED_TRACE(c.why);
        FakeDriver driver;
        driver.switches = c.switches;  // with one less it would wait for ever
        ListSource source(1, std::vector<double>(c.frames, 0.5));
        const Progress last = play(driver, source);
        EXPECT_EQ(last.switches, static_cast<std::uint64_t>(c.switches));
        EXPECT_EQ(driver.switchesMade, c.switches);
        EXPECT_EQ(driver.written(0, c.frames * 4).size(), c.frames * 4);
        EXPECT_TRUE(driver.isSilentBehind(0, c.frames * 4, 0));
        EXPECT_EQ(last.total, static_cast<double>(c.frames) / 48000);
        EXPECT_EQ(last.seconds, last.total);
        EXPECT_EQ(last.position, 0x1'0000'0002);
    }
}

TEST(Host, PlaysDsdInHalvesThatAreNoWholeBytes) {
    FakeDriver driver;
    driver.types = {ASIOSTDSDInt8MSB1};
    driver.most = 1 << 20;
    std::vector<std::uint8_t> audio(2 * 1000);
    for (std::size_t i = 0; i < audio.size(); ++i) audio[i] = static_cast<std::uint8_t>(i / 2);
    ListSource source(audio, 2);
    play(driver, source, 28);  // three bytes, and four samples that no one asked for
    const auto left = driver.written(0, 1000);
    ASSERT_EQ(left.size(), 1000u);
    for (std::size_t i = 0; i < left.size(); ++i) ASSERT_EQ(left[i], static_cast<std::uint8_t>(i));
}

TEST(Host, CallsTheDriverInOrder) {
    FakeDriver driver;
    ListSource source(2, std::vector<double>{0.1, 0.2, 0.3, 0.4});
    play(driver, source);
    EXPECT_THAT(driver.calls, ElementsAre("init", "canSampleRate 48000", "setSampleRate 48000",
                                          "createBuffers 4", "start", "stop", "disposeBuffers"));
    FakeDriver dsd;
    dsd.types = {ASIOSTDSDInt8LSB1};
    dsd.preferred = 32;
    ListSource bits(bytes("01 02 03 04"), 2);
    play(dsd, bits);
    EXPECT_THAT(dsd.calls, ElementsAre("init", "can format 1", "set format 1",
                                       "canSampleRate 2822400", "setSampleRate 2822400",
                                       "createBuffers 32", "start", "stop", "disposeBuffers"));
}

TEST(Host, TakesTheSizeAskedForWhereTheDriverHasIt) {
    FakeDriver driver;
    ListSource source(1, {0.5});
    play(driver, source, 17);
    EXPECT_EQ(driver.bufferSize, 17);
}

TEST(Host, TakesThePreferredSizeWhereTheOneAskedForFails) {
    FakeDriver driver;
    driver.createAnswers = {ASE_InvalidMode};
    ListSource source(1, {0.5});
    play(driver, source, 17);
    EXPECT_EQ(driver.bufferSize, 4);
    EXPECT_THAT(driver.calls, testing::IsSupersetOf({"createBuffers 17", "createBuffers 4"}));
}

TEST(Host, AnswersADriverThatTellsTheTimeWithIt) {
    FakeDriver driver;
    driver.usesTimeInfo = true;
    ListSource source(1, {0.5, -0.5});
    play(driver, source);
    EXPECT_EQ(driver.written(0, 8), bytes("00000040 000000c0"));
}

TEST(Host, NamesTheDeviceAndItsFormat) {
    FakeDriver driver;
    ListSource stereo(2, std::vector<double>{0.5, 0.5}, 96000);
    Host host(driver, stereo);
    EXPECT_FALSE(host.play(8, [](const Progress&) { return true; }));
    EXPECT_EQ(host.deviceName(), "A device");
    EXPECT_EQ(host.formatText(), "96000 Hz, 2 channels, 32-bit integer, buffers of 8");

    FakeDriver dsd;
    dsd.types = {ASIOSTDSDInt8MSB1};
    dsd.preferred = 64;
    ListSource mono(bytes("69"), 1);
    Host other(dsd, mono);
    EXPECT_FALSE(other.play(0, [](const Progress&) { return true; }));
    EXPECT_EQ(other.formatText(), "2822400 Hz, 1 channel, DSD, MSB first, buffers of 64");
}

TEST(Host, ARateThatIsTheSameIsNoNews) {
    FakeDriver driver;
    driver.rateChangesAt = 1;
    driver.changedRate = 48000;
    ListSource source(1, std::vector<double>(20, 0.5));
    play(driver, source);
}

TEST(Host, TellsHowItWent) {
    FakeDriver driver;
    ListSource source(1, std::vector<double>(40, 0.5));
    Host host(driver, source);
    EXPECT_EQ(host.times().init, -1);
    EXPECT_FALSE(host.play(0, [](const Progress&) { return true; }));
    const velmora_play::Times& times = host.times();
    EXPECT_GT(times.began, 0);
    EXPECT_GE(times.init, 0);
    EXPECT_GE(times.start, 0);
    EXPECT_GE(times.stop, 0);
    EXPECT_LE(times.firstSwitch, times.lastSwitch);
    EXPECT_LE(times.longestGap, times.lastSwitch - times.firstSwitch);
    EXPECT_LE(times.init, times.firstSwitch);

    FakeDriver closed;
    closed.inits = false;
    Host none(closed, source);
    EXPECT_TRUE(none.play(0, [](const Progress&) { return true; }));
    EXPECT_GE(none.times().init, 0);
    EXPECT_EQ(none.times().start, -1);
    EXPECT_EQ(none.times().stop, -1);
    EXPECT_EQ(none.times().firstSwitch, -1);
}

TEST(Host, PlaysOnBehindACallbackThatWasHeldUp) {
    FakeDriver driver;
    ListSource source(1, {0.5, -0.5, 0.5, -0.5, 0.5, -0.5, 0.5, -0.5, 0.25});
    Host host(driver, source, {.stall = std::chrono::minutes(1)},
              {.length = std::chrono::milliseconds(2), .atFrame = 4});
    EXPECT_FALSE(host.play(4, [](const Progress&) { return true; }));
    EXPECT_EQ(driver.written(0, 36),
              bytes("00000040 000000c0 00000040 000000c0 00000040 000000c0 00000040 000000c0 "
                    "00000020"));
}

}  // namespace
