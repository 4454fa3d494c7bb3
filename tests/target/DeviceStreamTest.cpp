// A target whose output is a sound device, from SUPPORT_REQ to the last frame.
#include <gtest/gtest.h>

#include "target/DeviceOutput.h"
#include "target/OutputChoice.h"
#include "tests/target/ScriptedPcm.h"
#include "tests/target/TargetWorld.h"

namespace {

using namespace velmora_test;
using velmora_target::DeviceOutput;
using velmora_target::FormatMasks;
using velmora_target::MakeOutput;
using velmora_target::TargetSettings;

const Bytes disconnectRequest = hex("6400 1000 0c00 0000 0000 0000 0000 0000");

class DeviceStream : public testing::Test {
protected:
    static TargetSettings settings() {
        TargetSettings settings = plainSettings();
        settings.output = "alsa:bench";
        return settings;
    }
    MakeOutput maker() {
        return [this](const std::string& output,
                      std::uint16_t) -> std::unique_ptr<velmora_target::AudioOutput> {
            if (output == "none") return std::make_unique<velmora_target::NoOutput>();
            return std::make_unique<DeviceOutput>("bench", std::make_unique<ScriptedPcm>(stage),
                                                  PcmTimes{});
        };
    }
    velmora_target::TakenFormats ask(const std::string& output, const FormatMasks& allowed) {
        asked.push_back(output);
        ScriptedPcm device(stage);
        return output.starts_with(velmora_target::alsaPrefix)
                   ? formatsOf("bench", device, allowed)
                   : velmora_target::TakenFormats{allowed, {}};
    }
    std::string askFormats() {
        return world.target.askFormatsBy(
            [this](const std::string& output, const FormatMasks& allowed) {
                return ask(output, allowed);
            });
    }
    void pass(std::uint64_t micros) {
        const std::uint64_t end = world.now + micros;
        while (world.now < end) {
            const std::uint64_t step = std::min<std::uint64_t>(500, end - world.now);
            stage.now += step;
            world.pass(step);
            lines.insert(lines.end(), world.mail.lines.begin(), world.mail.lines.end());
        }
    }
    void feed(int packets) {
        for (int i = 0; i < packets; ++i) {
            const Bytes audio = millisecond(sequence);
            given.insert(given.end(), audio.begin(), audio.end());
            world.data(sequence++, audio);
            pass(1000);
        }
    }
    int linesWith(const std::string& text) const {
        return static_cast<int>(std::count_if(
            lines.begin(), lines.end(),
            [&](const std::string& line) { return line.find(text) != std::string::npos; }));
    }

