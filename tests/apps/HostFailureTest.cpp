// Everything that can go wrong between the player and a driver: the exit code, the sentence, and
// that nothing which was begun is left open.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "apps/velmora-play/Host.h"
#include "tests/apps/FakeDriver.h"
#include "tests/apps/ListSource.h"

namespace {

using namespace velmora_play;
using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using velmora_test::FakeDriver;
using velmora_test::ListSource;

constexpr Patience soon{.report = 1ms, .stall = 20ms};
constexpr Patience never{.report = 1ms, .stall = std::chrono::hours(1)};

struct FailureCase {
    const char* why;
    void (*script)(FakeDriver&);
    std::uint32_t channels;  // of the source; 0: two of DSD
    std::int32_t frames;     // asked for
    ExitCode code;
    const char* text;
};

const FailureCase beforeBuffers[] = {
    {"init false", [](FakeDriver& d) { d.inits = false; }, 2, 0, exitInit,
     "The driver did not open its device."},
    {"init false, and the driver says why",
     [](FakeDriver& d) {
         d.inits = false;
         d.message = "No target was found";
     },
     2, 0, exitInit, "The driver did not open its device: No target was found."},
    {"init false, and the driver says it in a sentence",
     [](FakeDriver& d) {
         d.inits = false;
         d.message = "Nothing here!";
     },
     2, 0, exitInit, "The driver did not open its device: Nothing here!"},
    {"more words than there is room for in the interface",
     [](FakeDriver& d) {
         d.inits = false;
         d.message = std::string(500, 'x');
     },
     2, 0, exitInit, nullptr},
    {"getChannels fails",
     [](FakeDriver& d) {
         d.channelsAnswer = ASE_NotPresent;
         d.message = "Gone.";
     },
     2, 0, exitInit, "The device has no channels: Gone."},
    {"no channels", [](FakeDriver& d) { d.outputs = 0; }, 2, 0, exitInit,
     "The device has no channels."},
    {"less than none", [](FakeDriver& d) { d.outputs = -1; }, 2, 0, exitInit,
     "The device has no channels."},
    {"more channels than it has", [](FakeDriver&) {}, 3, 0, exitFormat,
     "The source has 3 channels, and the device takes 2."},
    {"more channels than are played", [](FakeDriver& d) { d.outputs = 16; }, 9, 0, exitFormat,
     "The source has 9 channels, and the device takes 8."},
    {"no DSD", [](FakeDriver& d) { d.canDsd = ASE_NotPresent; }, 0, 0, exitFormat,
     "The device takes no DSD."},
    {"an answer that only looks good", [](FakeDriver& d) { d.canDsd = ASE_OK; }, 0, 0, exitFormat,
     "The device takes no DSD."},
    {"DSD that cannot be set", [](FakeDriver& d) { d.setDsd = ASE_InvalidMode; }, 0, 0, exitFormat,
     "The device takes no DSD."},
    {"the rate", [](FakeDriver& d) { d.canRateAnswer = ASE_NoClock; }, 2, 0, exitFormat,
     "The device cannot play 48000 Hz."},
    {"the rate of DSD", [](FakeDriver& d) { d.canRateAnswer = ASE_NoClock; }, 0, 0, exitFormat,
     "The device cannot play 2822400 Hz of DSD."},
    {"the rate when it is set", [](FakeDriver& d) { d.setRateAnswer = ASE_NoClock; }, 2, 0,
     exitFormat, "The driver did not take the rate of 48000 Hz."},
    {"no sizes",
     [](FakeDriver& d) {
         d.sizesAnswer = ASE_NotPresent;
         d.message = "Not open";
     },
     2, 0, exitBuffers, "The driver tells no buffer size: Not open."},
    {"too small",
     [](FakeDriver& d) {
         d.least = 64;
         d.preferred = 128;
     },
     2, 63, exitBuffers,
     "The driver takes buffers of 64 to 4096 frames, 128 by preference, not of 63."},
    {"too large", [](FakeDriver&) {}, 2, 4097, exitBuffers,
     "The driver takes buffers of 1 to 4096 frames, 4 by preference, not of 4097."},
    {"nothing by preference",
     [](FakeDriver& d) {
         d.least = 0;
         d.preferred = 0;
     },
     2, 0, exitBuffers, "The driver takes buffers of 0 to 4096 frames, 0 by preference, not of 0."},
    {"less than a byte of DSD", [](FakeDriver&) {}, 0, 7, exitBuffers,
     "DSD takes buffers of 8 samples at least, not of 7."},
    {"no buffers",
     [](FakeDriver& d) {
         d.createAnswers = {ASE_NoMemory};
         d.message = "Out of memory";
     },
     2, 0, exitBuffers, "The driver made no buffers of 4 frames (-994): Out of memory."},
    {"no buffers, not of the preferred size either",
     [](FakeDriver& d) {
         d.createAnswers = {ASE_InvalidMode, ASE_NoMemory};
     },
     2, 17, exitBuffers, "The driver made no buffers of 4 frames (-994)."},
};

const FailureCase behindBuffers[] = {
    {"no words about a channel", [](FakeDriver& d) { d.infoAnswer = ASE_InvalidParameter; }, 2, 0,
     exitBuffers, "The driver has no buffers for channel 0."},
    {"buffers that are none", [](FakeDriver& d) { d.givesNoBuffers = true; }, 2, 0, exitBuffers,
     "The driver has no buffers for channel 0."},
    {"big-endian samples",
     [](FakeDriver& d) {
         d.types = {ASIOSTInt32MSB};
         d.preferred = 64;
     },
     2, 0, exitFormat, "The driver wants samples of type 2, which this player does not make."},
    {"a byte a sample of DSD",
     [](FakeDriver& d) {
         d.types = {ASIOSTDSDInt8NER8};
         d.preferred = 64;
     },
     0, 0, exitFormat, "The driver wants samples of type 40, which this player does not make."},
    {"DSD for PCM",
     [](FakeDriver& d) {
         d.types = {ASIOSTDSDInt8MSB1};
         d.preferred = 64;
     },
     2, 0, exitFormat, "The driver wants samples of type 33, which this player does not make."},
    {"PCM for DSD",
     [](FakeDriver& d) {
         d.types = {ASIOSTInt32LSB};
         d.preferred = 64;
     },
     0, 0, exitFormat, "The driver wants samples of type 18, which this player does not make."},
    {"channels of two types",
     [](FakeDriver& d) {
         d.types = {ASIOSTInt32LSB, ASIOSTInt16LSB};
     },
     2, 0, exitFormat, "The driver wants samples of type 16, which this player does not make."},
};

ListSource sourceOf(std::uint32_t channels) {
    if (channels == 0) return ListSource(std::vector<std::uint8_t>(64, 0x55), 2);
    return ListSource(channels, std::vector<double>(channels * std::size_t{16}, 0.5));
}

bool goOn(const Progress&) {
    return true;
}

void expectRefusal(FakeDriver& driver, const FailureCase& c) {
    ListSource source = sourceOf(c.channels);
    const auto failure = Host(driver, source, never).play(c.frames, goOn);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code, c.code);
    if (c.text != nullptr) {
        EXPECT_EQ(failure->text, c.text);
    }
    EXPECT_THAT(driver.calls, Not(Contains("start")));
}

