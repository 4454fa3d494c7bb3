// The player as it is built: its help and what it exits with, as far as no device is needed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "apps/velmora-play/Host.h"
#include "tests/apps/Program.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class PlayProgram : public testing::Test, protected velmora_test::Program {
protected:
    PlayProgram() : Program(VELMORA_PLAY) {}
};

TEST_F(PlayProgram, HelpsWithEveryOptionAndEveryExitCode) {
    EXPECT_EQ(run("--help"), 0);
    EXPECT_THAT(errors, IsEmpty());
    for (const char* option : {"--list", "--driver", "--file", "--tone", "--rate", "--bits",
                               "--channels", "--seconds", "--buffer", "--driver-log", "--quiet"}) {
        EXPECT_THAT(output, HasSubstr(option));
    }
    std::string words = output;
    std::replace(words.begin(), words.end(), '\n', ' ');
    const auto codes = words.substr(words.find("Exit codes:"));
    for (int code = velmora_play::exitDone; code <= velmora_play::exitInterrupted; ++code)
        EXPECT_THAT(codes, HasSubstr(" " + std::to_string(code) + " "));
}

TEST_F(PlayProgram, TellsItsRelease) {
    EXPECT_EQ(run("--version"), 0);
    EXPECT_EQ(output, VELMORA_RELEASE "\n");
    EXPECT_THAT(errors, IsEmpty());
}

TEST_F(PlayProgram, ExitsWithTwoForWrongArguments) {
    const char* wrong[] = {
        "",
        "--quiet",
        "--file ''",
        "--no-such-option",
        "--file a.wav --tone 1000",
        "--tone 0",
        "--tone loud",
        "--tone 1000 --bits 20",
        "--tone 1000 --rate 7999",
        "--tone 1000 --channels 3",
        "--tone 1000 --seconds 0",
        "--tone 1000 --buffer 0",
        "--tone 1000 --buffer -64",
        "--tone",
        "--tone 1000 --stall 3",
        "--tone 1000 --stall 61@5",
        "--tone 1000 --stall soon@5",
        "--tone 1000 --stall 3@soon",
    };
    for (const char* arguments : wrong) {
        SCOPED_TRACE(arguments);
        EXPECT_EQ(run(arguments), velmora_play::exitUsage);
        EXPECT_NE(errors, "");
    }
    run("");
    EXPECT_EQ(errors, "Name a --file or a --tone; --help tells more.\n");
}

TEST_F(PlayProgram, ExitsWithThreeForAFileThatItCannotPlay) {
    const std::string none = scratch.path("none.wav");
    EXPECT_EQ(run("--file " + none), velmora_play::exitFile);
    EXPECT_EQ(errors, none + ": the file cannot be read.\n");

    const std::string text = scratch.write("text.wav", "This is no audio at all.");
    EXPECT_EQ(run("--file " + text), velmora_play::exitFile);
    EXPECT_EQ(errors, text + ": the file is no WAV file.\n");

    using velmora_test::chunk;
    const std::string wav = scratch.write(
        "a.wav", velmora_test::riff(chunk("fmt ", velmora_test::fmt(1, 2, 48000, 16)) +
                                    chunk("data", "aabb")));
    EXPECT_EQ(run("--file " + wav + " --rate 44100"), velmora_play::exitFile);
    EXPECT_EQ(errors, wav + " has 2 channels at 48000 Hz, and nothing is converted here.\n");
    EXPECT_EQ(run("--file " + wav + " --channels 1"), velmora_play::exitFile);
    // A log that has no place to go to is told before anything is played.
    EXPECT_EQ(run("--file " + wav + " --driver-log /nowhere/at/all.log"), velmora_play::exitFile);
    EXPECT_EQ(errors, "/nowhere/at/all.log: the driver's log cannot be written.\n");
}

TEST_F(PlayProgram, ExitsWithFourForADriverThatIsNotThere) {
    EXPECT_EQ(run("--tone 1000 --driver Nobody"), velmora_play::exitNoDriver);
    EXPECT_EQ(errors, "There is no ASIO driver named \"Nobody\"; --list shows them.\n");
    EXPECT_THAT(output, IsEmpty());
}

TEST_F(PlayProgram, ListsTheDriverThatIsBuiltIn) {
    EXPECT_EQ(run("--list"), 0);
    EXPECT_EQ(output, "KORVENTE Velmora  {5D2C7A14-9B3E-4C61-8E0F-2A7B41C9D063}  built in\n");
}

}  // namespace