    PcmStage stage;
    TargetWorld world{settings(), {}, maker()};
    std::vector<std::string> asked, lines;
    std::uint16_t sequence = 0;
    Bytes given;
};

TEST_F(DeviceStream, TellsHostsWhatTheDeviceTakes) {
    stage.takes = [](const PcmShape& shape) {
        return shape.format == PcmFormat::s32 && shape.channels == 2 && shape.rate <= 96000;
    };
    EXPECT_EQ(askFormats(), "");
    // 16, 24 and 32 bits, all of which 32 hold; two channels; 44100 and 48000, once and twice.
    EXPECT_EQ(world.ask(hex("6400 1000 0400 0000 00ff 0000 0000 0000"), sinkPort),
              hex("6400 1000 0500 0100 020e 0000 1e00 0000"));
    // No DSD any more.
    EXPECT_EQ(world.ask(hex("6400 1000 0400 0000 0000 0000 0000 0000"), sinkPort),
              hex("6400 1000 0500 0100 000e 0000 0000 0000"));
    VELMORA::SinkConfig format = pcm16Stereo48();
    EXPECT_TRUE(world.connect(format));
    ASSERT_TRUE(format.setRate(192000));
    EXPECT_FALSE(world.connect(format));
}

TEST_F(DeviceStream, WithADeviceThatCannotBeAskedSaysWhy) {
    stage.openError = -EBUSY;
    EXPECT_EQ(askFormats(),
              "alsa:bench is in use; end the program that plays on it, or name another device");
    EXPECT_EQ(world.target.settings().formats.pcm, plainSettings().formats.pcm);
}

TEST_F(DeviceStream, TellsOtherFormatsOnceAHostHasSetAnotherOutput) {
    stage.takes = [](const PcmShape& shape) { return shape.channels == 2; };
    ASSERT_EQ(askFormats(), "");
    const std::uint64_t ofDevice = world.target.settings().formats.pcm;
    EXPECT_NE(ofDevice, plainSettings().formats.pcm);
    // Item 7, choice 0 (none), then the commit.
    world.ask(VELMORA::wire::makePacket(50, 0, {7, 1, 0, 0}), controlPort);
    EXPECT_EQ(asked.size(), 1u);
    world.ask(VELMORA::wire::makePacket(50, 0, {0, 2, 0, 0}), controlPort);
    ASSERT_EQ(world.target.settings().output, "none");
    EXPECT_EQ(asked, (std::vector<std::string>{"alsa:bench", "none"}));
    EXPECT_EQ(world.target.settings().formats.pcm, plainSettings().formats.pcm);
}

class KeptDevice : public DeviceStream {
protected:
    KeptDevice() {
        stage.takes = [](const PcmShape& shape) { return shape.channels == 2; };
    }
    static TargetSettings withoutOutput() {
        TargetSettings settings = plainSettings();
        settings.output = "none";
        return settings;
    }
    TargetWorld kept{withoutOutput(), {{{"output", {3, "hw:9"}}}, {}, {}}, maker()};
    std::string askFormatsOfKept() {
        return kept.target.askFormatsBy(
            [this](const std::string& output, const FormatMasks& allowed) {
                return ask(output, allowed);
            });
    }
};

TEST_F(KeptDevice, ThatIsNotThereLeavesTheTargetToItsHosts) {
    stage.openError = -ENOENT;
    EXPECT_EQ(askFormatsOfKept(), "");
    EXPECT_EQ(kept.target.settings().output, "alsa:hw:9");
    EXPECT_EQ(kept.target.settings().formats.pcm, plainSettings().formats.pcm);
    const std::vector<std::string> said = kept.target.keptLines();
    ASSERT_EQ(said.size(), 2u);
    EXPECT_EQ(said[0], "Output is ALSA device \"hw:9\", kept");
    EXPECT_TRUE(said[1].starts_with("there is no sound device")) << said[1];
    EXPECT_TRUE(said[1].ends_with(" (a host has kept it; it is looked for every 5 s)"));
    EXPECT_FALSE(kept.connect()) << "nobody can play";
    // The way back: item 7, choice 0 (none), then the commit.
    kept.ask(VELMORA::wire::makePacket(50, 0, {7, 1, 0, 0}), controlPort);
    kept.ask(VELMORA::wire::makePacket(50, 0, {0, 2, 0, 0}), controlPort);
    EXPECT_TRUE(kept.connect());
}

TEST_F(KeptDevice, IsLookedForEveryFiveSecondsUntilItIsThere) {
    stage.openError = -ENOENT;
    ASSERT_EQ(askFormatsOfKept(), "");
    kept.pass(1);
    const std::size_t before = asked.size();
    EXPECT_LE(kept.target.nextTime(kept.now), kept.now + 5'000'000);
    kept.pass(4'999'999);
    EXPECT_EQ(asked.size(), before);
    kept.pass(1);
    EXPECT_EQ(asked.size(), before + 1);
    stage.openError = 0;
    kept.pass(5'000'000);
    EXPECT_EQ(asked.size(), before + 2);
    EXPECT_EQ(kept.mail.lines, std::vector<std::string>{"alsa:hw:9 can be played on now"});
    EXPECT_NE(kept.target.settings().formats.pcm, plainSettings().formats.pcm);
    kept.pass(20'000'000);
    EXPECT_EQ(asked.size(), before + 2) << "nothing to look for any more";
    EXPECT_EQ(kept.target.keptLines().size(), 1u);
}

TEST_F(KeptDevice, IsNotLookedForWhileSomebodyPlaysOnIt) {
    stage.openError = -EBUSY;
    ASSERT_EQ(askFormatsOfKept(), "");
    kept.pass(1);
    stage.openError = 0;
    ASSERT_TRUE(kept.connect());
    const std::size_t before = asked.size();
    kept.pass(5'000'000);
    EXPECT_EQ(asked.size(), before);
}

TEST_F(DeviceStream, TellsTheLatencyOfTheOutputInForce) {
    const Bytes request = hex("6400 1000 0600 0000 0000 0000 0000 0000");
    const auto hwLatencyOf = [&](TargetWorld& target) {
        const Bytes answer = target.ask(request, sinkPort);
        return answer.at(10) | answer.at(11) << 8;
    };
    const auto settingsOf = [](const char* output, std::optional<std::uint16_t> own) {
        TargetSettings settings = plainSettings();
        settings.output = output;
        settings.hwLatency = own;
        settings.deviceLatency = 250;
        return settings;
    };
    TargetWorld device(settingsOf("alsa:bench", std::nullopt));
    TargetWorld none(settingsOf("none", std::nullopt));
    TargetWorld told(settingsOf("alsa:bench", std::uint16_t{7}));
    EXPECT_EQ(hwLatencyOf(device), 250);
    EXPECT_EQ(hwLatencyOf(none), 10);
    EXPECT_EQ(hwLatencyOf(told), 7);
    none.ask(VELMORA::wire::makePacket(50, 0, {7, 1, 3, 0}), controlPort);
    none.ask(VELMORA::wire::makePacket(50, 0, {0, 2, 0, 0}), controlPort);
    ASSERT_EQ(none.target.settings().output, "alsa:default");
    EXPECT_EQ(hwLatencyOf(none), 250) << "a host has set a device";
}

TEST_F(DeviceStream, IsHeardWholeThoughTheHostLeavesAtOnce) {
    ASSERT_TRUE(world.connect());
    feed(500);
    const std::size_t before = stage.heard.size();
    world.ask(disconnectRequest, sinkPort);
    EXPECT_EQ(world.target.takeEnded().at(0).endReason, "disconnected");
    EXPECT_FALSE(world.target.isConnected());
    EXPECT_TRUE(world.target.isPlayingOut());
    EXPECT_EQ(stage.heard.size(), before);
    EXPECT_LE(world.target.nextTime(world.now), world.now + 5'000);
    pass(100'000);
    EXPECT_FALSE(world.target.isPlayingOut());
    EXPECT_EQ(stage.heard, given);
    EXPECT_EQ(stage.closed, stage.opened);
    EXPECT_EQ(stage.slept, 0u);
}

TEST_F(DeviceStream, TheNextOneWaitsForTheEndOfTheLast) {
    ASSERT_TRUE(world.connect());
    feed(500);
    world.ask(disconnectRequest, sinkPort);
    ASSERT_TRUE(world.connect());
    EXPECT_EQ(stage.heard, given);
    EXPECT_GT(stage.slept, 0u);
    EXPECT_LE(stage.slept, DeviceOutput::mostWait);
    EXPECT_EQ(stage.opened, 2);
    EXPECT_EQ(stage.closed, 1);
}

TEST_F(DeviceStream, EndsWhenItsDeviceIsPulledOutAndTheNextOneOpensItAnew) {
    ASSERT_TRUE(world.connect());
    feed(500);
    stage.isGone = true;
    feed(3);
    EXPECT_FALSE(world.target.isConnected());
    const auto ended = world.target.takeEnded();
    ASSERT_EQ(ended.size(), 1u);
    EXPECT_EQ(ended[0].endReason, "output gone");
    EXPECT_TRUE(ended[0].outputFailed);
    EXPECT_EQ(linesWith("alsa:bench has gone (No such device); its stream ends"), 1);
    // The host hears nothing more, and a host that comes is refused while there is no device.
    EXPECT_TRUE(world.data(sequence++, millisecond(0), 0x60).empty());
    EXPECT_FALSE(world.connect());
    EXPECT_NE(world.mail.lines.at(0).find("there is no sound device alsa:bench"),
              std::string::npos);
    stage.isGone = false;
    EXPECT_TRUE(world.connect());
    sequence = 0;
    feed(100);
    EXPECT_EQ(world.figures().state, "playing");
}

TEST_F(DeviceStream, IsRefusedWhileTheDeviceIsInUse) {
    stage.openError = -EBUSY;
    EXPECT_FALSE(world.connect());
    EXPECT_NE(world.mail.lines.at(0).find("alsa:bench is in use; end the program"),
              std::string::npos);
    stage.openError = 0;
    EXPECT_TRUE(world.connect());
}

TEST_F(DeviceStream, CountsAndTellsUnderrunsOfTheDeviceOnceASecond) {
    ASSERT_TRUE(world.connect());
    feed(200);
    for (int i = 0; i < 5; ++i) {
        stage.now += 300'000;  // the target was late
        feed(70);
    }
    EXPECT_EQ(world.figures().deviceUnderruns, 5u);
    EXPECT_EQ(linesWith("alsa:bench ran dry or was suspended (1 so far)"), 1);
    pass(1'000'000);
    EXPECT_EQ(linesWith("alsa:bench ran dry or was suspended (5 so far)"), 1);
    EXPECT_EQ(linesWith("ran dry"), 2);
    world.ask(disconnectRequest, sinkPort);
    EXPECT_EQ(world.target.takeEnded().at(0).deviceUnderruns, 5u);
    ASSERT_FALSE(world.mail.lines.empty());
    EXPECT_NE(world.mail.lines.back().find("5 of the device"), std::string::npos);
}

TEST_F(DeviceStream, IsToldThatTheDeviceIsTooSlowByItsFill) {
    stage.ppm = -20'000;
    ASSERT_TRUE(world.connect());
    feed(1'000);
    const auto out = world.data(sequence++, millisecond(0), 0x60);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_GT(world.figures().feedback, 0);
    EXPECT_GT(world.figures().fillMicros, world.figures().targetMicros);
}

}  // namespace