TEST(HostRefused, SaysWhyAndMakesNoBuffers) {
    for (const FailureCase& c : beforeBuffers) {
        SCOPED_TRACE(c.why);
        FakeDriver driver;
        c.script(driver);
        expectRefusal(driver, c);
        EXPECT_THAT(driver.calls, Not(Contains("disposeBuffers")));
    }
}

TEST(HostRefused, GivesBuffersBackThatItCannotUse) {
    for (const FailureCase& c : behindBuffers) {
        SCOPED_TRACE(c.why);
        FakeDriver driver;
        c.script(driver);
        expectRefusal(driver, c);
        EXPECT_EQ(driver.calls.back(), "disposeBuffers");
    }
}

// Once there is a stream, it always ends the same way.
class HostLost : public testing::Test {
protected:
    std::optional<Failure> play(Patience patience,
                                const std::function<bool(const Progress&)>& report = goOn) {
        Host host(driver, source, patience);
        const auto failure = host.play(0, report);
        const std::size_t beforeStart = source.format().isDsd ? 6 : 4;  // it is asked for DSD first
        EXPECT_EQ(driver.calls.size(), beforeStart + 3);
        if (driver.calls.size() == beforeStart + 3) {
            EXPECT_EQ(driver.calls[beforeStart], "start");
            EXPECT_EQ(driver.calls[beforeStart + 1], "stop");
            EXPECT_EQ(driver.calls[beforeStart + 2], "disposeBuffers");
        }
        return failure;
    }
    FakeDriver driver;
    ListSource source = ListSource(1, std::vector<double>(400, 0.5));  // a hundred halves
};

TEST_F(HostLost, AStartThatFails) {
    driver.startAnswer = ASE_NotPresent;
    const auto failure = play(never);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code, exitStart);
    EXPECT_EQ(failure->text,
              "The driver did not start the stream. The target does not take this format, or is "
              "busy. With Debug=enable in its settings the driver logs the reason.");
    driver.calls.clear();
    driver.message = "Busy";
    EXPECT_EQ(play(never)->text.substr(0, 42), "The driver did not start the stream: Busy.");
}

