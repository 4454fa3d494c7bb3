// What is said of a device before it plays.
#include <gtest/gtest.h>

#include "target/DeviceOutput.h"
#include "tests/target/ScriptedPcm.h"
#include "tests/target/TargetWorld.h"

namespace {

using namespace velmora_test;
using velmora_target::DeviceOutput;
using velmora_target::FormatMasks;

class DeviceOpening : public testing::Test {
protected:
    PcmStage stage;
    std::unique_ptr<DeviceOutput> output = std::make_unique<DeviceOutput>(
        "bench", std::make_unique<ScriptedPcm>(stage), PcmTimes{10'000, 2'000});
};

TEST_F(DeviceOpening, CannotBeOpenedInOneSentenceWithWhatToDo) {
    struct Case {
        const char* why;
        int error;
        const char* text;
    };
    constexpr Case cases[] = {
        {"busy", -EBUSY,
         "alsa:bench is in use; end the program that plays on it, or name another device"},
        {"no such name", -ENOENT, "there is no sound device alsa:bench; there are hw:7 (another)"},
        {"no such card", -ENODEV, "there is no sound device alsa:bench; there are hw:7 (another)"},
        {"not allowed", -EACCES,
         "alsa:bench is not this user's to play on; add the user to the group audio"},
        {"anything else", -EINVAL,
         "alsa:bench cannot be opened (Invalid argument); name another device, or mend its "
         "configuration"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        stage.openError = c.error;
        EXPECT_EQ(output->open(pcm16Stereo48()), c.text);
        ScriptedPcm device(stage);
        EXPECT_EQ(formatsOf("bench", device, {}).failure, c.text);
    }
}

TEST_F(DeviceOpening, RefusesAFormatThatTheDeviceDoesNotTake) {
    stage.formats = {PcmFormat::float32};
    EXPECT_EQ(output->open(pcm16Stereo48()),
              "alsa:bench does not take PCM 16, 2 channels, 48000 Hz");
    EXPECT_EQ(stage.closed, 1);
    stage.formats = {PcmFormat::s16};
    stage.setUpError = -EINVAL;
    EXPECT_EQ(output->open(pcm16Stereo48()),
              "alsa:bench does not take PCM 16, 2 channels, 48000 Hz (Invalid argument)");
    EXPECT_EQ(stage.closed, 2);
    stage.setUpError = 0;
    EXPECT_EQ(output->open(pcm16Stereo48()), "");
    EXPECT_EQ(stage.times, (PcmTimes{10'000, 2'000}));
}

TEST_F(DeviceOpening, ADeviceIsAskedForItsFormatsAndLetGo) {
    FormatMasks allowed;
    allowed.pcm = plainSettings().formats.pcm;
    stage.takes = [](const PcmShape& shape) {
        return shape.format == PcmFormat::s32 && shape.channels == 2 && shape.rate <= 96000;
    };
    ScriptedPcm device(stage);
    const auto taken = formatsOf("bench", device, allowed);
    EXPECT_EQ(taken.failure, "");
    EXPECT_TRUE(taken.formats.takes(pcm16Stereo48()));  // in 32 bits nothing of it is lost
    EXPECT_EQ(taken.formats.pcm & VELMORA::SinkConfig::channelMask, 0x02u);
    EXPECT_EQ(taken.formats.pcm & VELMORA::SinkConfig::float32, 0u);
    EXPECT_EQ(stage.opened, 1);
    EXPECT_EQ(stage.closed, 1);
    stage.formats = {};
    stage.takes = nullptr;
    EXPECT_EQ(formatsOf("bench", device, allowed).failure,
              "alsa:bench takes none of the formats that are allowed; see --pcm, --channels, "
              "--rates and --dsd, or name another device");
}

}  // namespace