TEST_F(HostLost, AStartOfDsdThatFails) {
    driver.types = {ASIOSTDSDInt8MSB1};
    driver.preferred = 16;
    driver.startAnswer = ASE_NotPresent;
    source = ListSource(std::vector<std::uint8_t>(100, 0x69), 1);
    const auto failure = play(never);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code, exitStart);
    EXPECT_EQ(
        failure->text,
        "The driver did not start the stream. DSD is off in its settings (DSDMSB=enable turns "
        "it on), or the target does not take this format, or is busy. But for the first, the "
        "driver logs the reason with Debug=enable in its settings.");
}

TEST_F(HostLost, NoSwitchEver) {
    driver.switches = 0;
    const auto failure = play(soon);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code, exitLost);
    EXPECT_EQ(failure->text,
              "The driver never asked for audio: the target did not take the stream.");
}

TEST_F(HostLost, NoSwitchAnyMore) {
    driver.switchesInStart = 3;
    driver.switches = 0;
    const auto failure = play(soon);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code, exitLost);
    EXPECT_EQ(failure->text, "The driver no longer asks for audio: the target has gone.");
}

TEST_F(HostLost, NoSwitchBetweenTheLastSampleAndTheEnd) {
    driver.switchesInStart = 103;  // one short
    driver.switches = 0;
    const auto failure = play(soon);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code, exitLost);
}

TEST_F(HostLost, AnotherRate) {
    for (const int at : {0, 50, 103}) {
        SCOPED_TRACE(at);
        FakeDriver changing;
        changing.rateChangesAt = at;
        changing.changedRate = 44100;
        ListSource audio(1, std::vector<double>(400, 0.5));
        const auto failure = Host(changing, audio, never).play(0, goOn);
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->code, exitLost);
        EXPECT_EQ(failure->text, "The driver changed to another rate.");
        EXPECT_EQ(changing.calls.back(), "disposeBuffers");
    }
}

TEST_F(HostLost, AnotherRateInAStreamThatHangs) {
    driver.rateChangesAt = 2;
    driver.changedRate = 44100;
    driver.switchesInStart = 3;
    driver.switches = 0;
    EXPECT_EQ(play(never)->text, "The driver changed to another rate.");
}

TEST_F(HostLost, TheUserInterrupts) {
    driver.switchesInStart = 10;
    driver.switches = 0;
    std::uint64_t seen = 0;
    const auto failure = play(never, [&](const Progress& progress) {
        seen = progress.switches;
        EXPECT_DOUBLE_EQ(progress.seconds, 40.0 / 48000);
        EXPECT_DOUBLE_EQ(progress.total, 400.0 / 48000);
        return false;
    });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code, exitInterrupted);
    EXPECT_EQ(failure->text, "Interrupted.");
    EXPECT_EQ(seen, 10u);
}

TEST_F(HostLost, AReportThatThrowsLeavesNothingOpen) {
    driver.switches = 50;
    EXPECT_THROW(play(never, [](const Progress&) -> bool { throw std::runtime_error("full"); }),
                 std::runtime_error);
    EXPECT_THAT(driver.calls, testing::IsSupersetOf({"stop", "disposeBuffers"}));
    EXPECT_EQ(driver.calls.back(), "disposeBuffers");
}

TEST(HostCallbacks, FromADriverThatComesTooLateAreHarmless) {
    ASIOCallbacks kept{};
    {
        FakeDriver driver;
        ListSource source(1, {0.5});
        Host host(driver, source, never);
        EXPECT_FALSE(host.play(0, goOn));
        kept = driver.callbacksCopy();
    }
    kept.bufferSwitch(0, ASIOTrue);
    kept.sampleRateDidChange(1.0);
    EXPECT_EQ(kept.bufferSwitchTimeInfo(nullptr, 1, ASIOTrue), nullptr);
}

TEST(HostCallbacks, TellWhatTheHostUnderstands) {
    FakeDriver driver;
    ListSource source(1, {0.5});
    Host host(driver, source, never);
    EXPECT_FALSE(host.play(0, goOn));
    const auto ask = driver.callbacksCopy().asioMessage;
    EXPECT_EQ(ask(kAsioSelectorSupported, kAsioEngineVersion, nullptr, nullptr), 1);
    EXPECT_EQ(ask(kAsioSelectorSupported, kAsioSupportsTimeInfo, nullptr, nullptr), 1);
    EXPECT_EQ(ask(kAsioSelectorSupported, kAsioResetRequest, nullptr, nullptr), 0);
    EXPECT_EQ(ask(kAsioEngineVersion, 0, nullptr, nullptr), 2);
    EXPECT_EQ(ask(kAsioSupportsTimeInfo, 0, nullptr, nullptr), 1);
    EXPECT_EQ(ask(kAsioResetRequest, 0, nullptr, nullptr), 0);
}

}  // namespace
